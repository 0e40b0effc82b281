#include "image/schedule/window_pass.h"

#include <algorithm>

namespace quorin::image {
namespace {

constexpr size_t kPreviousValues = size_t{kSensorSide} * kSensorSide;

} // namespace

WindowPass::WindowPass(const ColourJob &job, const ColourOutput &output)
    : job_(job), output_(output), a_(job.f->area), reach_(output.reach()), windowValues_(windowValues(a_.w, reach_)),
      green_(greenKernel(job)), line_(lineKernel(job)), diagonal_(diagonalKernel(job))
{
    bands_ = (a_.h + kBand - 1) / kBand;
    if (bands_ > 1 && a_.h - (bands_ - 1) * kBand == 1)
        --bands_;
}

uint32_t WindowPass::threadsFor(const ColourJob &job, const ColourOutput &output, uint32_t threads)
{
    const size_t values = windowValues(job.f->area.w, output.reach());
    const size_t fit = kPreviousValues / values + 2 * job.f->area.pixels() / values;
    return static_cast<uint32_t>(std::max<size_t>(1, std::min<size_t>(threads, fit)));
}

// Thread t's window: in the smoothing copy's buffer while it has room,
// then in the RGB image before the prepared mosaic (which starts at two
// thirds of it).
ColourJob WindowPass::window(uint32_t t) const
{
    const size_t inPrevious = kPreviousValues / windowValues_;
    uint16_t *base = t < inPrevious ? job_.f->previous + t * windowValues_
                                    : job_.f->rgb + (t - inPrevious) * windowValues_;
    ColourJob local = job_;
    const size_t rows = windowValues_ / 3 / a_.w;
    for (unsigned c = 0; c < 3; ++c)
        local.p.c[c] = base + c * rows * a_.w;
    return local;
}

uint32_t WindowPass::needFirst(uint32_t b) const
{
    const uint32_t lo = first(b) >= reach_ ? first(b) - reach_ : 0;
    return lo >= 3 ? lo - 3 : 0;
}

uint32_t WindowPass::needEnd(uint32_t b) const
{
    return std::min(end(b) + reach_ + 3, a_.h);
}

void WindowPass::run(uint32_t b, Thread &thread) const
{
    ColourJob &local = thread.local;
    const uint32_t first = this->first(b), end = this->end(b);
    // Rows lo .. hi - 1 are interpolated, green rows top .. bottom - 1; the
    // window starts at row top.
    const uint32_t lo = first >= reach_ ? first - reach_ : 0, hi = std::min(end + reach_, a_.h);
    const uint32_t top = lo > 0 ? lo - 1 : 0, bottom = std::min(hi + 1, a_.h);
    local.p.first = top;
    output_.begin(thread.out, first, end);
    for (uint32_t y = top; y < std::min(lo + 2, bottom); ++y)
        greenPlaneRow(local, y, green_);
    for (uint32_t y = lo; y < hi; ++y) {
        if (y + 1 >= lo + 2 && y + 1 < bottom)
            greenPlaneRow(local, y + 1, green_);
        redBlueAtGreenRow(local, y, line_);
        redBlueAtRedBlueRow(local, y, diagonal_);
        if (y == 1 && lo == 0) {
            redBlueAtTop(local);
            output_.finished(local, 0, thread.out);
        }
        if (y + 1 == a_.h)
            redBlueAtBottom(local);
        if (y > 0 || a_.h == 1)
            output_.finished(local, y, thread.out);
    }
    output_.end(thread.out);
}

} // namespace quorin::image
