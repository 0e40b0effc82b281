// One row of the sensor corrections with AVX-512 VBMI: unpacking, dark
// subtraction and pixel gain in registers.
#include "image/kernels/avx512_common.h"

namespace quorin::image::vec {

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
