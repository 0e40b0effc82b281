// The 16-bit finish of a row of planes with AVX-512: the colour matrix and
// the look-up into planes of pixels, and the interleave of three planes
// into 16-bit triples.
#include "image/kernels/avx512_common.h"

namespace quorin::image::vec {
namespace {

// Lane indices that join 32 even and 32 odd columns (a then b) into
// pixels 0 .. 31 (first) and 32 .. 63 (second).
struct Join {
    std::uint16_t first[32], second[32];
    constexpr Join() : first{}, second{}
    {
        for (unsigned j = 0; j < 32; ++j) {
            first[j] = static_cast<std::uint16_t>((j & 1) * 32 + j / 2);
            second[j] = static_cast<std::uint16_t>((j & 1) * 32 + 16 + j / 2);
        }
    }
};
constexpr Join kJoin;

// The 32 values of table[min(v, 1023)] by two gathers of 16. (The kernel
// is meant for values below 1024, but a frame of wider values runs it
// before the pipeline finds out: it must not read beyond the table.)
QUORIN_TARGET_AVX512 QUORIN_ALWAYS_INLINE inline __m512i gather16(__m512i v, const std::uint32_t *table)
{
    const auto *base = reinterpret_cast<const int *>(table);
    v = _mm512_min_epu16(v, _mm512_set1_epi16(1023));
    const __m512i low = _mm512_i32gather_epi32(_mm512_cvtepu16_epi32(_mm512_castsi512_si256(v)), base, 4);
    const __m512i high = _mm512_i32gather_epi32(_mm512_cvtepu16_epi32(_mm512_extracti64x4_epi64(v, 1)), base, 4);
    return _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvtepi32_epi16(low)), _mm512_cvtepi32_epi16(high), 1);
}

} // namespace

namespace {

// The matrix kernel's constants.
struct Matrix16 {
    __m512i redGreen[3], blue[3];
};

QUORIN_TARGET_AVX512 QUORIN_ALWAYS_INLINE inline Matrix16 matrix16(const std::int16_t *matrix)
{
    Matrix16 m;
    for (unsigned c = 0; c < 3; ++c) {
        const MatrixWords w = matrixWords(matrix, c);
        m.redGreen[c] = _mm512_set1_epi32(w.redGreen);
        m.blue[c] = _mm512_set1_epi32(w.blue);
    }
    return m;
}

// Pixels k .. k + 63 of a row after the matrix (when given) and the
// look-up: v[c][h] holds colour c of pixels k + 32 h .. k + 32 h + 31.
QUORIN_TARGET_AVX512 QUORIN_ALWAYS_INLINE inline void finish64(const RowHalves &rows, std::size_t k, std::size_t left,
                                                               bool split, const Matrix16 *m,
                                                               const std::uint32_t *const tables[3], __m512i v[3][2])
{
    const __m512i limit = _mm512_set1_epi32(1023), zero = _mm512_setzero_si512();
    for (unsigned c = 0; c < 3; ++c) {
        if (split) {
            const __m512i even = _mm512_maskz_loadu_epi16(firstHalf((left + 1) / 2), rows[c][0] + k / 2);
            const __m512i odd = _mm512_maskz_loadu_epi16(firstHalf(left / 2), rows[c][1] + k / 2);
            v[c][0] = _mm512_permutex2var_epi16(even, _mm512_loadu_si512(kJoin.first), odd);
            v[c][1] = _mm512_permutex2var_epi16(even, _mm512_loadu_si512(kJoin.second), odd);
        } else {
            v[c][0] = _mm512_maskz_loadu_epi16(firstHalf(left), rows[c][0] + k);
            v[c][1] = _mm512_maskz_loadu_epi16(secondHalf(left), rows[c][0] + k + 32);
        }
    }
    for (unsigned h = 0; h < 2; ++h) {
        if (m != nullptr) {
            const __m512i rgLow = _mm512_unpacklo_epi16(v[0][h], v[1][h]), rgHigh = _mm512_unpackhi_epi16(v[0][h], v[1][h]);
            const __m512i bLow = _mm512_unpacklo_epi16(v[2][h], zero), bHigh = _mm512_unpackhi_epi16(v[2][h], zero);
            for (unsigned c = 0; c < 3; ++c) {
                __m512i low = _mm512_add_epi32(_mm512_madd_epi16(rgLow, m->redGreen[c]), _mm512_madd_epi16(bLow, m->blue[c]));
                __m512i high =
                    _mm512_add_epi32(_mm512_madd_epi16(rgHigh, m->redGreen[c]), _mm512_madd_epi16(bHigh, m->blue[c]));
                // s <= 0 gives 0 (the pack saturates), s >> 8 above 1023 gives 1023.
                low = _mm512_min_epi32(_mm512_srai_epi32(low, 8), limit);
                high = _mm512_min_epi32(_mm512_srai_epi32(high, 8), limit);
                v[c][h] = _mm512_packus_epi32(low, high); // the unpacking's order undone
            }
        }
        for (unsigned c = 0; c < 3; ++c)
            if (tables[c] != nullptr)
                v[c][h] = gather16(v[c][h], tables[c]);
    }
}

} // namespace

QUORIN_TARGET_AVX512 void matrixLookUp16Avx512(const RowHalves &rows, std::size_t n, bool split,
                                               const std::int16_t *matrix, const std::uint32_t *const tables[3],
                                               std::uint16_t *const out[3])
{
    const Matrix16 m = matrix != nullptr ? matrix16(matrix) : Matrix16{};
    for (std::size_t k = 0; k < n; k += 64) {
        const std::size_t left = n - k;
        __m512i v[3][2];
        finish64(rows, k, left, split, matrix != nullptr ? &m : nullptr, tables, v);
        for (unsigned h = 0; h < 2; ++h)
            for (unsigned c = 0; c < 3; ++c)
                _mm512_mask_storeu_epi16(out[c] + k + 32 * h, h == 0 ? firstHalf(left) : secondHalf(left), v[c][h]);
    }
}

namespace {

// Whole rows of 8-bit triples on a 64-byte boundary take streaming
// stores: nothing reads them soon. (The 16-bit triples do not: beside the
// bytes, or where the frame is small enough to stay in the last-level
// cache, streaming them costs more than it saves.)
inline bool streams(const void *out, std::size_t n)
{
    return (reinterpret_cast<std::uintptr_t>(out) & 63) == 0 && n % 64 == 0;
}

// The row loop for one order of the slots (blue first, or red), so that
// the channels stay in registers; with Bytes (VBMI) the 8-bit triples too.
template <bool BlueFirst, bool Bytes>
QUORIN_TARGET_VBMI QUORIN_ALWAYS_INLINE inline void finishRow(const RowHalves &rows, std::size_t n, bool split,
                                                              const std::int16_t *matrix, const ByteTables &tables,
                                                              std::uint16_t *out16, std::uint8_t *out8,
                                                              unsigned outputShift)
{
    const std::uint32_t *const noGathers[3] = {};
    const __m512i first = _mm512_loadu_si512(kWords.first), second = _mm512_loadu_si512(kWords.second);
    constexpr unsigned kFirst = BlueFirst ? 2 : 0, kLast = BlueFirst ? 0 : 2;
    const Matrix16 m = matrix != nullptr ? matrix16(matrix) : Matrix16{};
    const __m128i reduce = _mm_cvtsi32_si128(static_cast<int>(outputShift));
    const bool stream8 = Bytes && streams(out8, n);
    for (std::size_t k = 0; k < n; k += 64) {
        const std::size_t left = n - k;
        __m512i v[3][2];
        finish64(rows, k, left, split, matrix != nullptr ? &m : nullptr, noGathers, v);
        for (unsigned c = 0; c < 3; ++c)
            if (tables.low[c] != nullptr) {
                // The 64 values' low and high bytes, joined again.
                const ByteIndex index = byteIndex(v[c][0], v[c][1]);
                const __m512i lows = lookUpBytes(index, tables.low[c]), highs = lookUpBytes(index, tables.high[c]);
                v[c][0] = _mm512_permutex2var_epi8(lows, first, highs);
                v[c][1] = _mm512_permutex2var_epi8(lows, second, highs);
            }
        for (unsigned h = 0; h < 2 && left > 32 * h; ++h) {
            const __m512i bySlot[3] = {v[kFirst][h], v[1][h], v[kLast][h]};
            storeTriples16(bySlot, std::min<std::size_t>(left - 32 * h, 32), out16 + 3 * (k + 32 * h));
        }
        if constexpr (Bytes) {
            // v >> outputShift, at most 255: the pack saturates.
            __m512i bytes[3];
            for (unsigned c = 0; c < 3; ++c)
                bytes[c] = _mm512_packus_epi16(_mm512_srl_epi16(v[c][0], reduce), _mm512_srl_epi16(v[c][1], reduce));
            const __m512i bySlot[3] = {bytes[kFirst], bytes[1], bytes[kLast]};
            storeTriples(bySlot, std::min<std::size_t>(left, 64), out8 + 3 * k, kInterleavePacked, stream8);
        }
    }
    if (stream8)
        _mm_sfence();
}

} // namespace

QUORIN_TARGET_VBMI void finishTriplesVbmi(const RowHalves &rows, std::size_t n, bool split, const std::int16_t *matrix,
                                          const ByteTables &tables, const unsigned slot[3], std::uint16_t *out16,
                                          std::uint8_t *out8, unsigned outputShift)
{
    const bool blueFirst = slot[0] == 2;
    if (out8 == nullptr)
        (blueFirst ? finishRow<true, false> : finishRow<false, false>)(rows, n, split, matrix, tables, out16, out8,
                                                                       outputShift);
    else
        (blueFirst ? finishRow<true, true> : finishRow<false, true>)(rows, n, split, matrix, tables, out16, out8,
                                                                     outputShift);
}

QUORIN_TARGET_AVX512 void interleave16Avx512(const std::uint16_t *const bySlot[3], std::size_t n,
                                             std::uint16_t *out)
{
    // Whole rows of a destination on a 64-byte boundary take streaming
    // stores: nothing reads them soon.
    const bool stream = (reinterpret_cast<std::uintptr_t>(out) & 63) == 0 && n % 32 == 0;
    for (std::size_t k = 0; k < n; k += 32) {
        const __mmask32 lanes = firstHalf(n - k);
        const __m512i bySlotValues[3] = {_mm512_maskz_loadu_epi16(lanes, bySlot[0] + k),
                                         _mm512_maskz_loadu_epi16(lanes, bySlot[1] + k),
                                         _mm512_maskz_loadu_epi16(lanes, bySlot[2] + k)};
        storeTriples16(bySlotValues, std::min<std::size_t>(n - k, 32), out + 3 * k, stream);
    }
    if (stream)
        _mm_sfence();
}

QUORIN_TARGET_AVX512 void lookUp16Avx512(const std::uint16_t *in, std::size_t n, const std::uint32_t *table,
                                         std::uint16_t *out)
{
    for (std::size_t k = 0; k < n; k += 32) {
        const __mmask32 lanes = firstHalf(n - k);
        _mm512_mask_storeu_epi16(out + k, lanes, gather16(_mm512_maskz_loadu_epi16(lanes, in + k), table));
    }
}

} // namespace quorin::image::vec
