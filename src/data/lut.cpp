#include "data/lut.h"

#include "device/device_table.h"
#include "link/block_transfer.h"
#include "link/transaction.h"

#include <cmath>
#include <cstdint>
#include <limits>

namespace quorin {

std::int64_t truncateToInt64(double x)
{
    // 2^63 is exactly representable; anything at or beyond it does not fit.
    if (!(x > -9223372036854775808.0 - 1.0 && x < 9223372036854775808.0))
        return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(x);
}

std::int32_t truncateToInt32(double x)
{
    if (!(x > -2147483649.0 && x < 2147483648.0))
        return std::numeric_limits<std::int32_t>::min();
    return static_cast<std::int32_t>(x);
}

LutSettings identityLutSettings()
{
    LutSettings s{};
    for (int ch = 0; ch < 3; ++ch) {
        s.gain[ch] = 1.0;
        s.gamma[ch] = 1.0;
    }
    return s;
}

namespace {

std::uint16_t low16(std::int64_t v)
{
    return static_cast<std::uint16_t>(static_cast<std::uint64_t>(v) & 0xFFFF);
}

// The curve of one entry before the colour temperature.
std::uint16_t formulaEntry(std::uint32_t i, double brightness, double cf, double gain, double gamma, bool posiNega)
{
    double x = ((static_cast<double>(i) + brightness) - 512.0) * cf + 512.0;
    if (x < 0)
        x = 0;
    x = x * gain;
    if (gamma != 1.0) {
        x = std::pow(x / 1023.0, gamma) * 1023.0;
        // Round by the tenths digit, read from a 16-bit copy of x * 10.
        auto t = static_cast<std::int16_t>(static_cast<std::uint32_t>(truncateToInt32(x * 10.0)) & 0xFFFF);
        if (t % 10 >= 5)
            x = x + 1.0;
    }
    if (x > 1023.0)
        x = 1023.0;
    if (posiNega)
        return static_cast<std::uint16_t>(~low16(truncateToInt64(x)) & 0x3FF);
    return low16(truncateToInt64(x));
}

// The colour-temperature stage: base entry b through factor ct.
std::uint16_t colourTemperature(std::uint16_t b, double ct, bool posiNega)
{
    if (posiNega) {
        double y = static_cast<double>(static_cast<std::uint16_t>(~b) & 0x3FF) * ct;
        if (y <= 0)
            return 0x3FF;
        if (y > 1023)
            return 0;
        return static_cast<std::uint16_t>(~low16(truncateToInt64(y)) & 0x3FF);
    }
    double y = static_cast<double>(b) * ct;
    if (y <= 0)
        y = 0;
    if (y > 1023)
        y = 1023;
    return low16(truncateToInt64(y));
}

} // namespace

bool generateLut(std::uint32_t deviceNo, std::uint32_t row, std::uint32_t preset)
{
    const DeviceRecord &rec = device(deviceNo);
    const int r = row == 0 ? 0 : 1;
    LutSettings setting;
    if (preset < 5)
        setting = g_state.presets[preset];
    else if (preset == kUserPreset)
        setting = rec.userLut;
    else if (preset == kIdentityPreset)
        setting = identityLutSettings();
    else
        return false;

    auto &b = g_state.buffers;
    std::uint16_t *base[3], *output[3], *freeCurve[3];
    for (int ch = 0; ch < 3; ++ch) {
        base[ch] = b.baseLut[r][ch][deviceNo];
        output[ch] = b.outputLut[r][ch][deviceNo];
        freeCurve[ch] = b.freeLut[ch][deviceNo];
        if (base[ch] == nullptr || output[ch] == nullptr || freeCurve[ch] == nullptr)
            return false;
    }
    const ChannelSettings &cs = rec.channelSettings[r];
    const double ct[3] = {static_cast<double>(cs.colourGainR) * 0.0625, static_cast<double>(cs.colourGainG) * 0.0625,
                          static_cast<double>(cs.colourGainB) * 0.0625};

    if (preset == kUserPreset && setting.freeMode == 1) {
        // Free curves as they stand: no clamping, no negative image.
        const std::uint16_t *source[3] = {freeCurve[0], rec.isColour ? freeCurve[1] : freeCurve[0],
                                          rec.isColour ? freeCurve[2] : freeCurve[0]};
        for (int ch = 0; ch < 3; ++ch)
            for (std::size_t i = 0; i < kLutEntries; ++i) {
                base[ch][i] = source[ch][i];
                output[ch][i] = low16(truncateToInt64(static_cast<double>(base[ch][i]) * ct[ch]));
            }
        return true;
    }

    for (int ch = 0; ch < 3; ++ch) {
        const int c = setting.contrast[ch];
        const double cf = c < 0 ? (c + 512.0) * 0.001953125 : 512.0 / (512.0 - c);
        const double brightness = static_cast<double>(setting.brightness[ch]);
        const bool posiNega = setting.posiNega[ch] != 0;
        for (std::uint32_t i = 0; i < kLutEntries; ++i) {
            std::uint16_t value = setting.freeMode != 0
                                      ? freeCurve[ch][i]
                                      : formulaEntry(i, brightness, cf, setting.gain[ch], setting.gamma[ch], posiNega);
            base[ch][i] = value;
            output[ch][i] = colourTemperature(value, ct[ch], posiNega);
        }
    }
    return true;
}

std::uint32_t uploadLut(std::uint32_t deviceNo, std::int32_t modeValue, std::int32_t *err)
{
    if (modeValue != 11) {
        *err = QUORIN_ERR_OUT_OF_RANGE;
        return 0;
    }
    const DeviceRecord &rec = device(deviceNo);
    if (g_state.buffers.baseLut[0][2][deviceNo] == nullptr) {
        *err = QUORIN_ERR_NOT_OPEN;
        return 0;
    }
    std::uint8_t block[3 * kLutEntries];
    for (int ch = 0; ch < 3; ++ch) {
        const std::uint16_t *base = g_state.buffers.baseLut[0][ch][deviceNo];
        for (std::size_t i = 0; i < kLutEntries; ++i)
            block[ch * kLutEntries + i] = static_cast<std::uint8_t>(base[i] >> 2);
    }
    const std::uint32_t type = deviceInterface(deviceNo).type;
    CameraCommand command{187, 0, 0};
    CommandReply reply{};
    if (type == 3) {
        if (rec.isColour)
            command.p1 = 1; // three blocks follow
        if (!link::sendCommand(deviceNo, &command, &reply, err))
            return 0;
        const int blocks = rec.isColour ? 3 : 1;
        std::uint32_t result = 1;
        for (int k = 0; k < blocks && result; ++k)
            result = link::sendBlock1024(deviceNo, block + k * kLutEntries, err);
        return result;
    }
    return link::sendCommandWithData(deviceNo, &command, &reply, block, rec.isColour ? 3 * 1024u : 1024u, err);
}

} // namespace quorin
