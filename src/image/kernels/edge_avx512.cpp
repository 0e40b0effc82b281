// Colour edge enhancement with AVX-512: the luminance of a row of
// looked-up values, and the enhanced row as 16-bit triples.
#include "image/kernels/avx512_common.h"

namespace quorin::image::vec {

QUORIN_TARGET_AVX512 void lumaAvx512(const std::uint16_t *const bySlot[3], std::size_t n, std::uint16_t *luma)
{
    // (77 s2 + 151 s1 + 28 s0) >> 8 as pairs (s2, s1) and (s0, 0) of
    // 16-bit lanes multiplied and added into 32-bit sums.
    const __m512i weights21 = _mm512_set1_epi32(77 | 151 << 16), weights0 = _mm512_set1_epi32(28);
    const __m512i zero = _mm512_setzero_si512();
    for (std::size_t k = 0; k < n; k += 32) {
        const __mmask32 lanes = firstHalf(n - k);
        const __m512i s0 = _mm512_maskz_loadu_epi16(lanes, bySlot[0] + k);
        const __m512i s1 = _mm512_maskz_loadu_epi16(lanes, bySlot[1] + k);
        const __m512i s2 = _mm512_maskz_loadu_epi16(lanes, bySlot[2] + k);
        const __m512i low = _mm512_add_epi32(_mm512_madd_epi16(_mm512_unpacklo_epi16(s2, s1), weights21),
                                             _mm512_madd_epi16(_mm512_unpacklo_epi16(s0, zero), weights0));
        const __m512i high = _mm512_add_epi32(_mm512_madd_epi16(_mm512_unpackhi_epi16(s2, s1), weights21),
                                              _mm512_madd_epi16(_mm512_unpackhi_epi16(s0, zero), weights0));
        _mm512_mask_storeu_epi16(luma + k, lanes,
                                 _mm512_packus_epi32(_mm512_srli_epi32(low, 8), _mm512_srli_epi32(high, 8)));
    }
}

namespace {

// Pixels x .. x + 31 (those of them below w) of the edge enhancement: the
// enhanced values by slot. The first and last pixel of the row keep their
// values (d is 0 there), and the loads of their missing neighbours are
// masked off.
QUORIN_TARGET_AVX512 QUORIN_ALWAYS_INLINE inline void edge32(const std::uint16_t *const bySlot[3],
                                                             const std::uint16_t *above, const std::uint16_t *here,
                                                             const std::uint16_t *below, std::size_t x, std::size_t w,
                                                             __m128i count, __m512i v[3])
{
    const __m512i zero = _mm512_setzero_si512(), limit = _mm512_set1_epi16(1023);
    // A block wholly beyond the row (the second half of the last 64) has
    // no lanes.
    const std::size_t left = x < w ? w - x : 0;
    const __mmask32 lanes = firstHalf(left);
    const __mmask32 first = x == 0 ? 1u : 0u, last = left - 1 < 32 ? std::uint32_t{1} << (left - 1) : 0u;
    __m512i d = _mm512_sub_epi16(_mm512_slli_epi16(_mm512_maskz_loadu_epi16(lanes, here + x), 2),
                                 _mm512_maskz_loadu_epi16(lanes & ~first, here + x - 1));
    d = _mm512_sub_epi16(d, _mm512_maskz_loadu_epi16(lanes & ~last, here + x + 1));
    d = _mm512_sub_epi16(d, _mm512_maskz_loadu_epi16(lanes, above + x));
    d = _mm512_sra_epi16(_mm512_sub_epi16(d, _mm512_maskz_loadu_epi16(lanes, below + x)), count);
    d = _mm512_maskz_mov_epi16(static_cast<__mmask32>(~(first | last)), d);
    for (unsigned s = 0; s < 3; ++s)
        v[s] = _mm512_min_epi16(
            _mm512_max_epi16(_mm512_add_epi16(_mm512_maskz_loadu_epi16(lanes, bySlot[s] + x), d), zero), limit);
}

} // namespace

QUORIN_TARGET_AVX512 void edgeRowAvx512(const std::uint16_t *const bySlot[3], const std::uint16_t *above,
                                        const std::uint16_t *here, const std::uint16_t *below, std::size_t w,
                                        unsigned shift, std::uint16_t *out)
{
    const __m128i count = _mm_cvtsi32_si128(static_cast<int>(shift));
    for (std::size_t x = 0; x < w; x += 32) {
        __m512i v[3];
        edge32(bySlot, above, here, below, x, w, count, v);
        storeTriples16(v, std::min<std::size_t>(w - x, 32), out + 3 * x);
    }
}

QUORIN_TARGET_VBMI void edgeRowBytesVbmi(const std::uint16_t *const bySlot[3], const std::uint16_t *above,
                                         const std::uint16_t *here, const std::uint16_t *below, std::size_t w,
                                         unsigned shift, unsigned outputShift, std::uint16_t *out,
                                         std::uint8_t *out8)
{
    const __m128i count = _mm_cvtsi32_si128(static_cast<int>(shift));
    const __m128i reduce = _mm_cvtsi32_si128(static_cast<int>(outputShift));
    // Whole rows of bytes on a 64-byte boundary take streaming stores.
    const bool stream = (reinterpret_cast<std::uintptr_t>(out8) & 63) == 0 && w % 64 == 0;
    for (std::size_t x = 0; x < w; x += 64) {
        __m512i v[2][3], bytes[3];
        for (unsigned h = 0; h < 2; ++h) {
            edge32(bySlot, above, here, below, x + 32 * h, w, count, v[h]);
            if (x + 32 * h < w)
                storeTriples16(v[h], std::min<std::size_t>(w - x - 32 * h, 32), out + 3 * (x + 32 * h));
        }
        // v >> outputShift, at most 255: the pack saturates.
        for (unsigned s = 0; s < 3; ++s)
            bytes[s] = _mm512_packus_epi16(_mm512_srl_epi16(v[0][s], reduce), _mm512_srl_epi16(v[1][s], reduce));
        storeTriples(bytes, std::min<std::size_t>(w - x, 64), out8 + 3 * x, kInterleavePacked, stream);
    }
    if (stream)
        _mm_sfence();
}

QUORIN_TARGET_AVX512 void edgeGreyRowAvx512(const std::uint16_t *above, const std::uint16_t *here,
                                            const std::uint16_t *below, std::size_t w, unsigned shift,
                                            std::uint16_t *out, std::uint8_t *out8, unsigned outputShift)
{
    const __m128i count = _mm_cvtsi32_si128(static_cast<int>(shift));
    const __m128i reduce = _mm_cvtsi32_si128(static_cast<int>(outputShift));
    const __m512i zero = _mm512_setzero_si512(), limit = _mm512_set1_epi16(1023);
    // Whole rows on a 64-byte boundary take streaming stores: nothing reads
    // them soon.
    const bool stream = (reinterpret_cast<std::uintptr_t>(out) & 63) == 0 && w % 32 == 0;
    for (std::size_t x = 0; x < w; x += 32) {
        const std::size_t left = w - x;
        const __mmask32 lanes = firstHalf(left);
        // The first and last pixel keep their value; the loads of their
        // missing neighbours are masked off.
        const __mmask32 first = x == 0 ? 1u : 0u, last = left <= 32 ? std::uint32_t{1} << (left - 1) : 0u;
        const __m512i c = _mm512_maskz_loadu_epi16(lanes, here + x);
        const __m512i l = _mm512_maskz_loadu_epi16(lanes & ~first, here + x - 1);
        const __m512i r = _mm512_maskz_loadu_epi16(lanes & ~last, here + x + 1);
        const __m512i u = _mm512_maskz_loadu_epi16(lanes, above + x), d = _mm512_maskz_loadu_epi16(lanes, below + x);
        __m512i e = _mm512_sub_epi16(_mm512_sub_epi16(_mm512_slli_epi16(c, 2), l), r);
        e = _mm512_sra_epi16(_mm512_sub_epi16(_mm512_sub_epi16(e, u), d), count);
        e = _mm512_min_epi16(_mm512_max_epi16(_mm512_add_epi16(c, e), zero), limit);
        e = _mm512_mask_mov_epi16(e, first | last, c);
        if (stream && left >= 32)
            _mm512_stream_si512(reinterpret_cast<__m512i *>(out + x), e);
        else
            _mm512_mask_storeu_epi16(out + x, lanes, e);
        if (out8 != nullptr)
            _mm256_mask_storeu_epi8(out8 + x, lanes, _mm512_cvtusepi16_epi8(_mm512_srl_epi16(e, reduce)));
    }
    if (stream)
        _mm_sfence();
}

} // namespace quorin::image::vec
