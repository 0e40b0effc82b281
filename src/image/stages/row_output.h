// Row kernels of the output stages: the 8-bit reduction, and the look-up
// of a row through a 1024-entry table into 8-bit or 16-bit values. Each
// runs the fastest kernel of the active level.
#pragma once

#include "image/kernels/output_table.h"

#include <cstddef>
#include <cstdint>

namespace quorin::image {

// out[k] = min(in[k] >> shift, 255).
void reduceRow(const std::uint16_t *in, std::size_t n, std::uint8_t *out, std::uint32_t shift);
// out[k] = table.bytes[min(in[k], 1023)].
void lookUpRow8(const std::uint16_t *in, std::size_t n, const vec::OutputTable &table, std::uint8_t *out);
// A 16-bit look-up table as the kernels read it: the identity, or the
// table widened to 32-bit entries for gathers.
struct Table16 {
    const std::uint16_t *table;
    bool identity; // table[i] = i for every entry
    alignas(64) std::uint32_t wide[1024];
    alignas(64) std::uint8_t low[1024], high[1024];
    explicit Table16(const std::uint16_t *t);
};

// out[k] = table[min(in[k], 1023)]; for the identity that is
// min(in[k], 1023).
void lookUpRow16(const std::uint16_t *in, std::size_t n, const Table16 &table, std::uint16_t *out);
// Whether table[i] = i for every entry.
bool identityTable(const std::uint16_t *table);

} // namespace quorin::image
