// The interpolation and 8-bit output of colour planes over the whole
// frame's planes (no windows): for natural rows, and for split rows when
// the team is too large for windows.
#pragma once

#include "image/stages/planes.h"

namespace quorin::image {

// Interpolation of the planes and the 8-bit output, row by row so that a
// row's data is still in cache for the next pass.
void interpolateAndFinish(const ColourJob<1> &job, std::uint8_t *dest);

} // namespace quorin::image
