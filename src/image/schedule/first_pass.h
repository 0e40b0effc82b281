// The first pass of a colour frame: the sensor corrections, the defect
// correction, the colour balance and green smoothing band by band, each
// row while it is in cache, into the prepared mosaic (natural or split
// rows) that the interpolation reads.
#pragma once

#include "image/kernels/vector_kernels.h"
#include "image/stages/balance.h"
#include "image/stages/defect_correction.h"
#include "image/stages/planes.h"
#include "image/stages/sensor.h"
#include "image/stages/smoothing.h"

#include <optional>

namespace quorin::image {

// Band by band, a few bands per thread, each thread taking the next band
// when done, so that a row is balanced and smoothed while it is in cache
// and a thread the machine slows down does less. The balanced rows that
// the smoothing reads stay in a ring of rows on each thread, which also
// balances the row above and the row below its band (writing only its
// ring). With `sensor` given, the sensor corrections and the defect
// correction of each row come first, the corrected rows likewise only in
// a ring on each thread (which also corrects the rows beyond its band that
// the defect correction reads), so that the corrected mosaic never takes
// room in the caches; f.work is then left as it was. Without, the
// corrected mosaic is read from f.work. Each band redoes a few rows beyond
// it: a few percent of the pass.
class FirstPass {
public:
    static constexpr uint32_t kMaxBands = 64;

    FirstPass(const FirstPass &) = delete; // set_ may point into the pass
    FirstPass(const ColourJob &job, const SensorJob *sensor, uint32_t threads);

    uint32_t bands() const { return bands_; }
    uint32_t first(uint32_t b) const { return static_cast<uint32_t>(uint64_t{a_.h} * b / bands_); }

    // A thread's rings and scratch rows.
    struct Thread {
        alignas(64) uint16_t row[kSensorSide], spare[kSensorSide];
        alignas(64) uint16_t ring[kRingRows * kSensorSide], balanced[4 * kSensorSide];
        SensorJob job{};
        explicit Thread(const FirstPass &pass);
    };

    // Band b; returns the OR of its balanced values.
    uint32_t run(uint32_t b, Thread &thread) const;

private:
    uint16_t *rowOf(uint32_t y, Thread &thread) const;
    uint16_t *balancedOf(uint32_t y, Thread &thread) const { return thread.balanced + size_t{y % 4} * w_; }
    void sense(uint32_t y, Thread &thread) const;
    uint32_t prepare(uint32_t y, bool own, Thread &thread) const;
    uint32_t prepareSplit(uint32_t y, bool own, const uint16_t *from, Thread &thread) const;
    void smooth(uint32_t y, Thread &thread) const;

    const ColourJob &job_;
    const Frame &f_;
    const Area &a_;
    const size_t w_;
    const bool split_;
    const SensorJob *sensor_;
    const Kernel kernel_;
    const BalanceRowKernel balanceRow_;
    const SensorRowKernel sensorRow_;
    const SmoothRowKernel smoothRow_;
    const BalanceSplitKernel balanceSplit_;
    const SmoothSplitKernel smoothSplit_;
    const bool smoothing_;
    const bool defects_;
    const uint32_t bands_;
    std::optional<DefectSet> localSet_;
    const DefectSet *set_ = nullptr;
    std::optional<DefectRows> defectRows_;
};

} // namespace quorin::image
