// The camera's operating mode: reading it (capability 0) and changing it
// between live, playback and the recording states.
#pragma once

#include <cstdint>

namespace quorin {

// Host codes of capability 0.
enum HostMode : std::uint32_t {
    kHostLive = 0,
    kHostPlayback = 1,
    kHostMode2 = 2,
    kHostMode4 = 4,
    kHostMode8 = 8,
};

// Reads the camera's mode (command 18) as a host code into *value and keeps
// the camera's mode word in operatingStatus. On failure *value = 0.
std::uint32_t readCameraMode(std::uint32_t deviceNo, std::uint32_t *value, std::int32_t *err);

// Moves the camera to the mode of a host code (0, 1, 2, 4, 8; others: 5).
std::uint32_t setOperatingMode(std::uint32_t deviceNo, std::uint32_t hostCode, std::int32_t *err);

// How long a mode change waits for the camera to leave the recording state
// it reports as 8 before giving up with 11 (the camera normally settles
// within a few status reads).
constexpr std::uint32_t kModeSettleTimeoutMs = 5000;

} // namespace quorin
