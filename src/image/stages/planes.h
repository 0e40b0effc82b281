// Where the interpolation passes keep the three colours, and what a colour
// job of the passes reads: the frame, its prepared mosaic (balanced and
// smoothed) and its planes, in natural or split rows.
#pragma once

#include "image/frame.h"

#include <cstddef>
#include <cstdint>

namespace quorin::image {

using std::int32_t;
using std::size_t;
using std::uint16_t;
using std::uint32_t;

enum : unsigned { kRed = 0, kGreen = 1, kBlue = 2 };

// Inner rows of the interpolation passes: 2 .. H-3.
inline bool innerRow(uint32_t y, const Area &a)
{
    return y >= 2 && y + 3 <= a.h;
}

// The three colour planes, red, green and blue, as rows of w values from
// row `first` on (the whole frame, or a window of rows). Planes may keep
// split rows (see kernels/vector_kernels.h): each row's even columns, then
// its odd ones.
struct Planes {
    uint16_t *c[3];
    size_t w = 0;
    size_t half = 0;    // split rows: (w + 1) / 2, else 0
    uint32_t first = 0; // the row c[colour] starts with
    uint16_t *row(unsigned colour, uint32_t y) const { return c[colour] + size_t{y - first} * w; }
    uint16_t &at(unsigned colour, uint32_t x, uint32_t y) const
    {
        const size_t column = half == 0 ? x : (x & 1u) * half + x / 2;
        return row(colour, y)[column];
    }
};

struct ColourJob {
    const Frame *f;
    Planes p;
    // Every mosaic value is below 1024, so the passes may compute in
    // 16-bit lanes (every intermediate then stays within +-12288).
    bool narrow = false;
    // The prepared mosaic, w values a row, split like the planes.
    uint16_t *mosaic = nullptr;
    uint16_t *mosaicRow(uint32_t y) const { return mosaic + size_t{y} * p.w; }
    // The mosaic value at column x of row y.
    int32_t mosaicAt(uint32_t x, uint32_t y) const
    {
        return mosaicRow(y)[p.half == 0 ? x : (x & 1u) * p.half + x / 2];
    }
    // Split rows leave the values the mosaic holds (a green site's green,
    // a red or blue site's own colour) in the mosaic only: the planes hold
    // the interpolated ones. In a row of parity `odd` those are the green
    // plane's half odd ^ 1 and the own colour's half odd. Natural rows
    // keep every value in the planes.
    const uint16_t *rowHalf(unsigned colour, uint32_t y, unsigned h) const
    {
        if (p.half != 0 && siteColour(h, y) == colour)
            return mosaicRow(y) + h * p.half;
        return p.row(colour, y) + h * p.half;
    }
    // The finished interpolation of one colour at column x of row y.
    uint16_t value(unsigned colour, uint32_t x, uint32_t y) const
    {
        if (p.half == 0)
            return p.at(colour, x, y);
        return rowHalf(colour, y, x & 1u)[x / 2];
    }
};

// What the inner-row kernel of a pass reads and writes at row y: the
// mosaic row (rows y - 2 .. y + 2 lie at multiples of w from it) and the
// planes' rows (rows y - 1 and y + 1 at -w and +w), red, green, blue.
struct PassRow {
    const uint16_t *m;
    uint16_t *plane[3];
    size_t w;
    uint32_t odd; // y & 1
};
using PassRowKernel = void (*)(const PassRow &row);

inline PassRow passRow(const ColourJob &job, uint32_t y)
{
    return {job.mosaicRow(y), {job.p.row(kRed, y), job.p.row(kGreen, y), job.p.row(kBlue, y)}, job.p.w, y & 1};
}

} // namespace quorin::image
