// The pixel-gain table and the free look-up curves kept as files in the
// user's local application-data folder, under Kavrion/QELMAR, one pair per
// camera number: "PixelGainData_VELTA_%03d_1.gdf" (1024 x 1024 u16) and
// "FreeLUTData_VELTA_%04d.pal" (three curves of 1024 u16).
#pragma once

#include <cstdint>
#include <string>

namespace quorin {

// Fills gainTableB from the file: 1, or 16 when the folder is missing, the
// file is missing or short, or the camera number has more than three digits.
std::uint32_t loadPixelGain(std::uint32_t deviceNo, std::int32_t *err);
// Writes gainTableB, creating the folder when needed: 1, or 17.
std::uint32_t savePixelGain(std::uint32_t deviceNo, std::int32_t *err);
// Fills the three free curves; a missing or short file is not reported.
void loadFreeLut(std::uint32_t deviceNo);
// Writes the three free curves when the settings folder exists. False when
// the file could not be written, or when curves other than the identity
// have no folder to go to.
bool saveFreeLut(std::uint32_t deviceNo);

// The settings folder, ending in a separator; empty when the system does
// not name an application-data folder.
std::string settingsFolder();

} // namespace quorin
