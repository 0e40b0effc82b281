// Numbered output file names: a pattern with one printf-style integer
// field (frames/live_%04d.png), the image format it asks for, and the
// checks made before any camera is opened.
#pragma once

#include <cstdint>
#include <string>

namespace quorin::cli {

enum class ImageFormat { Png, Tiff, Hdf5 };

struct OutputPattern {
    std::string prefix;  // text before the number
    std::string suffix;  // text after it
    int width = 0;       // least number of characters
    char pad = ' ';      // what pads the number to width: '0' for %04d, as printf
    bool numbered = false;
    ImageFormat format = ImageFormat::Png;
    std::string folder;  // where the files go

    // The file name for number n.
    std::string path(std::uint32_t n) const;
};

// Checks a pattern: at most one %d field (%Nd or %0Nd, %% for a percent
// sign), and one when several files are written, unless oneFile allows a
// single file of many frames (HDF5, or multi-page TIFF); the format from
// formatOption ("png", "tiff", "hdf5", or empty for the extension .png,
// .tif, .tiff, .h5 or .hdf5). Checks that the folder is writable, or can
// be created; createFolder() creates it once every check has passed.
// Throws UsageError.
OutputPattern checkOutputPattern(const std::string &pattern, const std::string &formatOption, std::uint32_t files,
                                 bool oneFile = false);

// Checks that the folder of a single output file is writable or can be
// created. Throws UsageError.
void checkOutputFile(const std::string &path, const char *what);

// Refuses a file that exists (unless overwrite). Throws UsageError.
void checkNewFile(const std::string &path, bool overwrite);

// Creates a folder the checks found missing. Throws CliError.
void createFolder(const std::string &folder);

// The folder a file goes to ("." for a bare name).
std::string folderOf(const std::string &path);

// Refuses when the disk of folder has less than bytes free. Throws UsageError.
void checkRoom(const std::string &folder, std::uint64_t bytes, const std::string &forWhat);

} // namespace quorin::cli
