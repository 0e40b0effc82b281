// The shipped pixel pipeline: the same results as the reference stages,
// organised for speed (fused passes over row bands, vector kernels chosen
// at run time, OpenMP with static schedules).
#pragma once

#include "image/frame.h"

namespace quorin::image {

// Processes the frame in f.raw into dest (16-bit values when sixteenBit,
// else 8-bit), writing f.cache where the rules say so. Returns what the
// frame left in the device's buffers.
ImageLayout process(const Frame &f, bool sixteenBit, void *dest);

} // namespace quorin::image
