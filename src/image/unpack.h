// Unpacking of the camera's packed 10-bit pixels: four values in five
// bytes, least significant bits first.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quorin {

// Unpacks groups whole groups of five bytes from in into 4 * groups values.
void unpackTenBit(const std::uint8_t *in, std::size_t groups, std::uint16_t *out);

} // namespace quorin
