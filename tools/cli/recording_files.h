// Where downloaded frames go: numbered image files with a time-stamp CSV,
// one HDF5 file, or one multi-page BigTIFF file. Every kind grows frame by
// frame and is readable after each one: a run killed at any moment leaves
// every frame written so far, with its time stamp.
#pragma once

#include "image_files.h"
#include "output_names.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quorin::cli {

// The time stamp of one recorded frame (DEV_GetData QUORIN_DATA_TIME_STAMPS)
// with its frame number and the seconds since the first frame downloaded.
struct FrameStamp {
    std::uint32_t frame = 0;
    std::uint32_t day = 0;
    std::uint8_t hour = 0, minute = 0, second = 0, timeCode = 0;
    std::uint32_t microsecond = 0;
    double seconds = 0;
};

// Decodes the 20-byte record; seconds stay 0.
FrameStamp decodeStamp(std::uint32_t frame, const unsigned char *record);
// Microseconds since the start of day 0, for the seconds between stamps.
std::int64_t stampMicroseconds(const FrameStamp &s);
// "23:59:58.502000"
std::string timeOfDay(const FrameStamp &s);

// A camera setting kept with the frames (HDF5 attributes, CSV comments).
struct RecordedSetting {
    std::string name;
    std::string text;  // for text settings
    std::int64_t number = 0;
    bool isText = false;
};

// What every frame of a download looks like, and how it was made.
struct RecordingLayout {
    std::uint32_t width = 0, height = 0, channels = 1, bits = 8;
    std::uint32_t frames = 0; // frames the download asks for
    std::vector<RecordedSetting> settings;
    std::size_t frameBytes() const { return std::size_t{width} * height * channels * (bits / 8); }
};

class FrameSink {
public:
    virtual ~FrameSink() = default;
    // How many frames write() may be given at once from different threads
    // (1: one thread, in frame order).
    virtual unsigned writers() const { return 1; }
    // Writes one frame (colour pixels red, green, blue). Throws CliError.
    virtual void write(const void *pixels, const FrameStamp &stamp, std::uint64_t index) = 0;
    // After write() of the frame with this index returned, in frame order.
    virtual void written(const FrameStamp &stamp, std::uint64_t index) { (void)stamp, (void)index; }
    // Ends the file after `count` frames. Throws CliError.
    virtual void close(std::uint64_t count) = 0;
    // Where the frames went, for messages.
    virtual std::string describe() const = 0;
};

struct SinkOptions {
    OutputPattern pattern;
    std::string csv; // numbered files only
    bool overwrite = false;
};

// Creates the file (HDF5, multi-page TIFF) or the CSV of numbered files.
// Throws CliError.
std::unique_ptr<FrameSink> openSink(const SinkOptions &options, const RecordingLayout &layout);

// Whether the pattern writes one file for all frames.
bool isOneFile(const OutputPattern &pattern);

} // namespace quorin::cli
