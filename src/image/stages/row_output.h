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
// out[k] = table[min(in[k], 1023)]; with identity (table[i] = i) that is
// min(in[k], 1023).
void lookUpRow16(const std::uint16_t *in, std::size_t n, const std::uint16_t *table, bool identity,
                 std::uint16_t *out);
// Whether table[i] = i for every entry.
bool identityTable(const std::uint16_t *table);

} // namespace quorin::image
