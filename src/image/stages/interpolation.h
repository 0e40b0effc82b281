// The three interpolation passes of colour modes 1 and 2 (green_plane.cpp,
// red_blue_at_green.cpp, red_blue_at_red_blue.cpp), each row by row over a
// colour job's planes: the green plane, red and blue at green sites, red
// at blue sites and blue at red sites. Each pass's row function does the
// row's border pixels itself and its inner columns with the row kernel its
// kernel function picks (split rows, 16-bit lanes or 32-bit values); the
// whole-image functions run the rows in parallel.
#pragma once

#include "image/stages/planes.h"

namespace quorin::image {

// Pass 2.
PassRowKernel greenKernel(const ColourJob &job);
void greenPlaneRow(const ColourJob &job, uint32_t y, PassRowKernel inner);
void greenPlane(const ColourJob &job);

// Pass 3.
PassRowKernel lineKernel(const ColourJob &job);
void redBlueAtGreenRow(const ColourJob &job, uint32_t y, PassRowKernel inner);
void redBlueAtGreen(const ColourJob &job);

// Pass 4; the top row's red sites take blue from below, the bottom row's
// odd pixels red from above, after the pass (each edge reads and writes
// rows the other does not touch).
PassRowKernel diagonalKernel(const ColourJob &job);
void redBlueAtRedBlueRow(const ColourJob &job, uint32_t y, PassRowKernel inner);
void redBlueAtTop(const ColourJob &job);
void redBlueAtBottom(const ColourJob &job);
void redBlueAtRedBlue(const ColourJob &job);

// All three passes over the whole image.
inline void interpolate(const ColourJob &job)
{
    greenPlane(job);
    redBlueAtGreen(job);
    redBlueAtRedBlue(job);
}

} // namespace quorin::image
