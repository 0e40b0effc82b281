// The 8-bit output through a 1024-entry table with AVX-512 VBMI in-register
// look-ups: of a row of values, and of blocks of three planes as triples.
#include "image/kernels/avx512_common.h"

namespace quorin::image::vec {

QUORIN_TARGET_VBMI void lookUp8Vbmi(const std::uint16_t *in, std::size_t n, const OutputTable &table,
                                    std::uint8_t *out)
{
    std::size_t k = 0;
    for (; k + 64 <= n; k += 64) {
        const __m512i a = _mm512_loadu_si512(in + k), b = _mm512_loadu_si512(in + k + 32);
        _mm512_storeu_si512(out + k, lookUp64(a, b, table));
    }
    if (k < n) {
        const std::size_t left = n - k;
        const __m512i a = _mm512_maskz_loadu_epi16(firstHalf(left), in + k);
        const __m512i b = _mm512_maskz_loadu_epi16(secondHalf(left), in + k + 32);
        _mm512_mask_storeu_epi8(out + k, firstBytes(left), lookUp64(a, b, table));
    }
}

QUORIN_TARGET_VBMI void triples8Vbmi(const std::uint16_t (*values)[kBlock], std::size_t n,
                                     const OutputTable *const tables[3], const unsigned slot[3], std::uint8_t *out)
{
    __m512i bySlot[3];
    for (unsigned c = 0; c < 3; ++c) {
        const __m512i a = _mm512_maskz_loadu_epi16(firstHalf(n), values[c]);
        const __m512i b = _mm512_maskz_loadu_epi16(secondHalf(n), values[c] + 32);
        bySlot[slot[c]] = lookUp64(a, b, *tables[c]);
    }
    storeTriples(bySlot, n, out);
}

QUORIN_TARGET_VBMI void lookUp16Vbmi(const std::uint16_t *in, std::size_t n, const std::uint8_t *low,
                                     const std::uint8_t *high, std::uint16_t *out)
{
    const __m512i limit = _mm512_set1_epi16(1023);
    const __m512i first = _mm512_loadu_si512(kWords.first), second = _mm512_loadu_si512(kWords.second);
    for (std::size_t k = 0; k < n; k += 64) {
        const std::size_t left = n - k;
        const __m512i a = _mm512_min_epu16(_mm512_maskz_loadu_epi16(firstHalf(left), in + k), limit);
        const __m512i b = _mm512_min_epu16(_mm512_maskz_loadu_epi16(secondHalf(left), in + k + 32), limit);
        const ByteIndex index = byteIndex(a, b);
        const __m512i lows = lookUpBytes(index, low), highs = lookUpBytes(index, high);
        _mm512_mask_storeu_epi16(out + k, firstHalf(left), _mm512_permutex2var_epi8(lows, first, highs));
        _mm512_mask_storeu_epi16(out + k + 32, secondHalf(left), _mm512_permutex2var_epi8(lows, second, highs));
    }
}

} // namespace quorin::image::vec
