// The colour matrix and look-up of a row of planes (natural or split) to
// 8-bit and 16-bit triples with SSE2, the x86-64 baseline: no byte
// shuffles, so the triples are built from 32-bit or 64-bit pixels by
// shifts and masks.
#include "image/kernels/vector_kernels.h"

#include <algorithm>
#include <emmintrin.h>

namespace quorin::image::vec {
namespace {

// Pixels at .. at + 15 (at even) of one colour in pixel order, as two
// vectors of 8: natural rows hold them in order, split rows as even and
// odd columns.
inline void loadPixels(const std::uint16_t *const halves[2], std::size_t at, bool split, __m128i out[2])
{
    if (!split) {
        out[0] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(halves[0] + at));
        out[1] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(halves[0] + at + 8));
        return;
    }
    const __m128i even = _mm_loadu_si128(reinterpret_cast<const __m128i *>(halves[0] + at / 2));
    const __m128i odd = _mm_loadu_si128(reinterpret_cast<const __m128i *>(halves[1] + at / 2));
    out[0] = _mm_unpacklo_epi16(even, odd);
    out[1] = _mm_unpackhi_epi16(even, odd);
}

// Pixels at .. at + 7 (at even) of one colour in pixel order.
inline __m128i loadEight(const std::uint16_t *const halves[2], std::size_t at, bool split)
{
    if (!split)
        return _mm_loadu_si128(reinterpret_cast<const __m128i *>(halves[0] + at));
    return _mm_unpacklo_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(halves[0] + at / 2)),
                              _mm_loadl_epi64(reinterpret_cast<const __m128i *>(halves[1] + at / 2)));
}

struct MatrixSse2 {
    __m128i redGreen[3], blue[3];
};

MatrixSse2 matrixSse2(const std::int16_t matrix[9])
{
    MatrixSse2 m;
    for (unsigned c = 0; c < 3; ++c) {
        const MatrixWords w = matrixWords(matrix, c);
        m.redGreen[c] = _mm_set1_epi32(w.redGreen);
        m.blue[c] = _mm_set1_epi32(w.blue);
    }
    return m;
}

// The matrix of 8 pixels: sums of 16-bit products, then s <= 0 gives 0
// and s >> 8 above 1023 gives 1023 (the signed pack keeps the sign for
// the lower limit).
inline void applyMatrix(const MatrixSse2 &m, const __m128i in[3], __m128i out[3])
{
    const __m128i zero = _mm_setzero_si128(), limit = _mm_set1_epi16(1023);
    const __m128i rgLow = _mm_unpacklo_epi16(in[0], in[1]), rgHigh = _mm_unpackhi_epi16(in[0], in[1]);
    const __m128i bLow = _mm_unpacklo_epi16(in[2], zero), bHigh = _mm_unpackhi_epi16(in[2], zero);
    for (unsigned c = 0; c < 3; ++c) {
        const __m128i low = _mm_add_epi32(_mm_madd_epi16(rgLow, m.redGreen[c]), _mm_madd_epi16(bLow, m.blue[c]));
        const __m128i high = _mm_add_epi32(_mm_madd_epi16(rgHigh, m.redGreen[c]), _mm_madd_epi16(bHigh, m.blue[c]));
        const __m128i packed = _mm_packs_epi32(_mm_srai_epi32(low, 8), _mm_srai_epi32(high, 8));
        out[c] = _mm_min_epi16(_mm_max_epi16(packed, zero), limit);
    }
}

// 16 values below 1024 through a table: a shift and an unsigned pack for
// a straight table, else the bytes looked up one by one.
inline __m128i lookUp16(const __m128i v[2], const OutputTable &table)
{
    if (table.shift >= 0) {
        const __m128i count = _mm_cvtsi32_si128(table.shift);
        return _mm_packus_epi16(_mm_srl_epi16(v[0], count), _mm_srl_epi16(v[1], count));
    }
    alignas(16) std::uint16_t values[16];
    alignas(16) std::uint8_t bytes[16];
    _mm_store_si128(reinterpret_cast<__m128i *>(values), v[0]);
    _mm_store_si128(reinterpret_cast<__m128i *>(values + 8), v[1]);
    for (unsigned j = 0; j < 16; ++j)
        bytes[j] = table.bytes[values[j]];
    return _mm_load_si128(reinterpret_cast<const __m128i *>(bytes));
}

// Two 64-bit halves of 6 bytes each (in their low bytes) to 12 bytes at
// out; 16 bytes are stored.
inline void storeTwelve(__m128i halves, void *out)
{
    // The upper half's 6 bytes moved down next to the lower half's.
    const __m128i lowHalf = _mm_set_epi64x(0, -1);
    const __m128i joined =
        _mm_or_si128(_mm_and_si128(halves, lowHalf), _mm_srli_si128(_mm_andnot_si128(lowHalf, halves), 2));
    _mm_storeu_si128(static_cast<__m128i *>(out), joined);
}

// Four pixels held as 32-bit words (slots 0, 1, 2 in bytes 0, 1, 2) to 12
// bytes of triples; 16 bytes are stored.
inline void storeFour(__m128i pixels, std::uint8_t *out)
{
    // In each 64-bit half: the first pixel's 3 bytes, then the second's.
    storeTwelve(_mm_or_si128(_mm_and_si128(pixels, _mm_set1_epi64x(0xFFFFFF)),
                             _mm_and_si128(_mm_srli_epi64(pixels, 8), _mm_set1_epi64x(0xFFFFFF000000))),
                out);
}

// 16 pixels' bytes by slot to 48 bytes of triples (52 stored).
inline void storeTriples(const __m128i bySlot[3], std::uint8_t *out)
{
    const __m128i zero = _mm_setzero_si128();
    for (unsigned h = 0; h < 2; ++h) {
        const __m128i first = h == 0 ? _mm_unpacklo_epi8(bySlot[0], bySlot[1]) : _mm_unpackhi_epi8(bySlot[0], bySlot[1]);
        const __m128i third = h == 0 ? _mm_unpacklo_epi8(bySlot[2], zero) : _mm_unpackhi_epi8(bySlot[2], zero);
        storeFour(_mm_unpacklo_epi16(first, third), out + 24 * h);
        storeFour(_mm_unpackhi_epi16(first, third), out + 24 * h + 12);
    }
}

// The loop for one order of the slots, so that the channels stay in
// registers.
template <bool BlueFirst>
std::size_t matrixTriplesLoop(const RowHalves &rows, bool split, std::size_t n, const std::int16_t matrix[9],
                              const OutputTable *const tables[3], std::uint8_t *out)
{
    const MatrixSse2 m = matrixSse2(matrix);
    std::size_t k = 0;
    for (; k + 18 <= n; k += 16) {
        __m128i in[3][2];
        for (unsigned c = 0; c < 3; ++c)
            loadPixels(rows[c], k, split, in[c]);
        __m128i channel[3][2];
        for (unsigned h = 0; h < 2; ++h) {
            const __m128i half[3] = {in[0][h], in[1][h], in[2][h]};
            __m128i mixed[3];
            applyMatrix(m, half, mixed);
            for (unsigned c = 0; c < 3; ++c)
                channel[c][h] = mixed[c];
        }
        __m128i bytes[3];
        for (unsigned c = 0; c < 3; ++c)
            bytes[c] = lookUp16(channel[c], *tables[c]);
        const __m128i bySlot[3] = {bytes[BlueFirst ? 2 : 0], bytes[1], bytes[BlueFirst ? 0 : 2]};
        storeTriples(bySlot, out + 3 * k);
    }
    return k;
}

// The 16-bit loop: 8 pixels a step, tables[c] null for the identity.
template <bool BlueFirst>
std::size_t finishTriples16Loop(const RowHalves &rows, bool split, std::size_t n, const std::int16_t *matrix,
                                const std::uint32_t *const tables[3], std::uint16_t *out)
{
    constexpr std::int16_t kIdentity[9] = {256, 0, 0, 0, 256, 0, 0, 0, 256};
    const MatrixSse2 m = matrixSse2(matrix != nullptr ? matrix : kIdentity);
    const __m128i zero = _mm_setzero_si128();
    std::size_t k = 0;
    for (; k + 10 <= n; k += 8) {
        __m128i v[3] = {loadEight(rows[0], k, split), loadEight(rows[1], k, split), loadEight(rows[2], k, split)};
        if (matrix != nullptr) {
            __m128i mixed[3];
            applyMatrix(m, v, mixed);
            for (unsigned c = 0; c < 3; ++c)
                v[c] = mixed[c];
        }
        for (unsigned c = 0; c < 3; ++c)
            if (tables[c] != nullptr) {
                alignas(16) std::uint16_t values[8];
                _mm_store_si128(reinterpret_cast<__m128i *>(values), v[c]);
                for (std::uint16_t &value : values)
                    value = static_cast<std::uint16_t>(tables[c][std::min<std::uint16_t>(value, 1023)]);
                v[c] = _mm_load_si128(reinterpret_cast<const __m128i *>(values));
            }
        const __m128i s0 = v[BlueFirst ? 2 : 0], s1 = v[1], s2 = v[BlueFirst ? 0 : 2];
        // Pixels as 64-bit words: slots 0, 1, 2 in their first three values.
        const __m128i first[2] = {_mm_unpacklo_epi16(s0, s1), _mm_unpackhi_epi16(s0, s1)};
        const __m128i third[2] = {_mm_unpacklo_epi16(s2, zero), _mm_unpackhi_epi16(s2, zero)};
        for (unsigned q = 0; q < 2; ++q) {
            storeTwelve(_mm_unpacklo_epi32(first[q], third[q]), out + 3 * (k + 4 * q));
            storeTwelve(_mm_unpackhi_epi32(first[q], third[q]), out + 3 * (k + 4 * q + 2));
        }
    }
    return k;
}

} // namespace

std::size_t finishTriples16Sse2(const RowHalves &rows, bool split, std::size_t n, const std::int16_t *matrix,
                                const std::uint32_t *const tables[3], const unsigned slot[3], std::uint16_t *out)
{
    return slot[0] == 2 ? finishTriples16Loop<true>(rows, split, n, matrix, tables, out)
                        : finishTriples16Loop<false>(rows, split, n, matrix, tables, out);
}

std::size_t matrixTriples8Sse2(const RowHalves &rows, bool split, std::size_t n, const std::int16_t matrix[9],
                               const OutputTable *const tables[3], const unsigned slot[3], std::uint8_t *out)
{
    return slot[0] == 2 ? matrixTriplesLoop<true>(rows, split, n, matrix, tables, out)
                        : matrixTriplesLoop<false>(rows, split, n, matrix, tables, out);
}

} // namespace quorin::image::vec
