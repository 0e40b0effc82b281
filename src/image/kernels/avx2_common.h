// Helpers the AVX2 kernels share: the look-up of 16 values through a
// 1024-entry table by gathers, and the interleave of three 16-byte planes
// into triples. Internal linkage: each kernel file has its own copy.
#pragma once

#include "image/kernels/intrinsics.h"

namespace quorin::image::vec {
namespace {

// lut.wide[min(v, 1023)] of 16 values, as 16 bytes in order; a straight
// table is a shift and a saturating pack.
QUORIN_TARGET_AVX2 QUORIN_ALWAYS_INLINE inline __m128i lookUp16(__m256i values, const OutputTable &lut)
{
    const __m256i v = _mm256_min_epu16(values, _mm256_set1_epi16(1023));
    if (lut.shift >= 0) {
        const __m256i shifted = _mm256_srl_epi16(v, _mm_cvtsi32_si128(lut.shift));
        return _mm_packus_epi16(_mm256_castsi256_si128(shifted), _mm256_extracti128_si256(shifted, 1));
    }
    const auto *table = reinterpret_cast<const int *>(lut.wide);
    const __m256i low = _mm256_i32gather_epi32(table, _mm256_cvtepu16_epi32(_mm256_castsi256_si128(v)), 4);
    const __m256i high = _mm256_i32gather_epi32(table, _mm256_cvtepu16_epi32(_mm256_extracti128_si256(v, 1)), 4);
    // Entries are bytes: pack to 16 bits (per 128-bit half, hence the
    // reordering of the 64-bit quarters), then to 8 bits.
    const __m256i words = _mm256_permute4x64_epi64(_mm256_packus_epi32(low, high), 0xD8);
    return _mm_packus_epi16(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1));
}


// Byte shuffles that interleave three 16-byte planes (in slot order) into
// 48 bytes: output vector j takes byte P = 16 j + q from plane P % 3, at
// byte P / 3 (0x80 elsewhere gives zero).
struct InterleaveShuffles {
    std::uint8_t mask[3][3][16]; // [output vector][plane][byte]
    constexpr InterleaveShuffles() : mask{}
    {
        for (unsigned j = 0; j < 3; ++j)
            for (unsigned plane = 0; plane < 3; ++plane)
                for (unsigned q = 0; q < 16; ++q) {
                    const unsigned P = 16 * j + q;
                    mask[j][plane][q] = static_cast<std::uint8_t>(P % 3 == plane ? P / 3 : 0x80);
                }
    }
};
constexpr InterleaveShuffles kShuffles;

QUORIN_TARGET_AVX2 QUORIN_ALWAYS_INLINE inline void storeTriples16(const __m128i bySlot[3], std::uint8_t *out)
{
    for (unsigned j = 0; j < 3; ++j) {
        __m128i v = _mm_setzero_si128();
        for (unsigned plane = 0; plane < 3; ++plane)
            v = _mm_or_si128(v, _mm_shuffle_epi8(bySlot[plane], _mm_loadu_si128(reinterpret_cast<const __m128i *>(
                                                                     kShuffles.mask[j][plane]))));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 16 * j), v);
    }
}


// ceil(2^18 / weight) for the smoothing's weights 5 to 12 (see
// avx512_common.h).
alignas(64) constexpr std::uint16_t kReciprocal[32] = {0,     0,     0,     0,     0,     52429, 43691, 37450,
                                                       32768, 29128, 26215, 23832, 21846};


} // namespace
} // namespace quorin::image::vec
