// The first pass of split rows: the sensor corrections, defects, colour
// balance, splitting and green smoothing band by band, each row while it
// is in cache, into the split mosaic.
#pragma once

#include "image/kernels/vector_kernels.h"
#include "image/stages/balance.h"
#include "image/stages/defect_correction.h"
#include "image/stages/planes.h"
#include "image/stages/sensor.h"

#include <optional>

namespace quorin::image {

// The first step of split rows (see vector_kernels.h): colour balance, each
// balanced row split into the split mosaic, with green smoothing in colour
// mode 2 for its green half; band by band, a few bands per thread, each
// thread taking the next band when done, so that a row is split and
// smoothed while it is in cache and a thread the machine slows down does
// less. The balanced green halves that the smoothing reads stay in a ring
// of rows on each thread, which also balances the row above and the row
// below its band (writing only its ring). With `sensor` given, the sensor
// corrections and the defect correction of each row come first, the
// corrected rows likewise only in a ring on each thread (which also
// corrects the rows beyond its band that the defect correction reads), so
// that the corrected mosaic never takes room in the caches; f.work is then
// left as it was. Without, the corrected mosaic is read from f.work. Each
// band redoes a few rows beyond it: a few percent of the pass.
class FirstPass {
public:
    static constexpr uint32_t kMaxBands = 64;

    FirstPass(const FirstPass &) = delete; // set_ may point into the pass
    FirstPass(const ColourJob<1> &job, const SensorJob *sensor, uint32_t threads)
        : job_(job), f_(*job.f), a_(f_.area), w_(a_.w), sensor_(sensor), kernel_(kernelFor(f_.kernelVariant)),
          balanceRow_(balanceRowKernel()), sensorRow_(sensorRowKernel()),
          smoothing_(f_.colourMode == 2 && a_.h >= 3),
          defects_(sensor != nullptr && f_.defectCorrect && f_.defectCount != 0),
          bands_(threads <= 1 ? 1 : std::min(kMaxBands, std::max(threads, std::min(4 * threads, a_.h / 64))))
    {
        if (defects_) {
            set_ = &defectSet(f_, localSet_);
            defectRows_.emplace(*set_, a_);
        }
    }
    uint32_t bands() const { return bands_; }
    uint32_t first(uint32_t b) const { return static_cast<uint32_t>(uint64_t{a_.h} * b / bands_); }

    // A thread's rings and scratch rows.
    struct Thread {
        alignas(64) uint16_t row[kSensorSide], spare[kSensorSide];
        alignas(64) uint16_t ring[kRingRows * kSensorSide], greens[4 * kSensorSide];
        SensorJob ringJob{};
        explicit Thread(const FirstPass &pass)
        {
            if (pass.sensor_ != nullptr) {
                ringJob = *pass.sensor_;
                ringJob.ring = ring;
            }
        }
    };

    // Band b; returns the OR of its balanced values.
    uint32_t run(uint32_t b, Thread &thread) const
    {
        const uint32_t first = this->first(b), end = this->first(b + 1);
        uint32_t bits = 0;
        if (first == end)
            return bits;
        // Rows prepareFirst .. prepareEnd - 1 are balanced, rows
        // senseFirst .. senseEnd - 1 corrected; each row two rows ahead of
        // its balance. A row is smoothed once the row below it is balanced.
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

private:
    uint16_t *rowOf(uint32_t y, Thread &thread) const
    {
        return sensor_ != nullptr ? thread.ring + size_t{y % kRingRows} * w_ : f_.work + y * w_;
    }
    uint16_t *greensOf(uint32_t y, Thread &thread) const { return thread.greens + size_t{y % 4} * w_; }

    void sense(uint32_t y, Thread &thread) const
    {
        if (sensor_ != nullptr)
            sensorRow_(thread.ringJob, y);
    }

    // Row y balanced and split: both halves to the split mosaic, except
    // with smoothing the green one, which the smoothing reads, to the ring.
    // Rows beyond the band (not `own`) only to the ring.
    uint32_t prepare(uint32_t y, bool own, Thread &thread) const
    {
        if (defects_)
            for (const uint32_t *e = defectRows_->begin(y); e != defectRows_->end(y); ++e)
                correctDefect(f_, *set_, *e, [&](uint32_t r) { return rowOf(r, thread); });
        const size_t greenHalf = (y & 1) ? 0 : 1;
        uint16_t *halves[2];
        for (size_t h = 0; h < 2; ++h) {
            if (smoothing_ && h == greenHalf)
                halves[h] = greensOf(y, thread) + h * job_.p.half;
            else
                halves[h] = own ? job_.splitMosaic + y * w_ + h * job_.p.half : thread.spare;
        }
        const uint16_t *from = rowOf(y, thread);
        vec::SplitBalance rule = splitBalance(f_, y, kernel_);
        if (rule.columns == kUnbalanced) {
            uint32_t rowBits;
            balanceRow_(f_, y, kernel_ == Kernel::Vector, from, thread.row, nullptr, &rowBits);
            from = thread.row;
            rule.columns = 0;
        }
        return vec::balanceSplitAvx512(from, w_, rule, halves[0], halves[1]);
    }

    void smooth(uint32_t y, Thread &thread) const
    {
        if (!smoothing_)
            return;
        uint16_t *mosaic = job_.splitMosaic + y * w_;
        if (y >= 1 && y + 1 < a_.h) {
            vec::smoothSplitAvx512(greensOf(y - 1, thread), greensOf(y, thread), greensOf(y + 1, thread), mosaic, w_,
                                   y & 1, (y & 1) ? a_.w - 2 : a_.w - 3);
        } else {
            const size_t at = (y & 1) ? 0 : job_.p.half;
            std::memcpy(mosaic + at, greensOf(y, thread) + at, ((y & 1) ? job_.p.half : w_ / 2) * 2);
        }
    }

    const ColourJob<1> &job_;
    const Frame &f_;
    const Area &a_;
    const size_t w_;
    const SensorJob *sensor_;
    const Kernel kernel_;
    const BalanceRowKernel balanceRow_;
    const SensorRowKernel sensorRow_;
    const bool smoothing_;
    const bool defects_;
    const uint32_t bands_;
    std::optional<DefectSet> localSet_;
    const DefectSet *set_ = nullptr;
    std::optional<DefectRows> defectRows_;
};

// The first pass alone. Returns whether every balanced value is below
// 1024; when not, the split mosaic is of no use.
bool correctBalanceAndSplit(const ColourJob<1> &job, const SensorJob *sensor);

// Both passes of split rows to 8 bits in one parallel region: each window
// band starts as soon as the first pass has finished the rows it reads
// (its own and three beyond each end), so that no thread waits for the
// whole first pass. Returns whether every balanced value is below 1024;
// when not, neither the split mosaic nor the output is of use.
bool splitRowsToBytes(const ColourJob<1> &job, const SensorJob *sensor, std::uint8_t *dest, uint32_t threads);

} // namespace quorin::image
