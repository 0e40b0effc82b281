// Green smoothing with AVX2: natural rows, and split rows (see
// vector_kernels.h).
#include "image/kernels/avx2_common.h"

namespace quorin::image::vec {
namespace {

// The smoothed value of 16 sites c from their four diagonal neighbours:
// weight 4 for the site, 2 for a neighbour within 25 of it, 1 within 50;
// the weighted mean truncated, by the reciprocal of the weight, which two
// byte look-ups find (weights stay below 16).
struct Smoothing {
    __m256i reciprocalLow, reciprocalHigh;
    QUORIN_TARGET_AVX2 Smoothing()
    {
        std::uint8_t lowBytes[16], highBytes[16];
        for (int k = 0; k < 16; ++k) {
            lowBytes[k] = static_cast<std::uint8_t>(kReciprocal[k]);
            highBytes[k] = static_cast<std::uint8_t>(kReciprocal[k] >> 8);
        }
        reciprocalLow = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(lowBytes)));
        reciprocalHigh = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(highBytes)));
    }
    QUORIN_TARGET_AVX2 QUORIN_ALWAYS_INLINE inline __m256i mean(__m256i c, const __m256i neighbours[4]) const
    {
        const __m256i fifty = _mm256_set1_epi16(50), twentyFive = _mm256_set1_epi16(25);
        const __m256i four = _mm256_set1_epi16(4);
        __m256i sum = _mm256_slli_epi16(c, 2), weight = four;
        for (int k = 0; k < 4; ++k) {
            const __m256i v = neighbours[k];
            const __m256i d = _mm256_abs_epi16(_mm256_sub_epi16(c, v));
            // All ones (-1) where within 50 and where within 25.
            const __m256i within50 = _mm256_cmpgt_epi16(fifty, d), within25 = _mm256_cmpgt_epi16(twentyFive, d);
            sum = _mm256_add_epi16(sum, _mm256_and_si256(v, within50));
            sum = _mm256_add_epi16(sum, _mm256_and_si256(v, within25));
            weight = _mm256_sub_epi16(_mm256_sub_epi16(weight, within50), within25);
        }
        const __m256i reciprocal =
            _mm256_or_si256(_mm256_and_si256(_mm256_shuffle_epi8(reciprocalLow, weight), _mm256_set1_epi16(0xFF)),
                            _mm256_slli_epi16(_mm256_shuffle_epi8(reciprocalHigh, weight), 8));
        const __m256i mean = _mm256_srli_epi16(_mm256_mulhi_epu16(sum, reciprocal), 2);
        return _mm256_blendv_epi8(mean, c, _mm256_cmpeq_epi16(weight, four));
    }
};

QUORIN_TARGET_AVX2 QUORIN_ALWAYS_INLINE inline __m256i load(const std::uint16_t *p)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p));
}

} // namespace

QUORIN_TARGET_AVX2 std::size_t smoothGreenAvx2(const std::uint16_t *above, const std::uint16_t *here,
                                               const std::uint16_t *below, std::uint16_t *out, std::size_t w,
                                               std::uint32_t odd, std::uint32_t last)
{
    constexpr std::uint32_t kLanes = 16;
    const auto end = static_cast<std::uint32_t>(w) - 1;
    if (w < 2 + kLanes)
        return 1;
    const Smoothing smoothing;
    const __m256i alternate = _mm256_set1_epi32(0x0000FFFF); // lanes 0, 2, 4, ...
    const __m256i column = _mm256_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    for (std::uint32_t x = 1;; x += kLanes) {
        x = std::min(x, end - kLanes);
        const __m256i neighbours[4] = {load(above + x - 1), load(above + x + 1), load(below + x - 1),
                                       load(below + x + 1)};
        const __m256i mean = smoothing.mean(load(here + x), neighbours);
        // Green lanes up to the last column keep the mean, the others their value.
        __m256i green = ((x ^ odd) & 1u) != 0 ? alternate : _mm256_slli_epi32(alternate, 16);
        const auto reach = static_cast<std::int16_t>(std::min<std::uint32_t>(last - std::min(last, x) + 1, 16) - 1);
        green = _mm256_andnot_si256(_mm256_cmpgt_epi16(column, _mm256_set1_epi16(last < x ? -1 : reach)), green);
        std::uint16_t *to = out + x;
        const __m256i old = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(to));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(to), _mm256_blendv_epi8(old, mean, green));
        if (x + kLanes == end)
            return end;
    }
}

QUORIN_TARGET_AVX2 void smoothSplitAvx2(const std::uint16_t *above, const std::uint16_t *here,
                                        const std::uint16_t *below, std::uint16_t *mosaic, std::size_t w,
                                        std::uint32_t odd, std::uint32_t last)
{
    constexpr std::size_t kLanes = 16;
    const std::size_t half = (w + 1) / 2;
    const std::uint32_t green = odd ^ 1u;
    // The green sites 1 .. last of the row: the first one and their number.
    const std::size_t first = 1 + ((1 ^ green) & 1u), count = last >= first ? (last - first) / 2 + 1 : 0;
    // The green sites outside the smoothed ones (one at most at each end)
    // as they are.
    const std::size_t counts[2] = {half, w / 2};
    const std::size_t firstIndex = first / 2, lastIndex = firstIndex + count - 1, greenAt = green * half;
    std::memcpy(mosaic + greenAt, here + greenAt, firstIndex * 2);
    std::memcpy(mosaic + greenAt + lastIndex + 1, here + greenAt + lastIndex + 1, (counts[green] - lastIndex - 1) * 2);
    const Smoothing smoothing;
    auto at = [half](const std::uint16_t *row, std::size_t col) { return row + (col & 1) * half + col / 2; };
    for (std::size_t t = 0;; t += kLanes) {
        t = std::min(t, count - kLanes);
        const std::size_t x = first + 2 * t;
        const __m256i neighbours[4] = {load(at(above, x - 1)), load(at(above, x + 1)), load(at(below, x - 1)),
                                       load(at(below, x + 1))};
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(mosaic + (x & 1) * half + x / 2),
                            smoothing.mean(load(at(here, x)), neighbours));
        if (t + kLanes == count)
            return;
    }
}

} // namespace quorin::image::vec
