// The 32-column crosstalk correction, in place on the work image between
// dark subtraction and pixel gain: each value against the one 32 columns
// to its left (already corrected), rows stepping by the area's height.
#pragma once

#include "image/frame.h"

#include <cstdint>

namespace quorin::image {

// Whole frame; rows in parallel where they do not overlap (an area at
// least as high as wide), columns 32 at a time.
void crosstalk(std::uint16_t *work, const Area &a);
// Row r of it on its own, which is the area's row r when the area is
// square.
void crosstalkRow(std::uint16_t *row, const Area &a, std::uint32_t r);

} // namespace quorin::image
