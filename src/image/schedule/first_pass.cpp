#include "image/schedule/first_pass.h"

#include <algorithm>
#include <cstring>

namespace quorin::image {

FirstPass::FirstPass(const ColourJob &job, const SensorJob *sensor, uint32_t threads)
    : job_(job), f_(*job.f), a_(f_.area), w_(a_.w), split_(job.p.half != 0), sensor_(sensor),
      kernel_(kernelFor(f_.kernelVariant)), balanceRow_(balanceRowKernel()), sensorRow_(sensorRowKernel()),
      smoothRow_(smoothRowKernel(job.narrow)), balanceSplit_(balanceSplitKernel()),
      smoothSplit_(smoothSplitKernel()), smoothing_(f_.colourMode == 2 && a_.h >= 3),
      defects_(sensor != nullptr && f_.defectCorrect && f_.defectCount != 0),
      bands_(threads <= 1 ? 1 : std::min(kMaxBands, std::max(threads, std::min(4 * threads, a_.h / 64))))
{
    if (defects_) {
        set_ = &defectSet(f_, localSet_);
        defectRows_.emplace(*set_, a_);
    }
}

FirstPass::Thread::Thread(const FirstPass &pass)
{
    if (pass.sensor_ != nullptr)
        job = *pass.sensor_;
}

uint32_t FirstPass::run(uint32_t b, Thread &thread) const
{
    const uint32_t first = this->first(b), end = this->first(b + 1);
    uint32_t bits = 0;
    if (first == end)
        return bits;
    // Rows prepareFirst .. prepareEnd - 1 are balanced, rows senseFirst ..
    // senseEnd - 1 corrected; each row two rows ahead of its balance. A row
    // is smoothed once the row below it is balanced.
    const uint32_t prepareFirst = smoothing_ && first > 0 ? first - 1 : first;
    const uint32_t prepareEnd = smoothing_ ? std::min(end + 1, a_.h) : end;
    const uint32_t senseFirst = prepareFirst >= 2 ? prepareFirst - 2 : 0;
    const uint32_t senseEnd = std::min(prepareEnd + 2, a_.h);
    for (uint32_t y = senseFirst; y < std::min(prepareFirst + 2, senseEnd); ++y)
        sense(y, thread);
    for (uint32_t y = prepareFirst; y < prepareEnd; ++y) {
        if (y + 2 < senseEnd)
            sense(y + 2, thread);
        bits |= prepare(y, y >= first && y < end, thread);
        if (y > first && y - 1 < end)
            smooth(y - 1, thread);
    }
    if (prepareEnd == end)
        smooth(end - 1, thread);
    return bits;
}

uint16_t *FirstPass::rowOf(uint32_t y, Thread &thread) const
{
    return sensor_ != nullptr ? thread.ring + size_t{y % kRingRows} * w_ : f_.work + y * w_;
}

void FirstPass::sense(uint32_t y, Thread &thread) const
{
    if (sensor_ != nullptr)
        sensorRow_(thread.job, y, rowOf(y, thread));
}

// Row y corrected for defects and balanced: to the mosaic, or with
// smoothing to the ring of balanced rows that the smoothing reads. Rows
// beyond the band (not `own`) only to the ring. Returns the OR of the
// balanced values.
uint32_t FirstPass::prepare(uint32_t y, bool own, Thread &thread) const
{
    if (defects_)
        for (const uint32_t *e = defectRows_->begin(y); e != defectRows_->end(y); ++e)
            correctDefect(f_, *set_, *e, [&](uint32_t r) { return rowOf(r, thread); });
    const uint16_t *from = rowOf(y, thread);
    if (split_)
        return prepareSplit(y, own, from, thread);
    uint16_t *to = smoothing_ ? balancedOf(y, thread) : own ? job_.mosaicRow(y) : thread.spare;
    uint32_t bits = 0;
    if (kernel_ == Kernel::Skip) {
        std::memcpy(to, from, w_ * 2);
        for (size_t x = 0; x < w_; ++x)
            bits |= to[x];
    } else {
        balanceRow_(f_, y, kernel_ == Kernel::Vector, from, to, &bits);
    }
    // The 16-bit lanes of a narrow job must not see a value above 1023
    // (their sums would overflow): such a frame is done again in 32-bit
    // values, and this one only has to stay within bounds.
    if (job_.narrow && bits > kMaxValue)
        for (size_t x = 0; x < w_; ++x)
            to[x] = std::min(to[x], kMaxValue);
    return bits;
}

// The same for split rows: both halves to the mosaic, except with
// smoothing the green one, which the smoothing reads, to the ring.
uint32_t FirstPass::prepareSplit(uint32_t y, bool own, const uint16_t *from, Thread &thread) const
{
    const size_t greenHalf = (y & 1) ? 0 : 1;
    uint16_t *halves[2];
    for (size_t h = 0; h < 2; ++h) {
        if (smoothing_ && h == greenHalf)
            halves[h] = balancedOf(y, thread) + h * job_.p.half;
        else
            halves[h] = own ? job_.mosaicRow(y) + h * job_.p.half : thread.spare;
    }
    vec::SplitBalance rule = splitBalance(f_, y, kernel_);
    if (rule.columns == kUnbalanced) {
        uint32_t rowBits;
        balanceRow_(f_, y, kernel_ == Kernel::Vector, from, thread.row, &rowBits);
        from = thread.row;
        rule.columns = 0;
    }
    const uint32_t bits = balanceSplit_(from, w_, rule, halves[0], halves[1]);
    // As for natural rows: the 16-bit lanes must not see a value above 1023.
    if (bits > kMaxValue)
        for (size_t h = 0; h < 2; ++h)
            for (size_t x = 0; x < (h == 0 ? job_.p.half : w_ / 2); ++x)
                halves[h][x] = std::min(halves[h][x], kMaxValue);
    return bits;
}

// Row y smoothed from the balanced rows into the mosaic (the green half of
// split rows; the whole row of natural ones).
void FirstPass::smooth(uint32_t y, Thread &thread) const
{
    if (!smoothing_)
        return;
    auto *mosaic = job_.mosaicRow(y);
    const bool inner = y >= 1 && y + 1 < a_.h;
    const uint32_t last = (y & 1) ? a_.w - 2 : a_.w - 3;
    if (split_) {
        if (inner) {
            smoothSplit_(balancedOf(y - 1, thread), balancedOf(y, thread), balancedOf(y + 1, thread), mosaic, w_, y & 1,
                         last);
        } else {
            const size_t at = (y & 1) ? 0 : job_.p.half;
            std::memcpy(mosaic + at, balancedOf(y, thread) + at, ((y & 1) ? job_.p.half : w_ / 2) * 2);
        }
        return;
    }
    std::memcpy(mosaic, balancedOf(y, thread), w_ * 2);
    if (inner && a_.w >= 3)
        smoothRow_(balancedOf(y - 1, thread), balancedOf(y, thread), balancedOf(y + 1, thread), mosaic, w_, y & 1,
                   last);
}

} // namespace quorin::image
