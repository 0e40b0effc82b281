// The value of one pixel of the last processed image.
#pragma once

#include <cstdint>

namespace quorin::image {

// The largest pixel index the probe may read: the image buffers hold a
// 1024 x 1024 frame.
constexpr std::uint32_t kProbePixels = 1024 * 1024;

// Pixel index of device deviceNo's last image, below kProbePixels, into
// rgb as red, green, blue (the grey value three times for a single-channel
// image). Returns false when no transfer has left an image yet.
bool lastImagePixel(std::uint32_t deviceNo, std::uint32_t index, std::uint32_t rgb[3]);

} // namespace quorin::image
