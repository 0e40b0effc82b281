// Numbered output file names: a pattern with one printf-style integer
// field (frames/live_%04d.png), the image format it asks for, and the
// checks made before any camera is opened.
#pragma once

#include <cstdint>
#include <string>

namespace quorin::cli {

enum class ImageFormat { Png, Tiff };

struct OutputPattern {
    std::string prefix;  // text before the number
    std::string suffix;  // text after it
    int width = 0;       // digits, zero-padded
    bool numbered = false;
    ImageFormat format = ImageFormat::Png;
    std::string folder;  // where the files go

    // The file name for number n.
    std::string path(std::uint32_t n) const;
};

// Checks a pattern: at most one %d field (%Nd or %0Nd, %% for a percent
// sign), and one when several files are written; the format from
// formatOption ("png", "tiff", or empty for the extension .png, .tif or
// .tiff). Creates the folder when it is missing and checks that it is
// writable. Throws UsageError.
OutputPattern checkOutputPattern(const std::string &pattern, const std::string &formatOption, std::uint32_t files);

// Checks that the folder of a single output file exists (creating it) and
// is writable. Throws UsageError.
void checkOutputFile(const std::string &path, const char *what);

} // namespace quorin::cli
