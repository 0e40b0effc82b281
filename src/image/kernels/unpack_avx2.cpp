// Unpacking of 10-bit groups with AVX2 byte shuffles.
#include "image/kernels/avx2_common.h"

namespace quorin::image::vec {

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

} // namespace quorin::image::vec
