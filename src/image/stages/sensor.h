// The sensor stage over a row: unpacking of the 10-bit groups, dark
// subtraction and pixel gain (the crosstalk correction between the two
// runs over the whole frame).
#pragma once

#include "image/frame.h"

#include <cstdint>

namespace quorin::image {

struct SensorJob {
    const Frame *f;
    bool dark;
    bool darkVector;
    const std::uint16_t *gainTable; // null with constantGain
    bool gain;
    bool constantGain;
    bool shuffleUnpack = false; // the AVX2 unpacking kernel runs
    bool vbmiRow = false;       // the VBMI kernel unpacks and corrects
    bool crosstalk = false;     // the crosstalk correction of the row, between dark and gain
};

// Rows of the rings that passes keep the corrected rows of a band in.
constexpr std::uint32_t kRingRows = 8;

// Row y of the sensor stage into `row` (unpacking included when the row
// holds whole groups), as the active level runs it.
using SensorRowKernel = void (*)(const SensorJob &job, std::uint32_t y, std::uint16_t *row);
SensorRowKernel sensorRowKernel();

// The sensor corrections of f, but for the crosstalk correction.
SensorJob sensorJob(const Frame &f);
// Whether the sensor stage can run row by row inside a later pass: rows of
// whole groups, and no crosstalk correction, or one whose rows are the
// area's rows (a square area: its rows step by the height) and read only
// their own row.
bool fusedSensor(const Frame &f);
// The sensor corrections of a fused pass, the crosstalk correction
// included.
SensorJob fusedSensorJob(const Frame &f);
// The sensor stage over the whole area into f.work, rows in parallel (the
// crosstalk correction between dark and gain when it is on).
void sensorPass(const Frame &f);

} // namespace quorin::image
