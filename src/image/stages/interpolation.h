// The three interpolation passes of colour modes 1 and 2 (green_plane.cpp,
// red_blue_at_green.cpp, red_blue_at_red_blue.cpp), each row by row over a
// colour job's planes (S = 1) or interleaved triples (S = 3): the green
// plane, red and blue at green sites, red at blue sites and blue at red
// sites. Each pass's row function does the row's border pixels itself and
// its inner columns with the row kernel its kernel function picks (split
// rows, 16-bit lanes or 32-bit values); the whole-image functions run the
// rows in parallel.
#pragma once

#include "image/stages/planes.h"

namespace quorin::image {

// Pass 2.
template <size_t S> PlanarRowKernel greenKernel(const ColourJob<S> &job);
template <size_t S> void greenPlaneRow(const ColourJob<S> &job, uint32_t y, PlanarRowKernel planar);
template <size_t S> void greenPlane(const ColourJob<S> &job);

// Pass 3.
template <size_t S> PlanarRowKernel lineKernel(const ColourJob<S> &job);
template <size_t S> void redBlueAtGreenRow(const ColourJob<S> &job, uint32_t y, PlanarRowKernel planar);
template <size_t S> void redBlueAtGreen(const ColourJob<S> &job);

// Pass 4; the top row's red sites take blue from below, the bottom row's
// odd pixels red from above, after the pass (each edge reads and writes
// rows the other does not touch).
template <size_t S> PlanarRowKernel diagonalKernel(const ColourJob<S> &job);
template <size_t S> void redBlueAtRedBlueRow(const ColourJob<S> &job, uint32_t y, PlanarRowKernel planar);
template <size_t S> void redBlueAtTop(const ColourJob<S> &job);
template <size_t S> void redBlueAtBottom(const ColourJob<S> &job);
template <size_t S> void redBlueAtRedBlue(const ColourJob<S> &job);

// All three passes over the whole image.
template <size_t S> void interpolate(const ColourJob<S> &job)
{
    greenPlane(job);
    redBlueAtGreen(job);
    redBlueAtRedBlue(job);
}

} // namespace quorin::image
