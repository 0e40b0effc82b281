// Row kernels written with x86 intrinsics for the steps the compiler cannot
// vectorise by itself: unpacking the 10-bit groups (byte shuffles) and the
// 8-bit output through a 1024-entry table (in-register table look-ups with
// AVX-512 VBMI, gathers with AVX2), with the colour matrix and the
// interleaving of the triples. Each kernel exists only for the levels named
// in it; the callers keep a plain loop for the other levels.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quorin::image::vec {

constexpr std::size_t kBlock = 64;

// The active level runs the AVX2 kernels.
bool avx2Active();
// The active level is AVX-512 and the processor has VBMI.
bool vbmiActive();

// Unpacks whole blocks of four groups (20 bytes, 16 values) from in to out
// while every byte read lies among the first `readable` bytes of in (AVX2).
// Returns the number of groups done; the caller unpacks the rest.
std::size_t unpackGroupsAvx2(const std::uint8_t *in, std::size_t groups, std::size_t readable, std::uint16_t *out);

// out[k] = table[min(in[k], 1023)] for k < n, from the byte table (VBMI) or
// from the same table widened to 32-bit entries (AVX2 gathers).
void lookUp8Avx2(const std::uint16_t *in, std::size_t n, const std::uint32_t *wideTable, std::uint8_t *out);
void lookUp8Vbmi(const std::uint16_t *in, std::size_t n, const std::uint8_t *table, std::uint8_t *out);

// The 8-bit triples of n <= kBlock pixels held as three planes of values
// below 1024: values[c][k] goes through tables[c] to out[3 * k + slot[c]]
// (VBMI).
void triples8Vbmi(const std::uint16_t (*values)[kBlock], std::size_t n, const std::uint8_t *const tables[3],
                  const unsigned slot[3], std::uint8_t *out);

// The colour matrix, look-up and 8-bit triples of n pixels held as three
// planes r, g, b of values below 1024, with matrix coefficients that fit 16
// bits (the sums then never wrap): row c of the matrix gives the value that
// goes through tables[c] to out[3 * k + slot[c]] (VBMI).
void matrixTriples8Vbmi(const std::uint16_t *r, const std::uint16_t *g, const std::uint16_t *b, std::size_t n,
                        const std::int16_t matrix[9], const std::uint8_t *const tables[3], const unsigned slot[3],
                        std::uint8_t *out);

} // namespace quorin::image::vec
