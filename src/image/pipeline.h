// The shipped pixel pipeline: the same results as the reference stages,
// organised for speed (fused passes over bands of rows, vector kernels
// chosen at run time, OpenMP).
#pragma once

#include "image/frame.h"

namespace quorin::image {

// Processes the frame in f.raw into dest (16-bit values when sixteenBit,
// else 8-bit), writing f.cache where the rules say so. Returns what the
// frame left in the device's buffers.
ImageLayout process(const Frame &f, bool sixteenBit, void *dest);

// The planes of a colour frame that process() left as ImageLayout::Mosaic
// or ImageLayout::SplitMosaic (area, and the device's RGB image and
// smoothing copy): afterwards the buffers hold ImageLayout::Planes or
// ImageLayout::SplitPlanes. Returns that layout.
ImageLayout planesFromMosaic(ImageLayout layout, const Area &area, std::uint16_t *rgb, std::uint16_t *previous);

// The stages of process() one at a time, so that each can be measured
// alone. Each runs over the whole area, on every thread, as process()
// runs it, and expects the frame's buffers as the stages before it leave
// them. (process() fuses some of them: the monochrome look-up into the
// sensor pass, and in colour the sensor and defect corrections into the
// first pass, which runs beside the window pass.)
namespace stage {

// Unpacking and the sensor corrections into f.work.
void sensor(const Frame &f);
// The same, each row then looked up through f.lut[0] into 8-bit dest.
void sensorToBytes(const Frame &f, std::uint8_t *dest);
// Defect correction in f.work.
void defects(const Frame &f);
// Colour modes 1 and 2: the first pass (sensor corrections and defects
// from the raw frame, balance and smoothing into the prepared mosaic),
// then the window pass over that mosaic (interpolation and output).
void colourFirstPass(const Frame &f);
void colourWindowPass(const Frame &f, bool sixteenBit, void *dest);

} // namespace stage

} // namespace quorin::image
