// The colour matrix and look-up of a row of planes (natural or split)
// with AVX2: 8-bit triples, and 16-bit triples.
#include "image/kernels/avx2_common.h"

namespace quorin::image::vec {
namespace {

// The 8-bit kernel's loop for one order of the slots, so that the channels
// stay in registers.
template <bool BlueFirst>
QUORIN_TARGET_AVX2 QUORIN_ALWAYS_INLINE inline std::size_t
matrixTriplesAvx2Loop(const RowHalves &rows, bool split, std::size_t n, const std::int16_t matrix[9],
                      const OutputTable *const tables[3], std::uint8_t *out)
{
    const MatrixAvx2 m = matrixAvx2(matrix);
    bool straight[3];
    __m128i counts[3];
    for (unsigned c = 0; c < 3; ++c) {
        straight[c] = tables[c]->shift >= 0;
        counts[c] = _mm_cvtsi32_si128(straight[c] ? tables[c]->shift : 0);
    }
    std::size_t k = 0;
    for (; k + 32 <= n; k += 32) {
        __m256i channel[3][2];
        for (unsigned h = 0; h < 2; ++h) {
            const __m256i in[3] = {loadPixels(rows[0], k + 16 * h, split), loadPixels(rows[1], k + 16 * h, split),
                                   loadPixels(rows[2], k + 16 * h, split)};
            __m256i mixed[3];
            applyMatrix(m, in, mixed);
            for (unsigned c = 0; c < 3; ++c)
                channel[c][h] = mixed[c];
        }
        __m256i bytes[3]; // pixels k .. k + 15 in the low lane, k + 16 .. k + 31 in the high one
        for (unsigned c = 0; c < 3; ++c)
            bytes[c] = straight[c] ? _mm256_permute4x64_epi64(
                                         _mm256_packus_epi16(_mm256_srl_epi16(channel[c][0], counts[c]),
                                                             _mm256_srl_epi16(channel[c][1], counts[c])),
                                         0xD8)
                                   : _mm256_set_m128i(lookUp16(channel[c][1], *tables[c]),
                                                      lookUp16(channel[c][0], *tables[c]));
        const __m256i bySlot[3] = {bytes[BlueFirst ? 2 : 0], bytes[1], bytes[BlueFirst ? 0 : 2]};
        storeTriples32(bySlot, out + 3 * k);
    }
    return k;
}

// The 16-bit kernel's loop; tables[c] null: the identity.
template <bool BlueFirst>
QUORIN_TARGET_AVX2 QUORIN_ALWAYS_INLINE inline std::size_t
finishTriples16Loop(const RowHalves &rows, bool split, std::size_t n, const std::int16_t *matrix,
                    const std::uint32_t *const tables[3], std::uint16_t *out)
{
    const MatrixAvx2 m = matrixAvx2(matrix != nullptr ? matrix : kIdentity);
    std::size_t k = 0;
    for (; k + 16 <= n; k += 16) {
        const __m256i in[3] = {loadPixels(rows[0], k, split), loadPixels(rows[1], k, split),
                               loadPixels(rows[2], k, split)};
        __m256i v[3];
        if (matrix != nullptr)
            applyMatrix(m, in, v);
        else
            for (unsigned c = 0; c < 3; ++c)
                v[c] = in[c];
        for (unsigned c = 0; c < 3; ++c)
            if (tables[c] != nullptr) {
                // table[min(v, 1023)] by two gathers of 8.
                const __m256i limited = _mm256_min_epu16(v[c], _mm256_set1_epi16(1023));
                const auto *base = reinterpret_cast<const int *>(tables[c]);
                const __m256i low =
                    _mm256_i32gather_epi32(base, _mm256_cvtepu16_epi32(_mm256_castsi256_si128(limited)), 4);
                const __m256i high =
                    _mm256_i32gather_epi32(base, _mm256_cvtepu16_epi32(_mm256_extracti128_si256(limited, 1)), 4);
                // Entries are 16-bit: pack (per 128-bit half, hence the
                // reordering of the 64-bit quarters).
                v[c] = _mm256_permute4x64_epi64(_mm256_packus_epi32(low, high), 0xD8);
            }
        const __m256i bySlot[3] = {v[BlueFirst ? 2 : 0], v[1], v[BlueFirst ? 0 : 2]};
        storeWordTriples(bySlot, out + 3 * k);
    }
    return k;
}

} // namespace

QUORIN_TARGET_AVX2 std::size_t matrixTriples8Avx2(const RowHalves &rows, bool split, std::size_t n,
                                                  const std::int16_t matrix[9], const OutputTable *const tables[3],
                                                  const unsigned slot[3], std::uint8_t *out)
{
    return slot[0] == 2 ? matrixTriplesAvx2Loop<true>(rows, split, n, matrix, tables, out)
                        : matrixTriplesAvx2Loop<false>(rows, split, n, matrix, tables, out);
}

QUORIN_TARGET_AVX2 std::size_t finishTriples16Avx2(const RowHalves &rows, bool split, std::size_t n,
                                                   const std::int16_t *matrix, const std::uint32_t *const tables[3],
                                                   const unsigned slot[3], std::uint16_t *out)
{
    return slot[0] == 2 ? finishTriples16Loop<true>(rows, split, n, matrix, tables, out)
                        : finishTriples16Loop<false>(rows, split, n, matrix, tables, out);
}

} // namespace quorin::image::vec
