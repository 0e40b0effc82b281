#include "image/stages/colour_finish.h"

#include "image/kernels/portable.h"

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

PlanarFinish::PlanarFinish(const ColourJob<1> &job, std::uint8_t *dest)
    : job_(job), f_(*job.f), dest_(dest), r0_(f_.lut[0], f_.outputShift), r1_(f_.lut[1], f_.outputShift),
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
    matrixNarrow_ = tableOutput_ && job.narrow && f_.matrixOn && fits;
    // The AVX2 kernel serves without the matrix too, with the identity
    // (which leaves values below 1024 as they are).
    avx2Narrow_ = !tableOutput_ && vec::avx2Active() && job.narrow && job.p.half == 0 && (fits || !f_.matrixOn);
    if (avx2Narrow_ && !f_.matrixOn)
        for (int k = 0; k < 9; ++k)
            narrowMatrix_[k] = k % 4 == 0 ? 256 : 0;
}

void PlanarFinish::row(uint32_t y) const
{
    const size_t w = f_.area.w, row = size_t{y} * w;
    const OutputTable *tables[3] = {&r0_, &r1_, &r2_};
    if (matrixNarrow_) {
        const bool split = job_.p.half != 0;
        const uint16_t *rows[3][2];
        for (unsigned c = 0; c < 3; ++c)
            for (unsigned h = 0; h < 2; ++h)
                rows[c][h] = split ? job_.rowHalf(c, y, h) : job_.p.row(c, y);
        vec::matrixTriples8Vbmi(rows, w, split, narrowMatrix_, tables, slot_, dest_ + 3 * row);
        return;
    }
    size_t done = 0;
    if (avx2Narrow_)
        done = vec::matrixTriples8Avx2(job_.p.row(0, y), job_.p.row(1, y), job_.p.row(2, y), w, narrowMatrix_,
                                       tables, slot_, dest_ + 3 * row);
    const OutputTable *reduced[3] = {&r0_, &r1_, &r2_};
    uint16_t values[3][kBlock], joined[3][kBlock];
    for (size_t x0 = done; x0 < w; x0 += kBlock) {
        const size_t n = std::min(kBlock, w - x0);
        const uint16_t *in[3];
        for (unsigned c = 0; c < 3; ++c) {
            if (job_.p.half != 0) {
                // Split rows: the block's pixels in their order first.
                for (size_t k = 0; k < n; ++k)
                    joined[c][k] = job_.value(c, static_cast<uint32_t>(x0 + k), y);
                in[c] = joined[c];
            } else {
                in[c] = job_.p.row(c, y) + x0;
            }
        }
        if (f_.matrixOn)
            matrix_(f_.matrix, in[0], in[1], in[2], n, values);
        else
            for (unsigned c = 0; c < 3; ++c)
                for (size_t k = 0; k < n; ++k)
                    values[c][k] = in[c][k];
        std::uint8_t *o = dest_ + 3 * (row + x0);
        if (tableOutput_)
            vec::triples8Vbmi(values, n, tables, slot_, o);
        else if (slot_[kRed] == 2) // blue, green, red
            storeReduced<2, 1, 0>(values, n, reduced, o);
        else
            storeReduced<0, 1, 2>(values, n, reduced, o);
    }
}

void finishInterleaved(const ColourJob<3> &job)
{
    const Frame &f = *job.f;
    const unsigned slot[3] = {channelSlot(f.demosaicMethod, kRed), channelSlot(f.demosaicMethod, kGreen),
                              channelSlot(f.demosaicMethod, kBlue)};
    const long n = static_cast<long>(f.area.pixels());
#pragma omp parallel for schedule(static)
    for (long i = 0; i < n; ++i) {
        uint16_t *px = f.rgb + 3 * i;
        uint32_t v[3] = {px[slot[0]], px[slot[1]], px[slot[2]]};
        if (f.matrixOn) {
            const uint32_t r = v[0], g = v[1], b = v[2];
            for (unsigned c = 0; c < 3; ++c)
                v[c] = static_cast<uint32_t>(matrixRow(f.matrix + 3 * c, r, g, b));
        }
        for (unsigned c = 0; c < 3; ++c)
            px[slot[c]] = f.lut[c][lutIndex(v[c])];
    }
}

} // namespace quorin::image
