// Green smoothing with AVX-512: natural rows, and split rows (see
// vector_kernels.h).
#include "image/kernels/avx512_common.h"

namespace quorin::image::vec {

QUORIN_TARGET_AVX512 std::size_t smoothGreenAvx512(const std::uint16_t *above, const std::uint16_t *here,
                                                   const std::uint16_t *below, std::uint16_t *out, std::size_t w,
                                                   std::uint32_t odd, std::uint32_t last)
{
    constexpr std::uint32_t kLanes = 32;
    const auto end = static_cast<std::uint32_t>(w) - 1;
    if (w < 2 + kLanes)
        return 1;
    for (std::uint32_t x = 1;; x += kLanes) {
        // The last block ends at the last column, over columns done
        // already: it writes the same values again.
        x = std::min(x, end - kLanes);
        const __m512i neighbours[4] = {_mm512_loadu_si512(above + x - 1), _mm512_loadu_si512(above + x + 1),
                                       _mm512_loadu_si512(below + x - 1), _mm512_loadu_si512(below + x + 1)};
        const __m512i mean = smoothedMean(_mm512_loadu_si512(here + x), neighbours);
        __mmask32 green = ((x ^ odd) & 1u) != 0 ? 0x55555555u : 0xAAAAAAAAu;
        if (last < x + kLanes - 1)
            green &= last < x ? 0u : (std::uint32_t{2} << (last - x)) - 1;
        _mm512_mask_storeu_epi16(out + x, green, mean);
        if (x + kLanes == end)
            return end;
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

} // namespace quorin::image::vec
