// The colour balance that splits a row (see vector_kernels.h) with AVX2.
#include "image/kernels/avx2_common.h"

namespace quorin::image::vec {

QUORIN_TARGET_AVX2 std::uint32_t balanceSplitAvx2(const std::uint16_t *in, std::size_t w, const SplitBalance &rule,
                                                 std::uint16_t *even, std::uint16_t *odd)
{
    // Within each 128-bit lane: the even words to the low 64 bits, the odd
    // ones to the high 64 bits.
    const __m256i split = _mm256_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15, //
                                           0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15);
    const __m256i gains = _mm256_set1_epi32(static_cast<int>(rule.gain[0] | std::uint32_t{rule.gain[1]} << 16));
    const __m256i limit = _mm256_set1_epi16(1023), columns = _mm256_set1_epi16(static_cast<short>(rule.columns));
    const __m256i lane = _mm256_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const __m256i signBit = _mm256_set1_epi16(static_cast<short>(0x8000));
    __m256i bits = _mm256_setzero_si256();
    std::size_t k = 0;
    for (; k + 32 <= w; k += 32) {
        __m256i v[2];
        for (unsigned h = 0; h < 2; ++h) {
            __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(in + k + 16 * h));
            if (rule.columns > k + 16 * h) {
                // The low 16 bits of value * gain >> 4.
                const __m256i p = _mm256_or_si256(_mm256_srli_epi16(_mm256_mullo_epi16(x, gains), 4),
                                                  _mm256_slli_epi16(_mm256_mulhi_epu16(x, gains), 12));
                // Limited to 1023 as a signed or an unsigned value (an
                // unsigned minimum is a signed one with the sign bits flipped).
                const __m256i limited =
                    rule.signedLimit
                        ? _mm256_min_epi16(p, limit)
                        : _mm256_xor_si256(_mm256_min_epi16(_mm256_xor_si256(p, signBit), _mm256_xor_si256(limit, signBit)),
                                           signBit);
                // Column k + 16 h + j of lane j, balanced below rule.columns.
                const __m256i column = _mm256_add_epi16(lane, _mm256_set1_epi16(static_cast<short>(k + 16 * h)));
                const __m256i balance = _mm256_cmpgt_epi16(columns, column);
                x = _mm256_blendv_epi8(x, limited, balance);
            }
            bits = _mm256_or_si256(bits, x);
            // Per lane: even words, then odd ones; then the lanes' halves.
            v[h] = _mm256_permute4x64_epi64(_mm256_shuffle_epi8(x, split), 0xD8);
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(even + k / 2), _mm256_permute2x128_si256(v[0], v[1], 0x20));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(odd + k / 2), _mm256_permute2x128_si256(v[0], v[1], 0x31));
    }
    alignas(32) std::uint16_t words[16];
    _mm256_store_si256(reinterpret_cast<__m256i *>(words), bits);
    std::uint32_t all = 0;
    for (const std::uint16_t word : words)
        all |= word;
    // The columns of a last, partial block one by one.
    for (; k < w; ++k) {
        std::uint16_t v = in[k];
        if (k < rule.columns) {
            const auto p = static_cast<std::uint16_t>((std::uint32_t{v} * rule.gain[k & 1]) >> 4);
            v = rule.signedLimit ? (static_cast<std::int16_t>(p) > 1023 ? 1023 : p) : std::min<std::uint16_t>(p, 1023);
        }
        // Two stores, not one through a conditional pointer: GCC 12 builds
        // the latter wrongly in an AVX2 function without optimisation but
        // with the sanitizers.
        if (k & 1)
            odd[k / 2] = v;
        else
            even[k / 2] = v;
        all |= v;
    }
    return all;
}

} // namespace quorin::image::vec
