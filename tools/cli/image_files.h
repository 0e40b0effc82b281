// PNG and TIFF files of the library's images, written under a temporary
// name and renamed when complete, so that an interrupted run never leaves
// a partial file under the final name.
#pragma once

#include "output_names.h"

#include <cstdint>
#include <string>
#include <vector>

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

// Writes all of text to the file descriptor fd of path. Throws CliError.
void writeAll(int fd, const std::string &text, const std::string &path);

// Builds row y in a file's sample order: red first, 16-bit values scaled.
void fileRow(const ImageView &image, std::uint32_t y, std::vector<unsigned char> &row);

// libtiff's messages: catchTiffMessages() routes them to this thread's
// last message, which takeTiffMessage() returns (": message", or empty).
void catchTiffMessages();
std::string takeTiffMessage();

} // namespace quorin::cli
