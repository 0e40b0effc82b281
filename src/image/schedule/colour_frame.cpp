#include "image/schedule/colour_frame.h"

#include "image/schedule/first_pass.h"
#include "image/schedule/team.h"
#include "image/schedule/window_pass.h"

#include <atomic>
#include <thread>

namespace quorin::image {

uint32_t colourFrame(const ColourJob &job, const SensorJob *sensor, const ColourOutput &output, uint32_t threads)
{
    const FirstPass first(job, sensor, threads);
    const WindowPass windows(job, output);
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
            const uint32_t needFirst = windows.needFirst(static_cast<uint32_t>(b));
            const uint32_t needEnd = windows.needEnd(static_cast<uint32_t>(b));
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
    return bits;
}

uint32_t colourFirstPass(const ColourJob &job, const SensorJob *sensor, uint32_t threads)
{
    const FirstPass pass(job, sensor, threads);
    uint32_t bits = 0;
#pragma omp parallel num_threads(threads) reduction(| : bits)
    {
        FirstPass::Thread thread(pass);
#pragma omp for schedule(dynamic, 1)
        for (int b = 0; b < static_cast<int>(pass.bands()); ++b)
            bits |= pass.run(static_cast<uint32_t>(b), thread);
    }
    return bits;
}

void colourWindowPass(const ColourJob &job, const ColourOutput &output, uint32_t threads)
{
    const WindowPass pass(job, output);
#pragma omp parallel num_threads(threads)
    {
        WindowPass::Thread thread(pass, threadNumber());
#pragma omp for schedule(dynamic, 1)
        for (int b = 0; b < static_cast<int>(pass.bands()); ++b)
            pass.run(static_cast<uint32_t>(b), thread);
    }
}

} // namespace quorin::image
