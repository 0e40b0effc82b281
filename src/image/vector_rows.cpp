#include "image/vector_rows.h"

#include "image/frame.h"
#include "image/simd.h"

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <cstring>

// GCC 12 takes the deliberately undefined pass-through operand inside some
// AVX-512 intrinsics (_mm512_undefined_epi32) for an uninitialised variable.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

#define QUORIN_TARGET_AVX2 __attribute__((target("avx2")))
#define QUORIN_TARGET_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl")))
#define QUORIN_TARGET_VBMI __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi")))

namespace quorin::image::vec {
namespace {

bool processorHasVbmi()
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512vbmi");
}

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

// table.bytes[min(v, 1023)] for the 64 16-bit values of a then b. The
// table is sixteen 64-byte pieces; the low seven bits of an index pick a
// byte in a pair of pieces, bits 7 to 9 pick the pair. A straight table is
// a shift and a saturating narrowing.
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
    const std::uint8_t *table = lut.bytes;
    const __m512i even = _mm512_loadu_si512(kEvenBytes.data());
    const __m512i low = _mm512_permutex2var_epi8(a, even, b);
    const __m512i high = _mm512_permutex2var_epi8(_mm512_srli_epi16(a, 7), even, _mm512_srli_epi16(b, 7));
    __m512i r[8];
    for (int j = 0; j < 8; ++j)
        r[j] = _mm512_permutex2var_epi8(_mm512_loadu_si512(table + 128 * j), low,
                                        _mm512_loadu_si512(table + 128 * j + 64));
    const __mmask64 bit7 = _mm512_test_epi8_mask(high, _mm512_set1_epi8(1));
    const __mmask64 bit8 = _mm512_test_epi8_mask(high, _mm512_set1_epi8(2));
    const __mmask64 bit9 = _mm512_test_epi8_mask(high, _mm512_set1_epi8(4));
    for (int j = 0; j < 4; ++j)
        r[j] = _mm512_mask_blend_epi8(bit7, r[2 * j], r[2 * j + 1]);
    for (int j = 0; j < 2; ++j)
        r[j] = _mm512_mask_blend_epi8(bit8, r[2 * j], r[2 * j + 1]);
    return _mm512_mask_blend_epi8(bit9, r[0], r[1]);
}

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

// ceil(2^18 / weight) for the smoothing's weights 5 to 12: the high half
// of sum * entry, shifted right by 2, is sum / weight truncated for every
// sum below 12288 (weight 4 means no neighbour counted: the value stays).
alignas(64) constexpr std::uint16_t kReciprocal[32] = {0,     0,     0,     0,     0,     52429, 43691, 37450,
                                                       32768, 29128, 26215, 23832, 21846};

} // namespace

OutputTable::OutputTable(const std::uint16_t *table, std::uint32_t outputShift)
{
    for (std::uint32_t i = 0; i < 1024; ++i) {
        bytes[i] = reduce8(table[i], outputShift);
        wide[i] = bytes[i];
    }
    for (int s = 0; s <= 10 && shift < 0; ++s) {
        std::uint32_t i = 0;
        while (i < 1024 && bytes[i] == std::min(i >> s, 255u))
            ++i;
        if (i == 1024)
            shift = s;
    }
}

bool avx2Active()
{
    return simd::active() >= simd::Level::Avx2;
}

bool avx512Active()
{
    return simd::active() == simd::Level::Avx512;
}

bool vbmiActive()
{
    static const bool vbmi = processorHasVbmi();
    return vbmi && simd::active() == simd::Level::Avx512;
}

QUORIN_TARGET_AVX2 std::size_t unpackGroupsAvx2(const std::uint8_t *in, std::size_t groups, std::size_t readable,
                                                std::uint16_t *out)
{
    // Value j of a group starts at bit 2 j of its byte j: take bytes j and
    // j + 1 as a 16-bit lane, move the value to the top (multiply by
    // 2^(6 - 2 j)) and shift it down by 6. Each 128-bit half holds two
    // groups.
    const __m256i gather = _mm256_setr_epi8(0, 1, 1, 2, 2, 3, 3, 4, 5, 6, 6, 7, 7, 8, 8, 9, //
                                            0, 1, 1, 2, 2, 3, 3, 4, 5, 6, 6, 7, 7, 8, 8, 9);
    const __m256i scale = _mm256_setr_epi16(64, 16, 4, 1, 64, 16, 4, 1, 64, 16, 4, 1, 64, 16, 4, 1);
    std::size_t g = 0;
    // Reads bytes 5 g .. 5 g + 25.
    for (; g + 4 <= groups && 5 * g + 26 <= readable; g += 4) {
        const std::uint8_t *p = in + 5 * g;
        const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 10));
        __m256i v = _mm256_inserti128_si256(_mm256_castsi128_si256(first), second, 1);
        v = _mm256_srli_epi16(_mm256_mullo_epi16(_mm256_shuffle_epi8(v, gather), scale), 6);
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + 4 * g), v);
    }
    return g;
}

QUORIN_TARGET_AVX2 void lookUp8Avx2(const std::uint16_t *in, std::size_t n, const OutputTable &table,
                                    std::uint8_t *out)
{
    std::size_t k = 0;
    for (; k + 16 <= n; k += 16)
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + k),
                         lookUp16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(in + k)), table));
    for (; k < n; ++k)
        out[k] = table.bytes[in[k] > 1023 ? 1023 : in[k]];
}

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

namespace {

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

} // namespace

QUORIN_TARGET_AVX512 std::size_t smoothGreenAvx512(const std::uint16_t *copy, std::uint16_t *work, std::size_t row,
                                                   std::size_t w, std::uint32_t odd, std::uint32_t last)
{
    constexpr std::uint32_t kLanes = 32;
    const auto end = static_cast<std::uint32_t>(w) - 1;
    if (w < 2 + kLanes)
        return 1;
    for (std::uint32_t x = 1;; x += kLanes) {
        // The last block ends at the last column, over columns done
        // already: it writes the same values again.
        x = std::min(x, end - kLanes);
        const std::uint16_t *p = copy + row + x;
        const __m512i neighbours[4] = {_mm512_loadu_si512(p - w - 1), _mm512_loadu_si512(p - w + 1),
                                       _mm512_loadu_si512(p + w - 1), _mm512_loadu_si512(p + w + 1)};
        const __m512i mean = smoothedMean(_mm512_loadu_si512(p), neighbours);
        __mmask32 green = ((x ^ odd) & 1u) != 0 ? 0x55555555u : 0xAAAAAAAAu;
        if (last < x + kLanes - 1)
            green &= last < x ? 0u : (std::uint32_t{2} << (last - x)) - 1;
        _mm512_mask_storeu_epi16(work + row + x, green, mean);
        if (x + kLanes == end)
            return end;
    }
}

QUORIN_TARGET_AVX2 std::size_t smoothGreenAvx2(const std::uint16_t *copy, std::uint16_t *work, std::size_t row,
                                               std::size_t w, std::uint32_t odd, std::uint32_t last)
{
    constexpr std::uint32_t kLanes = 16;
    const auto end = static_cast<std::uint32_t>(w) - 1;
    if (w < 2 + kLanes)
        return 1;
    // The reciprocal of a weight (below 16) by two byte look-ups.
    std::uint8_t lowBytes[16], highBytes[16];
    for (int k = 0; k < 16; ++k) {
        lowBytes[k] = static_cast<std::uint8_t>(kReciprocal[k]);
        highBytes[k] = static_cast<std::uint8_t>(kReciprocal[k] >> 8);
    }
    const __m256i reciprocalLow = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(lowBytes)));
    const __m256i reciprocalHigh =
        _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(highBytes)));
    const __m256i lowByte = _mm256_set1_epi16(0xFF);
    const __m256i fifty = _mm256_set1_epi16(50), twentyFive = _mm256_set1_epi16(25);
    const __m256i four = _mm256_set1_epi16(4);
    const __m256i alternate = _mm256_set1_epi32(0x0000FFFF); // lanes 0, 2, 4, ...
    const __m256i column = _mm256_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    for (std::uint32_t x = 1;; x += kLanes) {
        x = std::min(x, end - kLanes);
        const std::uint16_t *p = copy + row + x;
        const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p));
        __m256i sum = _mm256_slli_epi16(c, 2), weight = four;
        for (const std::uint16_t *n : {p - w - 1, p - w + 1, p + w - 1, p + w + 1}) {
            const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(n));
            const __m256i d = _mm256_abs_epi16(_mm256_sub_epi16(c, v));
            // All ones (-1) where within 50 and where within 25.
            const __m256i within50 = _mm256_cmpgt_epi16(fifty, d), within25 = _mm256_cmpgt_epi16(twentyFive, d);
            sum = _mm256_add_epi16(sum, _mm256_and_si256(v, within50));
            sum = _mm256_add_epi16(sum, _mm256_and_si256(v, within25));
            weight = _mm256_sub_epi16(_mm256_sub_epi16(weight, within50), within25);
        }
        const __m256i reciprocal =
            _mm256_or_si256(_mm256_and_si256(_mm256_shuffle_epi8(reciprocalLow, weight), lowByte),
                            _mm256_slli_epi16(_mm256_shuffle_epi8(reciprocalHigh, weight), 8));
        __m256i mean = _mm256_srli_epi16(_mm256_mulhi_epu16(sum, reciprocal), 2);
        mean = _mm256_blendv_epi8(mean, c, _mm256_cmpeq_epi16(weight, four));
        // Green lanes up to the last column keep the mean, the others their value.
        __m256i green = ((x ^ odd) & 1u) != 0 ? alternate : _mm256_slli_epi32(alternate, 16);
        const auto reach = static_cast<std::int16_t>(std::min<std::uint32_t>(last - std::min(last, x) + 1, 16) - 1);
        green = _mm256_andnot_si256(_mm256_cmpgt_epi16(column, _mm256_set1_epi16(last < x ? -1 : reach)), green);
        std::uint16_t *out = work + row + x;
        const __m256i old = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(out));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), _mm256_blendv_epi8(old, mean, green));
        if (x + kLanes == end)
            return end;
    }
}

namespace {

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

QUORIN_TARGET_AVX512 std::uint32_t balanceSplitAvx512(const std::uint16_t *in, std::size_t w, const SplitBalance &rule,
                                                     std::uint16_t *even, std::uint16_t *odd)
{
    const __m512i evenWords = _mm512_loadu_si512(kEvenWords), oddWords = _mm512_loadu_si512(kOddWords);
    const __m512i limit = _mm512_set1_epi16(1023), columns = _mm512_set1_epi16(static_cast<short>(rule.columns));
    const __m512i gains[2] = {_mm512_set1_epi16(static_cast<short>(rule.gain[0])),
                              _mm512_set1_epi16(static_cast<short>(rule.gain[1]))};
    std::uint16_t *const out[2] = {even, odd};
    __m512i bits = _mm512_setzero_si512();
    for (std::size_t k = 0; k < w; k += 64) {
        const std::size_t left = w - k;
        // Lanes past the row load as 0 and stay 0.
        const __m512i a = _mm512_maskz_loadu_epi16(firstHalf(left), in + k);
        const __m512i b = _mm512_maskz_loadu_epi16(secondHalf(left), in + k + 32);
        const __m512i halves[2] = {_mm512_permutex2var_epi16(a, evenWords, b), _mm512_permutex2var_epi16(a, oddWords, b)};
        for (unsigned h = 0; h < 2; ++h) {
            __m512i v = halves[h];
            if (rule.columns > k) {
                // The low 16 bits of value * gain >> 4.
                const __m512i p = _mm512_or_si512(_mm512_srli_epi16(_mm512_mullo_epi16(v, gains[h]), 4),
                                                  _mm512_slli_epi16(_mm512_mulhi_epu16(v, gains[h]), 12));
                const __m512i limited = rule.signedLimit ? _mm512_min_epi16(p, limit) : _mm512_min_epu16(p, limit);
                // Column k + 2 j + h of lane j, balanced below rule.columns.
                const __m512i column = _mm512_add_epi16(evenWords, _mm512_set1_epi16(static_cast<short>(k + h)));
                v = _mm512_mask_mov_epi16(v, _mm512_cmplt_epu16_mask(column, columns), limited);
            }
            _mm512_mask_storeu_epi16(out[h] + k / 2, firstHalf(h == 0 ? (left + 1) / 2 : left / 2), v);
            bits = _mm512_or_si512(bits, v);
        }
    }
    alignas(64) std::uint32_t pairs[16];
    _mm512_store_si512(pairs, bits);
    std::uint32_t all = 0;
    for (const std::uint32_t p : pairs)
        all |= p;
    return (all | all >> 16) & 0xFFFFu;
}

QUORIN_TARGET_AVX512 void greenSplitAvx512(const std::uint16_t *here, std::uint16_t *green, std::size_t w,
                                           std::uint32_t odd)
{
    const Sites sites(2, w - 3, odd);
    const SplitRow split{(w + 1) / 2};
    for (std::size_t t = 0;; t += 32) {
        // The last block ends at the last site, over sites done already.
        t = std::min(t, sites.count - 32);
        const std::size_t x = sites.first + 2 * t;
        const __m512i c = split.at(here, x), ll = split.at(here, x - 2), rr = split.at(here, x + 2);
        const __m512i gl = split.at(here, x - 1), gr = split.at(here, x + 1);
        const __m512i gu = split.at(here - w, x), gd = split.at(here + w, x);
        const __m512i uu = split.at(here - 2 * w, x), dd = split.at(here + 2 * w, x);
        const __m512i twice = _mm512_add_epi16(c, c);
        const __m512i lh = _mm512_sub_epi16(_mm512_sub_epi16(twice, ll), rr);
        const __m512i lv = _mm512_sub_epi16(_mm512_sub_epi16(twice, uu), dd);
        const __m512i dh = _mm512_add_epi16(_mm512_abs_epi16(_mm512_sub_epi16(gl, gr)), _mm512_abs_epi16(lh));
        const __m512i dv = _mm512_add_epi16(_mm512_abs_epi16(_mm512_sub_epi16(gu, gd)), _mm512_abs_epi16(lv));
        const __m512i sideways = _mm512_add_epi16(gl, gr), upright = _mm512_add_epi16(gu, gd);
        const __m512i horizontal = _mm512_add_epi16(_mm512_srai_epi16(sideways, 1), _mm512_srai_epi16(lh, 2));
        const __m512i vertical = _mm512_add_epi16(_mm512_srai_epi16(upright, 1), _mm512_srai_epi16(lv, 2));
        const __m512i both = _mm512_add_epi16(_mm512_srai_epi16(_mm512_add_epi16(sideways, upright), 2),
                                              _mm512_srai_epi16(_mm512_add_epi16(lv, lh), 3));
        const __mmask32 strong = static_cast<__mmask32>(~(below(dh, 80) & below(dv, 80)));
        __m512i g = _mm512_mask_mov_epi16(both, strong & _mm512_cmpgt_epi16_mask(dh, dv), vertical);
        g = clamp1023(_mm512_mask_mov_epi16(g, strong & _mm512_cmplt_epi16_mask(dh, dv), horizontal));
        _mm512_storeu_si512(split.place(green, x), g);
        if (t + 32 == sites.count)
            return;
    }
}

QUORIN_TARGET_AVX512 void lineSplitAvx512(const std::uint16_t *mosaic, const std::uint16_t *plane,
                                          std::uint16_t *horizontal, std::uint16_t *vertical, std::size_t w,
                                          std::uint32_t odd)
{
    const Sites sites(2, w - 3, odd ^ 1u);
    const SplitRow split{(w + 1) / 2};
    for (std::size_t t = 0;; t += 32) {
        t = std::min(t, sites.count - 32);
        const std::size_t x = sites.first + 2 * t;
        const __m512i gc = split.at(mosaic, x);
        const __m512i ml = split.at(mosaic, x - 1), mr = split.at(mosaic, x + 1);
        const __m512i gl = split.at(plane, x - 1), gr = split.at(plane, x + 1);
        const __m512i mu = split.at(mosaic - w, x), md = split.at(mosaic + w, x);
        const __m512i gu = split.at(plane - w, x), gd = split.at(plane + w, x);
        _mm512_storeu_si512(split.place(horizontal, x), fromLine(ml, mr, gc, gl, gr));
        _mm512_storeu_si512(split.place(vertical, x), fromLine(mu, md, gc, gu, gd));
        if (t + 32 == sites.count)
            return;
    }
}

QUORIN_TARGET_AVX512 void diagonalSplitAvx512(const std::uint16_t *m, const std::uint16_t *green,
                                              std::uint16_t *missing, std::size_t w, std::uint32_t odd)
{
    const Sites sites(1, w - 2, odd);
    const SplitRow split{(w + 1) / 2};
    const std::uint16_t *above = m - w, *under = m + w;
    const std::uint16_t *greenAbove = green - w, *greenUnder = green + w;
    for (std::size_t t = 0;; t += 32) {
        t = std::min(t, sites.count - 32);
        const std::size_t x = sites.first + 2 * t;
        const __m512i gc = split.at(green, x);
        // Up-left, down-right, up-right, down-left.
        const __m512i c0 = split.at(above, x - 1), c1 = split.at(under, x + 1);
        const __m512i c2 = split.at(above, x + 1), c3 = split.at(under, x - 1);
        const __m512i g0 = split.at(greenAbove, x - 1), g1 = split.at(greenUnder, x + 1);
        const __m512i g2 = split.at(greenAbove, x + 1), g3 = split.at(greenUnder, x - 1);
        const __m512i twice = _mm512_add_epi16(gc, gc);
        const __m512i d1 = _mm512_sub_epi16(_mm512_sub_epi16(twice, g0), g1);
        const __m512i d2 = _mm512_sub_epi16(_mm512_sub_epi16(twice, g2), g3);
        const __m512i a1 = _mm512_abs_epi16(d1), a2 = _mm512_abs_epi16(d2);
        const __m512i firstPair = _mm512_add_epi16(c0, c1), secondPair = _mm512_add_epi16(c2, c3);
        const __m512i all = _mm512_srai_epi16(
            _mm512_add_epi16(_mm512_add_epi16(firstPair, secondPair), _mm512_add_epi16(d1, d2)), 2);
        const __m512i first = _mm512_srai_epi16(_mm512_add_epi16(firstPair, d1), 1);
        const __m512i second = _mm512_srai_epi16(_mm512_add_epi16(secondPair, d2), 1);
        const __mmask32 firstAgrees = below(a1, 200), secondAgrees = below(a2, 200);
        __m512i v = _mm512_mask_mov_epi16(second, firstAgrees & _mm512_cmplt_epi16_mask(a1, a2), first);
        v = clamp1023(_mm512_mask_mov_epi16(v, firstAgrees & secondAgrees, all));
        const auto fallback = static_cast<__mmask32>(~(firstAgrees | secondAgrees));
        if (fallback != 0) {
            // When neither diagonal pair agrees with the green: the first
            // mixed pair that does, else the closest single neighbour
            // within 100 (the first of equals), else the mean of all.
            // Every candidate is clamped alike: the chosen one once.
            const __m512i cs[4] = {c0, c1, c2, c3}, gs[4] = {g0, g1, g2, g3};
            __m512i towards[4];
            __m512i bestDistance = _mm512_set1_epi16(100), best = all;
            for (int k = 0; k < 4; ++k) {
                towards[k] = _mm512_sub_epi16(gc, gs[k]);
                const __m512i distance = _mm512_abs_epi16(towards[k]);
                const __mmask32 closer = _mm512_cmplt_epi16_mask(distance, bestDistance);
                bestDistance = _mm512_mask_mov_epi16(bestDistance, closer, distance);
                best = _mm512_mask_mov_epi16(best, closer, _mm512_add_epi16(cs[k], towards[k]));
            }
            static constexpr int kMixed[4][2] = {{1, 3}, {1, 2}, {0, 3}, {0, 2}}; // the last one first
            for (const auto &p : kMixed) {
                const __m512i d = _mm512_add_epi16(towards[p[0]], towards[p[1]]); // 2 g - g[p0] - g[p1]
                const __m512i mixed = _mm512_srai_epi16(_mm512_add_epi16(_mm512_add_epi16(cs[p[0]], cs[p[1]]), d), 1);
                best = _mm512_mask_mov_epi16(best, below(_mm512_abs_epi16(d), 200), mixed);
            }
            v = _mm512_mask_mov_epi16(v, fallback, clamp1023(best));
        }
        _mm512_storeu_si512(split.place(missing, x), v);
        if (t + 32 == sites.count)
            return;
    }
}

QUORIN_TARGET_AVX512 void smoothSplitAvx512(const std::uint16_t *above, const std::uint16_t *here,
                                            const std::uint16_t *below, std::uint16_t *mosaic, std::size_t w,
                                            std::uint32_t odd, std::uint32_t last)
{
    const Sites sites(1, last, odd ^ 1u);
    const SplitRow split{(w + 1) / 2};
    // The green sites outside the smoothed ones (one at most at each end)
    // as they are.
    const std::size_t counts[2] = {split.half, w / 2};
    const std::uint32_t green = odd ^ 1u;
    const std::size_t firstIndex = sites.first / 2, lastIndex = firstIndex + sites.count - 1;
    const std::size_t greenAt = green * split.half;
    std::memcpy(mosaic + greenAt, here + greenAt, firstIndex * 2);
    std::memcpy(mosaic + greenAt + lastIndex + 1, here + greenAt + lastIndex + 1, (counts[green] - lastIndex - 1) * 2);
    for (std::size_t t = 0;; t += 32) {
        t = std::min(t, sites.count - 32);
        const std::size_t x = sites.first + 2 * t;
        // The four diagonal neighbours, green sites too.
        const __m512i neighbours[4] = {split.at(above, x - 1), split.at(above, x + 1), split.at(below, x - 1),
                                       split.at(below, x + 1)};
        _mm512_storeu_si512(split.place(mosaic, x), smoothedMean(split.at(here, x), neighbours));
        if (t + 32 == sites.count)
            return;
    }
}

namespace {

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

} // namespace

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

namespace {

// Bytes 5 g + k and 5 g + k + 1 for value k of group g, the 32 values of
// eight groups; each value then sits 2 k bits up in its 16-bit lane.
struct UnpackIndices {
    std::uint8_t bytes[64];
    std::uint16_t shifts[32];
    constexpr UnpackIndices() : bytes{}, shifts{}
    {
        for (unsigned j = 0; j < 32; ++j) {
            const unsigned g = j / 4, k = j % 4;
            bytes[2 * j] = static_cast<std::uint8_t>(5 * g + k);
            bytes[2 * j + 1] = static_cast<std::uint8_t>(5 * g + k + 1);
            shifts[j] = static_cast<std::uint16_t>(2 * k);
        }
    }
};
constexpr UnpackIndices kUnpack;

} // namespace

QUORIN_TARGET_VBMI void sensorRowVbmi(const std::uint8_t *in, std::size_t groups, const std::uint16_t *dark,
                                      bool darkClamp, const std::uint16_t *gainRow, std::uint16_t constantGain,
                                      std::uint16_t *out)
{
    const __m512i bytes = _mm512_loadu_si512(kUnpack.bytes), shifts = _mm512_loadu_si512(kUnpack.shifts);
    const __m512i tenBits = _mm512_set1_epi16(0x3FF), zero = _mm512_setzero_si512();
    const __m512i limit = _mm512_set1_epi16(1023), constant = _mm512_set1_epi16(static_cast<short>(constantGain));
    for (std::size_t g = 0; g < groups; g += 8) {
        const std::size_t left = std::min<std::size_t>(groups - g, 8);
        const __mmask32 lanes = firstHalf(4 * left);
        const __m512i raw = _mm512_maskz_loadu_epi8(firstBytes(5 * left), in + 5 * g);
        __m512i v = _mm512_and_si512(_mm512_srlv_epi16(_mm512_permutexvar_epi8(bytes, raw), shifts), tenBits);
        const std::size_t x = 4 * g;
        if (dark != nullptr) {
            v = _mm512_max_epi16(_mm512_sub_epi16(v, _mm512_maskz_loadu_epi16(lanes, dark + x)), zero);
            if (darkClamp)
                v = _mm512_min_epi16(v, limit);
        }
        if (gainRow != nullptr || constantGain != 0) {
            const __m512i gain = gainRow != nullptr ? _mm512_maskz_loadu_epi16(lanes, gainRow + x) : constant;
            // The low 16 bits of value * gain >> 9.
            const __m512i p = _mm512_or_si512(_mm512_slli_epi16(_mm512_mulhi_epu16(v, gain), 7),
                                              _mm512_srli_epi16(_mm512_mullo_epi16(v, gain), 9));
            v = _mm512_min_epi16(p, limit); // signed: values from 32768 up stay
        }
        _mm512_mask_storeu_epi16(out + x, lanes, v);
    }
}

} // namespace quorin::image::vec
