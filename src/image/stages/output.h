// The output of a finished 16-bit colour image of the bilinear colour
// modes, with edge enhancement and the live cache as the request asks.
#pragma once

#include "image/frame.h"

#include <cstddef>
#include <cstdint>

namespace quorin::image {

// The 8-bit reduction of count values, in chunks split statically.
void reduceValues(const std::uint16_t *in, std::size_t count, std::uint8_t *out, std::uint32_t shift);
// The finished 16-bit RGB image in f.rgb to the destination: edge
// enhancement, the live cache and the 8-bit reduction as the request asks.
void outputColour(const Frame &f, bool sixteenBit, void *dest);

} // namespace quorin::image
