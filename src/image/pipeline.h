// The shipped pixel pipeline: the same results as the reference stages,
// organised for speed (fused passes over row bands, vector kernels chosen
// at run time, OpenMP).
#pragma once

#include "image/frame.h"

namespace quorin::image {

// Processes the frame in f.raw into dest (16-bit values when sixteenBit,
// else 8-bit), writing f.cache where the rules say so. Returns what the
// frame left in the device's buffers.
ImageLayout process(const Frame &f, bool sixteenBit, void *dest);

// The planes of a frame that process() left as ImageLayout::SplitMosaic
// (area, and the device's RGB image and smoothing copy): afterwards the
// buffers hold ImageLayout::SplitPlanes.
void splitPlanes(const Area &area, std::uint16_t *rgb, std::uint16_t *previous);

// The stages of process() one at a time, so that each can be measured
// alone. Each runs over the whole area, on every thread, as process()
// runs it, and expects the frame's buffers as the stages before it leave
// them. (process() fuses some of them: the monochrome look-up into the
// sensor pass, and with split rows the sensor and defect corrections into
// the colour balance.)
namespace stage {

// Unpacking and the sensor corrections into f.work.
void sensor(const Frame &f);
// The same, each row then looked up through f.lut[0] into 8-bit dest.
void sensorToBytes(const Frame &f, std::uint8_t *dest);
// Defect correction in f.work.
void defects(const Frame &f);

// Colour modes 1 and 2, 8-bit result: the balance and smoothing of the
// corrected mosaic into planes (split rows where the machine runs them),
// then the interpolation, colour matrix, look-up and output.
struct ColourPlanes {
    bool split;  // split rows
    bool narrow; // every balanced value below 1024
};
ColourPlanes colourPlanes(const Frame &f);
void colourFinish(const Frame &f, const ColourPlanes &planes, std::uint8_t *dest);

} // namespace stage

} // namespace quorin::image
