// The thread team of the pixel passes: helpers the library starts on the
// first parallel job (one fewer than the processors it may run on), that
// spin briefly and then sleep when there is nothing to do. A job runs on
// the calling thread and on whichever helpers are free to join it; its
// work is handed out in chunks, one at a time, and a chunk no helper has
// taken is never waited for: the caller takes it. So a helper that a busy
// machine holds back costs a job at most the chunk it has in hand, and
// several host threads running jobs at once share the helpers instead of
// each starting a team of its own.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace quorin::image::team {

using std::uint32_t;

// The most threads a job runs on: the processors the process may run on,
// or QUORIN_THREADS when set (1 runs every job on the calling thread).
uint32_t size();
// Sets that number (tests and benchmarks: one thread, or more threads than
// processors); 0 restores the default.
void setSize(uint32_t threads);
// The threads a frame of `pixels` pixels runs on: a thread for every 64 Ki
// pixels, up to size() (frames smaller than that gain less from a second
// thread than waking it costs); every thread of a size set by setSize().
uint32_t threadsFor(std::size_t pixels);
// Ends the helpers (they are started again by the next job).
void stop();
// The same while the library is being unloaded (see platform.h).
void stopAtUnload();

// Sleeps until done(context) holds, which another thread of the team
// makes so and then calls wakeSleepers(). For waits that may be long on a
// busy host: spinning, or yielding, would keep the core from the thread
// being waited for.
void sleepUntil(bool (*done)(void *context), void *context);
template <typename Done> void sleepUntil(Done &&done)
{
    using Fn = std::remove_reference_t<Done>;
    sleepUntil([](void *context) { return (*static_cast<Fn *>(context))(); }, &done);
}
void wakeSleepers();

// Runs call(context, slot) on the calling thread (slot 0) and on up to
// threads - 1 helpers (while n jobs run at once, up to size() / n threads
// each) that are free (slots 1, 2, ... in the order they
// join); returns once the caller's call and every call a helper joined
// with have returned. The calls share their work through counters such as
// Chunks: a helper that joins late finds less of it, or none.
void run(uint32_t threads, void (*call)(void *context, uint32_t slot), void *context);

template <typename Body> void run(uint32_t threads, Body &&body)
{
    run(threads, [](void *context, uint32_t slot) { (*static_cast<Body *>(context))(slot); }, &body);
}

// Chunks 0 .. count - 1, handed out one at a time.
class Chunks {
public:
    explicit Chunks(uint32_t count) : count_(count) {}
    bool take(uint32_t *chunk)
    {
        const uint32_t c = next_.fetch_add(1, std::memory_order_relaxed);
        if (c >= count_)
            return false;
        *chunk = c;
        return true;
    }

private:
    std::atomic<uint32_t> next_{0};
    const uint32_t count_;
};

// fn(begin, end) over 0 .. count - 1 in pieces of `grain`, handed out to the
// team's threads as they come free.
template <typename Fn> void parallelFor(uint32_t count, uint32_t grain, Fn &&fn)
{
    const uint32_t pieces = (count + grain - 1) / grain;
    Chunks chunks(pieces);
    run(pieces < size() ? pieces : size(), [&](uint32_t) {
        uint32_t piece;
        while (chunks.take(&piece)) {
            const uint32_t begin = piece * grain, end = begin + grain < count ? begin + grain : count;
            fn(begin, end);
        }
    });
}

} // namespace quorin::image::team
