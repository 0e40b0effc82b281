// Trigger mode: reading it from the camera (capability 6) and setting it
// (set id 6). The camera's codes 3 and 4 are the host's 4 and 3.
#include "caps/caps_common.h"

namespace quorin {
namespace {

constexpr std::uint32_t kTopByte = 0xFF000000u;
constexpr std::uint32_t kLow24 = 0x00FFFFFFu;

// Reads the trigger count (command 41); a count of 0 is replaced by 1 on
// the camera (command 136).
std::uint32_t readCount(std::uint32_t deviceNo, std::uint32_t s, ChannelSettings &cs, std::int32_t *err)
{
    CommandReply reply{};
    if (!cameraCommand(deviceNo, 41, 0, s << 24, &reply, err))
        return 0;
    cs.triggerCount = reply.value1;
    if (cs.triggerCount == 0) {
        if (!cameraCommand(deviceNo, 136, 1, 0, &reply, err))
            return 0;
        cs.triggerCount = 1;
    }
    return 1;
}

std::uint32_t ratio(const ChannelSettings &cs)
{
    return cs.triggerCount == 0 ? 0 : cs.triggerBase / cs.triggerCount;
}

} // namespace

std::uint32_t readTrigger(std::uint32_t deviceNo, std::uint32_t s, std::uint32_t *value, std::uint32_t *value2,
                          std::int32_t *err)
{
    DeviceRecord &rec = device(deviceNo);
    ChannelSettings &cs = channelRow(rec, s);
    auto fail = [&] {
        *value = 0;
        *value2 = 0;
        return 0u;
    };
    CommandReply reply{};
    if (!cameraCommand(deviceNo, 25, 0, s << 24, &reply, err))
        return fail();
    const std::uint32_t t = reply.value1 & kTopByte;
    switch (t) {
    case 0x00000000:
        *value = 0;
        *value2 = cs.triggerFrames = cs.triggerBase;
        break;
    case 0x01000000:
        *value = t;
        *value2 = cs.triggerFrames = reply.value2 & kLow24;
        break;
    case 0x02000000:
        *value = t;
        *value2 = cs.triggerFrames = 1;
        break;
    case 0x03000000:
        *value = 0x04000000;
        *value2 = cs.triggerFrames = reply.value2 & kLow24;
        break;
    case 0x04000000:
    case 0x05000000:
        *value = t == 0x04000000 ? 0x03000000 : 0x05000000;
        if (!readCount(deviceNo, s, cs, err))
            return fail();
        *value2 = cs.triggerFrames = cs.triggerCount;
        cs.triggerRatio = ratio(cs);
        break;
    case 0x06000000:
    case 0x07000000:
        *value = t;
        *value2 = cs.triggerFrames = reply.value2 & kLow24;
        cs.triggerRatio = (reply.value1 >> 8) & 0xFF;
        if (!readCount(deviceNo, s, cs, err))
            return fail();
        break;
    case 0x08000000:
        *value = (reply.value1 & 0xFF) | 0x08000000;
        cs.triggerMode = *value;
        *err = QUORIN_SUCCESS;
        return 1;
    default:
        break; // *value stays as it was
    }
    cs.triggerMode = t;
    *err = QUORIN_SUCCESS;
    return 1;
}

std::uint32_t setTrigger(std::uint32_t deviceNo, std::uint32_t value, std::uint32_t value2, std::int32_t *err)
{
    DeviceRecord &rec = device(deviceNo);
    ChannelSettings &cs = rec.channelSettings[0];
    const std::uint32_t t = value & kTopByte;
    const bool segmented = t == 0x06000000 || t == 0x07000000;
    if ((segmented && cs.triggerRatio * cs.triggerCount > cs.triggerBase) || // 32-bit product, as the camera family
        (t == 0x04000000 && value2 > cs.triggerBase) || (t == 0x07000000 && value2 > cs.triggerCount)) {
        *err = QUORIN_ERR_OUT_OF_RANGE;
        return 0;
    }

    CommandReply reply{};
    if (t == 0x03000000 || t == 0x05000000 || segmented)
        if (!cameraCommand(deviceNo, 136, cs.triggerCount, 0, &reply, err))
            return 0;

    std::uint32_t p1 = 0, p2 = 0;
    bool setRatio = false;
    switch (value) {
    case 0:
        p1 = 0;
        break;
    case 0x01000000:
    case 0x02000000:
        p1 = value;
        break;
    case 0x03000000:
        p1 = 0x04000000;
        setRatio = true;
        break;
    case 0x04000000:
        p1 = 0x03000000;
        p2 = value2;
        break;
    case 0x05000000:
        if ((rec.firmwareVersion >= 117 && rec.syncSourceRaw != 2) || rec.mode53 != 0 || rec.extSyncFlag == 1) {
            *err = QUORIN_ERR_NOT_ALLOWED;
            return 0;
        }
        p1 = 0x05000000;
        setRatio = true;
        break;
    case 0x06000000:
        p1 = (cs.triggerRatio | 0x60000) << 8;
        break;
    case 0x07000000:
        p1 = (cs.triggerRatio | 0x70000) << 8;
        p2 = value2;
        break;
    case 0x08000001:
    case 0x08000002:
    case 0x08000003:
        p1 = 0x08000000 + (value & 0xF);
        break;
    default:
        *err = QUORIN_ERR_OUT_OF_RANGE;
        return 0;
    }

    if (!cameraCommand(deviceNo, 121, p1, p2, &reply, err))
        return 0;
    if (setRatio)
        cs.triggerRatio = ratio(cs);
    cs.triggerMode = p1;
    *err = QUORIN_SUCCESS;
    return 1;
}

} // namespace quorin
