#include "scene.h"

#include <algorithm>
#include <cmath>

namespace vcam {
namespace {

constexpr std::uint32_t kSide = 1024;

// Eight colour bars: white, yellow, cyan, green, magenta, red, blue, black.
constexpr std::uint32_t kBars[8][3] = {{1, 1, 1}, {1, 1, 0}, {0, 1, 1}, {0, 1, 0},
                                       {1, 0, 1}, {1, 0, 0}, {0, 0, 1}, {0, 0, 0}};
constexpr std::uint32_t kBright = 900;

} // namespace

void sceneColour(std::uint32_t x, std::uint32_t y, std::uint32_t t, std::uint32_t rgb[3])
{
    if (y < 256) { // colour bars across the top
        const std::uint32_t *bar = kBars[x * 8 / kSide];
        for (int c = 0; c < 3; ++c)
            rgb[c] = bar[c] * kBright;
    } else if (y < 512) { // smooth gradients: luminance left to right, hue top to bottom
        const double level = x / double(kSide - 1);
        const double hue = (y - 256) / 256.0 * 6.0;
        const double k[3] = {std::fabs(std::fmod(hue + 0.0, 6.0) - 3.0) - 1.0, 2.0 - std::fabs(std::fmod(hue, 6.0) - 2.0),
                             2.0 - std::fabs(std::fmod(hue, 6.0) - 4.0)};
        for (int c = 0; c < 3; ++c)
            rgb[c] = static_cast<std::uint32_t>(std::clamp(k[c], 0.0, 1.0) * level * kBright);
    } else if (y < 768) { // fine detail: line pairs getting finer to the right, and a checkerboard
        const std::uint32_t period = 2 + (kSide - x) / 64;
        const bool line = (x / period) % 2 == 0;
        const bool check = ((x / 8) + (y / 8)) % 2 == 0;
        const std::uint32_t v = y < 640 ? (line ? kBright : 60) : (check ? 700 : 200);
        rgb[0] = rgb[1] = rgb[2] = v;
    } else { // dark floor with a grey ramp
        const std::uint32_t v = 40 + (y - 768) * 2;
        rgb[0] = rgb[1] = rgb[2] = v;
    }
    // A disc moving along the middle, warm-coloured on the grey parts.
    const double cx = std::fmod(t * 24.0, double(kSide)), cy = 512.0;
    const double dx = x - cx, dy = y - cy;
    if (dx * dx + dy * dy < 60.0 * 60.0) {
        rgb[0] = 1000;
        rgb[1] = 700;
        rgb[2] = 200;
    }
}

std::vector<std::uint16_t> renderRaw(const SensorModel &sensor, std::uint32_t x0, std::uint32_t y0, std::uint32_t w,
                                     std::uint32_t h, std::uint32_t t)
{
    std::vector<std::uint16_t> out(std::size_t(w) * h);
    for (std::uint32_t y = 0; y < h; ++y)
        for (std::uint32_t x = 0; x < w; ++x) {
            const std::uint32_t sx = std::min(x0 + x, kSide - 1), sy = std::min(y0 + y, kSide - 1);
            std::uint32_t rgb[3];
            sceneColour(sx, sy, t, rgb);
            std::uint32_t light;
            if (sensor.colour) {
                const bool evenRow = (y & 1) == 0, evenCol = (x & 1) == 0;
                light = evenRow && evenCol ? rgb[0] : !evenRow && !evenCol ? rgb[2] : rgb[1];
            } else {
                light = (77 * rgb[0] + 151 * rgb[1] + 28 * rgb[2]) >> 8;
            }
            const std::size_t s = std::size_t(sy) * kSide + sx;
            const std::uint32_t gain = std::max<std::uint32_t>(1, (*sensor.gainCodes)[s] & 511) * 4; // x / 512
            const std::uint32_t value = (*sensor.dark)[s] + light * 512 / gain;
            out[std::size_t(y) * w + x] = static_cast<std::uint16_t>(std::min<std::uint32_t>(value, 1023));
        }
    for (std::uint32_t hot : *sensor.hotPixels) {
        const std::uint32_t hx = (hot >> 16) - x0, hy = (hot & 0xFFFF) - y0;
        if (hx < w && hy < h)
            out[std::size_t(hy) * w + hx] = 1023;
    }
    return out;
}

} // namespace vcam
