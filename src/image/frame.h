// What one frame's processing reads and writes: the image area, the
// device's buffers and tables, and the switches of the record, gathered
// once per transfer so that the stages need nothing else.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quorin::image {

// The image area on the sensor: width, height, first column and row.
struct Area {
    std::uint32_t w, h, x0, y0;
    std::size_t pixels() const { return std::size_t{w} * h; }
};

constexpr std::uint32_t kSensorSide = 1024;
constexpr std::uint16_t kMaxValue = 1023;

// Kernel chosen by the option word: bit 1 selects the eight-lane vector
// kernels, else bit 0 skips the stage, else the scalar kernel runs.
enum class Kernel { Scalar, Vector, Skip };

inline Kernel kernelFor(std::uint32_t kernelVariant)
{
    if (kernelVariant & 2)
        return Kernel::Vector;
    if (kernelVariant & 1)
        return Kernel::Skip;
    return Kernel::Scalar;
}

// The colour the K5C's mosaic holds at column x of row y (0 red, 1 green,
// 2 blue): red at even row / even column, blue at odd row / odd column.
inline unsigned siteColour(std::uint32_t x, std::uint32_t y)
{
    return ((x ^ y) & 1) != 0 ? 1 : (y & 1) != 0 ? 2 : 0;
}

// Channel slot of colour c (0 red, 1 green, 2 blue) in an RGB triple: the
// first demosaic layout stores blue, green, red.
inline unsigned channelSlot(std::uint32_t demosaicMethod, unsigned colour)
{
    return demosaicMethod == 1 ? 2 - colour : colour;
}

// What a processed frame leaves in the device's buffers. Monochrome frames
// (and the colour model's raw mosaic) leave their corrected values in
// workImage (Grey); the bilinear colour modes finished triples in rgbImage
// (Triples). Colour modes 1 and 2 leave their prepared mosaic (balanced and
// smoothed) in the last third of rgbImage, in natural rows (Mosaic) or
// split rows (SplitMosaic: each row's even columns, then its odd ones);
// planesFromMosaic() then interpolates the three planes before the colour
// matrix and look-up: red at rgbImage, green at previousFrame, blue at
// rgbImage + w * h (Planes, SplitPlanes). With split rows the values the
// mosaic holds (green at green sites, red and blue at their own sites)
// stay in the mosaic instead.
enum class ImageLayout : std::uint32_t { None, Grey, Triples, Planes, SplitPlanes, Mosaic, SplitMosaic };

struct DefectIndex;

struct Frame {
    Area area;
    bool memory; // a memory frame (row 1) rather than a live one (row 0)

    const std::uint8_t *raw;
    std::uint16_t *work;     // w * h mosaic or grey values, packed rows
    std::uint16_t *rgb;      // w * h * 3
    std::uint16_t *previous; // scratch of 1024 x 1024 values
    std::uint16_t *cache;    // w * h * 3, the 16-bit result of 8-bit transfers

    const std::uint16_t *dark;  // 1024 x 1024 sensor tables
    const std::uint16_t *gainA;
    const std::uint16_t *gainB;
    const std::uint16_t *lut[3];         // look-up tables R (and grey), G, B of the row
    const std::uint16_t *bilinearLut[3]; // tables of the bilinear colour modes

    bool colour;
    bool darkSubtract;
    bool columnCorrect;
    std::uint32_t pixelGainMode;
    bool defectCorrect;
    std::uint32_t defectCount;
    const std::uint32_t *defects;
    DefectIndex *defectIndex; // the device's kept defect set, or none
    bool rawBayerOutput;
    std::uint32_t outputShift;
    std::uint32_t demosaicMethod;
    bool keepLiveCache;
    std::uint32_t colourMode;
    std::uint32_t balanceGains[3]; // R, G, B, 16 = 1.0
    bool matrixOn;
    std::int32_t matrix[9]; // RR RG RB GR GG GB BR BG BB, 256 = 1.0
    std::uint32_t kernelVariant;
    std::uint32_t mode71; // edge enhancement: 0 off
};

// Shift of the edge enhancement for a mode71 value (non-zero).
inline unsigned edgeShift(std::uint32_t mode71)
{
    return mode71 == 1 ? 2 : mode71 == 2 ? 1 : 0;
}

// Look-up table index of a value: values above the table's 1024 entries
// read its last entry.
inline std::uint32_t lutIndex(std::uint32_t v)
{
    return v > kMaxValue ? kMaxValue : v;
}

// Truncated mean of n values as the colour border fills take it: two by a
// shift, three by an exact division, four by a shift, one copied.
inline std::int32_t borderMean(std::int32_t sum, int n)
{
    switch (n) {
    case 1:
        return sum;
    case 2:
        return sum >> 1;
    case 3:
        return sum / 3;
    case 4:
        return sum >> 2;
    default:
        return 0;
    }
}

// The 8-bit reduction.
inline std::uint8_t reduce8(std::uint32_t v, std::uint32_t shift)
{
    const std::uint32_t o = v >> shift;
    return static_cast<std::uint8_t>(o > 255 ? 255 : o);
}

} // namespace quorin::image
