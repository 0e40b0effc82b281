// A colour frame of colour modes 1 and 2, from the corrected mosaic (or
// the raw frame) to the destination: the first pass and the window pass
// in one parallel region.
#pragma once

#include "image/stages/colour_output.h"
#include "image/stages/planes.h"
#include "image/stages/sensor.h"

namespace quorin::image {

// Runs both passes on `threads` threads: each window band starts as soon
// as the first pass has finished the rows it reads, so that no thread
// waits for the whole first pass. With `sensor`, the first pass corrects
// the raw frame itself; without, it reads the corrected mosaic in f.work.
// Returns the OR of the balanced values: when one reaches 1024, a job of
// 16-bit lanes (narrow) computed nothing of use.
uint32_t colourFrame(const ColourJob &job, const SensorJob *sensor, const ColourOutput &output, uint32_t threads);

// Each pass alone, for measuring them: the first pass (returning as
// colourFrame does), and the window pass over the mosaic it left.
uint32_t colourFirstPass(const ColourJob &job, const SensorJob *sensor, uint32_t threads);
void colourWindowPass(const ColourJob &job, const ColourOutput &output, uint32_t threads);

} // namespace quorin::image
