// The 8-bit output of a look-up table, as the output kernels read it.
#pragma once

#include <cstdint>

namespace quorin::image::vec {

// The 8-bit output of a 1024-entry look-up table with its reduction shift
// folded in: bytes[i] for each index, the same widened to 32-bit entries
// for the AVX2 gathers, and `shift` when every entry is min(i >> shift,
// 255) (a straight table, the usual case), else -1. With a shift the
// kernels compute the output instead of looking it up.
struct OutputTable {
    std::uint8_t bytes[1024];
    std::uint32_t wide[1024];
    int shift = -1;
    OutputTable(const std::uint16_t *table, std::uint32_t outputShift);
};

} // namespace quorin::image::vec
