#include "delivery.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

namespace vcam {
namespace {

constexpr std::size_t kLarge = std::size_t{256} << 10;
constexpr std::uint32_t kPieces = 16;

// One copy, cut into pieces taken one at a time: a piece the helper has
// not taken the caller copies itself, so that a helper a busy machine
// holds back never holds the copy up.
struct Copy {
    std::uint8_t *to;
    const std::uint8_t *from;
    std::size_t n;
    std::atomic<std::uint32_t> next{0};
    std::atomic<std::uint32_t> done{0};

    bool copyOne()
    {
        const std::uint32_t p = next.fetch_add(1, std::memory_order_relaxed);
        if (p >= kPieces)
            return false;
        const std::size_t begin = n * p / kPieces / 64 * 64, end = p + 1 == kPieces ? n : n * (p + 1) / kPieces / 64 * 64;
        std::memcpy(to + begin, from + begin, end - begin);
        done.fetch_add(1, std::memory_order_release);
        return true;
    }
};

// The helper, started on the first large copy and kept for the life of the
// process (never destroyed, so that it outlives static objects).
struct Helper {
    std::mutex lock;       // serialises copies that use the helper
    std::mutex queueLock;
    std::condition_variable wake;
    Copy *copy = nullptr;  // under queueLock
    bool helping = false;  // the helper works on copy (under queueLock)
    std::uint64_t serial = 0;

    Helper()
    {
        std::thread([this] { run(); }).detach();
    }
    void run()
    {
        std::uint64_t seen = 0;
        for (;;) {
            Copy *c;
            {
                std::unique_lock<std::mutex> guard(queueLock);
                wake.wait(guard, [&] { return serial != seen; });
                seen = serial;
                c = copy;
                helping = c != nullptr;
            }
            if (c == nullptr)
                continue;
            while (c->copyOne()) {
            }
            std::lock_guard<std::mutex> guard(queueLock);
            helping = false;
        }
    }
};

} // namespace

void deliverBytes(std::uint8_t *to, const std::uint8_t *from, std::size_t n)
{
#ifndef _WIN32
    if (n >= kLarge) {
        static Helper *helper = new Helper;
        std::unique_lock<std::mutex> busy(helper->lock, std::try_to_lock);
        if (busy.owns_lock()) {
            Copy c{to, from, n};
            {
                std::lock_guard<std::mutex> guard(helper->queueLock);
                helper->copy = &c;
                ++helper->serial;
            }
            helper->wake.notify_one();
            while (c.copyOne()) {
            }
            // Every piece copied, and the helper gone from the copy, which
            // ends with this call.
            for (;;) {
                {
                    std::lock_guard<std::mutex> guard(helper->queueLock);
                    if (!helper->helping && c.done.load(std::memory_order_acquire) == kPieces) {
                        helper->copy = nullptr;
                        return;
                    }
                }
                std::this_thread::yield();
            }
        }
    }
#endif
    std::memcpy(to, from, n);
}

} // namespace vcam
