// The colour balance of the mosaic: each value times the gain of its
// colour (16 = 1.0), by the scalar rule (whole pairs of columns, limited
// to 1023 as an unsigned value) or the vector rule (every column of whole
// pairs of rows, limited as a signed one).
#pragma once

#include "image/frame.h"
#include "image/kernels/vector_kernels.h"

#include <cstddef>
#include <cstdint>

namespace quorin::image {

// Balance of row y from `in` to `out` (the same row, or another; values
// the balance leaves alone are copied then); writes the OR of the balanced
// values to bits.
using BalanceRowKernel = void (*)(const Frame &f, std::uint32_t y, bool vector, const std::uint16_t *in,
                                  std::uint16_t *out, std::uint32_t *bits);
BalanceRowKernel balanceRowKernel();

// Row in (w values), balanced by `rule`, split: its even columns to even,
// its odd ones to odd (see vec::SplitBalance). Returns the OR of the values
// written.
using BalanceSplitKernel = std::uint32_t (*)(const std::uint16_t *in, std::size_t w, const vec::SplitBalance &rule,
                                             std::uint16_t *even, std::uint16_t *odd);
BalanceSplitKernel balanceSplitKernel();

// The balance of row y as the split-row kernel applies it (see
// balanceRow): the vector rule on every column of the rows of whole pairs
// of rows, the scalar rule on whole pairs of columns; columns kUnbalanced
// when the gains are too wide for its 16-bit products.
constexpr std::size_t kUnbalanced = SIZE_MAX;
vec::SplitBalance splitBalance(const Frame &f, std::uint32_t y, Kernel kernel);

} // namespace quorin::image
