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
// The live view opens the camera the camera options and the --set settings
// name, once they are parsed.
Command addViewCommand(CLI::App &parent, const CameraOptions &camera, const std::vector<std::string> &settings);

// ---- Shared by the image commands ----------------------------------------

// The shape of the images a transfer writes, read from the camera's
// settings of the present mode (live, or playback once entered).
struct ImageShape {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t channels = 1;
    bool blueFirst = false;

    std::size_t samples() const { return std::size_t{width} * height * channels; }
    std::string describe(std::uint32_t bits) const;
};

// Reads the picture size and area (the transfers need both read in the
// present mode) and the colour layout.
ImageShape readImageShape(CameraSession &camera);

// The options --output, --format and --bits of grab and download.
struct ImageOutputOptions {
    std::string pattern;
    std::string format;
    int bits = 8;
};
void addImageOutputOptions(CLI::App &cmd, ImageOutputOptions &options, const char *defaultPattern);

} // namespace quorin::cli
