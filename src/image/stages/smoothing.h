// Green smoothing (colour mode 2): every inner green site of the balanced
// mosaic becomes a weighted mean of itself and its diagonal neighbours,
// taken from the balanced rows, so that results never feed each other.
#pragma once

#include "image/frame.h"

#include <cstddef>
#include <cstdint>

namespace quorin::image {

// Smooths the green sites x <= last of row `here` (parity odd, between the
// balanced rows above and below) into `out`, which holds the row's
// balanced values and keeps them at every other site. narrow: every value
// is below 1024 (16-bit lanes serve).
using SmoothRowKernel = void (*)(const std::uint16_t *above, const std::uint16_t *here, const std::uint16_t *below,
                                 std::uint16_t *out, std::size_t w, std::uint32_t odd, std::uint32_t last);
SmoothRowKernel smoothRowKernel(bool narrow);

// The same for split rows of values below 1024 (see
// kernels/vector_kernels.h): the green half of row `here` into the split
// mosaic's row, the other half untouched.
using SmoothSplitKernel = void (*)(const std::uint16_t *above, const std::uint16_t *here,
                                   const std::uint16_t *below, std::uint16_t *mosaic, std::size_t w,
                                   std::uint32_t odd, std::uint32_t last);
SmoothSplitKernel smoothSplitKernel();

} // namespace quorin::image
