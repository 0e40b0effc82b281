#include "image/schedule/whole_frame.h"

#include "image/schedule/team.h"
#include "image/stages/colour_finish.h"
#include "image/stages/interpolation.h"

namespace quorin::image {

// Interpolation of the planes and the 8-bit output, row by row so that a
// row's data is still in cache for the next pass: the green plane of the
// first and last row of every band (which the neighbouring bands read),
// then band by band, row after row, the green plane one row ahead, red and
// blue at green sites, red and blue at red and blue sites, and the output.
// The top and bottom rows, which the edge rule changes afterwards, are
// output last.
void interpolateAndFinish(const ColourJob<1> &job, std::uint8_t *dest)
{
    const Area &a = job.f->area;
    const PlanarRowKernel green = greenKernel(job), line = lineKernel(job), diagonal = diagonalKernel(job);
    const PlanarFinish finish(job, dest);
    const Bands bands(a.h, teamSize());
    const int count = static_cast<int>(bands.count);
#pragma omp parallel
    {
#pragma omp for schedule(static)
        for (int b = 0; b < count; ++b) {
            const uint32_t first = bands.start[b], end = bands.start[b + 1];
            greenPlaneRow(job, first, green);
            if (end - 1 > first)
                greenPlaneRow(job, end - 1, green);
        }
#pragma omp for schedule(dynamic, 1)
        for (int b = 0; b < count; ++b) {
            const uint32_t first = bands.start[b], end = bands.start[b + 1];
            for (uint32_t y = first; y < end; ++y) {
                if (y + 2 < end)
                    greenPlaneRow(job, y + 1, green);
                redBlueAtGreenRow(job, y, line);
                redBlueAtRedBlueRow(job, y, diagonal);
                if (y > 0 && y + 1 < a.h)
                    finish.row(y);
            }
        }
#pragma omp sections
        {
#pragma omp section
            {
                redBlueAtTop(job);
                finish.row(0);
            }
#pragma omp section
            {
                redBlueAtBottom(job);
                if (a.h > 1)
                    finish.row(a.h - 1);
            }
        }
    }
}

} // namespace quorin::image
