// The 8-bit output of 16-bit values through a 1024-entry table, with AVX2
// gathers (or a shift for straight tables).
#include "image/kernels/avx2_common.h"

namespace quorin::image::vec {

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

} // namespace quorin::image::vec
