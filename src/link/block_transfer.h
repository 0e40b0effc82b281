// Bulk data over a device's InterfaceTable: block receive and send with
// retries, the type-3 transfer wait and the type-4 data transaction.
// None of them checks the device number or writes success to err.
#pragma once

#include "quorin/quorin.h"

#include <cstdint>

namespace quorin::link {

// Reads length bytes into buffer (the caller has already sent the command
// that makes the camera deliver them): up to three tries, Reset after each
// failure; 9 after the third.
std::uint32_t receiveBlock(std::uint32_t deviceNo, std::uint32_t length, std::uint8_t *buffer, std::int32_t *err);

// Sends exactly 1024 bytes from buffer, with the same retries.
constexpr std::uint32_t kSendBlockLength = 1024;
std::uint32_t sendBlock1024(std::uint32_t deviceNo, const std::uint8_t *buffer, std::int32_t *err);

// Type 3: waits for the read armed with armTransfer and returns the host's
// result. Any other type: returns 0 without calling the host or writing err.
std::uint32_t completeTransfer(std::uint32_t deviceNo, std::int32_t *err);

// Type 4: one command with a data phase of length bytes into data, no
// retry and no reply-code check. Any other type: returns 0 without sending
// or writing err.
std::uint32_t transactData(std::uint32_t deviceNo, const CameraCommand *command, CommandReply *reply,
                           std::int32_t length, void *data, std::int32_t *err);

} // namespace quorin::link
