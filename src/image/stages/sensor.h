// The sensor stage over a row: unpacking of the 10-bit groups, dark
// subtraction and pixel gain (the crosstalk correction between the two
// runs over the whole frame), optionally with the monochrome look-up into
// 8-bit output in the same pass.
#pragma once

#include "image/frame.h"
#include "image/kernels/output_table.h"

#include <cstdint>

namespace quorin::image {

using vec::OutputTable;

struct SensorJob {
    const Frame *f;
    bool dark;
    bool darkVector;
    const std::uint16_t *gainTable; // null with constantGain
    bool gain;
    bool constantGain;
    // When set, each finished row also goes through this table into dest8.
    const OutputTable *output = nullptr;
    std::uint8_t *dest8 = nullptr;
    bool shuffleUnpack = false; // the AVX2 unpacking kernel runs
    bool vbmiRow = false;       // the VBMI kernel unpacks and corrects
    bool tableOutput = false;   // the VBMI look-up kernel runs
    bool gatherOutput = false;  // else the AVX2 one
    // When set, row y goes to row y % kRingRows of this ring of rows of
    // w values rather than to f.work.
    std::uint16_t *ring = nullptr;
};

constexpr std::uint32_t kRingRows = 8;

// One row y of the sensor stage (unpacking included when the row holds
// whole groups), as the active level runs it.
using SensorRowKernel = void (*)(const SensorJob &job, std::uint32_t y);
SensorRowKernel sensorRowKernel();

// The sensor corrections of f; when output is given, the rows also go
// through that table into dest8 as they are finished.
SensorJob sensorJob(const Frame &f, const OutputTable *output = nullptr, std::uint8_t *dest8 = nullptr);
// The sensor stage over the whole area into f.work, rows in parallel (the
// crosstalk correction between dark and gain when it is on).
void sensorPass(const Frame &f, const OutputTable *output = nullptr, std::uint8_t *dest8 = nullptr);

} // namespace quorin::image
