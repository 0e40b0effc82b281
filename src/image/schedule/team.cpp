#include "image/schedule/team.h"

#include "platform/platform.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

namespace quorin::image::team {
namespace {

// A job open to helpers. It lives on the caller's stack: the caller closes
// it and waits until no helper is inside before it returns.
struct Job {
    void (*call)(void *context, uint32_t slot);
    void *context;
    uint32_t slots;            // threads the job may run on
    uint32_t joined = 1;       // the next slot (the caller has 0); under the lock
    bool closed = false;       // under the lock
    std::atomic<uint32_t> inside{0}; // helpers running the call
};

// How long an idle helper looks for a job before it sleeps (some 50 us):
// long enough to catch the next job of a frame, short enough not to take a
// busy machine's time from its other work.
constexpr int kSpins = 2000;
// How long a caller waits for its helpers' last chunks before it sleeps.
constexpr uint32_t kEndSpins = 1000;

struct State {
    std::mutex lock;
    std::condition_variable wake;
    std::vector<platform::Thread> helpers;
    std::vector<Job *> open;           // jobs helpers may join, oldest first
    std::atomic<uint32_t> generation{0}; // counts opened jobs, for spinning helpers
    bool stopping = false;
    std::atomic<uint32_t> size{0};     // 0: the default
    std::atomic<uint32_t> running{0};  // jobs of several threads being run
    // Threads asleep until another thread's work is done (see sleepUntil).
    std::mutex sleepLock;
    std::condition_variable sleepers;
    std::atomic<uint32_t> sleeping{0};
    // A busy host: jobs left to run on their caller alone, and how many the
    // last sign of a busy host earned (doubled while the host stays busy).
    std::atomic<uint32_t> alone{0};
    std::atomic<uint32_t> backoff{0};
};

// On a host whose own threads keep the cores busy, a helper that took part
// of a job may lose its core for a whole time slice, and the caller waits
// for it at the end: such a job takes several times longer than on the
// caller alone. A job whose caller waited longer than half its own work
// (and 100 us) sends the next jobs to their callers alone, 4 of them, then
// twice as many each time it happens again (up to 256); a job whose
// helpers kept pace halves the count. Only the default size adapts: a size
// set by setSize() is kept.
constexpr uint32_t kFirstBackoff = 4, kLongestBackoff = 256;
constexpr std::chrono::microseconds kLongWait{100};

// True when the next job of a busy host runs on its caller alone.
bool takeAlone(State &s)
{
    uint32_t left = s.alone.load(std::memory_order_relaxed);
    while (left > 0 && !s.alone.compare_exchange_weak(left, left - 1, std::memory_order_relaxed)) {
    }
    return left > 0;
}

void judge(State &s, std::chrono::steady_clock::duration worked, std::chrono::steady_clock::duration waited)
{
    const uint32_t backoff = s.backoff.load(std::memory_order_relaxed);
    if (waited > std::max<std::chrono::steady_clock::duration>(worked / 2, kLongWait)) {
        const uint32_t next = std::min(std::max(2 * backoff, kFirstBackoff), kLongestBackoff);
        s.backoff.store(next, std::memory_order_relaxed);
        s.alone.store(next, std::memory_order_relaxed);
    } else {
        s.backoff.store(backoff / 2, std::memory_order_relaxed);
    }
}

// The team lives until the library is unloaded (see stopAtUnload), not
// just until static objects are destroyed: helpers may still wait on it
// then.
State *&statePointer()
{
    static State *s = new State;
    return s;
}

State &state()
{
    State *&s = statePointer();
    if (s == nullptr) // a call after unloading began: a team of its own
        s = new State;
    return *s;
}

uint32_t defaultSize()
{
    static const uint32_t size = [] {
        if (const char *v = std::getenv("QUORIN_THREADS")) {
            const long n = std::strtol(v, nullptr, 10);
            if (n >= 1 && n <= 256)
                return static_cast<uint32_t>(n);
        }
        return std::max<uint32_t>(platform::processorCount(), 1);
    }();
    return size;
}

// Joins an open job under the lock: the slot it runs as, or 0 for none.
uint32_t join(Job *job)
{
    if (job->closed || job->joined >= job->slots)
        return 0;
    job->inside.fetch_add(1, std::memory_order_relaxed);
    return job->joined++;
}

void helper(void *)
{
    State &s = state();
    uint32_t seen = s.generation.load(std::memory_order_acquire);
    std::unique_lock<std::mutex> guard(s.lock);
    for (;;) {
        Job *job = nullptr;
        uint32_t slot = 0;
        for (Job *open : s.open)
            if ((slot = join(open)) != 0) {
                job = open;
                break;
            }
        if (job != nullptr) {
            guard.unlock();
            job->call(job->context, slot);
            job->inside.fetch_sub(1, std::memory_order_release); // the job may end from here on
            wakeSleepers();
            guard.lock();
            continue;
        }
        if (s.stopping)
            return;
        // Nothing to join: look again for a moment, then sleep.
        guard.unlock();
        for (int spins = 0; spins < kSpins && s.generation.load(std::memory_order_acquire) == seen; ++spins)
            __builtin_ia32_pause();
        guard.lock();
        if (s.generation.load(std::memory_order_acquire) == seen)
            s.wake.wait(guard, [&] { return s.stopping || s.generation.load(std::memory_order_acquire) != seen; });
        seen = s.generation.load(std::memory_order_acquire);
    }
}

// Starts helpers until there are threads - 1 of them (under the lock).
void startHelpers(State &s, uint32_t threads)
{
    while (s.helpers.size() + 1 < threads && !s.stopping) {
        platform::Thread t = platform::threadStart(helper, nullptr);
        if (t == nullptr)
            return; // the jobs run on fewer threads
        s.helpers.push_back(t);
    }
}

// Ends every helper; true when all ended by themselves. `wake` wakes them
// first, for helpers that end by themselves; helpers that are stopped
// where they wait must not be woken: one could be stopped holding the
// team's lock, so the team is then left alone.
template <typename Finish> bool end(Finish finish, bool wake)
{
    State &s = state();
    std::vector<platform::Thread> helpers;
    {
        std::lock_guard<std::mutex> guard(s.lock);
        s.stopping = true;
        helpers.swap(s.helpers);
    }
    if (wake)
        s.wake.notify_all();
    bool joined = true;
    for (platform::Thread t : helpers)
        joined = finish(t) && joined;
    if (!joined)
        return false;
    std::lock_guard<std::mutex> guard(s.lock);
    s.stopping = false;
    return true;
}

} // namespace

void sleepUntil(bool (*done)(void *context), void *context)
{
    State &s = state();
    // Read-modify-writes on both sides: either the waker's comes later and
    // sees this sleeper, or this one comes later and sees what the waker
    // did before it.
    s.sleeping.fetch_add(1, std::memory_order_acq_rel);
    {
        std::unique_lock<std::mutex> guard(s.sleepLock);
        s.sleepers.wait(guard, [&] { return done(context); });
    }
    s.sleeping.fetch_sub(1, std::memory_order_relaxed);
}

void wakeSleepers()
{
    State &s = state();
    if (s.sleeping.fetch_add(0, std::memory_order_acq_rel) == 0)
        return;
    { // a sleeper is either before its check, or waiting
        std::lock_guard<std::mutex> guard(s.sleepLock);
    }
    s.sleepers.notify_all();
}

uint32_t size()
{
    const uint32_t set = state().size.load(std::memory_order_relaxed);
    return set != 0 ? set : defaultSize();
}

void setSize(uint32_t threads)
{
    state().size.store(threads, std::memory_order_relaxed);
}

uint32_t threadsFor(std::size_t pixels)
{
    const uint32_t set = state().size.load(std::memory_order_relaxed);
    if (set != 0)
        return set;
    const std::size_t wanted = std::max<std::size_t>(pixels >> 16, 1);
    return static_cast<uint32_t>(std::min<std::size_t>(wanted, defaultSize()));
}

void stop()
{
    end(
        [](platform::Thread t) {
            platform::threadJoin(t);
            return true;
        },
        true);
}

void stopAtUnload()
{
    // With every helper gone, the team goes with the library.
    if (end(platform::threadEndAtUnload, platform::threadsEndByThemselvesAtUnload()))
        delete std::exchange(statePointer(), nullptr);
}

void run(uint32_t threads, void (*call)(void *context, uint32_t slot), void *context)
{
    if (threads <= 1) {
        call(context, 0);
        return;
    }
    State &s = state();
    // Transfers on several host threads at once share the team: each runs
    // on its part of the threads, and on its own thread alone when there
    // are as many transfers as threads. A thread of the team that one of
    // them would wait for is a core the others lack.
    const uint32_t running = s.running.fetch_add(1, std::memory_order_acq_rel) + 1;
    threads = std::min(threads, std::max<uint32_t>(size() / running, 1));
    const bool adapts = s.size.load(std::memory_order_relaxed) == 0;
    if (threads <= 1 || (adapts && takeAlone(s))) {
        call(context, 0);
        s.running.fetch_sub(1, std::memory_order_acq_rel);
        return;
    }
    Job job{call, context, threads};
    {
        std::lock_guard<std::mutex> guard(s.lock);
        startHelpers(s, threads);
        s.open.push_back(&job);
        s.generation.fetch_add(1, std::memory_order_release);
    }
    s.wake.notify_all();
    const auto start = std::chrono::steady_clock::now();
    call(context, 0);
    const auto worked = std::chrono::steady_clock::now();
    {
        std::lock_guard<std::mutex> guard(s.lock);
        job.closed = true;
        s.open.erase(std::find(s.open.begin(), s.open.end(), &job));
    }
    // Helpers inside finish the work they took; none joins any more. Spin
    // a moment, then sleep: on a busy host the helper may be waiting for
    // this very core (yielding would hand it to the host's threads for a
    // whole time slice instead).
    for (uint32_t spins = 0; job.inside.load(std::memory_order_acquire) != 0; ++spins)
        if (spins < kEndSpins)
            __builtin_ia32_pause();
        else
            sleepUntil([&] { return job.inside.load(std::memory_order_acquire) == 0; });
    if (adapts)
        judge(s, worked - start, std::chrono::steady_clock::now() - worked);
    s.running.fetch_sub(1, std::memory_order_acq_rel);
}

} // namespace quorin::image::team
