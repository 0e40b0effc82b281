#include "image/schedule/window_pass.h"

#include "image/schedule/team.h"

namespace quorin::image {

bool interpolateInWindows(const ColourJob<1> &job, std::uint8_t *dest)
{
    const uint32_t threads = teamSize();
    if (!WindowPass::fits(job.f->area.w, threads))
        return false;
    const WindowPass pass(job, dest);
#pragma omp parallel num_threads(threads)
    {
        WindowPass::Thread thread(pass, threadNumber());
#pragma omp for schedule(dynamic, 1)
        for (int b = 0; b < static_cast<int>(pass.bands()); ++b)
            pass.run(static_cast<uint32_t>(b), thread);
    }
    return true;
}

} // namespace quorin::image
