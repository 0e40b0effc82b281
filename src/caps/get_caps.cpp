// DEV_GetDeviceCaps and DEV_GetDeviceName: one capability per call, read
// from the camera (and cached in the record), from the record itself, from
// the frame-time model or from the camera family's constants.
#include "caps/caps_common.h"
#include "caps/operating_mode.h"
#include "data/lut.h"
#include "device/export_guard.h"
#include "device/startup.h"

#include <cstring>

namespace quorin {
namespace {

constexpr std::uint32_t kMaxCapabilityId = 162;
// Entries of id 39's per-channel array the library writes at most.
constexpr std::uint32_t kMaxChannels = 64;
constexpr std::size_t kChannelBlockBytes = 512;

// A 16-bit sign-magnitude coefficient: negative values as their magnitude
// with bit 15 set.
std::uint32_t signMagnitude16(std::int32_t v)
{
    if (v >= 0)
        return static_cast<std::uint32_t>(v) & 0xFFFF;
    return ((0u - static_cast<std::uint32_t>(v)) | 0x8000u) & 0xFFFF;
}

// Looks raw up in a small table of (raw, host) pairs; unknown raws leave
// *value as it was.
struct Translation {
    std::uint32_t raw, host;
};
template <std::size_t N> void translate(const Translation (&table)[N], std::uint32_t raw, std::uint32_t *value)
{
    for (const Translation &t : table)
        if (t.raw == raw) {
            *value = t.host;
            return;
        }
}

constexpr Translation kModeOneToFour[] = {{0, 1}, {1, 2}, {2, 3}, {3, 4}};
constexpr Translation kColourTemperature[] = {{1, 3}, {2, 4}, {3100, 2}, {5100, 1}};
constexpr Translation kFlag[] = {{0, 0}, {1, 1}};
constexpr Translation kExposureEnable[] = {{0, 1}, {1, 0}};
constexpr Translation kSyncSource[] = {{0, 2}, {1, 3}, {2, 1}, {3, 4}, {4, 5}};
constexpr Translation kCommand52[] = {{0, 6}, {1, 7}, {2, 8}, {3, 9}, {4, 10}, {5, 11}};
constexpr Translation kCommand32Second[] = {{0, 2}, {1, 1}};
constexpr Translation kCommand32First[] = {{0, 13}, {1, 14}, {2, 3}, {3, 4}, {4, 5}, {5, 6},
                                           {6, 7},  {7, 8},  {8, 9}, {9, 10}};
constexpr Translation kLutMode[] = {{0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 11}};

struct Call {
    std::uint32_t deviceNo;
    std::uint32_t id;
    std::uint32_t sub;
    std::uint32_t *value;
    std::uint32_t *value2;
    std::int32_t *err;
    std::uint32_t s;
    DeviceRecord &rec;
    ChannelSettings &row;
};

std::uint32_t store(Call &c, std::uint32_t v)
{
    *c.value = v;
    *c.err = QUORIN_SUCCESS;
    return 1;
}

std::uint32_t storePair(Call &c, std::uint32_t v, std::uint32_t v2)
{
    *c.value2 = v2;
    return store(c, v);
}

std::uint32_t refuse(Call &c, std::int32_t code)
{
    *c.err = code;
    return 0;
}

// Sends command code with (p1, channel selector) and leaves the reply.
std::uint32_t ask(Call &c, std::uint16_t code, std::uint32_t p1, std::uint32_t p2, CommandReply &r)
{
    return cameraCommand(c.deviceNo, code, p1, p2, &r, c.err);
}

std::uint32_t askChannel(Call &c, std::uint16_t code, CommandReply &r)
{
    return ask(c, code, 0, c.s << 24, r);
}

std::uint32_t done(Call &c)
{
    *c.err = QUORIN_SUCCESS;
    return 1;
}

std::uint32_t exposure(Call &c, bool nanoseconds)
{
    std::int64_t v = 0;
    if (!exposureTime(c.deviceNo, c.s, &v, c.err))
        return 0;
    if (nanoseconds) {
        *c.value = static_cast<std::uint32_t>((v + 5) / 10);
    } else {
        const std::int64_t scaled = (v + 5000) / 10000;
        *c.value = static_cast<std::uint32_t>(scaled < 1 ? v : scaled);
    }
    return 1;
}

// Ids 76 and 91: bit depth and level range by sub-index.
std::uint32_t bySubIndex(Call &c, std::uint32_t sub3Value, std::uint32_t sub3Value2, bool sub3HasValue2)
{
    switch (c.sub) {
    case 0:
        return storePair(c, 64, 8);
    case 1:
    case 2:
        return storePair(c, 128, 16);
    case 3:
        if (sub3HasValue2)
            *c.value2 = sub3Value2;
        return store(c, sub3Value);
    default:
        return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
    }
}

std::uint32_t modeTableValue(Call &c)
{
    if (c.sub > 20) // entry 0 exists and reads as zeros; nothing lies beyond 20
        return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
    const ModeTableEntry &e = c.rec.modeTable[c.sub];
    switch (c.id) {
    case 50:
        return store(c, e.modeA1);
    case 51:
        return store(c, e.modeB1);
    case 52:
        return store(c, e.modeB2);
    default:
        return store(c, e.modeC2);
    }
}

std::uint32_t run(Call &c)
{
    DeviceRecord &rec = c.rec;
    ChannelSettings &row = c.row;
    CommandReply r{};
    const bool colour = rec.isColour != 0;
    switch (c.id) {
    case 0:
        return readCameraMode(c.deviceNo, c.value, c.err);
    case 1:
    case 80:
    case 96:
        return store(c, 1);
    case 2:
        if (!askChannel(c, 22, r))
            return 0;
        row.frameRate = r.value1 == 30 ? 3000 : r.value1;
        return store(c, row.frameRate);
    case 3:
        if (!askChannel(c, 19, r))
            return 0;
        row.resolution = r.value1;
        return store(c, r.value1);
    case 4:
        if (row.exposureEnabled == 0) {
            *c.value = 0;
            return 1; // the error stays 21, as the camera family reports it
        }
        if (!askChannel(c, 21, r))
            return 0;
        if (c.s == 0)
            rec.shutterColumn = r.value2;
        return store(c, r.value1);
    case 5:
        return exposure(c, false);
    case 127:
        return exposure(c, true);
    case 6:
        return readTrigger(c.deviceNo, c.s, c.value, c.value2, c.err);
    case 7:
        return storePair(c, row.triggerCount, row.triggerRatio);
    case 8:
        if (!colour)
            return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
        if (!askChannel(c, 20, r)) {
            row.colourGainR = row.colourGainG = row.colourGainB = 16;
            return 0;
        }
        translate(kColourTemperature, r.value1, c.value);
        row.colourGainR = (r.value2 >> 16) & 0xFF;
        row.colourGainG = (r.value2 >> 8) & 0xFF;
        row.colourGainB = r.value2 & 0xFF;
        generateLut(c.deviceNo, c.s, row.lutMode);
        return done(c);
    case 11:
        return store(c, rec.isColour);
    case 12:
        if (deviceInterface(c.deviceNo).type == 2) {
            rec.command43Value = rec.cameraNumber;
        } else {
            if (!ask(c, 43, 0, 0, r)) {
                *c.value = 0;
                return 0;
            }
            rec.command43Value = r.value1;
        }
        return store(c, rec.command43Value);
    case 13:
        if (!askChannel(c, 71, r))
            return 0;
        translate(kModeOneToFour, r.value1, c.value);
        row.mode71 = r.value1;
        return done(c);
    case 14:
    case 15:
        if (!askChannel(c, 42, r))
            return 0;
        rec.flag42bit0 = r.value1 & 1;
        rec.flag42bit1 = (r.value1 >> 1) & 1;
        return store(c, c.id == 14 ? rec.flag42bit0 : rec.flag42bit1);
    case 16:
        if (!askChannel(c, 55, r))
            return 0;
        translate(kModeOneToFour, r.value1, c.value);
        if (r.value1 <= 1)
            rec.flag55 = r.value1;
        return done(c);
    case 17:
        if (colour && rec.firmwareVersion < 116) {
            rec.mode53 = 0;
            return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
        }
        if (!askChannel(c, 53, r))
            return 0;
        translate(kModeOneToFour, r.value1, c.value);
        rec.mode53 = r.value1;
        return done(c);
    case 18: {
        if (!askChannel(c, 33, r))
            return 0;
        std::uint32_t raw = r.value1;
        if (raw > 5) {
            *c.value = 1;
            raw = 0;
        } else {
            translate(kLutMode, raw, c.value);
        }
        row.lutMode = raw;
        generateLut(c.deviceNo, c.s, raw);
        return done(c);
    }
    case 19:
        if (!ask(c, 66, 0, 0, r))
            return 0;
        rec.signedOffset66 = static_cast<std::int32_t>(r.value1);
        if (r.value2 == 1) {
            rec.signedOffset66 = static_cast<std::int32_t>(0u - r.value1);
            return store(c, r.value1 | 0x80000000u);
        }
        return store(c, r.value1);
    case 23:
        return store(c, rec.firmwareVersion);
    case 24:
    case 25:
        if (!ask(c, c.id == 24 ? 68 : 67, 0, 0, r))
            return 0;
        translate(kFlag, r.value1, c.value);
        return done(c);
    case 28:
        if (!ask(c, 18, 0, 0, r)) {
            *c.value = 0;
            return 0;
        }
        if ((r.value1 & 0x10000) == 0)
            *c.value = 0;
        rec.statusBits = r.value1 & 0x00FF0000;
        return done(c);
    case 29:
        return store(c, rec.sensorKind);
    case 30:
        return storePair(c, 64, 0);
    case 31:
        if (!ask(c, 29, 0, 0, r)) {
            *c.value = rec.channelNumber = 1;
            return 0;
        }
        rec.channelNumber = r.value2 >> 24;
        return store(c, rec.channelNumber);
    case 32:
        return store(c, rec.pixelGainMode);
    case 33:
    case 42:
        if (!askChannel(c, 44, r))
            return 0;
        row.triggerBase = r.value1;
        return storePair(c, r.value1, 0);
    case 34:
        if (c.sub == 1) {
            if (!ask(c, 31, 0, 0, r))
                return 0;
            std::uint32_t raw = r.value1;
            if (raw > 4) {
                *c.value = 1;
                raw = 2;
            } else {
                translate(kSyncSource, raw, c.value);
            }
            rec.syncSourceRaw = raw;
            return done(c);
        }
        if (c.sub == 2) {
            if (!ask(c, 52, 0, 0, r))
                return 0;
            translate(kCommand52, r.value1, c.value);
            return done(c);
        }
        *c.value = 0;
        return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
    case 35:
        if (!ask(c, 32, 0, 0, r))
            return 0;
        if (c.sub == 1) {
            translate(kCommand32Second, r.value2, c.value);
            return done(c);
        }
        if (c.sub == 2) {
            translate(kCommand32First, r.value1, c.value);
            return done(c);
        }
        *c.value = 0;
        return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
    case 36:
        return storePair(c, 2, 2);
    case 37:
        if (rec.firmwareVersion < 108) {
            *c.value = 0;
            return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
        }
        if (!askChannel(c, 76, r))
            return 0;
        translate(kExposureEnable, r.value1, c.value);
        row.exposureEnabled = r.value1;
        return done(c);
    case 39: {
        if (!ask(c, 44, 0, 0, r))
            return 0;
        rec.channelSettings[0].triggerBase = r.value1;
        const std::uint32_t n = rec.channelCount < kMaxChannels ? rec.channelCount : kMaxChannels;
        for (std::uint32_t i = 0; i < n; ++i)
            c.value[i] = r.value1;
        std::memset(c.value2, 0, kChannelBlockBytes);
        return done(c);
    }
    case 40:
        if (!ask(c, 30, 0, 0, r)) {
            *c.value = 1;
            return 0;
        }
        rec.channelCount = r.value2;
        return store(c, r.value2);
    case 41:
        return store(c, rec.demosaicMethod << 16 | rec.rawBayerOutput << 8 | rec.outputShift);
    case 43:
        if (!askChannel(c, 45, r)) {
            *c.value = 0;
            return 0;
        }
        *c.value = r.value1;
        if (!askChannel(c, 46, r)) {
            *c.value2 = 0;
            return 0;
        }
        *c.value2 = r.value1 == 0xFFFFFFFFu ? r.value1 : r.value1 - 1;
        return done(c);
    case 44:
    case 45:
    case 46: {
        if (!colour)
            return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
        const int set = rec.colourMatrixSelect ? 1 : 0;
        const int base = static_cast<int>(c.id - 44) * 3;
        return storePair(c,
                         signMagnitude16(rec.colourMatrix[base][set]) << 16 |
                             signMagnitude16(rec.colourMatrix[base + 1][set]),
                         signMagnitude16(rec.colourMatrix[base + 2][set]));
    }
    case 47:
        return store(c, 0x04000400);
    case 48:
        if (!askChannel(c, 73, r))
            return 0;
        row.value73High = r.value1 >> 16;
        row.value73Low = r.value1 & 0xFFFF;
        return store(c, r.value1);
    case 49:
        if (!ask(c, 69, 0, 0, r)) {
            *c.value = 0;
            return 0;
        }
        rec.mode69 = r.value1;
        rec.value69 = r.value2;
        return store(c, r.value1 <= 2 ? r.value1 : 0);
    case 50:
    case 51:
    case 52:
    case 98:
        return modeTableValue(c);
    case 54:
        if (!ask(c, 69, 0, 0, r))
            return 0;
        rec.mode69 = r.value1;
        rec.value69 = r.value2;
        return store(c, r.value2);
    case 56:
        return store(c, largestFrameRate(rec, g_state.calcResolution));
    case 57:
        return store(c, largestWidth(rec, g_state.calcFrameRate, g_state.calcResolution & 0xFFFF));
    case 58:
        return store(c, largestHeight(rec, g_state.calcFrameRate, g_state.calcResolution >> 16));
    case 59: {
        const std::uint32_t picture = largestPicture(rec, g_state.calcFrameRate);
        return storePair(c, picture >> 16, picture & 0xFFFF);
    }
    case 60:
    case 61:
    case 62:
    case 63:
    case 64:
        return store(c, rec.extra[c.id - 60]);
    case 72:
        return store(c, 10);
    case 76:
        return bySubIndex(c, 17, 0, false);
    case 77:
        if (!colour)
            return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
        return store(c, rec.colourMatrixSelect ? 2 : 0);
    case 81:
        return store(c, 3000);
    case 84: {
        if (!askChannel(c, 47, r))
            return 0;
        const std::uint32_t v = r.value1 + 1;
        const std::uint32_t limit = rec.isColour == 1 ? 1 : rec.isColour == 2 ? 3 : rec.isColour == 3 ? 7 : 0;
        return store(c, v <= limit ? v : 0);
    }
    case 85:
        return store(c, rec.defectCorrect);
    case 90:
        return store(c, rec.keepLiveCache);
    case 92:
        return store(c, rec.softColourSwitch);
    case 86:
    case 87:
    case 88: {
        if (!colour)
            return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
        const std::uint32_t gains[3] = {row.colourGainR, row.colourGainG, row.colourGainB};
        return store(c, gains[c.id - 86]);
    }
    case 89:
        return storePair(c, 16, 63);
    case 91:
        return bySubIndex(c, 255, 255, true);
    case 97:
        if (deviceInterface(c.deviceNo).type != 2)
            return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
        if (c.sub > 2)
            return refuse(c, QUORIN_ERR_OUT_OF_RANGE);
        if (!ask(c, 28, 0xF0000000u | c.sub << 24, 0, r))
            return 0;
        return store(c, r.value2);
    case 99:
        if (!hasExternalSyncFirmware(rec.firmwareVersion)) {
            *c.value = 0;
            return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
        }
        if (!ask(c, 31, 0, 0, r))
            return 0;
        rec.extSyncFlag = r.value1 == 5 ? 1 : 0;
        *c.value = rec.extSyncFlag;
        if (!ask(c, 80, 0, 0, r))
            return 0;
        rec.extClockFrequency = r.value1;
        return done(c);
    case 100:
        if (!hasExternalSyncFirmware(rec.firmwareVersion)) {
            *c.value = 0;
            return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
        }
        if (!askChannel(c, 78, r))
            return 0;
        row.value78 = r.value1;
        return store(c, r.value1);
    case 119:
        *c.value = rec.columnCorrect;
        return rec.firmwareVersion < 114 ? done(c) : refuse(c, QUORIN_ERR_NOT_SUPPORTED);
    case 120:
        if (!colour)
            return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
        *c.value = rec.kept120;
        return rec.softColourSwitch != 0 ? done(c) : refuse(c, QUORIN_ERR_NOT_ALLOWED);
    case 121:
    case 122:
    case 123:
        if (!colour)
            return refuse(c, QUORIN_ERR_NOT_SUPPORTED);
        return store(c, rec.softColorTemp[c.id - 121]);
    case 162:
        if (!readStartupValues(c.deviceNo, c.err))
            return 0;
        return done(c);
    default:
        return 0; // the error stays 21
    }
}

} // namespace
} // namespace quorin

using namespace quorin;

extern "C" int32_t DEV_GetDeviceCaps(uint32_t deviceNo, uint64_t, uint32_t capabilityId, uint32_t subIndex,
                                     uint32_t *value, uint32_t *value2, int32_t *err)
{
    std::int32_t scratchErr = 0;
    if (err == nullptr)
        err = &scratchErr;
    if (!requireInitialised(err) || !requireDeviceNumber(deviceNo, err))
        return 0;
    // Room for the largest result any id writes, for hosts that pass null.
    std::uint32_t scratchValue[kMaxChannels] = {};
    std::uint8_t scratchBlock[kChannelBlockBytes];
    if (value == nullptr)
        value = scratchValue;
    if (value2 == nullptr)
        value2 = reinterpret_cast<std::uint32_t *>(scratchBlock);
    DeviceRecord &rec = device(deviceNo);
    const std::uint32_t s = channelSelector(rec);
    *err = QUORIN_ERR_NOT_SUPPORTED;
    if (capabilityId > kMaxCapabilityId)
        return 0;
    Call call{deviceNo, capabilityId, subIndex, value, value2, err, s, rec, channelRow(rec, s)};
    return static_cast<int32_t>(run(call));
}

extern "C" int32_t DEV_GetDeviceName(uint32_t deviceNo, uint32_t index, char *name, int32_t *err)
{
    std::int32_t scratch = 0;
    if (err == nullptr)
        err = &scratch;
    if (!requireInitialised(err))
        return 0;
    if (index != 0) {
        *err = QUORIN_ERR_NOT_SUPPORTED;
        return 0;
    }
    if (!requireDeviceNumber(deviceNo, err))
        return 0;
    if (name == nullptr) {
        *err = QUORIN_ERR_OUT_OF_RANGE;
        return 0;
    }
    const char *model = device(deviceNo).isColour ? "ORBILUX-VELTA model K5C" : "ORBILUX-VELTA model K5";
    std::memcpy(name, model, std::strlen(model) + 1); // well within the 256 bytes
    *err = QUORIN_SUCCESS;
    return 1;
}
