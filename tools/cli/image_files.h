// PNG and TIFF files of the library's images, written under a temporary
// name and renamed when complete, so that an interrupted run never leaves
// a partial file under the final name.
#pragma once

#include "output_names.h"

#include <cstdint>
#include <string>

namespace quorin::cli {

// One image as a transfer export leaves it: rows packed top first, one or
// three channels per pixel, 8-bit values or 16-bit values (holding the
// camera's 10 bits) in the machine's byte order.
struct ImageView {
    const void *pixels = nullptr;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t channels = 1; // 1 grey (or a raw mosaic), 3 colour
    std::uint32_t bits = 8;     // 8 or 16
    bool blueFirst = false;     // colour pixels stored blue, green, red
    std::uint32_t significantBits = 10; // of the 16-bit values
};

// Writes the image as an RGB or grey file of the same depth. Colour files
// are stored red, green, blue; 16-bit values are scaled to the file's
// range (shifted up by 16 - significantBits; PNG files record the
// significant bits in an sBIT chunk). Throws CliError; on failure nothing
// is left under path.
void writeImage(const std::string &path, ImageFormat format, const ImageView &image);

// Writes text to path through a temporary file and a rename. Throws CliError.
void writeTextFile(const std::string &path, const std::string &text);

} // namespace quorin::cli
