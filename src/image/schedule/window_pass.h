// The interpolation and 8-bit output of split rows in windows: bands of
// rows, each interpolated into a window of rows on its thread.
#pragma once

#include "image/stages/colour_finish.h"
#include "image/stages/interpolation.h"

#include <algorithm>

namespace quorin::image {

// Split rows to 8 bits, the planes only in windows: the frame in bands of
// kWindowBand rows (the last one taking a lone last row), each thread
// taking the next band when done with its own. Each band is interpolated
// into a window of rows on its thread, in the smoothing copy's buffer
// (free by now): the band's rows of the three planes and the green plane
// of the row above and the row below it, which the band's passes read.
// A row is output as soon as it is done; the top row once the edge rule
// has read the row below it, the bottom row likewise. So the planes take
// no room in the caches beyond the windows, and the full planes are not
// written (splitPlanes() computes them when asked). The buffer has room
// for a window per thread only for so many threads (fits()).
class WindowPass {
public:
    static constexpr uint32_t kBand = 32;
    static constexpr size_t kRows = kBand + 3;

    WindowPass(const ColourJob<1> &job, std::uint8_t *dest)
        : job_(job), dest_(dest), a_(job.f->area), windowValues_(windowValues(a_.w)), green_(greenKernel(job)),
          line_(lineKernel(job)), diagonal_(diagonalKernel(job))
    {
        bands_ = (a_.h + kBand - 1) / kBand;
        if (bands_ > 1 && a_.h - (bands_ - 1) * kBand == 1)
            --bands_;
    }
    // Whether the buffer holds a window for each of `threads` threads.
    static bool fits(size_t w, uint32_t threads)
    {
        return size_t{threads} * windowValues(w) <= size_t{kSensorSide} * kSensorSide;
    }
    uint32_t bands() const { return bands_; }
    uint32_t first(uint32_t b) const { return b * kBand; }
    uint32_t end(uint32_t b) const { return b + 1 == bands_ ? a_.h : (b + 1) * kBand; }

    // Thread t's window and output.
    struct Thread {
        ColourJob<1> local;
        const PlanarFinish finish;
        Thread(const WindowPass &pass, size_t t) : local(pass.window(t)), finish(local, pass.dest_) {}
    };

    void run(uint32_t b, Thread &thread) const
    {
        ColourJob<1> &local = thread.local;
        const uint32_t first = this->first(b), end = this->end(b);
        // Green rows top .. bottom - 1; the window starts at row top.
        const uint32_t top = first > 0 ? first - 1 : 0, bottom = std::min(end + 1, a_.h);
        local.p.first = top;
        for (uint32_t y = top; y < std::min(first + 2, bottom); ++y)
            greenPlaneRow(local, y, green_);
        for (uint32_t y = first; y < end; ++y) {
            if (y + 1 >= first + 2 && y + 1 < bottom)
                greenPlaneRow(local, y + 1, green_);
            redBlueAtGreenRow(local, y, line_);
            redBlueAtRedBlueRow(local, y, diagonal_);
            if (y == 1) {
                redBlueAtTop(local);
                thread.finish.row(0);
            }
            if (y + 1 == a_.h)
                redBlueAtBottom(local);
            if (y > 0 || a_.h == 1)
                thread.finish.row(y);
        }
    }

private:
    static size_t windowValues(size_t w) { return 3 * kRows * w; }

    ColourJob<1> window(size_t t) const
    {
        ColourJob<1> local = job_;
        for (unsigned c = 0; c < 3; ++c)
            local.p.c[c] = job_.f->previous + t * windowValues_ + c * kRows * a_.w;
        return local;
    }

    const ColourJob<1> &job_;
    std::uint8_t *const dest_;
    const Area &a_;
    const size_t windowValues_;
    const PlanarRowKernel green_, line_, diagonal_;
    uint32_t bands_;
};

// The window pass alone; false, having done nothing, when the windows do
// not fit.
bool interpolateInWindows(const ColourJob<1> &job, std::uint8_t *dest);

} // namespace quorin::image
