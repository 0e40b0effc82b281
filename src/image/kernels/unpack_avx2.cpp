// Unpacking of 10-bit groups with AVX2 byte shuffles, alone or with the
// dark subtraction and pixel gain of a row in the same registers.
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

QUORIN_TARGET_AVX2 std::size_t sensorRowAvx2(const std::uint8_t *in, std::size_t groups, std::size_t readable,
                                             const std::uint16_t *dark, bool darkClamp, const std::uint16_t *gainRow,
                                             std::uint16_t constantGain, std::uint16_t *out)
{
    const __m256i gather = _mm256_setr_epi8(0, 1, 1, 2, 2, 3, 3, 4, 5, 6, 6, 7, 7, 8, 8, 9, //
                                            0, 1, 1, 2, 2, 3, 3, 4, 5, 6, 6, 7, 7, 8, 8, 9);
    const __m256i scale = _mm256_setr_epi16(64, 16, 4, 1, 64, 16, 4, 1, 64, 16, 4, 1, 64, 16, 4, 1);
    const __m256i zero = _mm256_setzero_si256(), limit = _mm256_set1_epi16(1023);
    const __m256i constant = _mm256_set1_epi16(static_cast<short>(constantGain));
    std::size_t g = 0;
    for (; g + 4 <= groups && 5 * g + 26 <= readable; g += 4) {
        const std::uint8_t *p = in + 5 * g;
        const std::size_t x = 4 * g;
        const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 10));
        __m256i v = _mm256_inserti128_si256(_mm256_castsi128_si256(first), second, 1);
        v = _mm256_srli_epi16(_mm256_mullo_epi16(_mm256_shuffle_epi8(v, gather), scale), 6);
        if (dark != nullptr) {
            v = _mm256_max_epi16(_mm256_sub_epi16(v, _mm256_loadu_si256(reinterpret_cast<const __m256i *>(dark + x))),
                                 zero);
            if (darkClamp)
                v = _mm256_min_epi16(v, limit);
        }
        if (gainRow != nullptr || constantGain != 0) {
            const __m256i gain =
                gainRow != nullptr ? _mm256_loadu_si256(reinterpret_cast<const __m256i *>(gainRow + x)) : constant;
            // The low 16 bits of value * gain >> 9.
            const __m256i product = _mm256_or_si256(_mm256_slli_epi16(_mm256_mulhi_epu16(v, gain), 7),
                                                    _mm256_srli_epi16(_mm256_mullo_epi16(v, gain), 9));
            v = _mm256_min_epi16(product, limit); // signed: values from 32768 up stay
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + x), v);
    }
    return g;
}

} // namespace quorin::image::vec
