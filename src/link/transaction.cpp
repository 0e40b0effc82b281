#include "link/transaction.h"

#include "device/device_table.h"
#include "link/frame.h"
#include "platform/platform.h"

#include <cstdlib>
#include <cstring>

namespace quorin::link {

// On link type 3 the camera needs a moment after every command it takes.
constexpr std::uint32_t kType3SendPauseMs = 4;
// Command 157 on type 3 is not answered; the camera is busy for a second.
constexpr std::uint32_t kType3Command157PauseMs = 1000;

bool hasFunction(const void *function, std::int32_t *err)
{
    if (function != nullptr)
        return true;
    *err = QUORIN_ERR_NOT_SUPPORTED;
    return false;
}

namespace {

// Whether the host gave the functions a transaction will call.
bool canTransact(const InterfaceTable &entry, bool readsReply, std::int32_t *err)
{
    return hasFunction(reinterpret_cast<const void *>(entry.Send), err) &&
           (!readsReply || hasFunction(reinterpret_cast<const void *>(entry.Receive), err));
}

// On link type 3 these commands are taken without an answer.
bool unansweredOnType3(const CameraCommand &command)
{
    return (command.code == 145 && (command.p1 == 2 || command.p1 == 3)) || command.code == 157;
}

} // namespace

std::uint32_t sendCommand(std::uint32_t deviceNo, const CameraCommand *command, CommandReply *reply,
                          std::int32_t *err)
{
    const DeviceRecord &rec = device(deviceNo);
    const InterfaceTable &entry = deviceInterface(deviceNo);
    const std::uint32_t handle = rec.linkHandle;
    const std::uint32_t type = entry.type;

    std::uint8_t frame[kMaxFrameLength];
    std::uint8_t answer[kMaxFrameLength] = {};
    const std::uint32_t length = frameLength(type);
    encodeCommand(type, *command, frame);

    if (type == 4) {
        if (!hasFunction(reinterpret_cast<const void *>(entry.Transact), err))
            return 0;
        if (!entry.Transact(handle, frame, answer, err))
            return 0;
        *reply = decodeReply(type, answer);
        return 1;
    }

    if (!canTransact(entry, !(type == 3 && unansweredOnType3(*command)), err))
        return 0;
    bool answeredWithoutReply = false;
    std::uint32_t ok = withRetries(entry, handle, err, [&]() -> bool {
        if (!entry.Send(handle, frame, length, err))
            return false;
        if (type == 3) {
            platform::sleepMs(kType3SendPauseMs);
            if (unansweredOnType3(*command)) {
                if (command->code == 157)
                    platform::sleepMs(kType3Command157PauseMs);
                answeredWithoutReply = true;
                return true;
            }
        }
        return entry.Receive(handle, answer, length, err) != 0;
    });
    if (!ok)
        return 0;
    if (answeredWithoutReply) {
        *err = QUORIN_SUCCESS;
        return 1;
    }

    CommandReply decoded = decodeReply(type, answer);
    if (!replyAccepted(ReplyRule::Command, command->code, decoded.code)) {
        *err = QUORIN_ERR_REPLY_MISMATCH;
        return 0;
    }
    *reply = decoded;
    return 1;
}

std::uint32_t sendCommandWithData(std::uint32_t deviceNo, const CameraCommand *command, CommandReply *reply,
                                  const void *payload, std::uint32_t payloadLength, std::int32_t *err)
{
    const DeviceRecord &rec = device(deviceNo);
    const InterfaceTable &entry = deviceInterface(deviceNo);
    const std::uint32_t handle = rec.linkHandle;
    const std::uint32_t type = entry.type;

    const std::uint32_t headerLength = dataHeaderLength(type);
    const std::uint32_t replyLength = frameLength(type);
    if (payloadLength > 0xFFFFFFFFu - headerLength) {
        *err = QUORIN_ERR_NO_MEMORY;
        return 0;
    }
    const std::uint32_t total = headerLength + payloadLength;
    auto *buffer = static_cast<std::uint8_t *>(platform::blockAlloc(total));
    if (buffer == nullptr) {
        *err = QUORIN_ERR_NO_MEMORY;
        return 0;
    }
    std::uint8_t head[kMaxFrameLength];
    encodeCommand(type, *command, head); // the head of a frame: the code, and on type 2 the zero word
    std::memcpy(buffer, head, headerLength);
    if (payloadLength != 0)
        std::memcpy(buffer + headerLength, payload, payloadLength);

    std::uint8_t answer[kMaxFrameLength] = {};
    std::uint32_t ok = canTransact(entry, true, err) ? withRetries(entry, handle, err, [&]() -> bool {
        if (!entry.Send(handle, buffer, total, err))
            return false;
        if (type == 3)
            platform::sleepMs(kType3SendPauseMs);
        return entry.Receive(handle, answer, replyLength, err) != 0;
    })
                                                     : 0;
    platform::blockFree(buffer);
    if (!ok)
        return 0;

    CommandReply decoded = decodeReply(type, answer);
    if (!replyAccepted(ReplyRule::WithData, command->code, decoded.code)) {
        *err = QUORIN_ERR_REPLY_MISMATCH;
        return 0;
    }
    *reply = decoded;
    return 1;
}

} // namespace quorin::link
