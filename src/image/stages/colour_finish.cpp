#include "image/stages/colour_finish.h"

#include "image/kernels/portable.h"

#include <algorithm>

namespace quorin::image {
namespace {

// One row of the colour matrix, as the reference computes it.
QUORIN_ALWAYS_INLINE inline int32_t matrixRow(const int32_t *m, uint32_t r, uint32_t g, uint32_t b)
{
    const auto s = static_cast<int32_t>(static_cast<uint32_t>(m[0]) * r + static_cast<uint32_t>(m[1]) * g +
                                        static_cast<uint32_t>(m[2]) * b);
    const int32_t shifted = s >> 8;
    return s <= 0 ? 0 : shifted >= 1024 ? kMaxValue : shifted;
}

// The matrix over a block of pixels held as planes.
QUORIN_ALWAYS_INLINE inline void matrixBlock(const int32_t *m, const uint16_t *r, const uint16_t *g,
                                             const uint16_t *b, size_t n, uint16_t (*out)[kBlock])
{
    for (size_t k = 0; k < n; ++k) {
        const uint32_t rv = r[k], gv = g[k], bv = b[k];
        out[0][k] = static_cast<uint16_t>(matrixRow(m, rv, gv, bv));
        out[1][k] = static_cast<uint16_t>(matrixRow(m + 3, rv, gv, bv));
        out[2][k] = static_cast<uint16_t>(matrixRow(m + 6, rv, gv, bv));
    }
}

QUORIN_KERNEL(MatrixBlock,
              (const int32_t *m, const uint16_t *r, const uint16_t *g, const uint16_t *b, size_t n,
               uint16_t (*out)[kBlock]),
              matrixBlock(m, r, g, b, n, out););

// Look-up and reduction of a block, stored as triples in the layout's order.
template <unsigned SR, unsigned SG, unsigned SB>
QUORIN_ALWAYS_INLINE inline void storeReduced(const uint16_t (*values)[kBlock], size_t n, const OutputTable *const *reduced,
                                              std::uint8_t *o)
{
    const std::uint8_t *r = reduced[kRed]->bytes, *g = reduced[kGreen]->bytes, *b = reduced[kBlue]->bytes;
    for (size_t k = 0; k < n; ++k) {
        o[3 * k + SR] = r[lutIndex(values[kRed][k])];
        o[3 * k + SG] = g[lutIndex(values[kGreen][k])];
        o[3 * k + SB] = b[lutIndex(values[kBlue][k])];
    }
}

} // namespace

MatrixBlockKernel matrixBlockKernel()
{
    return MatrixBlock::pick();
}

PlanarFinish::PlanarFinish(const ColourJob &job, std::uint8_t *dest)
    : f_(*job.f), dest_(dest), r0_(f_.lut[0], f_.outputShift), r1_(f_.lut[1], f_.outputShift),
      r2_(f_.lut[2], f_.outputShift), tableOutput_(vec::vbmiActive()), matrix_(MatrixBlock::pick())
{
    for (unsigned c = 0; c < 3; ++c)
        slot_[c] = channelSlot(f_.demosaicMethod, c);
    // With values below 1024 and coefficients that fit 16 bits, the
    // matrix sums never wrap: 16-bit multiply-adds serve.
    bool fits = true;
    for (int k = 0; k < 9; ++k) {
        fits = fits && f_.matrix[k] >= -32768 && f_.matrix[k] <= 32767;
        narrowMatrix_[k] = static_cast<std::int16_t>(f_.matrix[k]);
    }
    // The vector kernels serve without the matrix too, with the identity
    // (which leaves values below 1024 as they are).
    matrixNarrow_ = tableOutput_ && job.narrow && (fits || !f_.matrixOn);
    const bool narrow = !tableOutput_ && job.narrow && (fits || !f_.matrixOn);
    avx2Narrow_ = narrow && vec::avx2Active();
    sse2Narrow_ = narrow && vec::sse2Active();
    if (!f_.matrixOn)
        for (int k = 0; k < 9; ++k)
            narrowMatrix_[k] = k % 4 == 0 ? 256 : 0;
}

void PlanarFinish::row(const ColourJob &job, uint32_t y) const
{
    const size_t w = f_.area.w, row = size_t{y} * w;
    const OutputTable *tables[3] = {&r0_, &r1_, &r2_};
    if (matrixNarrow_) {
        const bool split = job.p.half != 0;
        const uint16_t *rows[3][2];
        for (unsigned c = 0; c < 3; ++c)
            for (unsigned h = 0; h < 2; ++h)
                rows[c][h] = job.rowHalf(c, y, h);
        vec::matrixTriples8Vbmi(rows, w, split, narrowMatrix_, tables, slot_, dest_ + 3 * row);
        return;
    }
    size_t done = 0;
    if (avx2Narrow_ || sse2Narrow_) {
        const uint16_t *rows[3][2];
        for (unsigned c = 0; c < 3; ++c)
            for (unsigned h = 0; h < 2; ++h)
                rows[c][h] = job.rowHalf(c, y, h);
        const auto kernel = avx2Narrow_ ? vec::matrixTriples8Avx2 : vec::matrixTriples8Sse2;
        done = kernel(rows, job.p.half != 0, w, narrowMatrix_, tables, slot_, dest_ + 3 * row);
    }
    uint16_t values[3][kBlock];
    for (size_t x0 = done; x0 < w; x0 += kBlock) {
        const size_t n = std::min(kBlock, w - x0);
        const uint16_t *in[3];
        uint16_t joined[3][kBlock];
        blockOf(job, y, x0, n, in, joined);
        if (f_.matrixOn)
            matrix_(f_.matrix, in[0], in[1], in[2], n, values);
        else
            for (unsigned c = 0; c < 3; ++c)
                std::copy(in[c], in[c] + n, values[c]);
        std::uint8_t *o = dest_ + 3 * (row + x0);
        if (tableOutput_)
            vec::triples8Vbmi(values, n, tables, slot_, o);
        else if (slot_[kRed] == 2) // blue, green, red
            storeReduced<2, 1, 0>(values, n, tables, o);
        else
            storeReduced<0, 1, 2>(values, n, tables, o);
    }
}

void blockOf(const ColourJob &job, uint32_t y, size_t x0, size_t n, const uint16_t *in[3],
             uint16_t (*joined)[kBlock])
{
    for (unsigned c = 0; c < 3; ++c) {
        if (job.p.half != 0) {
            // Split rows: the block's pixels in their order first.
            const uint16_t *even = job.rowHalf(c, y, 0) + x0 / 2, *odd = job.rowHalf(c, y, 1) + x0 / 2;
            for (size_t k = 0; k < n; ++k)
                joined[c][k] = (k & 1) != 0 ? odd[k / 2] : even[k / 2];
            in[c] = joined[c];
        } else {
            in[c] = job.p.row(c, y) + x0;
        }
    }
}

} // namespace quorin::image
