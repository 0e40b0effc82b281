// The user settings kept per camera number in the current user's registry:
// the user look-up setting, the pixel-gain mode and the soft
// colour-temperature gains, under SOFTWARE\KAVRION\QUORIN\CAM<n><line feed>.
#pragma once

#include <cstdint>

namespace quorin {

struct DeviceRecord;

// Reads the 20 values into the record; 1 only when all 20 were read.
std::uint32_t loadSettings(std::uint32_t deviceNo);
// Writes the 20 values; false when any of them could not be stored.
bool saveSettings(std::uint32_t deviceNo);
// The values a camera gets when its settings cannot be loaded.
void applyDefaultSettings(DeviceRecord &rec);

} // namespace quorin
