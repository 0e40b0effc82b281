// The shipped pixel pipeline: the same results as the reference stages,
// organised for speed (fused passes over bands of rows, vector kernels
// chosen at run time, the library's thread team).
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

// The passes of process() one at a time, so that each can be measured
// alone. Each runs over the whole area, on every thread, as process()
// runs it, and expects the frame's buffers as the passes before it leave
// them.
namespace stage {

// Unpacking and the sensor corrections into f.work, over the whole frame
// (as frames with the crosstalk correction take them).
void sensor(const Frame &f);
// Defect correction in f.work, over the whole frame.
void defects(const Frame &f);
// A grey frame in its one pass: the sensor corrections, defects and the
// output, row by row.
void grey(const Frame &f, bool sixteenBit, void *dest);
// Colour modes 1 and 2: the first pass (sensor corrections and defects
// from the raw frame, balance and smoothing into the prepared mosaic),
// then the window pass over that mosaic (interpolation and output).
void colourFirstPass(const Frame &f);
void colourWindowPass(const Frame &f, bool sixteenBit, void *dest);

} // namespace stage

} // namespace quorin::image
