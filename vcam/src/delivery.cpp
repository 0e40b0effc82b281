#include "delivery.h"

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

namespace vcam {
namespace {

constexpr std::size_t kLarge = std::size_t{256} << 10;
constexpr std::uint32_t kPieces = 16;

// The copy the helper may join, cut into pieces taken one at a time: a
// piece the helper has not taken the caller copies itself, so a helper
// that a busy machine holds back costs a copy at most the piece in its
// hands. A piece is claimed together with the copy's number, so a claim
// the helper makes for one copy can never take a piece of another; and
// the copy lives in the helper, so the caller waits only for the pieces,
// never for the helper to leave.
class Helper {
public:
    Helper()
    {
        std::thread([this] { run(); }).detach();
    }

    // Copies with the helper; false when another thread is copying with it.
    bool copy(std::uint8_t *to, const std::uint8_t *from, std::size_t n)
    {
        std::unique_lock<std::mutex> busy(lock_, std::try_to_lock);
        if (!busy.owns_lock())
            return false;
        to_ = to;
        from_ = from;
        n_ = n;
        done_.store(0, std::memory_order_relaxed);
        const std::uint64_t number = ++number_;
        claim_.store(number << 8, std::memory_order_release);
        {
            std::lock_guard<std::mutex> guard(queueLock_);
            offered_ = number;
        }
        wake_.notify_one();
        while (copyOne(number)) {
        }
        // The pieces the helper took: spin a moment, then sleep, so that a
        // helper waiting for a core can have this one.
        for (std::uint32_t spins = 0, d; (d = done_.load(std::memory_order_acquire)) != kPieces; ++spins)
            if (spins < 2000)
                __builtin_ia32_pause();
            else
                done_.wait(d, std::memory_order_acquire);
        return true;
    }

private:
    bool copyOne(std::uint64_t number)
    {
        std::uint64_t c = claim_.load(std::memory_order_acquire);
        do {
            if (c >> 8 != number || (c & 0xff) >= kPieces)
                return false;
        } while (!claim_.compare_exchange_weak(c, c + 1, std::memory_order_acquire));
        const std::size_t p = c & 0xff;
        const std::size_t begin = n_ * p / kPieces / 64 * 64, end = p + 1 == kPieces ? n_ : n_ * (p + 1) / kPieces / 64 * 64;
        std::memcpy(to_ + begin, from_ + begin, end - begin);
        done_.fetch_add(1, std::memory_order_release);
        done_.notify_one();
        return true;
    }

    void run()
    {
        std::uint64_t seen = 0;
        for (;;) {
            {
                std::unique_lock<std::mutex> guard(queueLock_);
                wake_.wait(guard, [&] { return offered_ != seen; });
                seen = offered_;
            }
            while (copyOne(seen)) {
            }
        }
    }

    std::mutex lock_; // serialises the copies that use the helper
    std::uint8_t *to_ = nullptr;
    const std::uint8_t *from_ = nullptr;
    std::size_t n_ = 0;
    std::uint64_t number_ = 0;                // under lock_
    std::atomic<std::uint64_t> claim_{0};     // the copy's number << 8 | the next piece
    std::atomic<std::uint32_t> done_{0};      // pieces copied
    std::mutex queueLock_;
    std::condition_variable wake_;
    std::uint64_t offered_ = 0;               // under queueLock_
};

} // namespace

void deliverBytes(std::uint8_t *to, const std::uint8_t *from, std::size_t n)
{
#ifndef _WIN32
    if (n >= kLarge) {
        static Helper *helper = new Helper; // never destroyed: it outlives static objects
        if (helper->copy(to, from, n))
            return;
    }
#endif
    std::memcpy(to, from, n);
}

} // namespace vcam
