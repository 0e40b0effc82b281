// The finish of the interpolated colours of a row: the colour matrix and
// the look-up, reduced to 8-bit triples (PlanarFinish), and the pieces the
// 16-bit outputs build on (colour_output.cpp).
#pragma once

#include "image/kernels/output_table.h"
#include "image/kernels/vector_kernels.h"
#include "image/stages/planes.h"

namespace quorin::image {

using vec::OutputTable;
constexpr size_t kBlock = vec::kBlock;

// The matrix over up to kBlock pixels held as planes.
using MatrixBlockKernel = void (*)(const int32_t *m, const uint16_t *r, const uint16_t *g, const uint16_t *b,
                                   size_t n, uint16_t (*out)[kBlock]);
MatrixBlockKernel matrixBlockKernel();

// The red, green and blue values of pixels x0 .. x0 + n - 1 (x0 even,
// n <= kBlock) of row y in pixel order: in[c] points into the planes of
// natural rows, or into joined[c] where split rows are joined.
void blockOf(const ColourJob &job, uint32_t y, size_t x0, size_t n, const uint16_t *in[3],
             uint16_t (*joined)[kBlock]);

// Planes to the 8-bit destination: matrix, look-up and reduction per row,
// with the fastest kernel the frame's values and the level allow. Built
// once a frame (its look-up tables and matrix); row() is used by every
// thread, with the frame's job or a window's.
class PlanarFinish {
public:
    PlanarFinish(const ColourJob &job, std::uint8_t *dest);
    // Row y of the planes to row y of the destination.
    void row(const ColourJob &job, uint32_t y) const;

private:
    const Frame &f_;
    std::uint8_t *dest_;
    const OutputTable r0_, r1_, r2_;
    unsigned slot_[3];
    bool tableOutput_;
    bool matrixNarrow_;
    bool avx2Narrow_;
    bool sse2Narrow_;
    std::int16_t narrowMatrix_[9];
    MatrixBlockKernel matrix_;
};

} // namespace quorin::image
