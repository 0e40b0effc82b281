// Settings made right after a camera is opened, written NAME=VALUE with
// the names of names.h and the notations of values.h: the tool's --set
// and the settings property of the GStreamer element.
#pragma once

#include "camera_session.h"
#include "names.h"
#include "values.h"

#include <string>
#include <vector>

namespace quorin::cli {

struct Setting {
    CapabilityName capability;
    Value value;
};

// Checks each NAME=VALUE against the name table without touching a
// camera; throws UsageError, naming option ("--set") in its message.
std::vector<Setting> checkSettings(const std::vector<std::string> &texts, const std::string &option);

// CameraSession::set, and when the camera refuses a frame rate or picture
// size, the failure says what its frame-time model allows.
void setExplained(CameraSession &camera, std::uint32_t id, std::uint32_t value, const std::string &what,
                  std::uint32_t subIndex = 0, std::uint32_t value2 = 0);

// Makes the settings in their order; throws CliError at the first one the
// camera refuses (with setExplained's explanation).
void applySettings(CameraSession &camera, const std::vector<Setting> &settings);

} // namespace quorin::cli
