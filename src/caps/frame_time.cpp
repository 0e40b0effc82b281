// The frame-time model: how many 63 MHz clocks a picture needs, and from
// that the largest frame rate for a size or the largest size for a rate.
#include "caps/caps_common.h"
#include "data/lut.h"

#include <cmath>

namespace quorin {
namespace {

constexpr std::uint32_t kWidthStep = 128;
constexpr std::uint32_t kHeightStep = 16;
constexpr std::uint32_t kMaxSide = 1024;
constexpr std::uint32_t kInternalMargin = 5;

std::uint32_t margin(const DeviceRecord &rec)
{
    // The external-sync margin is the start-up value of command 79.
    return rec.extSyncFlag ? rec.modeWord79 : kInternalMargin;
}

double budget(const DeviceRecord &rec, std::uint32_t frameRate)
{
    return frameBudget(rec, frameRate, rec.extSyncFlag != 0);
}

} // namespace

std::uint32_t frameClocks(std::uint32_t width, std::uint32_t height)
{
    return static_cast<std::uint32_t>(
        truncateToInt64((width * 0.03125 + 7.0) * static_cast<double>(height) * 0.5 + 150.0));
}

double exactFrameBudget(const DeviceRecord &rec, std::uint32_t frameRate, bool externalSync)
{
    // A frame rate of 0 gives an infinite budget: every size fits.
    const double f = static_cast<double>(frameRate);
    if (externalSync)
        return static_cast<double>(rec.extClockFrequency) / f;
    return 1.0 / f / (1.0 / kCameraClockHz);
}

double frameBudget(const DeviceRecord &rec, std::uint32_t frameRate, bool externalSync)
{
    return std::trunc(exactFrameBudget(rec, frameRate, externalSync));
}

std::uint32_t largestFrameRate(const DeviceRecord &rec, std::uint32_t resolution)
{
    const std::uint32_t c = frameClocks(resolution >> 16, resolution & 0xFFFF);
    if (rec.extSyncFlag) {
        const std::uint64_t divisor = static_cast<std::uint64_t>(c) + rec.modeWord79;
        return divisor == 0 ? 0 : static_cast<std::uint32_t>(rec.extClockFrequency / divisor);
    }
    return static_cast<std::uint32_t>(63000000u / (c + kInternalMargin));
}

std::uint32_t largestWidth(const DeviceRecord &rec, std::uint32_t frameRate, std::uint32_t height)
{
    const double t = budget(rec, frameRate) - margin(rec);
    std::uint32_t w = kWidthStep;
    do
        w += kWidthStep;
    while (frameClocks(w, height) < t && w <= kMaxSide);
    return w - kWidthStep;
}

std::uint32_t largestHeight(const DeviceRecord &rec, std::uint32_t frameRate, std::uint32_t width)
{
    const double t = budget(rec, frameRate) - margin(rec);
    std::uint32_t h = kHeightStep;
    do
        h += kHeightStep;
    while (frameClocks(width, h) < t && h <= kMaxSide);
    return h - kHeightStep;
}

std::uint32_t largestPicture(const DeviceRecord &rec, std::uint32_t frameRate)
{
    const double t = budget(rec, frameRate);
    const double m = margin(rec);
    std::uint32_t w = kWidthStep, h = kHeightStep;
    for (;;) {
        const std::uint32_t oldW = w, oldH = h;
        if (w > h)
            h += kHeightStep;
        else if (w == h)
            w += kWidthStep;
        const double c = frameClocks(w, h);
        if (c >= t || h > kMaxSide || w > kMaxSide || c >= t - m) {
            w = oldW;
            h = oldH;
            break;
        }
    }
    return w << 16 | h;
}

} // namespace quorin
