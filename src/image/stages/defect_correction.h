// Defect correction: a listed pixel becomes the mean of its neighbours in
// the area that are not listed themselves. A corrected pixel never feeds
// another one, so pixels can be corrected in any order, in parallel, or
// row by row as soon as the rows they read are ready.
#pragma once

#include "image/frame.h"
#include "image/kernels/simd.h"
#include "image/stages/defect_sets.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace quorin::image {

// The frame's defect set: the device's kept one, else one built in local.
const DefectSet &defectSet(const Frame &f, std::optional<DefectSet> &local);

// Corrects one listed pixel: the mean of its neighbours in the area that
// are not listed themselves (four for the monochrome model; for the colour
// model the four diagonal ones at a green site, else the four two away).
// Row y of the mosaic is at rows(y). Returns the pixel's index, or
// SIZE_MAX when it lies off the area or has no such neighbour (and keeps
// its value).
template <typename Rows>
QUORIN_ALWAYS_INLINE inline std::size_t correctDefect(const Frame &f, const DefectSet &set, std::uint32_t entry, Rows rows)
{
    const Area &a = f.area;
    struct Offset {
        int dx, dy;
    };
    static constexpr Offset kFour[4] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
    static constexpr Offset kDiagonal[4] = {{-1, -1}, {-1, 1}, {1, -1}, {1, 1}};
    static constexpr Offset kTwoAway[4] = {{-2, 0}, {2, 0}, {0, -2}, {0, 2}};
    const std::uint32_t x = (entry >> 16) - a.x0, y = (entry & 0xFFFF) - a.y0;
    if (x >= a.w || y >= a.h)
        return SIZE_MAX;
    const Offset *offsets = kFour;
    if (f.colour) {
        const bool green = ((x ^ y) & 1) != 0;
        offsets = green ? kDiagonal : kTwoAway;
    }
    std::uint32_t sum = 0, used = 0;
    for (int i = 0; i < 4; ++i) {
        const std::int64_t cx = std::int64_t{x} + offsets[i].dx, cy = std::int64_t{y} + offsets[i].dy;
        if (cx < 0 || cy < 0 || cx >= std::int64_t{a.w} || cy >= std::int64_t{a.h})
            continue;
        if (set.holds(entry + static_cast<std::uint32_t>(offsets[i].dx * 0x10000 + offsets[i].dy)))
            continue;
        sum += rows(static_cast<std::uint32_t>(cy))[cx];
        ++used;
    }
    if (used == 0)
        return SIZE_MAX;
    rows(y)[x] = static_cast<std::uint16_t>(std::min<std::uint32_t>(sum / used, kMaxValue));
    return std::size_t{y} * a.w + x;
}

// Defect correction of f.work. The pixels are independent, so they are
// corrected in parallel.
void correctDefects(const Frame &f);

} // namespace quorin::image
