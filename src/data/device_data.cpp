// DEV_GetData and DEV_SetData: per-frame time stamps and channel records,
// look-up settings, the two pixel-gain tables, the flat-field computation
// of the file table, and the one-pixel probe of the last image.
#include "data/frame_data.h"
#include "data/lut.h"
#include "device/export_guard.h"
#include "image/probe.h"

#include <cstring>

namespace quorin {
namespace {

constexpr std::uint32_t kLutSettingsData = 3;
constexpr std::uint32_t kGainTablesData = 4;
constexpr std::uint32_t kFlatFieldData = 5;
constexpr std::uint32_t kPixelProbeData = 6;
constexpr std::uint32_t kUserLutMode = 11;
constexpr std::size_t kGainTableBytes = 1024 * 1024 * 2;
constexpr std::uint32_t kTableSide = 1024;
constexpr double kNeutral = 997.0;
constexpr double kLargestGain = 2047.0;

const LutSettings *lutSettingsFor(const DeviceRecord &rec, std::uint32_t mode)
{
    if (mode >= 1 && mode <= 5)
        return &g_state.presets[mode - 1];
    if (mode == kUserLutMode)
        return &rec.userLut;
    return nullptr;
}

// The level that 1 % of a pixel class reaches: walking down from 1023,
// the first bin where the running count exceeds the threshold (0 if none).
std::uint32_t brightLevel(const std::uint32_t (&histogram)[1024], std::uint32_t threshold)
{
    std::uint64_t sum = 0;
    for (std::uint32_t bin = 1024; bin-- > 0;) {
        sum += histogram[bin];
        if (sum > threshold)
            return bin;
    }
    return 0;
}

std::uint16_t flatGain(std::uint32_t p, std::uint32_t level)
{
    if (p == 0 || level == 0)
        return static_cast<std::uint16_t>(kNeutral);
    double g = kNeutral / (static_cast<double>(p) / level);
    g = g < kNeutral ? kNeutral : g > kLargestGain ? kLargestGain : g;
    return static_cast<std::uint16_t>(g);
}

// The pixel-gain table from a flat image of the row-0 area. On the colour
// model the three mosaic classes (red, blue, the two greens) each get their
// own level; pixel values index a 1024-bin histogram, larger ones count in
// the top bin.
std::uint32_t computeFlatField(std::uint32_t deviceNo, const std::uint16_t *image, std::int32_t *err)
{
    const DeviceRecord &rec = device(deviceNo);
    const ChannelSettings &row = rec.channelSettings[0];
    const std::uint32_t w = row.resolution >> 16, h = row.resolution & 0xFFFF;
    const std::uint32_t x0 = row.value73High, y0 = row.value73Low;
    if (w > kTableSide || h > kTableSide || x0 + w > kTableSide || y0 + h > kTableSide) {
        *err = QUORIN_ERR_NOT_ALLOWED; // the image would reach past the table
        return 0;
    }
    // Class of image pixel (x, y): 0 the single class of the monochrome
    // model; colour: 0 even row and column, 1 odd row and column, 2 the rest.
    auto classOf = [&](std::uint32_t x, std::uint32_t y) -> int {
        if (!rec.isColour)
            return 0;
        const bool evenRow = (y & 1) == 0, evenCol = (x & 1) == 0;
        return evenRow && evenCol ? 0 : !evenRow && !evenCol ? 1 : 2;
    };
    static thread_local std::uint32_t histogram[3][1024];
    std::memset(histogram, 0, sizeof histogram);
    for (std::uint32_t y = 0; y < h; ++y)
        for (std::uint32_t x = 0; x < w; ++x) {
            const std::uint32_t p = image[std::size_t{y} * w + x];
            histogram[classOf(x, y)][p > 1023 ? 1023 : p] += 1;
        }
    const std::uint32_t pixels = w * h;
    std::uint32_t level[3];
    if (rec.isColour) {
        level[0] = brightLevel(histogram[0], static_cast<std::uint32_t>((pixels >> 2) * 0.01));
        level[1] = brightLevel(histogram[1], static_cast<std::uint32_t>((pixels >> 2) * 0.01));
        level[2] = brightLevel(histogram[2], static_cast<std::uint32_t>((pixels >> 1) * 0.01));
    } else {
        level[0] = brightLevel(histogram[0], static_cast<std::uint32_t>(h * w * 0.01));
    }
    std::uint16_t *table = g_state.buffers.gainTableB[deviceNo];
    for (std::uint32_t r = 0; r < kTableSide; ++r)
        for (std::uint32_t c = 0; c < kTableSide; ++c) {
            std::uint16_t g = static_cast<std::uint16_t>(kNeutral);
            if (r >= y0 && r < y0 + h && c >= x0 && c < x0 + w) {
                const std::uint32_t x = c - x0, y = r - y0;
                g = flatGain(image[std::size_t{y} * w + x], level[classOf(x, y)]);
            }
            table[std::size_t{r} * kTableSide + c] = g;
        }
    *err = QUORIN_SUCCESS;
    return 1;
}

// One pixel of the last image: column x and row y within the live area,
// both bounds inclusive (x = width reads the first pixel of the next row).
// An index past the 1024 x 1024 image buffers is refused like a position
// off the area.
std::uint32_t probePixel(std::uint32_t deviceNo, std::uint32_t x, std::uint32_t y, void *buffer,
                         std::uint32_t *outSize, std::int32_t *err)
{
    const std::uint32_t resolution = device(deviceNo).channelSettings[0].resolution;
    const std::uint64_t w = resolution >> 16, h = resolution & 0xFFFF;
    const std::uint64_t index = w * y + x;
    if (x > w || y > h || index >= image::kProbePixels) {
        *err = QUORIN_ERR_OUT_OF_RANGE;
        return 0;
    }
    std::uint32_t rgb[3];
    if (!image::lastImagePixel(deviceNo, static_cast<std::uint32_t>(index), rgb)) {
        *err = QUORIN_ERR_NOT_ALLOWED;
        return 0;
    }
    if (buffer == nullptr) {
        *err = QUORIN_ERR_OUT_OF_RANGE;
        return 0;
    }
    std::memcpy(buffer, rgb, sizeof rgb);
    *outSize = sizeof rgb;
    return 1; // the error word is left as it was
}

} // namespace
} // namespace quorin

using namespace quorin;

extern "C" uint32_t DEV_GetData(uint32_t deviceNo, uint32_t, uint32_t dataId, uint32_t subId, uint32_t param,
                                void *buffer, uint32_t *outSize, int32_t *err)
{
    std::int32_t scratch = 0;
    std::uint32_t scratchSize = 0;
    if (err == nullptr)
        err = &scratch;
    if (outSize == nullptr)
        outSize = &scratchSize;
    if (!requireInitialised(err))
        return 0;
    if (dataId > kPixelProbeData || dataId == kFlatFieldData) {
        *err = QUORIN_ERR_NOT_SUPPORTED;
        return 0;
    }
    if (!requireUsableDevice(deviceNo, err))
        return 0;
    if (dataId <= 2)
        return readFrameData(deviceNo, dataId, subId, param, buffer, err);
    if (dataId == kPixelProbeData)
        return probePixel(deviceNo, subId, param, buffer, outSize, err);
    const DeviceRecord &rec = device(deviceNo);
    if (dataId == kLutSettingsData) {
        const LutSettings *settings = lutSettingsFor(rec, subId);
        if (settings == nullptr || buffer == nullptr) {
            *err = QUORIN_ERR_OUT_OF_RANGE;
            return 0;
        }
        std::memcpy(buffer, settings, sizeof(LutSettings));
        *outSize = sizeof(LutSettings);
        *err = QUORIN_SUCCESS;
        return 1;
    }
    const std::uint16_t *table = subId == 1 ? g_state.buffers.gainTableA[deviceNo]
                                 : subId == 2 ? g_state.buffers.gainTableB[deviceNo]
                                              : nullptr;
    if (table == nullptr || buffer == nullptr) {
        *err = QUORIN_ERR_OUT_OF_RANGE;
        return 0;
    }
    std::memcpy(buffer, table, kGainTableBytes);
    *outSize = static_cast<std::uint32_t>(kGainTableBytes);
    return 1; // the error word is left as it was
}

extern "C" uint32_t DEV_SetData(uint32_t deviceNo, uint32_t, uint32_t dataId, uint32_t subId, uint32_t, void *buffer,
                                uint64_t, int32_t *err)
{
    std::int32_t scratch = 0;
    if (err == nullptr)
        err = &scratch;
    if (!requireInitialised(err))
        return 0;
    if (dataId != kLutSettingsData && dataId != kGainTablesData && dataId != kFlatFieldData) {
        *err = QUORIN_ERR_NOT_SUPPORTED;
        return 0;
    }
    if (!requireUsableDevice(deviceNo, err))
        return 0;
    DeviceRecord &rec = device(deviceNo);
    if (dataId == kFlatFieldData)
        return buffer == nullptr ? 0 : computeFlatField(deviceNo, static_cast<const std::uint16_t *>(buffer), err);
    if (dataId == kGainTablesData) {
        if (buffer == nullptr) {
            *err = QUORIN_ERR_OUT_OF_RANGE;
            return 0;
        }
        std::memcpy(g_state.buffers.gainTableB[deviceNo], buffer, kGainTableBytes);
        *err = QUORIN_SUCCESS;
        return 1;
    }
    if (subId == kUserLutMode && buffer != nullptr) {
        std::memcpy(&rec.userLut, buffer, sizeof(LutSettings));
        generateLut(deviceNo, 0, rec.channelSettings[0].lutMode);
    } else if (subId == kIdentityPreset) {
        generateLut(deviceNo, 0, kIdentityPreset);
    } else {
        *err = QUORIN_ERR_OUT_OF_RANGE;
        return 0;
    }
    *err = QUORIN_SUCCESS;
    return 1;
}
