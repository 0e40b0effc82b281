// The 32-column crosstalk correction, in place on the work image between
// dark subtraction and pixel gain: each value against the one 32 columns
// to its left (already corrected), rows stepping by the area's height.
#pragma once

#include "image/frame.h"

#include <cstdint>

namespace quorin::image {

// Whether the rows of the correction are independent: they do not
// overlap (an area at least as high as wide), and the rule of the last 32
// columns, which reads 64 columns back, stays in its row (an area at least
// 96 wide, or one that does not reach the sensor's last 32 columns).
bool crosstalkRowsIndependent(const Area &a);

// Whole frame; rows in parallel where they are independent, columns 32 at
// a time.
void crosstalk(std::uint16_t *work, const Area &a);
// Row r of it on its own, which is the area's row r when the area is
// square.
void crosstalkRow(std::uint16_t *row, const Area &a, std::uint32_t r);

} // namespace quorin::image
