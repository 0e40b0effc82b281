// The sub-commands. Each adds itself to the application and returns how
// to check its arguments (before any camera is opened) and how to run it
// on an open camera.
#pragma once

#include "camera_session.h"
#include "output_names.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace quorin::cli {

struct Command {
    CLI::App *app = nullptr;
    // Checks the arguments; throws UsageError. Touches no camera.
    std::function<void()> check;
    // Runs on the open camera; returns the exit status.
    std::function<int(CameraSession &)> run;
    // Set instead of run by a command that opens the camera itself (view,
    // through the GStreamer element); returns the exit status.
    std::function<int()> runOwnCamera;
};

Command addInfoCommand(CLI::App &parent);
Command addGetCommand(CLI::App &parent);
Command addSetCommand(CLI::App &parent);
Command addListCommand(CLI::App &parent);
Command addGrabCommand(CLI::App &parent);
Command addDownloadCommand(CLI::App &parent);
Command addLutCommand(CLI::App &parent);
Command addDefectsCommand(CLI::App &parent);
Command addFlatfieldCommand(CLI::App &parent);
Command addRecordCommand(CLI::App &parent);
// The live view opens the camera the camera options and the --set settings
// name, once they are parsed.
Command addViewCommand(CLI::App &parent, const CameraOptions &camera, const std::vector<std::string> &settings);

// "1 frame", "2 frames".
std::string counted(std::uint64_t n, const std::string &singular, const std::string &plural = "");

// Runs body, then returns the camera to live mode whatever happened. A
// failure of body is raised again, saying whether the camera got back.
void thenLive(CameraSession &camera, const std::function<void()> &body);

// A JSON string literal.
std::string jsonText(const std::string &text);

// ---- Shared by the image commands ----------------------------------------

// The shape of the images a transfer writes, read from the camera's
// settings of the present mode (live, or playback once entered).
struct ImageShape {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t channels = 1;
    bool blueFirst = false;
    std::uint32_t output = 0; // the image output options (capability 41)

    std::size_t samples() const { return std::size_t{width} * height * channels; }
    std::string describe(std::uint32_t bits) const;
};

// Reads the picture size and area (the transfers need both read in the
// present mode) and the colour layout.
ImageShape readImageShape(CameraSession &camera);

// While it lives, the library stores colour pixels red first (the
// demosaic byte of capability 41 at 0), so that files need no reordering
// pass; the camera's own choice is put back at the end.
class RedFirst {
public:
    RedFirst(CameraSession &camera, ImageShape &shape);
    ~RedFirst();
    RedFirst(const RedFirst &) = delete;
    RedFirst &operator=(const RedFirst &) = delete;

private:
    CameraSession &camera_;
    std::uint32_t restore_ = 0;
    bool changed_ = false;
};

// The options --output, --format and --bits of grab and download.
struct ImageOutputOptions {
    std::string pattern;
    std::string format;
    int bits = 8;
};
void addImageOutputOptions(CLI::App &cmd, ImageOutputOptions &options, const char *defaultPattern);

// ---- Downloads (download, record --download) ------------------------------

struct DownloadOptions {
    std::string frames; // FIRST-LAST or FRAME
    std::string csv;
    ImageOutputOptions output;
    bool overwrite = false;
    bool transferOnly = false;
    bool json = false;
    std::uint32_t first = 0, last = 0;
    OutputPattern pattern;
};

// The output options of a download; the command adds its range option.
void addDownloadOptions(CLI::App &cmd, DownloadOptions &options);
// Checks them before any camera is opened: the range, the output names,
// files that exist, folders that cannot be written. Creates the output
// folders last. Throws UsageError.
void checkDownload(DownloadOptions &options);
// Checks the range against the recording and the room on the disk.
// Throws UsageError.
void precheckDownload(CameraSession &camera, const DownloadOptions &options);
// Checks the range against the recording and the room on the disk, then
// downloads in playback and returns the camera to live mode, also after a
// failure or an interrupt. Returns the exit status.
int runDownload(CameraSession &camera, const DownloadOptions &options);

} // namespace quorin::cli
