// The colour matrix, look-up and 8-bit triples of a row of planes (natural
// or split) with AVX-512 VBMI.
#include "image/kernels/avx512_common.h"

namespace quorin::image::vec {

namespace {

// How the matrix kernel turns its values into bytes: through the tables,
// by the tables' shifts, or, when every shift is at most 2 (so that the
// 1023 limit lies at or above 255 after the shift), by shifting the sums
// and narrowing with saturation, which gives the same bytes.
enum class Output { Tables, Shifts, Narrow };

// The matrix kernel's loop for one order of the slots (red first, or blue
// first), one output and natural or split rows, so that the channels stay
// in registers.
template <bool BlueFirst, Output Out, bool Split>
QUORIN_TARGET_VBMI QUORIN_ALWAYS_INLINE inline void
matrixTriplesLoop(const RowHalves &rows, std::size_t n, const std::int16_t matrix[9],
                  const OutputTable *const tables[3], std::uint8_t *out)
{
    // Pairs (red, green) and (blue, 0) of 16-bit lanes multiply-add with
    // pairs of coefficients into 32-bit sums.
    __m512i redGreen[3], blue[3];
    __m128i counts[3], sumCounts[3];
    for (unsigned c = 0; c < 3; ++c) {
        redGreen[c] = _mm512_set1_epi32(static_cast<int>(static_cast<std::uint16_t>(matrix[3 * c]) |
                                                         std::uint32_t{static_cast<std::uint16_t>(matrix[3 * c + 1])}
                                                             << 16));
        blue[c] = _mm512_set1_epi32(static_cast<std::uint16_t>(matrix[3 * c + 2]));
        counts[c] = _mm_cvtsi32_si128(tables[c]->shift);
        sumCounts[c] = _mm_cvtsi32_si128(8 + tables[c]->shift);
    }
    const __m512i limit = _mm512_set1_epi32(1023), zero = _mm512_setzero_si512();
    const Interleave &order = Out == Output::Narrow ? (Split ? kInterleaveSplitPacked : kInterleavePacked)
                                                    : (Split ? kInterleaveSplit : kInterleave);
    const bool stream = (reinterpret_cast<std::uintptr_t>(out) & 63) == 0;
    for (std::size_t k = 0; k < n; k += 64) {
        const std::size_t left = n - k;
        __m512i channel[3][2];
        for (unsigned h = 0; h < 2; ++h) {
            // Natural rows: pixels k .. k + 31, then k + 32 .. k + 63; split
            // rows: the even pixels of the block, then the odd ones.
            __mmask32 lanes;
            std::size_t at;
            if constexpr (Split) {
                lanes = firstHalf(h == 0 ? (left + 1) / 2 : left / 2);
                at = k / 2;
            } else {
                lanes = h == 0 ? firstHalf(left) : secondHalf(left);
                at = k + 32 * h;
            }
            const __m512i rv = _mm512_maskz_loadu_epi16(lanes, rows[0][h] + at);
            const __m512i gv = _mm512_maskz_loadu_epi16(lanes, rows[1][h] + at);
            const __m512i bv = _mm512_maskz_loadu_epi16(lanes, rows[2][h] + at);
            const __m512i rgLow = _mm512_unpacklo_epi16(rv, gv), rgHigh = _mm512_unpackhi_epi16(rv, gv);
            const __m512i bLow = _mm512_unpacklo_epi16(bv, zero), bHigh = _mm512_unpackhi_epi16(bv, zero);
            for (unsigned c = 0; c < 3; ++c) {
                __m512i low = _mm512_add_epi32(_mm512_madd_epi16(rgLow, redGreen[c]), _mm512_madd_epi16(bLow, blue[c]));
                __m512i high =
                    _mm512_add_epi32(_mm512_madd_epi16(rgHigh, redGreen[c]), _mm512_madd_epi16(bHigh, blue[c]));
                if constexpr (Out == Output::Narrow) {
                    // Both packs saturate: s <= 0 gives 0, beyond 255 gives 255.
                    low = _mm512_sra_epi32(low, sumCounts[c]);
                    high = _mm512_sra_epi32(high, sumCounts[c]);
                } else {
                    // s <= 0 gives 0 (the pack saturates), s >> 8 above 1023 gives 1023.
                    low = _mm512_min_epi32(_mm512_srai_epi32(low, 8), limit);
                    high = _mm512_min_epi32(_mm512_srai_epi32(high, 8), limit);
                }
                channel[c][h] = _mm512_packus_epi32(low, high); // the unpacking's order undone
            }
        }
        __m512i bytes[3];
        for (unsigned c = 0; c < 3; ++c) {
            if constexpr (Out == Output::Narrow) {
                bytes[c] = _mm512_packus_epi16(channel[c][0], channel[c][1]);
            } else if constexpr (Out == Output::Shifts) {
                const __m256i low = _mm512_cvtusepi16_epi8(_mm512_srl_epi16(channel[c][0], counts[c]));
                const __m256i high = _mm512_cvtusepi16_epi8(_mm512_srl_epi16(channel[c][1], counts[c]));
                bytes[c] = _mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1);
            } else {
                bytes[c] = lookUp64(channel[c][0], channel[c][1], *tables[c]);
            }
        }
        const __m512i bySlot[3] = {bytes[BlueFirst ? 2 : 0], bytes[1], bytes[BlueFirst ? 0 : 2]};
        storeTriples(bySlot, left < 64 ? left : 64, out + 3 * k, order, stream);
    }
    if (stream)
        _mm_sfence();
}

template <bool BlueFirst, Output Out>
QUORIN_TARGET_VBMI void matrixTriplesRow(const RowHalves &rows, std::size_t n, bool split, const std::int16_t matrix[9],
                                         const OutputTable *const tables[3], std::uint8_t *out)
{
    if (split)
        matrixTriplesLoop<BlueFirst, Out, true>(rows, n, matrix, tables, out);
    else
        matrixTriplesLoop<BlueFirst, Out, false>(rows, n, matrix, tables, out);
}

} // namespace

QUORIN_TARGET_VBMI void matrixTriples8Vbmi(const RowHalves &rows, std::size_t n, bool split,
                                           const std::int16_t matrix[9], const OutputTable *const tables[3],
                                           const unsigned slot[3], std::uint8_t *out)
{
    int widest = -1;
    for (unsigned c = 0; c < 3; ++c)
        widest = tables[c]->shift < 0 ? 99 : std::max(widest, tables[c]->shift);
    const Output output = widest <= 2 ? Output::Narrow : widest <= 10 ? Output::Shifts : Output::Tables;
    const auto row = slot[0] == 2 ? (output == Output::Narrow   ? matrixTriplesRow<true, Output::Narrow>
                                     : output == Output::Shifts ? matrixTriplesRow<true, Output::Shifts>
                                                                : matrixTriplesRow<true, Output::Tables>)
                                  : (output == Output::Narrow   ? matrixTriplesRow<false, Output::Narrow>
                                     : output == Output::Shifts ? matrixTriplesRow<false, Output::Shifts>
                                                                : matrixTriplesRow<false, Output::Tables>);
    row(rows, n, split, matrix, tables, out);
}

} // namespace quorin::image::vec
