// Helpers the AVX-512 kernels share: lane masks, the in-register look-up
// of a 1024-entry byte table (VBMI), the interleave of three byte planes
// into triples (VBMI), the smoothing's weighted mean and the pieces of the
// split-row kernels. Everything here has internal linkage: each kernel file
// compiles its own copy for its instruction set.
#pragma once

#include "image/kernels/intrinsics.h"

namespace quorin::image::vec {
namespace {

// Where pixel k of a block of 64 sits in a 64-byte plane: byte k; for
// split rows byte k / 2 (even pixels) or 32 + k / 2 (odd ones); and, after
// the matrix kernel's pack of two 32-value halves h (pixels 32 h + j, or
// 2 j + h for split rows), byte 16 (j / 8) + 8 h + j % 8.
enum class PlaneOrder { Natural, Split, NaturalPacked, SplitPacked };

constexpr unsigned byteOf(PlaneOrder order, unsigned k)
{
    const bool split = order == PlaneOrder::Split || order == PlaneOrder::SplitPacked;
    const unsigned h = split ? k & 1 : k / 32, j = split ? k / 2 : k % 32;
    if (order == PlaneOrder::Natural || order == PlaneOrder::Split)
        return 32 * h + j;
    return 16 * (j / 8) + 8 * h + j % 8;
}

// Byte indices of the interleave of three 64-byte planes S0, S1, S2 into
// three 64-byte vectors: byte p of vector o is output byte P = 64 o + p,
// pixel P / 3, slot P % 3.
struct Interleave {
    std::array<std::array<std::uint8_t, 64>, 3> firstTwo{}; // slot 0: pixel, slot 1: 64 + pixel
    std::array<std::array<std::uint8_t, 64>, 3> third{};    // pixel, used where the slot is 2
    std::array<std::uint64_t, 3> thirdMask{};
    constexpr explicit Interleave(PlaneOrder order)
    {
        for (unsigned o = 0; o < 3; ++o)
            for (unsigned p = 0; p < 64; ++p) {
                const unsigned P = 64 * o + p, s = P % 3, k = byteOf(order, P / 3);
                firstTwo[o][p] = static_cast<std::uint8_t>(s == 1 ? 64 + k : k);
                third[o][p] = static_cast<std::uint8_t>(k);
                if (s == 2)
                    thirdMask[o] |= std::uint64_t{1} << p;
            }
    }
};
constexpr Interleave kInterleave(PlaneOrder::Natural), kInterleaveSplit(PlaneOrder::Split),
    kInterleavePacked(PlaneOrder::NaturalPacked), kInterleaveSplitPacked(PlaneOrder::SplitPacked);

// Even bytes of two vectors: the low bytes of their 16-bit lanes, a then b.
constexpr std::array<std::uint8_t, 64> kEvenBytes = [] {
    std::array<std::uint8_t, 64> e{};
    for (unsigned k = 0; k < 64; ++k)
        e[k] = static_cast<std::uint8_t>(2 * k);
    return e;
}();


// Lane masks of the first n (<= 64) 16-bit values, split in two halves.
inline __mmask32 firstHalf(std::size_t n)
{
    return n >= 32 ? ~__mmask32{0} : static_cast<__mmask32>((std::uint32_t{1} << n) - 1);
}
inline __mmask32 secondHalf(std::size_t n)
{
    return n <= 32 ? __mmask32{0} : firstHalf(n - 32);
}
inline __mmask64 firstBytes(std::size_t n)
{
    return n >= 64 ? ~__mmask64{0} : static_cast<__mmask64>((std::uint64_t{1} << n) - 1);
}

// The indices of 64 16-bit values (a then b, each below 1024) into a
// 1024-entry byte table of sixteen 64-byte pieces: the low seven bits of an
// index pick a byte in a pair of pieces, bits 7 to 9 pick the pair.
struct ByteIndex {
    __m512i low;
    __mmask64 bit7, bit8, bit9;
};

QUORIN_TARGET_VBMI QUORIN_ALWAYS_INLINE inline ByteIndex byteIndex(__m512i a, __m512i b)
{
    const __m512i even = _mm512_loadu_si512(kEvenBytes.data());
    const __m512i high = _mm512_permutex2var_epi8(_mm512_srli_epi16(a, 7), even, _mm512_srli_epi16(b, 7));
    return {_mm512_permutex2var_epi8(a, even, b), _mm512_test_epi8_mask(high, _mm512_set1_epi8(1)),
            _mm512_test_epi8_mask(high, _mm512_set1_epi8(2)), _mm512_test_epi8_mask(high, _mm512_set1_epi8(4))};
}

// table[index] for the 64 indices, in their order.
QUORIN_TARGET_VBMI QUORIN_ALWAYS_INLINE inline __m512i lookUpBytes(const ByteIndex &index, const std::uint8_t *table)
{
    __m512i r[8];
    for (int j = 0; j < 8; ++j)
        r[j] = _mm512_permutex2var_epi8(_mm512_loadu_si512(table + 128 * j), index.low,
                                        _mm512_loadu_si512(table + 128 * j + 64));
    for (int j = 0; j < 4; ++j)
        r[j] = _mm512_mask_blend_epi8(index.bit7, r[2 * j], r[2 * j + 1]);
    for (int j = 0; j < 2; ++j)
        r[j] = _mm512_mask_blend_epi8(index.bit8, r[2 * j], r[2 * j + 1]);
    return _mm512_mask_blend_epi8(index.bit9, r[0], r[1]);
}

// Byte indices that interleave 64 low bytes (a) and 64 high bytes (b) into
// 16-bit values 0 .. 31 (first) and 32 .. 63 (second).
struct Words {
    std::uint8_t first[64], second[64];
    constexpr Words() : first{}, second{}
    {
        for (unsigned j = 0; j < 32; ++j) {
            first[2 * j] = static_cast<std::uint8_t>(j);
            first[2 * j + 1] = static_cast<std::uint8_t>(64 + j);
            second[2 * j] = static_cast<std::uint8_t>(32 + j);
            second[2 * j + 1] = static_cast<std::uint8_t>(96 + j);
        }
    }
};
constexpr Words kWords;

// table.bytes[min(v, 1023)] for the 64 16-bit values of a then b. A
// straight table is a shift and a saturating narrowing.
QUORIN_TARGET_VBMI QUORIN_ALWAYS_INLINE inline __m512i lookUp64(__m512i a, __m512i b, const OutputTable &lut)
{
    const __m512i limit = _mm512_set1_epi16(1023);
    a = _mm512_min_epu16(a, limit);
    b = _mm512_min_epu16(b, limit);
    if (lut.shift >= 0) {
        const __m128i count = _mm_cvtsi32_si128(lut.shift);
        const __m256i low = _mm512_cvtusepi16_epi8(_mm512_srl_epi16(a, count));
        return _mm512_inserti64x4(_mm512_castsi256_si512(low), _mm512_cvtusepi16_epi8(_mm512_srl_epi16(b, count)), 1);
    }
    return lookUpBytes(byteIndex(a, b), lut.bytes);
}

// Interleaves three 64-byte planes (in slot order) into 3 n bytes at out.
QUORIN_TARGET_VBMI QUORIN_ALWAYS_INLINE inline void storeTriples(const __m512i bySlot[3], std::size_t n,
                                                                 std::uint8_t *out,
                                                                 const Interleave &order = kInterleave,
                                                                 bool stream = false)
{
    const std::size_t bytes = 3 * n;
    for (unsigned o = 0; o < 3; ++o) {
        const __m512i firstTwo = _mm512_permutex2var_epi8(
            bySlot[0], _mm512_loadu_si512(order.firstTwo[o].data()), bySlot[1]);
        const __m512i v = _mm512_mask_permutexvar_epi8(firstTwo, order.thirdMask[o],
                                                       _mm512_loadu_si512(order.third[o].data()), bySlot[2]);
        if (stream && bytes == 192)
            _mm512_stream_si512(reinterpret_cast<__m512i *>(out + 64 * o), v);
        else if (bytes >= 64 * (o + 1))
            _mm512_storeu_si512(out + 64 * o, v);
        else if (bytes > 64 * o)
            _mm512_mask_storeu_epi8(out + 64 * o, firstBytes(bytes - 64 * o), v);
    }
}

// Lane indices of the interleave of three 32-value planes S0, S1, S2 into
// three vectors: lane e of vector o is output value P = 32 o + e, pixel
// P / 3, slot P % 3.
struct Triples16 {
    std::uint16_t firstTwo[3][32]; // slot 0: pixel, slot 1: 32 + pixel
    std::uint16_t third[3][32];    // pixel, where the slot is 2
    std::uint32_t thirdMask[3];
    constexpr Triples16() : firstTwo{}, third{}, thirdMask{}
    {
        for (unsigned o = 0; o < 3; ++o)
            for (unsigned e = 0; e < 32; ++e) {
                const unsigned P = 32 * o + e, s = P % 3, k = P / 3;
                firstTwo[o][e] = static_cast<std::uint16_t>(s == 1 ? 32 + k : k);
                third[o][e] = static_cast<std::uint16_t>(k);
                if (s == 2)
                    thirdMask[o] |= std::uint32_t{1} << e;
            }
    }
};
constexpr Triples16 kTriples16;

// Interleaves three planes of 32 16-bit values (in slot order) into 3 n
// values at out (n <= 32), with streaming stores when asked (n must be 32
// and out on a 64-byte boundary).
QUORIN_TARGET_AVX512 QUORIN_ALWAYS_INLINE inline void storeTriples16(const __m512i bySlot[3], std::size_t n,
                                                                     std::uint16_t *out, bool stream = false)
{
    const std::size_t values = 3 * n;
    for (unsigned o = 0; o < 3; ++o) {
        const __m512i v = _mm512_mask_permutexvar_epi16(
            _mm512_permutex2var_epi16(bySlot[0], _mm512_loadu_si512(kTriples16.firstTwo[o]), bySlot[1]),
            kTriples16.thirdMask[o], _mm512_loadu_si512(kTriples16.third[o]), bySlot[2]);
        if (stream)
            _mm512_stream_si512(reinterpret_cast<__m512i *>(out + 32 * o), v);
        else if (values >= 32 * (o + 1))
            _mm512_storeu_si512(out + 32 * o, v);
        else if (values > 32 * o)
            _mm512_mask_storeu_epi16(out + 32 * o, firstHalf(values - 32 * o), v);
    }
}

// ceil(2^18 / weight) for the smoothing's weights 5 to 12: the high half
// of sum * entry, shifted right by 2, is sum / weight truncated for every
// sum below 12288 (weight 4 means no neighbour counted: the value stays).
alignas(64) constexpr std::uint16_t kReciprocal[32] = {0,     0,     0,     0,     0,     52429, 43691, 37450,
                                                       32768, 29128, 26215, 23832, 21846};


// The smoothed value of 32 sites c from their four diagonal neighbours:
// weight 4 for the site, 2 for a neighbour within 25 of it, 1 within 50;
// the weighted mean truncated, by the reciprocal of the weight.
QUORIN_TARGET_AVX512 QUORIN_ALWAYS_INLINE inline __m512i smoothedMean(__m512i c, const __m512i neighbours[4])
{
    const __m512i fifty = _mm512_set1_epi16(50), twentyFive = _mm512_set1_epi16(25);
    const __m512i one = _mm512_set1_epi16(1), four = _mm512_set1_epi16(4);
    __m512i sum = _mm512_slli_epi16(c, 2), weight = four;
    for (int k = 0; k < 4; ++k) {
        const __m512i v = neighbours[k];
        const __m512i d = _mm512_abs_epi16(_mm512_sub_epi16(c, v));
        const __mmask32 within50 = _mm512_cmplt_epu16_mask(d, fifty);
        const __mmask32 within25 = _mm512_cmplt_epu16_mask(d, twentyFive);
        sum = _mm512_mask_add_epi16(sum, within50, sum, v);
        sum = _mm512_mask_add_epi16(sum, within25, sum, v);
        weight = _mm512_mask_add_epi16(weight, within50, weight, one);
        weight = _mm512_mask_add_epi16(weight, within25, weight, one);
    }
    const __m512i reciprocal = _mm512_permutexvar_epi16(weight, _mm512_load_si512(kReciprocal));
    const __m512i mean = _mm512_srli_epi16(_mm512_mulhi_epu16(sum, reciprocal), 2);
    return _mm512_mask_mov_epi16(mean, _mm512_cmpeq_epi16_mask(weight, four), c);
}


constexpr std::uint16_t kEvenWords[32] = {0,  2,  4,  6,  8,  10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30,
                                          32, 34, 36, 38, 40, 42, 44, 46, 48, 50, 52, 54, 56, 58, 60, 62};
constexpr std::uint16_t kOddWords[32] = {1,  3,  5,  7,  9,  11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31,
                                         33, 35, 37, 39, 41, 43, 45, 47, 49, 51, 53, 55, 57, 59, 61, 63};

// A split row: columns col, col + 2, ..., col + 62 of the row at rowStart,
// which lie side by side in the half of col's parity.
struct SplitRow {
    std::size_t half;
    QUORIN_TARGET_AVX512 QUORIN_ALWAYS_INLINE inline __m512i at(const std::uint16_t *rowStart, std::size_t col) const
    {
        return _mm512_loadu_si512(rowStart + (col & 1) * half + col / 2);
    }
    std::uint16_t *place(std::uint16_t *rowStart, std::size_t col) const { return rowStart + (col & 1) * half + col / 2; }
};

QUORIN_TARGET_AVX512 QUORIN_ALWAYS_INLINE inline __m512i clamp1023(__m512i v)
{
    return _mm512_min_epi16(_mm512_max_epi16(v, _mm512_setzero_si512()), _mm512_set1_epi16(1023));
}

QUORIN_TARGET_AVX512 QUORIN_ALWAYS_INLINE inline __mmask32 below(__m512i v, int limit)
{
    return _mm512_cmplt_epi16_mask(v, _mm512_set1_epi16(static_cast<short>(limit)));
}

// The sites of parity `parity` among columns from .. to: the first one and
// their number.
struct Sites {
    std::size_t first = 0, count = 0;
    Sites(std::size_t from, std::size_t to, std::uint32_t parity)
    {
        first = from + ((from ^ parity) & 1u);
        if (to >= first)
            count = (to - first) / 2 + 1;
    }
};

// The colour of a green site from one line of neighbours: their colours
// ca, cb and greens ga, gb, and the site's green g.
QUORIN_TARGET_AVX512 QUORIN_ALWAYS_INLINE inline __m512i fromLine(__m512i ca, __m512i cb, __m512i g, __m512i ga,
                                                                  __m512i gb)
{
    const __m512i toA = _mm512_sub_epi16(g, ga), toB = _mm512_sub_epi16(g, gb);
    const __m512i lap = _mm512_add_epi16(toA, toB);
    const __m512i da = _mm512_abs_epi16(toA), db = _mm512_abs_epi16(toB);
    // The flat and the steady case are the same sum.
    const __m512i flat = _mm512_srai_epi16(_mm512_add_epi16(_mm512_add_epi16(ca, cb), lap), 1);
    __m512i v = _mm512_mask_mov_epi16(_mm512_add_epi16(ca, toA), _mm512_cmpge_epi16_mask(da, db),
                                      _mm512_add_epi16(cb, toB));
    v = _mm512_mask_mov_epi16(v, (below(da, 100) & below(db, 100)) | below(_mm512_abs_epi16(lap), 200), flat);
    return clamp1023(v);
}


} // namespace
} // namespace quorin::image::vec
