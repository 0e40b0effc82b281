#include "image/schedule/grey_pass.h"

#include "image/schedule/team.h"

#include <algorithm>

namespace quorin::image {

GreyPass::GreyPass(const Frame &f, const SensorJob *sensor, const GreyOutput &output, uint32_t threads)
    : f_(f), a_(f.area), sensor_(sensor), output_(output), sensorRow_(sensorRowKernel()),
      defects_(sensor != nullptr && f.defectCorrect && f.defectCount != 0), defectReach_(defects_ ? (f.colour ? 2 : 1) : 0),
      bands_(threads <= 1 ? 1 : std::min(kMaxBands, std::max(threads, std::min(4 * threads, a_.h / 64))))
{
    if (defects_) {
        set_ = &defectSet(f_, localSet_);
        defectRows_.emplace(*set_, a_);
    }
}

// Row y as band first .. end - 1 keeps it: its own rows in f.work, the
// others in the rings.
uint16_t *GreyPass::rowOf(uint32_t y, uint32_t first, uint32_t end, Thread &thread) const
{
    if (y < first)
        return thread.before + size_t{first - y - 1} * a_.w;
    if (y >= end)
        return thread.after + size_t{y - end} * a_.w;
    return f_.work + size_t{y} * a_.w;
}

void GreyPass::run(uint32_t b, Thread &thread) const
{
    const uint32_t first = this->first(b), end = this->first(b + 1);
    if (first == end)
        return;
    // Rows senseFirst .. senseEnd - 1 are sensed, rows outFirst .. outEnd
    // - 1 corrected and handed to the output; each row defectReach_ rows
    // behind the sensing.
    const uint32_t reach = output_.reach();
    const uint32_t outFirst = first >= reach ? first - reach : 0, outEnd = std::min(end + reach, a_.h);
    const uint32_t senseFirst = outFirst >= defectReach_ ? outFirst - defectReach_ : 0;
    const uint32_t senseEnd = std::min(outEnd + defectReach_, a_.h);
    auto rows = [&](uint32_t r) { return rowOf(r, first, end, thread); };
    output_.begin(thread.out, first, end);
    for (uint32_t y = senseFirst; y < senseEnd + defectReach_; ++y) {
        if (sensor_ != nullptr && y < senseEnd)
            sensorRow_(*sensor_, y, rows(y));
        if (y < outFirst + defectReach_ || y - defectReach_ >= outEnd)
            continue;
        const uint32_t c = y - defectReach_;
        if (defects_)
            for (const uint32_t *e = defectRows_->begin(c); e != defectRows_->end(c); ++e)
                correctDefect(f_, *set_, *e, rows);
        output_.finished(sensor_ != nullptr ? rows(c) : f_.work + size_t{c} * a_.w, c, thread.out);
    }
}

void greyFrame(const Frame &f, const SensorJob *sensor, const GreyOutput &output, uint32_t threads)
{
    const GreyPass pass(f, sensor, output, threads);
    team::Chunks bands(pass.bands());
    team::run(threads, [&](uint32_t) {
        GreyPass::Thread thread;
        uint32_t b;
        while (bands.take(&b))
            pass.run(b, thread);
    });
}

} // namespace quorin::image
