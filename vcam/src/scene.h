// What the virtual camera sees: a moving test scene, rendered through the
// sensor (colour mosaic or grey), its dark offsets and per-pixel gains, so
// that a correctly processed frame shows the scene itself.
#pragma once

#include <cstdint>
#include <vector>

namespace vcam {

struct SensorModel {
    bool colour;
    // Calibration the camera reports: dark offsets and 9-bit gain codes
    // (the library multiplies by code * 4 / 512).
    const std::vector<std::uint16_t> *dark;
    const std::vector<std::uint16_t> *gainCodes;
    const std::vector<std::uint32_t> *hotPixels; // (column << 16) | row, shown saturated
};

// The scene's light at sensor position (x, y) at time t (frames), as
// linear 10-bit red, green and blue.
void sceneColour(std::uint32_t x, std::uint32_t y, std::uint32_t t, std::uint32_t rgb[3]);

// Raw 10-bit sensor values of the area (x0, y0, w, h) at time t: the scene
// through the mosaic (red at even row and column) or as grey, divided by
// the pixel gain, plus the dark offset, hot pixels saturated.
std::vector<std::uint16_t> renderRaw(const SensorModel &sensor, std::uint32_t x0, std::uint32_t y0, std::uint32_t w,
                                     std::uint32_t h, std::uint32_t t);

} // namespace vcam
