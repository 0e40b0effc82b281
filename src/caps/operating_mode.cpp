#include "caps/operating_mode.h"

#include "caps/caps_common.h"

#include "device/device_table.h"
#include "link/block_transfer.h"
#include "link/transaction.h"
#include "platform/platform.h"

#include <chrono>

namespace quorin {
namespace {

constexpr std::uint32_t kTopByte = 0xFF000000u;
constexpr std::uint32_t kMode1 = 0x01000000u;
constexpr std::uint32_t kMode2 = 0x02000000u;
constexpr std::uint32_t kMode3 = 0x03000000u;

// After leaving playback on link type 4 the camera needs this long.
constexpr std::uint32_t kType4LeavePlaybackPauseMs = 2000;

// Bytes of one packed frame of row 0's area, or 0 when the area does not fit
// the frame buffer.
std::uint32_t liveFrameBytes(const DeviceRecord &rec)
{
    const std::uint32_t res = rec.channelSettings[0].resolution;
    const std::uint64_t w = res >> 16, h = res & 0xFFFF;
    const std::uint64_t bytes = w * h * 10 / 8;
    return bytes <= kRawFrameBytes ? static_cast<std::uint32_t>(bytes) : 0;
}

std::uint32_t leavePlayback(std::uint32_t deviceNo, std::int32_t *err)
{
    const DeviceRecord &rec = device(deviceNo);
    const std::uint32_t type = deviceInterface(deviceNo).type;
    CommandReply reply{};
    if (!cameraCommand(deviceNo, 183, 0, 1, &reply, err))
        return 0;
    if (type == 4)
        platform::sleepMs(kType4LeavePlaybackPauseMs);
    else if (type != 3 && !link::receiveBlock(deviceNo, 0, nullptr, err))
        return 0;
    return cameraCommand(deviceNo, 125, 0, rec.channelNumber << 24, &reply, err);
}

// Whether the first recorded frame, which the camera sends when playback
// starts, fits the device's frame buffer (link type 3 reads none).
bool playbackFrameFits(std::uint32_t deviceNo)
{
    const DeviceRecord &rec = device(deviceNo);
    if (deviceInterface(deviceNo).type == 3)
        return true;
    return g_state.buffers.rawFrameBuffer[deviceNo] != nullptr &&
           (liveFrameBytes(rec) != 0 || rec.channelSettings[0].resolution == 0);
}

std::uint32_t enterPlayback(std::uint32_t deviceNo, std::int32_t *err)
{
    const DeviceRecord &rec = device(deviceNo);
    const std::uint32_t type = deviceInterface(deviceNo).type;
    std::uint8_t *frame = g_state.buffers.rawFrameBuffer[deviceNo];
    const std::uint32_t bytes = liveFrameBytes(rec);
    CameraCommand first{178, 1, 0x01000000u};
    CommandReply reply{};
    if (type == 4)
        return link::transactData(deviceNo, &first, &reply, static_cast<std::int32_t>(bytes), frame, err);
    if (!link::sendCommand(deviceNo, &first, &reply, err))
        return 0;
    if (type != 3)
        return link::receiveBlock(deviceNo, bytes, frame, err);
    return 1;
}

// Polls the camera until it stops reporting 8, within the settle timeout.
// A failed read reports 0 and so ends the wait like any other answer.
std::uint32_t awaitSettled(std::uint32_t deviceNo, std::int32_t *err)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kModeSettleTimeoutMs);
    std::uint32_t mode = 0; // an unknown answer leaves the last one standing
    for (;;) {
        readCameraMode(deviceNo, &mode, err);
        if (mode != kHostMode8)
            return 1;
        if (std::chrono::steady_clock::now() >= deadline) {
            *err = QUORIN_ERR_NOT_ALLOWED;
            return 0;
        }
    }
}

} // namespace

std::uint32_t readCameraMode(std::uint32_t deviceNo, std::uint32_t *value, std::int32_t *err)
{
    DeviceRecord &rec = device(deviceNo);
    CommandReply reply{};
    if (!cameraCommand(deviceNo, 18, 0, 0, &reply, err)) {
        *value = 0;
        return 0;
    }
    const std::uint32_t r = reply.value1;
    switch (r >> 24) {
    case 0x00: {
        const std::uint32_t sub = (r >> 8) & 0xFF;
        const std::uint32_t prev = rec.operatingStatus;
        if (sub == 1)
            *value = 16;
        else if (sub == 2)
            *value = 32;
        else if (r & 1)
            *value = (prev == 0 || prev == kMode1 || prev == kMode2) ? 8 : 0;
        else
            *value = 0;
        break;
    }
    case 0x01:
        *value = 2;
        break;
    case 0x02:
        *value = 4;
        break;
    case 0x03:
        *value = 8;
        break;
    case 0x04:
        *value = 1;
        break;
    default:
        break; // *value stays as it was
    }
    rec.operatingStatus = r & kTopByte;
    *err = QUORIN_SUCCESS;
    return 1;
}

std::uint32_t setOperatingMode(std::uint32_t deviceNo, std::uint32_t hostCode, std::int32_t *err)
{
    struct Target {
        std::uint32_t host, mode;
    };
    constexpr Target kTargets[] = {
        {kHostLive, 0}, {kHostPlayback, kPlaybackStatus}, {kHostMode2, kMode1}, {kHostMode4, kMode2}, {kHostMode8, kMode3}};
    DeviceRecord &rec = device(deviceNo);
    CommandReply reply{};
    if (!cameraCommand(deviceNo, 18, 0, 0, &reply, err))
        return 0;
    const std::uint32_t t = reply.value1 & kTopByte;

    std::uint32_t newMode = 0;
    bool known = false;
    for (const Target &target : kTargets)
        if (target.host == hostCode) {
            newMode = target.mode;
            known = true;
        }
    if (!known) {
        *err = QUORIN_ERR_OUT_OF_RANGE;
        return 0;
    }

    std::uint16_t code = 0;
    std::uint32_t base = 0, p2 = 0;
    bool watch = false;
    switch (hostCode) {
    case kHostLive:
        if (t == kMode1) {
            code = 160;
        } else if (t == kMode2 || t == kMode3) {
            code = 162;
            watch = true;
        } else {
            code = 114;
        }
        break;
    case kHostPlayback:
        code = 114;
        base = kPlaybackStatus;
        p2 = 5;
        break;
    case kHostMode2:
        code = t == kMode1 ? 0 : 160;
        break;
    case kHostMode4:
        if (t == kMode2) {
            code = 0;
        } else if (t == kMode1) {
            code = 161;
        } else {
            *err = QUORIN_ERR_OUT_OF_RANGE;
            return 0;
        }
        break;
    default: // kHostMode8
        code = 161;
        break;
    }

    const bool entering = newMode == kPlaybackStatus && t != kPlaybackStatus;
    if (code != 0 && entering && !playbackFrameFits(deviceNo)) {
        *err = QUORIN_ERR_NOT_ALLOWED; // refused before the camera is told anything
        return 0;
    }
    if (code != 0) {
        if (!cameraCommand(deviceNo, code, base | rec.statusBits, p2, &reply, err))
            return 0;
        if (t == kPlaybackStatus && newMode < kPlaybackStatus) {
            if (!leavePlayback(deviceNo, err))
                return 0;
        } else if (entering) {
            if (!enterPlayback(deviceNo, err))
                return 0;
        }
        if (watch && !awaitSettled(deviceNo, err))
            return 0;
    }
    rec.operatingStatus = newMode;
    *err = QUORIN_SUCCESS;
    return 1;
}

} // namespace quorin
