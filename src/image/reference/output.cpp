// Reference output stages and the reference order of all stages.
#include "image/reference/stages.h"

#include <cstring>

namespace quorin::image::reference {
namespace {

std::uint16_t clampSigned16(std::int32_t v)
{
    const auto s = static_cast<std::int16_t>(static_cast<std::uint16_t>(v));
    return s <= 0 ? 0 : s > kMaxValue ? kMaxValue : static_cast<std::uint16_t>(s);
}

} // namespace

void edgeMono(const std::uint16_t *work, std::uint16_t *out, const std::uint16_t *table, const Area &a,
              unsigned shift)
{
    auto l = [&](std::size_t i) -> std::int32_t { return table[lutIndex(work[i])]; };
    const std::size_t w = a.w;
    for (std::size_t x = 0; x < w; ++x)
        out[x] = static_cast<std::uint16_t>(l(x));
    for (std::size_t y = 1; y + 1 < a.h; ++y) {
        const std::size_t row = y * w;
        out[row] = static_cast<std::uint16_t>(l(row));
        out[row + w - 1] = static_cast<std::uint16_t>(l(row + w - 1));
        for (std::size_t x = 1; x + 1 < w; ++x) {
            const std::size_t i = row + x;
            const std::int32_t c = l(i);
            const std::int32_t d = 4 * c - l(i - 1) - l(i + 1) - l(i - w) - l(i + w);
            out[i] = clampSigned16(c + (d >> shift));
        }
    }
    if (a.h > 1)
        for (std::size_t x = 0; x < w; ++x) {
            const std::size_t i = (a.h - 1) * w + x;
            out[i] = static_cast<std::uint16_t>(l(i));
        }
}

void edgeColour(const std::uint16_t *rgb, std::uint16_t *out, std::uint16_t *luma, const Area &a, unsigned shift)
{
    const std::size_t w = a.w, n = a.pixels();
    for (std::size_t i = 0; i < n; ++i)
        luma[i] = static_cast<std::uint16_t>(
            (77u * rgb[3 * i + 2] + 151u * rgb[3 * i + 1] + 28u * rgb[3 * i]) >> 8);
    std::memcpy(out, rgb, w * 3 * sizeof(std::uint16_t));
    for (std::size_t y = 1; y + 1 < a.h; ++y) {
        const std::size_t row = y * w;
        for (std::size_t x = 0; x < w; ++x) {
            const std::size_t i = row + x;
            if (x == 0 || x + 1 == w) {
                std::memcpy(out + 3 * i, rgb + 3 * i, 3 * sizeof(std::uint16_t));
                continue;
            }
            const std::int32_t d =
                (4 * std::int32_t{luma[i]} - luma[i - w] - luma[i + w] - luma[i - 1] - luma[i + 1]) >> shift;
            for (unsigned c = 0; c < 3; ++c)
                out[3 * i + c] = clampSigned16(rgb[3 * i + c] + d);
        }
    }
    if (a.h > 1)
        std::memcpy(out + (a.h - 1) * w * 3, rgb + (a.h - 1) * w * 3, w * 3 * sizeof(std::uint16_t));
}

namespace {

void reduceInto(const std::uint16_t *in, std::size_t count, std::uint8_t *dest, std::uint32_t shift)
{
    for (std::size_t i = 0; i < count; ++i)
        dest[i] = reduce8(in[i], shift);
}

void outputMono(const Frame &f, bool sixteenBit, void *dest)
{
    const Area &a = f.area;
    const std::size_t n = a.pixels();
    const std::uint16_t *table = f.lut[0];
    if (sixteenBit) {
        auto *d = static_cast<std::uint16_t *>(dest);
        if (f.mode71 == 0)
            for (std::size_t i = 0; i < n; ++i)
                d[i] = table[lutIndex(f.work[i])];
        else
            edgeMono(f.work, d, table, a, edgeShift(f.mode71));
        return;
    }
    auto *d = static_cast<std::uint8_t *>(dest);
    if (f.mode71 != 0) {
        edgeMono(f.work, f.cache, table, a, edgeShift(f.mode71));
        reduceInto(f.cache, n, d, f.outputShift);
    } else if (f.keepLiveCache) {
        for (std::size_t i = 0; i < n; ++i)
            f.cache[i] = table[lutIndex(f.work[i])];
        reduceInto(f.cache, n, d, f.outputShift);
    } else {
        for (std::size_t i = 0; i < n; ++i)
            d[i] = reduce8(table[lutIndex(f.work[i])], f.outputShift);
    }
}

void outputColour(const Frame &f, bool sixteenBit, void *dest)
{
    const Area &a = f.area;
    const std::size_t values = a.pixels() * 3;
    if (sixteenBit) {
        auto *d = static_cast<std::uint16_t *>(dest);
        if (f.mode71 != 0)
            edgeColour(f.rgb, d, f.previous, a, edgeShift(f.mode71));
        else
            std::memcpy(d, f.rgb, values * sizeof(std::uint16_t));
        return;
    }
    auto *d = static_cast<std::uint8_t *>(dest);
    if (f.mode71 != 0) {
        edgeColour(f.rgb, f.cache, f.previous, a, edgeShift(f.mode71));
        reduceInto(f.cache, values, d, f.outputShift);
        return;
    }
    if (f.keepLiveCache)
        std::memcpy(f.cache, f.rgb, values * sizeof(std::uint16_t));
    reduceInto(f.rgb, values, d, f.outputShift);
}

} // namespace

void process(const Frame &f, bool sixteenBit, void *dest)
{
    const Area &a = f.area;
    unpack(f.raw, a.pixels(), f.work);
    const Kernel kernel = kernelFor(f.kernelVariant);
    if (f.darkSubtract && kernel != Kernel::Skip)
        (kernel == Kernel::Vector ? darkVector : darkScalar)(f.work, f.dark, a);
    if (f.columnCorrect)
        crosstalk(f.work, a);
    if (f.pixelGainMode >= 1 && f.pixelGainMode <= 3 && kernel != Kernel::Skip)
        pixelGain(f.work, f.pixelGainMode == 1 ? f.gainA : f.pixelGainMode == 2 ? f.gainB : nullptr, a);

    const bool defects = f.defectCorrect && f.defectCount > 0;
    if (!f.colour) {
        if (defects)
            defectsMono(f.work, f.defects, f.defectCount, a);
        outputMono(f, sixteenBit, dest);
        return;
    }
    if (defects)
        defectsColour(f.work, f.defects, f.defectCount, a);
    if (f.rawBayerOutput) {
        if (sixteenBit)
            std::memcpy(dest, f.work, a.pixels() * sizeof(std::uint16_t));
        else
            reduceInto(f.work, a.pixels(), static_cast<std::uint8_t *>(dest), f.outputShift);
        return;
    }
    if (f.colourMode == 1 || f.colourMode == 2) {
        if (kernel != Kernel::Skip)
            (kernel == Kernel::Vector ? balanceVector : balanceScalar)(f.work, f.balanceGains, a);
        if (f.colourMode == 2)
            greenSmoothing(f.work, f.previous, a);
        greenPlane(f.work, f.rgb, a, f.demosaicMethod);
        redBlueAtGreen(f.work, f.rgb, a, f.demosaicMethod);
        redBlueAtRedBlue(f.work, f.rgb, a, f.demosaicMethod);
        if (f.matrixOn)
            colourMatrix(f.rgb, f.matrix, a, f.demosaicMethod);
        lookUpColour(f.rgb, f.lut, a, f.demosaicMethod);
    } else {
        bilinear(f.work, f.rgb, a, f.demosaicMethod, f.bilinearLut);
        if (f.matrixOn)
            colourMatrix(f.rgb, f.matrix, a, f.demosaicMethod);
    }
    outputColour(f, sixteenBit, dest);
}

} // namespace quorin::image::reference
