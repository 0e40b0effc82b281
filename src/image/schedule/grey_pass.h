// A grey frame (the monochrome model, or the colour model's raw mosaic)
// in one pass over bands of rows: the sensor corrections, the defect
// correction and the output of each row while it is in cache.
#pragma once

#include "image/stages/defect_correction.h"
#include "image/stages/grey_output.h"
#include "image/stages/sensor.h"

#include <optional>

namespace quorin::image {

// Band by band, a few bands per thread, each thread taking the next band
// when done. A row is corrected once the rows its defects read are sensed
// (one on each side; two for the mosaic, whose neighbours of a colour lie
// two away), and output once the rows the output reads are corrected. The
// band's rows go to f.work (which the one-pixel probe reads); the rows
// beyond it that the band reads are sensed and corrected again, privately,
// in small rings on the thread. With `sensor` null the frame in f.work is
// already corrected (the crosstalk correction saw the whole frame) and the
// pass only outputs it.
class GreyPass {
public:
    static constexpr uint32_t kMaxBands = 64;
    static constexpr uint32_t kBeyond = 4; // rows a ring holds on each side of a band

    GreyPass(const GreyPass &) = delete; // set_ may point into the pass
    GreyPass(const Frame &f, const SensorJob *sensor, const GreyOutput &output, uint32_t threads);

    uint32_t bands() const { return bands_; }
    uint32_t first(uint32_t b) const { return static_cast<uint32_t>(uint64_t{a_.h} * b / bands_); }

    struct Thread {
        alignas(64) uint16_t before[kBeyond * kSensorSide], after[kBeyond * kSensorSide];
        GreyOutput::Thread out;
    };

    void run(uint32_t b, Thread &thread) const;

private:
    uint16_t *rowOf(uint32_t y, uint32_t first, uint32_t end, Thread &thread) const;

    const Frame &f_;
    const Area &a_;
    const SensorJob *sensor_;
    const GreyOutput &output_;
    const SensorRowKernel sensorRow_;
    const bool defects_;
    const uint32_t defectReach_; // rows on each side a defect's neighbours lie in
    const uint32_t bands_;
    std::optional<DefectSet> localSet_;
    const DefectSet *set_ = nullptr;
    std::optional<DefectRows> defectRows_;
};

// The whole frame on `threads` threads.
void greyFrame(const Frame &f, const SensorJob *sensor, const GreyOutput &output, uint32_t threads);

} // namespace quorin::image
