// Look-up table generation and upload.
//
// Every tone adjustment (brightness, contrast, gain, gamma, negative image,
// a free hand-drawn curve and the camera's colour temperature) is folded
// into per-channel tables of 1024 entries that image processing indexes.
#pragma once

#include <cstdint>

namespace quorin {

struct LutSettings;

// Preset number that selects the identity setting.
constexpr std::uint32_t kIdentityPreset = 0xFFFFFFFFu;
// Preset number of the device's own user setting.
constexpr std::uint32_t kUserPreset = 5;

// The identity setting: brightness 0, contrast 0, gain and gamma 1.0.
LutSettings identityLutSettings();

// Rebuilds the base and output tables of row 0 (row == 0) or row 1 (any
// other row) from preset 0..4, the device's user setting (5) or the
// identity (all-ones). Other preset numbers are refused (returns false)
// without touching the tables.
bool generateLut(std::uint32_t deviceNo, std::uint32_t row, std::uint32_t preset);

// Sends the base tables of row 0 to the camera (command 187). Only mode
// value 11 (user LUT) is accepted; others give 5.
std::uint32_t uploadLut(std::uint32_t deviceNo, std::int32_t modeValue, std::int32_t *err);

// Double-to-integer conversion as the x86-64 instruction performs it:
// toward zero, with NaN and out-of-range values giving the lowest value.
std::int64_t truncateToInt64(double x);
std::int32_t truncateToInt32(double x);

} // namespace quorin
