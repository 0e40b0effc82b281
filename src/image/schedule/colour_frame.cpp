#include "image/schedule/colour_frame.h"

#include "image/schedule/first_pass.h"
#include "image/schedule/team.h"
#include "image/schedule/window_pass.h"

#include <atomic>

namespace quorin::image {

uint32_t colourFrame(const ColourJob &job, const SensorJob *sensor, const ColourOutput &output, uint32_t threads)
{
    const FirstPass first(job, sensor, threads);
    const WindowPass windows(job, output);
    std::atomic<bool> done[FirstPass::kMaxBands] = {};
    std::atomic<uint32_t> bits{0};
    team::Chunks firstBands(first.bands()), windowBands(windows.bands());
    team::run(threads, [&](uint32_t slot) {
        uint32_t b, own = 0;
        {
            FirstPass::Thread thread(first);
            while (firstBands.take(&b)) {
                own |= first.run(b, thread);
                done[b].store(true, std::memory_order_release);
                team::wakeSleepers();
            }
        }
        bits.fetch_or(own, std::memory_order_relaxed);
        WindowPass::Thread thread(windows, slot);
        while (windowBands.take(&b)) {
            const uint32_t needFirst = windows.needFirst(b), needEnd = windows.needEnd(b);
            // Every first-pass band is taken by now: those not done are being
            // done. Spin briefly, then sleep: the thread doing one may be
            // waiting for this core.
            for (uint32_t k = 0; k < first.bands(); ++k)
                if (first.first(k) < needEnd && first.first(k + 1) > needFirst)
                    for (uint32_t spins = 0; !done[k].load(std::memory_order_acquire); ++spins) {
                        if (spins < 4096)
                            __builtin_ia32_pause();
                        else
                            team::sleepUntil([&] { return done[k].load(std::memory_order_acquire); });
                    }
            windows.run(b, thread);
        }
    });
    return bits.load(std::memory_order_relaxed);
}

uint32_t colourFirstPass(const ColourJob &job, const SensorJob *sensor, uint32_t threads)
{
    const FirstPass pass(job, sensor, threads);
    std::atomic<uint32_t> bits{0};
    team::Chunks bands(pass.bands());
    team::run(threads, [&](uint32_t) {
        FirstPass::Thread thread(pass);
        uint32_t b, own = 0;
        while (bands.take(&b))
            own |= pass.run(b, thread);
        bits.fetch_or(own, std::memory_order_relaxed);
    });
    return bits.load(std::memory_order_relaxed);
}

void colourWindowPass(const ColourJob &job, const ColourOutput &output, uint32_t threads)
{
    const WindowPass pass(job, output);
    team::Chunks bands(pass.bands());
    team::run(threads, [&](uint32_t slot) {
        WindowPass::Thread thread(pass, slot);
        uint32_t b;
        while (bands.take(&b))
            pass.run(b, thread);
    });
}

} // namespace quorin::image
