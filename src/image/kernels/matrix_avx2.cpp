// The colour matrix, look-up and 8-bit triples of a row of planes with AVX2.
#include "image/kernels/avx2_common.h"

namespace quorin::image::vec {

namespace {

// The AVX2 matrix kernel's loop for one order of the slots, so that the
// channels stay in registers.
template <bool BlueFirst>
QUORIN_TARGET_AVX2 QUORIN_ALWAYS_INLINE inline std::size_t
matrixTriplesAvx2Loop(const std::uint16_t *r, const std::uint16_t *g, const std::uint16_t *b, std::size_t n,
                      const std::int16_t matrix[9], const OutputTable *const tables[3], std::uint8_t *out)
{
    __m256i redGreen[3], blue[3];
    bool straight[3];
    __m128i counts[3];
    for (unsigned c = 0; c < 3; ++c) {
        redGreen[c] = _mm256_set1_epi32(static_cast<int>(static_cast<std::uint16_t>(matrix[3 * c]) |
                                                         std::uint32_t{static_cast<std::uint16_t>(matrix[3 * c + 1])}
                                                             << 16));
        blue[c] = _mm256_set1_epi32(static_cast<std::uint16_t>(matrix[3 * c + 2]));
        straight[c] = tables[c]->shift >= 0;
        counts[c] = _mm_cvtsi32_si128(straight[c] ? tables[c]->shift : 0);
    }
    const __m256i limit = _mm256_set1_epi32(1023), zero = _mm256_setzero_si256();
    std::size_t k = 0;
    for (; k + 32 <= n; k += 32) {
        __m256i channel[3][2];
        for (unsigned h = 0; h < 2; ++h) {
            const std::size_t at = k + 16 * h;
            const __m256i rv = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(r + at));
            const __m256i gv = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(g + at));
            const __m256i bv = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(b + at));
            const __m256i rgLow = _mm256_unpacklo_epi16(rv, gv), rgHigh = _mm256_unpackhi_epi16(rv, gv);
            const __m256i bLow = _mm256_unpacklo_epi16(bv, zero), bHigh = _mm256_unpackhi_epi16(bv, zero);
            for (unsigned c = 0; c < 3; ++c) {
                __m256i low = _mm256_add_epi32(_mm256_madd_epi16(rgLow, redGreen[c]), _mm256_madd_epi16(bLow, blue[c]));
                __m256i high =
                    _mm256_add_epi32(_mm256_madd_epi16(rgHigh, redGreen[c]), _mm256_madd_epi16(bHigh, blue[c]));
                // s <= 0 gives 0 (the pack saturates), s >> 8 above 1023 gives 1023.
                low = _mm256_min_epi32(_mm256_srai_epi32(low, 8), limit);
                high = _mm256_min_epi32(_mm256_srai_epi32(high, 8), limit);
                channel[c][h] = _mm256_packus_epi32(low, high); // the unpacking's order undone
            }
        }
        __m128i bytes[3][2]; // pixels k .. k + 15, k + 16 .. k + 31
        for (unsigned c = 0; c < 3; ++c) {
            if (straight[c]) {
                const __m256i packed = _mm256_permute4x64_epi64(
                    _mm256_packus_epi16(_mm256_srl_epi16(channel[c][0], counts[c]),
                                        _mm256_srl_epi16(channel[c][1], counts[c])),
                    0xD8);
                bytes[c][0] = _mm256_castsi256_si128(packed);
                bytes[c][1] = _mm256_extracti128_si256(packed, 1);
            } else {
                bytes[c][0] = lookUp16(channel[c][0], *tables[c]);
                bytes[c][1] = lookUp16(channel[c][1], *tables[c]);
            }
        }
        for (unsigned h = 0; h < 2; ++h) {
            const __m128i bySlot[3] = {bytes[BlueFirst ? 2 : 0][h], bytes[1][h], bytes[BlueFirst ? 0 : 2][h]};
            storeTriples16(bySlot, out + 3 * (k + 16 * h));
        }
    }
    return k;
}

} // namespace

QUORIN_TARGET_AVX2 std::size_t matrixTriples8Avx2(const std::uint16_t *r, const std::uint16_t *g, const std::uint16_t *b,
                                                  std::size_t n, const std::int16_t matrix[9],
                                                  const OutputTable *const tables[3], const unsigned slot[3],
                                                  std::uint8_t *out)
{
    return slot[0] == 2 ? matrixTriplesAvx2Loop<true>(r, g, b, n, matrix, tables, out)
                        : matrixTriplesAvx2Loop<false>(r, g, b, n, matrix, tables, out);
}

} // namespace quorin::image::vec
