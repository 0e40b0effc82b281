// DEV_SetDeviceCaps: validates the host's value, translates it into the
// camera's numbering, sends it, and on success updates the caches that
// DEV_GetDeviceCaps reads back. Writes go to row 0 of the channel settings.
#include "caps/caps_common.h"
#include "caps/operating_mode.h"
#include "caps/size_tables.h"
#include "data/lut.h"
#include "data/settings_files.h"
#include "device/export_guard.h"
#include "platform/platform.h"

#include <algorithm>
#include <cmath>

namespace quorin {
namespace {

constexpr std::uint32_t kPlaybackTrigger = 0x05000000;

struct Call {
    std::uint32_t deviceNo;
    std::uint32_t id;
    std::uint32_t sub;
    std::uint32_t value;
    std::uint32_t value2;
    std::int32_t *err;
    DeviceRecord &rec;
    ChannelSettings &row; // row 0
};

std::uint32_t refuse(Call &c, std::int32_t code)
{
    *c.err = code;
    return 0;
}

std::uint32_t done(Call &c)
{
    *c.err = QUORIN_SUCCESS;
    return 1;
}

std::uint32_t send(Call &c, std::uint16_t code, std::uint32_t p1, std::uint32_t p2, CommandReply *reply = nullptr)
{
    CommandReply scratch{};
    if (!cameraCommand(c.deviceNo, code, p1, p2, reply != nullptr ? reply : &scratch, c.err))
        return 0;
    *c.err = QUORIN_SUCCESS;
    return 1;
}

// Value 0 or 1, else 5.
bool isFlag(Call &c)
{
    if (c.value <= 1)
        return true;
    *c.err = QUORIN_ERR_OUT_OF_RANGE;
    return false;
}

// Resolution: sent with a non-standard flag when the size is not one of
// the 23 standard sizes, over the link directly; the camera answers 131.
std::uint32_t setResolution(Call &c)
{
    const bool standard =
        std::find(std::begin(kStandardSizes), std::end(kStandardSizes), c.value) != std::end(kStandardSizes);
    CameraCommand command{115, c.value, standard ? 0u : 1u};
    CommandReply reply{};
    if (!directCommand(c.deviceNo, command, 131, &reply, c.err))
        return 0;
    c.row.resolution = c.value;
    return done(c);
}

// Colour temperature: presets 5100 K and 3100 K, or the user gains.
std::uint32_t setColourTemperature(Call &c)
{
    if (!c.rec.isColour)
        return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
    const std::uint32_t *g = g_state.userGains;
    const bool gainsFit = g[0] < 64 && g[1] < 64 && g[2] < 64;
    switch (c.value) {
    case 1:
        return send(c, 116, 5100, 0);
    case 2:
        return send(c, 116, 3100, 0);
    case 3:
    case 4: {
        const std::uint32_t which = c.value - 2; // 1 or 2
        if (gainsFit)
            return send(c, 116, which, g[0] << 16 | g[1] << 8 | g[2]);
        return send(c, 116, 0x10000 | which, 0);
    }
    default:
        return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
    }
}

std::uint32_t setCommand137Flag(Call &c, bool bit0)
{
    if (!isFlag(c))
        return 0;
    const std::uint32_t res = c.row.resolution;
    if (c.value == 1 && (res >> 16) <= 128 && (res & 0xFFFF) <= 16)
        return refuse(c, QUORIN_ERR_NOT_ALLOWED);
    const std::uint32_t p1 = bit0 ? (c.rec.flag42bit1 * 2 | c.value) : (c.rec.flag42bit0 | c.value * 2);
    if (!send(c, 137, p1, 0))
        return 0;
    (bit0 ? c.rec.flag42bit0 : c.rec.flag42bit1) = c.value;
    return 1;
}

// Repeats the status read of the start-up sequence (command 54, the power
// mode); only its success is kept.
std::uint32_t rereadStatus(Call &c)
{
    CommandReply reply{};
    if (!cameraCommand(c.deviceNo, 54, 0, 0, &reply, c.err))
        return 0;
    c.rec.flag55 = 1;
    return done(c);
}

constexpr std::uint32_t kCommand145PauseMs = 1000;

std::uint32_t setCommand145Action(Call &c)
{
    switch (c.value) {
    case 1:
        if (!send(c, 145, 0, 0))
            return 0;
        c.rec.flag55 = 0;
        return 1;
    case 2:
    case 4:
        if (!send(c, 145, c.value == 2 ? 1 : 3, 0))
            return 0;
        platform::sleepMs(kCommand145PauseMs);
        return rereadStatus(c);
    case 3:
        return send(c, 145, 2, 0);
    case 5:
        platform::sleepMs(kCommand145PauseMs);
        return rereadStatus(c);
    default:
        return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
    }
}

std::uint32_t setCommand143Mode(Call &c)
{
    if (c.rec.isColour && c.rec.firmwareVersion < 116)
        return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
    if (c.row.shutterSpeed > 100000 || c.row.triggerMode == kPlaybackTrigger || c.row.exposureEnabled == 0)
        return refuse(c, QUORIN_ERR_NOT_ALLOWED);
    if (c.value < 1 || c.value > 4)
        return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
    if (!send(c, 143, c.value - 1, 0))
        return 0;
    c.rec.mode53 = c.value - 1;
    return 1;
}

std::uint32_t setLutMode(Call &c)
{
    std::uint32_t raw;
    if (c.value >= 1 && c.value <= 5)
        raw = c.value - 1;
    else if (c.value == 11)
        raw = kUserPreset;
    else
        return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
    if (!send(c, 129, raw, 0))
        return 0;
    c.row.lutMode = raw;
    generateLut(c.deviceNo, 0, raw);
    return 1;
}

std::uint32_t setSyncSource(Call &c)
{
    if (c.sub == 1 && c.value >= 1 && c.value <= 5) {
        constexpr std::uint32_t kRaw[5] = {2, 0, 1, 3, 4};
        const std::uint32_t raw = kRaw[c.value - 1];
        if (!send(c, 127, raw, 0))
            return 0;
        c.rec.extSyncFlag = 0;
        c.rec.syncSourceRaw = raw;
        return 1;
    }
    if (c.sub == 2 && c.value >= 6 && c.value <= 11)
        return send(c, 142, c.value - 6, 0);
    return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
}

std::uint32_t setCommand128Pair(Call &c)
{
    CommandReply current{};
    if (!cameraCommand(c.deviceNo, 32, 0, 0, &current, c.err))
        return 0;
    if (c.sub == 1 && (c.value == 1 || c.value == 2))
        return send(c, 128, current.value1, c.value == 1 ? 1 : 0);
    if (c.sub == 2) {
        std::uint32_t p1;
        if (c.value >= 3 && c.value <= 10)
            p1 = c.value - 1;
        else if (c.value == 13 || c.value == 29)
            p1 = 0;
        else if (c.value == 14 || c.value == 30)
            p1 = 1;
        else
            return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
        return send(c, 128, p1, current.value2);
    }
    return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
}

constexpr std::uint32_t kExposureType4PauseMs = 1000;

std::uint32_t setExposureEnable(Call &c)
{
    const std::uint32_t type = deviceInterface(c.deviceNo).type;
    if (type == 4 && c.row.exposureEnabled == 1 && c.value == 0)
        return 1; // nothing to do; the error stays as preset
    if (c.rec.firmwareVersion < 108)
        return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
    if (c.value == 1 && c.rec.mode53 != 0)
        return refuse(c, QUORIN_ERR_NOT_ALLOWED);
    if (c.value > 1)
        return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
    const std::uint32_t raw = c.value == 0 ? 1 : 0;
    if (!send(c, 98, raw, 0))
        return 0;
    if (type == 4 && raw == 1)
        platform::sleepMs(kExposureType4PauseMs);
    c.row.exposureEnabled = raw;
    return 1;
}

// The device's table of modes has entries 1..20; entry 0 holds zeros.
bool presetIndexFits(Call &c)
{
    if (c.value <= 20)
        return true;
    *c.err = QUORIN_ERR_OUT_OF_RANGE;
    return false;
}

std::uint32_t storePreset(Call &c)
{
    if (!presetIndexFits(c))
        return 0;
    DeviceRecord &rec = c.rec;
    const bool external = hasExternalSyncFirmware(rec.firmwareVersion) && rec.extSyncFlag;
    const std::uint32_t f = g_state.calcFrameRate;
    const std::uint32_t resolution = g_state.calcResolution;
    const double t = exactFrameBudget(rec, f, external); // kept as computed, truncated per word
    const double spare = t - frameClocks(resolution >> 16, resolution & 0xFFFF);
    const std::uint32_t x[6] = {f,
                                static_cast<std::uint32_t>(truncateToInt64(t)),
                                resolution,
                                g_state.presetValue52,
                                static_cast<std::uint32_t>(truncateToInt64(spare)),
                                rec.extSyncFlag};
    ModeTableEntry &e = rec.modeTable[c.value];
    std::uint32_t *fields[6] = {&e.modeA1, &e.modeA2, &e.modeB1, &e.modeB2, &e.modeC1, &e.modeC2};
    const int commands = hasExternalSyncFirmware(rec.firmwareVersion) ? 6 : 5;
    for (int k = 0; k < commands; ++k) {
        if (!send(c, 132, (c.value << 16) + static_cast<std::uint32_t>(k), x[k]))
            return 0;
        *fields[k] = x[k];
    }
    return 1;
}

std::uint32_t recallPreset(Call &c)
{
    if (!presetIndexFits(c) || !send(c, 130, c.value, 0))
        return 0;
    const ModeTableEntry &e = c.rec.modeTable[c.value];
    c.row.frameRate = e.modeA1;
    c.row.resolution = e.modeB1;
    c.row.value73High = e.modeB2 >> 16;
    c.row.value73Low = e.modeB2 & 0xFFFF;
    return 1;
}

std::uint32_t deletePreset(Call &c)
{
    if (!presetIndexFits(c) || !send(c, 131, c.value, 0))
        return 0;
    ModeTableEntry &e = c.rec.modeTable[c.value];
    e.modeA1 = e.modeA2 = e.modeB1 = e.modeB2 = e.modeC1 = 0;
    return 1;
}

constexpr std::uint32_t kType4ValuesPauseMs = 100;

std::uint32_t sendStartupValues(Call &c)
{
    const std::uint32_t *v = g_state.startupValues;
    for (std::uint32_t k = 0; k < 4; ++k)
        if (!send(c, 97, k, v[k]))
            return 0;
    if (deviceInterface(c.deviceNo).type == 4)
        platform::sleepMs(kType4ValuesPauseMs);
    if (!send(c, 99, v[4], 0))
        return 0;
    for (int k = 0; k < 5; ++k)
        c.rec.extra[k] = v[k];
    return 1;
}

std::uint32_t setExternalSync(Call &c)
{
    if (!hasExternalSyncFirmware(c.rec.firmwareVersion))
        return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
    if (c.value > 1)
        return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
    CommandReply clock{};
    if (!send(c, 127, c.value == 0 ? 2 : 5, 0) || !send(c, 80, 0, 0, &clock))
        return 0;
    c.rec.extSyncFlag = c.value;
    c.rec.syncSourceRaw = 2; // in both cases, as the camera family keeps it
    c.rec.extClockFrequency = clock.value1;
    return 1;
}

std::uint32_t keep(Call &c, std::uint32_t &field)
{
    field = c.value;
    return done(c);
}

std::uint32_t run(Call &c)
{
    DeviceRecord &rec = c.rec;
    switch (c.id) {
    case 0:
        return setOperatingMode(c.deviceNo, c.value, c.err);
    case 2:
        if (!send(c, 118, c.value, 0))
            return 0;
        c.row.frameRate = c.value;
        return 1;
    case 3:
        return setResolution(c);
    case 4:
        if (!send(c, 117, c.value, 0))
            return 0;
        c.row.shutterSpeed = c.value;
        return 1;
    case 6:
        return setTrigger(c.deviceNo, c.value, c.value2, c.err);
    case 7:
        if (c.value == 0 || c.value2 < 1 || c.value2 > 10)
            return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
        c.row.triggerCount = c.value;
        c.row.triggerRatio = c.value2;
        return done(c);
    case 8:
        return setColourTemperature(c);
    case 13:
        if (c.value < 1 || c.value > 4)
            return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
        if (!send(c, 133, c.value - 1, 0))
            return 0;
        c.row.mode71 = c.value - 1;
        return 1;
    case 14:
        return setCommand137Flag(c, true);
    case 15:
        return setCommand137Flag(c, false);
    case 16:
        return setCommand145Action(c);
    case 17:
        return setCommand143Mode(c);
    case 18:
        return setLutMode(c);
    case 19: {
        const std::uint32_t magnitude = c.value & 0x7FFFFFFF;
        const bool negative = (c.value & 0x80000000u) != 0;
        if (!send(c, 158, magnitude, negative ? 1 : 0))
            return 0;
        rec.signedOffset66 = static_cast<std::int32_t>(negative ? 0u - magnitude : magnitude);
        return 1;
    }
    case 24:
        return isFlag(c) ? send(c, 134, c.value, 0) : 0;
    case 25:
        return isFlag(c) ? send(c, 159, c.value, 0) : 0;
    case 28:
        return isFlag(c) ? send(c, 114, (c.value == 1 ? 0x10000u : 0u) | rec.operatingStatus, 0) : 0;
    case 29:
        if (c.value != 2 && c.value != 3)
            return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
        return send(c, 112, 0, c.value == 3 ? 1 : 0);
    case 31:
        if (c.value < 1 || c.value > rec.channelCount)
            return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
        if (!send(c, 125, 0, c.value << 24))
            return 0;
        rec.channelNumber = c.value;
        return 1;
    case 32:
        if (c.value <= 3)
            return keep(c, rec.pixelGainMode);
        if (c.value == 6)
            return savePixelGain(c.deviceNo, c.err);
        if (c.value == 7)
            return loadPixelGain(c.deviceNo, c.err);
        return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
    case 34:
        return setSyncSource(c);
    case 35:
        return setCommand128Pair(c);
    case 37:
        return setExposureEnable(c);
    case 40:
        if (c.value < 1 || c.value > 64)
            return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
        if (!send(c, 126, 0, c.value))
            return 0;
        rec.channelCount = c.value;
        return 1;
    case 41:
        if ((c.value & 0xFF) >= 3)
            return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
        rec.outputShift = c.value & 0xFF;
        rec.demosaicMethod = (c.value >> 16) & 0xFF;
        rec.rawBayerOutput = (c.value >> 8) & 0xFF;
        return done(c);
    case 50:
        return keep(c, g_state.calcFrameRate);
    case 51:
        return keep(c, g_state.calcResolution);
    case 52:
        return keep(c, g_state.presetValue52);
    case 53:
        return storePreset(c);
    case 54:
        return recallPreset(c);
    case 55:
        return deletePreset(c);
    case 60:
    case 61:
    case 62:
    case 63:
    case 64:
        return keep(c, g_state.startupValues[c.id - 60]);
    case 65:
        return sendStartupValues(c);
    case 73:
        return uploadLut(c.deviceNo, static_cast<std::int32_t>(c.value), c.err);
    case 77:
        if (!rec.isColour)
            return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
        rec.colourMatrixSelect = c.value != 0 ? 1 : 0;
        return done(c);
    case 85:
        return keep(c, rec.defectCorrect);
    case 90:
        return keep(c, rec.keepLiveCache);
    case 92:
        return keep(c, rec.softColourSwitch);
    case 86:
    case 87:
    case 88:
        if (!rec.isColour)
            return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
        return keep(c, g_state.userGains[c.id - 86]);
    case 95:
        return send(c, 157, 0, 0);
    case 97:
        if (deviceInterface(c.deviceNo).type != 2)
            return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
        if (c.sub > 2)
            return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
        return send(c, 124, 0xF0000000u | c.sub << 24, c.value);
    case 99:
        return setExternalSync(c);
    case 119:
        if (rec.firmwareVersion >= 114)
            return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
        return keep(c, rec.columnCorrect);
    case 120:
        if (!rec.isColour)
            return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
        if (rec.softColourSwitch == 0)
            return refuse(c, QUORIN_ERR_NOT_ALLOWED);
        return keep(c, rec.kept120);
    case 121:
    case 122:
    case 123:
        if (c.value < 64) // larger values are ignored, yet the call succeeds
            rec.softColorTemp[c.id - 121] = c.value;
        return done(c);
    case 128:
        return keep(c, rec.kernelVariant);
    default:
        return 0; // the error stays 21
    }
}

// Ids handled whatever the camera's mode, playback included.
bool allowedInPlayback(std::uint32_t id)
{
    constexpr std::uint32_t kIds[] = {0, 31, 41, 18, 13, 73, 77, 120, 121, 122, 123};
    return std::find(std::begin(kIds), std::end(kIds), id) != std::end(kIds);
}

} // namespace
} // namespace quorin

using namespace quorin;

extern "C" int32_t DEV_SetDeviceCaps(uint32_t deviceNo, uint64_t, uint32_t capabilityId, uint32_t subIndex,
                                     uint32_t value, uint32_t value2, int32_t *err)
{
    std::int32_t scratch = 0;
    if (err == nullptr)
        err = &scratch;
    if (!requireInitialised(err) || !requireDeviceNumber(deviceNo, err))
        return 0;
    DeviceRecord &rec = device(deviceNo);
    if (!allowedInPlayback(capabilityId)) {
        if (rec.operatingStatus == kPlaybackStatus) {
            *err = QUORIN_ERR_PLAYBACK;
            return 0;
        }
        *err = QUORIN_ERR_NOT_SUPPORTED;
    }
    Call call{deviceNo, capabilityId, subIndex, value, value2, err, rec, rec.channelSettings[0]};
    return static_cast<int32_t>(run(call));
}
