// Commands that frame themselves and drive the InterfaceTable directly,
// with a reply rule of their own: the resolution command (115, answered
// 131) and the camera entries of list 23 (36, answered 84). They take no
// type-3 shortcuts and, on type 4, one Transact.
#include "caps/caps_common.h"
#include "link/frame.h"
#include "platform/platform.h"

namespace quorin {

std::uint32_t directCommand(std::uint32_t deviceNo, const CameraCommand &command, std::uint16_t acceptedCode,
                            CommandReply *reply, std::int32_t *err)
{
    if (!deviceUsable(deviceNo)) {
        *err = QUORIN_ERR_NOT_OPEN;
        return 0;
    }
    const InterfaceTable &entry = deviceInterface(deviceNo);
    const std::uint32_t handle = device(deviceNo).linkHandle;
    const std::uint32_t type = entry.type;
    const std::uint32_t length = link::frameLength(type);
    std::uint8_t frame[link::kMaxFrameLength];
    std::uint8_t answer[link::kMaxFrameLength] = {};
    link::encodeCommand(type, command, frame);

    if (type == 4) {
        if (!link::hasFunction(reinterpret_cast<const void *>(entry.Transact), err) ||
            !entry.Transact(handle, frame, answer, err))
            return 0;
    } else {
        if (!link::hasFunction(reinterpret_cast<const void *>(entry.Send), err) ||
            !link::hasFunction(reinterpret_cast<const void *>(entry.Receive), err))
            return 0;
        std::uint32_t ok = link::withRetries(entry, handle, err, [&]() -> bool {
            if (!entry.Send(handle, frame, length, err))
                return false;
            if (type == 3)
                platform::sleepMs(4);
            return entry.Receive(handle, answer, length, err) != 0;
        });
        if (!ok)
            return 0;
    }
    const CommandReply decoded = link::decodeReply(type, answer);
    if (decoded.code != link::kUniversalReplyCode && decoded.code != acceptedCode) {
        *err = QUORIN_ERR_REPLY_MISMATCH;
        return 0;
    }
    *reply = decoded;
    return 1;
}

} // namespace quorin
