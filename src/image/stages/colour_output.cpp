#include "image/stages/colour_output.h"

#include "image/kernels/portable.h"
#include "image/kernels/vector_kernels.h"

#include <algorithm>
#include <cstring>

namespace quorin::image {
namespace {

// The look-up of up to kBlock values of each colour: out[c][k] =
// table c at in[c][k] (values above the table's 1024 entries read its last).
QUORIN_KERNEL(LookUpBlock,
              (const uint16_t *const in[3], size_t n, const uint16_t *const *tables, uint16_t *const out[3]), {
                  for (unsigned c = 0; c < 3; ++c) {
                      const uint16_t *table = tables[c];
                      const uint16_t *from = in[c];
                      uint16_t *to = out[c];
                      for (size_t k = 0; k < n; ++k)
                          to[k] = table[lutIndex(from[k])];
                  }
              });

// Three planes, in slot order, interleaved into n triples.
QUORIN_KERNEL(Interleave16, (const uint16_t *const bySlot[3], size_t n, uint16_t *out), {
    const uint16_t *s0 = bySlot[0], *s1 = bySlot[1], *s2 = bySlot[2];
    for (size_t k = 0; k < n; ++k) {
        out[3 * k] = s0[k];
        out[3 * k + 1] = s1[k];
        out[3 * k + 2] = s2[k];
    }
});

// The luminance of n pixels whose values are held by slot: the weights
// 77, 151 and 28 fall on slots 2, 1 and 0, whichever colour lies there.
QUORIN_KERNEL(Luma, (const uint16_t *const bySlot[3], size_t n, uint16_t *luma), {
    const uint16_t *s0 = bySlot[0], *s1 = bySlot[1], *s2 = bySlot[2];
    for (size_t k = 0; k < n; ++k)
        luma[k] = static_cast<uint16_t>((77u * s2[k] + 151u * s1[k] + 28u * s0[k]) >> 8);
});

// Edge enhancement of the inner pixels 1 .. w - 2 of a row: each value of
// pixel x plus d = (4 Y(x) - Y(x - 1) - Y(x + 1) - Y above - Y below) >>
// shift, taken as a signed 16-bit value and limited to 0 .. 1023; out
// holds triples in slot order.
QUORIN_KERNEL(EdgeRow,
              (const uint16_t *const bySlot[3], const uint16_t *above, const uint16_t *here, const uint16_t *below,
               size_t w, unsigned shift, uint16_t *out),
              {
                  const uint16_t *s0 = bySlot[0], *s1 = bySlot[1], *s2 = bySlot[2];
                  for (size_t x = 1; x + 1 < w; ++x) {
                      const int32_t d = (4 * int32_t{here[x]} - here[x - 1] - here[x + 1] - above[x] - below[x]) >>
                                        shift;
                      const int32_t v[3] = {s0[x] + d, s1[x] + d, s2[x] + d};
                      for (int s = 0; s < 3; ++s) {
                          const int32_t t = static_cast<std::int16_t>(static_cast<uint16_t>(v[s]));
                          out[3 * x + s] = static_cast<uint16_t>(std::min(std::max(t, 0), int32_t{kMaxValue}));
                      }
                  }
              });

QUORIN_KERNEL(Reduce8, (const uint16_t *in, size_t n, std::uint8_t *out, uint32_t shift), {
    for (size_t k = 0; k < n; ++k) {
        const uint32_t o = in[k] >> shift;
        out[k] = static_cast<std::uint8_t>(o > 255 ? 255 : o);
    }
});

} // namespace

ColourOutput::ColourOutput(const ColourJob &job, bool sixteenBit, void *dest)
    : f_(*job.f), a_(f_.area), sixteenBit_(sixteenBit), cache_(!sixteenBit && (f_.keepLiveCache || f_.mode71 != 0)),
      edge_(f_.mode71 != 0), edgeShift_(edgeShift(f_.mode71)),
      dest8_(sixteenBit ? nullptr : static_cast<std::uint8_t *>(dest)),
      dest16_(sixteenBit ? static_cast<uint16_t *>(dest) : nullptr), bytes_(job, static_cast<std::uint8_t *>(dest)),
      matrix_(matrixBlockKernel())
{
    for (unsigned c = 0; c < 3; ++c)
        slot_[c] = channelSlot(f_.demosaicMethod, c);
    bool fits = true;
    for (int k = 0; k < 9; ++k) {
        fits = fits && f_.matrix[k] >= -32768 && f_.matrix[k] <= 32767;
        narrowMatrix_[k] = static_cast<std::int16_t>(f_.matrix[k]);
    }
    vectorFinish_ = vec::avx512Active() && job.narrow && (fits || !f_.matrixOn);
    uint32_t largest = 0;
    for (unsigned c = 0; c < 3; ++c)
        for (uint32_t i = 0; i < 1024; ++i)
            largest = std::max<uint32_t>(largest, f_.lut[c][i]);
    vectorEdge_ = vec::avx512Active() && largest <= kMaxValue;
    const bool narrow = job.narrow && (fits || !f_.matrixOn);
    avx2Finish_ = !vec::avx512Active() && vec::avx2Active() && narrow;
    sse2Finish_ = vec::sse2Active() && narrow;
    if (!(vectorFinish_ || avx2Finish_ || sse2Finish_) || !(sixteenBit || cache_))
        return;
    for (unsigned c = 0; c < 3; ++c) {
        const Table16 &table = tables_[c].emplace(f_.lut[c]);
        if (!table.identity) {
            gatherTables_[c] = table.wide;
            byteTables_.low[c] = table.low;
            byteTables_.high[c] = table.high;
        }
    }
}

void ColourOutput::begin(Thread &t, uint32_t first, uint32_t end) const
{
    t.first = first;
    t.end = end;
}

// Row y after the matrix and the look-up, as planes of colours, from
// pixel `from` (even) on.
void ColourOutput::lookUp(const ColourJob &job, uint32_t y, uint16_t *out[3], size_t from) const
{
    const size_t w = a_.w;
    if (vectorFinish_ && from == 0) {
        const uint16_t *rows[3][2];
        for (unsigned c = 0; c < 3; ++c)
            for (unsigned h = 0; h < 2; ++h)
                rows[c][h] = job.rowHalf(c, y, h);
        const bool vbmi = vec::vbmiActive();
        const std::uint32_t *const none[3] = {};
        vec::matrixLookUp16Avx512(rows, w, job.p.half != 0, f_.matrixOn ? narrowMatrix_ : nullptr,
                                  vbmi ? none : gatherTables_, out);
        if (vbmi)
            for (unsigned c = 0; c < 3; ++c)
                if (!tables_[c]->identity)
                    vec::lookUp16Vbmi(out[c], w, tables_[c]->low, tables_[c]->high, out[c]);
        return;
    }
    const auto lookUpBlock = LookUpBlock::pick();
    for (size_t x0 = from; x0 < w; x0 += kBlock) {
        const size_t n = std::min(kBlock, w - x0);
        const uint16_t *in[3];
        uint16_t joined[3][kBlock], values[3][kBlock];
        blockOf(job, y, x0, n, in, joined);
        if (f_.matrixOn) {
            matrix_(f_.matrix, in[0], in[1], in[2], n, values);
            for (unsigned c = 0; c < 3; ++c)
                in[c] = values[c];
        }
        uint16_t *const to[3] = {out[0] + x0, out[1] + x0, out[2] + x0};
        lookUpBlock(in, n, f_.lut, to);
    }
}

// A row of looked-up planes to triples in the layout's order, from pixel
// `from` on.
void ColourOutput::store16(uint16_t *const values[3], uint16_t *out, size_t from) const
{
    const uint16_t *bySlot[3];
    for (unsigned c = 0; c < 3; ++c)
        bySlot[slot_[c]] = values[c] + from;
    if (vec::avx512Active())
        vec::interleave16Avx512(bySlot, a_.w - from, out + 3 * from);
    else
        Interleave16::pick()(bySlot, a_.w - from, out + 3 * from);
}

void ColourOutput::finished(const ColourJob &job, uint32_t y, Thread &t) const
{
    const size_t w = a_.w, row = size_t{y} * w;
    if (!edge_) {
        if (y < t.first || y >= t.end)
            return;
        if (vectorFinish_ && vec::vbmiActive() && (sixteenBit_ || cache_)) {
            // Matrix and look-up once for both depths where VBMI packs the bytes.
            const uint16_t *rows[3][2];
            for (unsigned c = 0; c < 3; ++c)
                for (unsigned h = 0; h < 2; ++h)
                    rows[c][h] = job.rowHalf(c, y, h);
            const std::int16_t *matrix = f_.matrixOn ? narrowMatrix_ : nullptr;
            uint16_t *out16 = sixteenBit_ ? dest16_ + 3 * row : f_.cache + 3 * row;
            vec::finishTriplesVbmi(rows, w, job.p.half != 0, matrix, byteTables_, slot_, out16,
                                   sixteenBit_ ? nullptr : dest8_ + 3 * row, f_.outputShift);
            return;
        }
        if (sixteenBit_ || cache_) {
            uint16_t *out16 = sixteenBit_ ? dest16_ + 3 * row : f_.cache + 3 * row;
            size_t done = 0;
            if (avx2Finish_ || sse2Finish_) {
                const uint16_t *rows[3][2];
                for (unsigned c = 0; c < 3; ++c)
                    for (unsigned h = 0; h < 2; ++h)
                        rows[c][h] = job.rowHalf(c, y, h);
                const auto kernel = avx2Finish_ ? vec::finishTriples16Avx2 : vec::finishTriples16Sse2;
                done = kernel(rows, job.p.half != 0, w, f_.matrixOn ? narrowMatrix_ : nullptr, gatherTables_, slot_,
                              out16);
            }
            if (done < w) {
                uint16_t *values[3] = {t.values[0][0], t.values[0][1], t.values[0][2]};
                lookUp(job, y, values, done);
                store16(values, out16, done);
            }
        }
        if (!sixteenBit_)
            bytes_.row(job, y);
        return;
    }
    // Edge enhancement: keep the row's looked-up values and luminance,
    // then output the row above, whose neighbours are now all known.
    uint16_t *values[3] = {t.values[y % 3][0], t.values[y % 3][1], t.values[y % 3][2]};
    lookUp(job, y, values, 0);
    const uint16_t *bySlot[3];
    for (unsigned c = 0; c < 3; ++c)
        bySlot[slot_[c]] = values[c];
    if (vectorEdge_)
        vec::lumaAvx512(bySlot, w, t.luma[y % 3]);
    else
        Luma::pick()(bySlot, w, t.luma[y % 3]);
    if (y >= 1 && y - 1 >= t.first && y - 1 < t.end)
        emitEdge(y - 1, t);
    if (y + 1 == a_.h && y >= t.first && y < t.end)
        emitEdge(y, t); // the bottom row, which has no row below
}

// Row y of the edge enhancement (its looked-up values, and the luminance
// of the rows around it, are in the thread's rows), into the destination
// or the cache, and from the cache reduced to 8 bits.
void ColourOutput::emitEdge(uint32_t y, Thread &t) const
{
    const size_t w = a_.w, row = size_t{y} * w;
    uint16_t *const values[3] = {t.values[y % 3][0], t.values[y % 3][1], t.values[y % 3][2]};
    uint16_t *out = sixteenBit_ ? dest16_ + 3 * row : f_.cache + 3 * row;
    // The top and bottom rows, and the first and last pixel of every
    // row, as looked up.
    if (y == 0 || y + 1 == a_.h) {
        store16(values, out, 0);
    } else {
        const uint16_t *bySlot[3];
        for (unsigned c = 0; c < 3; ++c)
            bySlot[slot_[c]] = values[c];
        const uint16_t *above = t.luma[(y - 1) % 3], *here = t.luma[y % 3], *below = t.luma[(y + 1) % 3];
        if (vectorEdge_ && !sixteenBit_ && vec::vbmiActive()) {
            vec::edgeRowBytesVbmi(bySlot, above, here, below, w, edgeShift_, f_.outputShift, out, dest8_ + 3 * row);
            return;
        }
        if (vectorEdge_) {
            vec::edgeRowAvx512(bySlot, above, here, below, w, edgeShift_, out);
        } else {
            EdgeRow::pick()(bySlot, above, here, below, w, edgeShift_, out);
            for (const size_t x : {size_t{0}, w - 1})
                for (unsigned s = 0; s < 3; ++s)
                    out[3 * x + s] = bySlot[s][x];
        }
    }
    if (!sixteenBit_)
        Reduce8::pick()(out, 3 * w, dest8_ + 3 * row, f_.outputShift);
}

void ColourOutput::end(Thread &) const {}

} // namespace quorin::image
