// The finish of the interpolated colours: the colour matrix and the
// look-up, then either the 8-bit triples of a row of planes (PlanarFinish)
// or, for interleaved triples, the same in place (finishInterleaved).
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

// Planes to the 8-bit destination: matrix, look-up and reduction per row.
class PlanarFinish {
public:
    PlanarFinish(const ColourJob<1> &job, std::uint8_t *dest);
    // Row y of the planes to row y of the destination.
    void row(uint32_t y) const;

private:
    const ColourJob<1> &job_;
    const Frame &f_;
    std::uint8_t *dest_;
    const OutputTable r0_, r1_, r2_;
    unsigned slot_[3];
    bool tableOutput_;
    bool matrixNarrow_;
    bool avx2Narrow_;
    std::int16_t narrowMatrix_[9];
    MatrixBlockKernel matrix_;
};

// Interleaved triples: matrix and look-up in place, for the 16-bit result.
void finishInterleaved(const ColourJob<3> &job);

} // namespace quorin::image
