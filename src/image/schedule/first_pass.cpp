#include "image/schedule/first_pass.h"

#include "image/schedule/team.h"
#include "image/schedule/window_pass.h"

#include <atomic>
#include <thread>

namespace quorin::image {

bool correctBalanceAndSplit(const ColourJob<1> &job, const SensorJob *sensor)
{
    const uint32_t threads = teamSize();
    const FirstPass pass(job, sensor, threads);
    uint32_t bits = 0;
#pragma omp parallel num_threads(threads) reduction(| : bits)
    {
        FirstPass::Thread thread(pass);
#pragma omp for schedule(dynamic, 1)
        for (int b = 0; b < static_cast<int>(pass.bands()); ++b)
            bits |= pass.run(static_cast<uint32_t>(b), thread);
    }
    return bits <= kMaxValue;
}

bool splitRowsToBytes(const ColourJob<1> &job, const SensorJob *sensor, std::uint8_t *dest, uint32_t threads)
{
    const FirstPass first(job, sensor, threads);
    const WindowPass windows(job, dest);
    const uint32_t h = job.f->area.h;
    std::atomic<bool> done[FirstPass::kMaxBands] = {};
    uint32_t bits = 0;
#pragma omp parallel num_threads(threads) reduction(| : bits)
    {
        {
            FirstPass::Thread thread(first);
#pragma omp for schedule(dynamic, 1) nowait
            for (int b = 0; b < static_cast<int>(first.bands()); ++b) {
                bits |= first.run(static_cast<uint32_t>(b), thread);
                done[b].store(true, std::memory_order_release);
            }
        }
        WindowPass::Thread thread(windows, threadNumber());
#pragma omp for schedule(dynamic, 1)
        for (int b = 0; b < static_cast<int>(windows.bands()); ++b) {
            const uint32_t from = windows.first(static_cast<uint32_t>(b));
            const uint32_t needFirst = from >= 3 ? from - 3 : 0;
            const uint32_t needEnd = std::min(windows.end(static_cast<uint32_t>(b)) + 3, h);
            // Every first-pass band is taken by now: those not done are
            // being done. Spin briefly, then yield: the thread doing one may
            // be waiting for a core.
            for (uint32_t k = 0; k < first.bands(); ++k)
                if (first.first(k) < needEnd && first.first(k + 1) > needFirst)
                    for (uint32_t spins = 0; !done[k].load(std::memory_order_acquire); ++spins) {
                        if (spins < 4096)
                            __builtin_ia32_pause();
                        else
                            std::this_thread::yield();
                    }
            windows.run(static_cast<uint32_t>(b), thread);
        }
    }
    return bits <= kMaxValue;
}

} // namespace quorin::image
