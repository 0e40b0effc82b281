// Pieces shared by the capability getters, setters and lists.
#pragma once

#include "device/device_table.h"
#include "link/transaction.h"

#include <cstdint>

namespace quorin {

// The channel a call concerns: the record's channel number while the camera
// plays back, else 0.
inline std::uint32_t channelSelector(const DeviceRecord &rec)
{
    return rec.operatingStatus == kPlaybackStatus ? rec.channelNumber : 0;
}

// Row 0 serves channel 0, row 1 every other channel.
inline ChannelSettings &channelRow(DeviceRecord &rec, std::uint32_t s)
{
    return rec.channelSettings[s == 0 ? 0 : 1];
}

// Firmware that knows external sync and the newer tables: 117..199, 300 on.
inline bool hasExternalSyncFirmware(std::uint32_t firmwareVersion)
{
    return (firmwareVersion >= 117 && firmwareVersion <= 199) || firmwareVersion >= 300;
}

// One command through the common transaction; 103 for a slot that is not
// open (the capability exports do not otherwise check the device).
inline std::uint32_t cameraCommand(std::uint32_t deviceNo, std::uint16_t code, std::uint32_t p1, std::uint32_t p2,
                                   CommandReply *reply, std::int32_t *err)
{
    if (!deviceUsable(deviceNo)) {
        *err = QUORIN_ERR_NOT_OPEN;
        return 0;
    }
    CameraCommand c{code, p1, p2};
    return link::sendCommand(deviceNo, &c, reply, err);
}

constexpr double kCameraClockHz = 63000000.0;

// Exposure of capability 5/127 and the exposure lists in units of 1e-10 s.
// Returns 1 (with err left as it was when exposure is disabled) or 0.
std::uint32_t exposureTime(std::uint32_t deviceNo, std::uint32_t s, std::int64_t *v, std::int32_t *err);

// Frame-time model.
std::uint32_t frameClocks(std::uint32_t width, std::uint32_t height);
std::uint32_t largestFrameRate(const DeviceRecord &rec, std::uint32_t resolution);
std::uint32_t largestWidth(const DeviceRecord &rec, std::uint32_t frameRate, std::uint32_t height);
std::uint32_t largestHeight(const DeviceRecord &rec, std::uint32_t frameRate, std::uint32_t width);
// Largest square-growing picture for a frame rate, packed width << 16 | height.
std::uint32_t largestPicture(const DeviceRecord &rec, std::uint32_t frameRate);
// The frame budget in clocks for a frame rate (internal clock or external
// sync), truncated as the frame-time model uses it, and as computed.
double frameBudget(const DeviceRecord &rec, std::uint32_t frameRate, bool externalSync);
double exactFrameBudget(const DeviceRecord &rec, std::uint32_t frameRate, bool externalSync);

// Trigger mode read (capability 6) and set (set id 6).
std::uint32_t readTrigger(std::uint32_t deviceNo, std::uint32_t s, std::uint32_t *value, std::uint32_t *value2,
                          std::int32_t *err);
std::uint32_t setTrigger(std::uint32_t deviceNo, std::uint32_t value, std::uint32_t value2, std::int32_t *err);

// A command framed and driven over the InterfaceTable directly, with its own
// accepted reply codes (the resolution command and list 23).
std::uint32_t directCommand(std::uint32_t deviceNo, const CameraCommand &command, std::uint16_t acceptedCode,
                            CommandReply *reply, std::int32_t *err);

} // namespace quorin
