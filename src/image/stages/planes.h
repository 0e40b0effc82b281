// Where the interpolation passes keep the three colours (planes or
// interleaved triples, natural or split rows), and what a colour job of the
// passes reads: the frame, its planes and its mosaic.
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

inline bool innerRow(uint32_t y, const Area &a)
{
    return y >= 2 && y + 3 <= a.h;
}

// Where the interpolation passes keep the three colours: interleaved in
// the RGB image in the layout's order (stride 3), or as three planes
// (stride 1) when only the 8-bit result is wanted, which lets the compiler
// vectorise the passes.
// Planes may also keep split rows (see vector_kernels.h): each row's even
// columns, then its odd ones.
template <size_t S> struct Planes {
    uint16_t *c[3]; // red, green, blue: pixel i at c[colour][i * S]
    size_t w = 0;
    size_t half = 0;    // split rows: (w + 1) / 2, else 0
    uint32_t first = 0; // the row c[colour] starts with (a window of rows)
    uint16_t *row(unsigned colour, uint32_t y) const { return c[colour] + size_t{y - first} * w * S; }
    uint16_t &at(unsigned colour, uint32_t x, uint32_t y) const
    {
        const size_t column = half == 0 ? x : (x & 1u) * half + x / 2;
        return row(colour, y)[column * S];
    }
};

template <size_t S> struct ColourJob {
    const Frame *f;
    Planes<S> p;
    // Every mosaic value is below 1024, so the planar passes may compute in
    // 16-bit lanes (every intermediate then stays within +-8192).
    bool narrow = false;
    // Split rows: the mosaic split likewise, which every pass reads.
    uint16_t *splitMosaic = nullptr;
    // The mosaic value at column x of row y.
    int32_t mosaic(uint32_t x, uint32_t y) const
    {
        if (splitMosaic != nullptr)
            return splitMosaic[size_t{y} * p.w + (x & 1u) * p.half + x / 2];
        return f->work[size_t{y} * p.w + x];
    }
    // Split rows leave the values the mosaic holds (a green site's green,
    // a red or blue site's own colour) in the split mosaic only: the planes
    // hold the interpolated ones. In a row of parity `odd` those are the
    // green plane's half odd ^ 1 and the own colour's half odd.
    const uint16_t *rowHalf(unsigned colour, uint32_t y, unsigned h) const
    {
        if (siteColour(h, y) == colour)
            return splitMosaic + size_t{y} * p.w + h * p.half;
        return p.row(colour, y) + h * p.half;
    }
    // The finished interpolation of one colour at column x of row y.
    uint16_t value(unsigned colour, uint32_t x, uint32_t y) const
    {
        if (splitMosaic == nullptr)
            return p.at(colour, x, y);
        return rowHalf(colour, y, x & 1u)[x / 2];
    }
};

using PlanarRowKernel = void (*)(const ColourJob<1> &, uint32_t);

// The row kernel of a pass for planes: on split rows, in 16-bit lanes when
// the values allow, else in 32-bit values; none for interleaved triples,
// which use the plain loops.
template <typename Narrow, typename Planar, size_t S>
PlanarRowKernel rowKernel(const ColourJob<S> &job, PlanarRowKernel split)
{
    if constexpr (S == 1)
        return job.p.half != 0 ? split : job.narrow ? Narrow::pick() : Planar::pick();
    else
        return nullptr;
}

} // namespace quorin::image
