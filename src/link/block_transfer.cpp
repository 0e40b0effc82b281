#include "link/block_transfer.h"

#include "device/device_table.h"
#include "link/frame.h"
#include "link/transaction.h"

namespace quorin::link {

std::uint32_t receiveBlock(std::uint32_t deviceNo, std::uint32_t length, std::uint8_t *buffer, std::int32_t *err)
{
    const InterfaceTable &entry = deviceInterface(deviceNo);
    const std::uint32_t handle = device(deviceNo).linkHandle;
    if (!hasFunction(reinterpret_cast<const void *>(entry.Receive), err))
        return 0;
    return withRetries(entry, handle, err, [&] { return entry.Receive(handle, buffer, length, err) != 0; });
}

std::uint32_t sendBlock1024(std::uint32_t deviceNo, const std::uint8_t *buffer, std::int32_t *err)
{
    const InterfaceTable &entry = deviceInterface(deviceNo);
    const std::uint32_t handle = device(deviceNo).linkHandle;
    if (!hasFunction(reinterpret_cast<const void *>(entry.Send), err))
        return 0;
    return withRetries(entry, handle, err, [&] { return entry.Send(handle, buffer, kSendBlockLength, err) != 0; });
}

std::uint32_t completeTransfer(std::uint32_t deviceNo, std::int32_t *err)
{
    const InterfaceTable &entry = deviceInterface(deviceNo);
    if (entry.type != 3)
        return 0;
    if (!hasFunction(reinterpret_cast<const void *>(entry.awaitTransfer), err))
        return 0;
    return static_cast<std::uint32_t>(entry.awaitTransfer(device(deviceNo).linkHandle, err));
}

std::uint32_t transactData(std::uint32_t deviceNo, const CameraCommand *command, CommandReply *reply,
                           std::int32_t length, void *data, std::int32_t *err)
{
    const InterfaceTable &entry = deviceInterface(deviceNo);
    if (entry.type != 4)
        return 0;
    if (!hasFunction(reinterpret_cast<const void *>(entry.TransactData), err))
        return 0;
    std::uint8_t frame[kMaxFrameLength];
    std::uint8_t answer[kMaxFrameLength] = {};
    encodeCommand(4, *command, frame);
    if (!entry.TransactData(device(deviceNo).linkHandle, frame, answer, data, length, err))
        return 0;
    *reply = decodeReply(4, answer);
    return 1;
}

} // namespace quorin::link
