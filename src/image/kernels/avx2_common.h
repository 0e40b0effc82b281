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

// Three planes of 32 bytes (in slot order; pixels 0 .. 15 in the low
// 128-bit lane, 16 .. 31 in the high one) interleaved into 96 bytes of
// triples at out, both lanes shuffled at once.
QUORIN_TARGET_AVX2 QUORIN_ALWAYS_INLINE inline void storeTriples32(const __m256i bySlot[3], std::uint8_t *out)
{
    for (unsigned j = 0; j < 3; ++j) {
        __m256i v = _mm256_setzero_si256();
        for (unsigned plane = 0; plane < 3; ++plane)
            v = _mm256_or_si256(v, _mm256_shuffle_epi8(bySlot[plane],
                                                       _mm256_broadcastsi128_si256(_mm_loadu_si128(
                                                           reinterpret_cast<const __m128i *>(kShuffles.mask[j][plane])))));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 16 * j), _mm256_castsi256_si128(v));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 48 + 16 * j), _mm256_extracti128_si256(v, 1));
    }
}

// Byte shuffles that interleave three planes of eight 16-bit values (in
// slot order) into 24 values: output vector j takes byte P = 16 j + q, of
// value P / 2, from plane (P / 2) % 3 at byte 2 ((P / 2) / 3) + P % 2.
struct WordShuffles {
    std::uint8_t mask[3][3][16]; // [output vector][plane][byte]
    constexpr WordShuffles() : mask{}
    {
        for (unsigned j = 0; j < 3; ++j)
            for (unsigned plane = 0; plane < 3; ++plane)
                for (unsigned q = 0; q < 16; ++q) {
                    const unsigned P = 16 * j + q, v = P / 2;
                    mask[j][plane][q] = static_cast<std::uint8_t>(v % 3 == plane ? 2 * (v / 3) + P % 2 : 0x80);
                }
    }
};
constexpr WordShuffles kWordShuffles;

// Interleaves three planes of 16 16-bit values (in slot order) into 48
// values at out.
QUORIN_TARGET_AVX2 QUORIN_ALWAYS_INLINE inline void storeWordTriples(const __m256i bySlot[3], std::uint16_t *out)
{
    for (unsigned lane = 0; lane < 2; ++lane) {
        const __m128i planes[3] = {lane == 0 ? _mm256_castsi256_si128(bySlot[0]) : _mm256_extracti128_si256(bySlot[0], 1),
                                   lane == 0 ? _mm256_castsi256_si128(bySlot[1]) : _mm256_extracti128_si256(bySlot[1], 1),
                                   lane == 0 ? _mm256_castsi256_si128(bySlot[2]) : _mm256_extracti128_si256(bySlot[2], 1)};
        for (unsigned j = 0; j < 3; ++j) {
            __m128i v = _mm_setzero_si128();
            for (unsigned plane = 0; plane < 3; ++plane)
                v = _mm_or_si128(v, _mm_shuffle_epi8(planes[plane], _mm_loadu_si128(reinterpret_cast<const __m128i *>(
                                                                        kWordShuffles.mask[j][plane]))));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 24 * lane + 8 * j), v);
        }
    }
}

// 16 values of one colour in pixel order from rows[c] (natural rows: both
// halves the row; split rows: its even and odd columns), pixels at .. at +
// 15 (at even).
QUORIN_TARGET_AVX2 QUORIN_ALWAYS_INLINE inline __m256i loadPixels(const std::uint16_t *const halves[2], std::size_t at,
                                                                  bool split)
{
    if (!split)
        return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(halves[0] + at));
    const __m128i even = _mm_loadu_si128(reinterpret_cast<const __m128i *>(halves[0] + at / 2));
    const __m128i odd = _mm_loadu_si128(reinterpret_cast<const __m128i *>(halves[1] + at / 2));
    return _mm256_set_m128i(_mm_unpackhi_epi16(even, odd), _mm_unpacklo_epi16(even, odd));
}

// The colour matrix of 16 pixels (values below 1024, coefficients of 16
// bits) as in the AVX-512 kernels: out[c] colour c, limited to 0 .. 1023.
struct MatrixAvx2 {
    __m256i redGreen[3], blue[3];
};
constexpr std::int16_t kIdentity[9] = {256, 0, 0, 0, 256, 0, 0, 0, 256};

QUORIN_TARGET_AVX2 QUORIN_ALWAYS_INLINE inline MatrixAvx2 matrixAvx2(const std::int16_t matrix[9])
{
    MatrixAvx2 m;
    for (unsigned c = 0; c < 3; ++c) {
        const MatrixWords w = matrixWords(matrix, c);
        m.redGreen[c] = _mm256_set1_epi32(w.redGreen);
        m.blue[c] = _mm256_set1_epi32(w.blue);
    }
    return m;
}

QUORIN_TARGET_AVX2 QUORIN_ALWAYS_INLINE inline void applyMatrix(const MatrixAvx2 &m, const __m256i in[3], __m256i out[3])
{
    const __m256i limit = _mm256_set1_epi32(1023), zero = _mm256_setzero_si256();
    const __m256i rgLow = _mm256_unpacklo_epi16(in[0], in[1]), rgHigh = _mm256_unpackhi_epi16(in[0], in[1]);
    const __m256i bLow = _mm256_unpacklo_epi16(in[2], zero), bHigh = _mm256_unpackhi_epi16(in[2], zero);
    for (unsigned c = 0; c < 3; ++c) {
        __m256i low = _mm256_add_epi32(_mm256_madd_epi16(rgLow, m.redGreen[c]), _mm256_madd_epi16(bLow, m.blue[c]));
        __m256i high = _mm256_add_epi32(_mm256_madd_epi16(rgHigh, m.redGreen[c]), _mm256_madd_epi16(bHigh, m.blue[c]));
        // s <= 0 gives 0 (the pack saturates), s >> 8 above 1023 gives 1023.
        low = _mm256_min_epi32(_mm256_srai_epi32(low, 8), limit);
        high = _mm256_min_epi32(_mm256_srai_epi32(high, 8), limit);
        out[c] = _mm256_packus_epi32(low, high); // the unpacking's order undone
    }
}

// ceil(2^18 / weight) for the smoothing's weights 5 to 12 (see
// avx512_common.h).
alignas(64) constexpr std::uint16_t kReciprocal[32] = {0,     0,     0,     0,     0,     52429, 43691, 37450,
                                                       32768, 29128, 26215, 23832, 21846};


} // namespace
} // namespace quorin::image::vec
