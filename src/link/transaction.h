// Command transactions: one CameraCommand out, one CommandReply back, over
// the InterfaceTable of the device's interface entry.
//
// Neither function checks the device number or the library state (the
// exports do), and neither writes success to err on an ordinary success.
#pragma once

#include "quorin/quorin.h"

#include <cstdint>

namespace quorin::link {

// Runs one command. Type 4 goes through Transact once; other types try
// Send + Receive up to three times with a Reset after each failure. On
// type 3 commands 145 (p1 2 or 3) and 157 are not answered by the camera:
// they succeed with err = 1 and reply untouched. Returns 1 or 0 with err
// set to the host's code, 9 (three failures) or 203 (reply code mismatch).
std::uint32_t sendCommand(std::uint32_t deviceNo, const CameraCommand *command, CommandReply *reply,
                          std::int32_t *err);

// Sends the command head followed by payload (p1 and p2 are not sent) and
// reads the normal reply. Always Send + Receive, on every link type.
// Additional failure: 6 when the frame buffer cannot be allocated.
std::uint32_t sendCommandWithData(std::uint32_t deviceNo, const CameraCommand *command, CommandReply *reply,
                                  const void *payload, std::uint32_t payloadLength, std::int32_t *err);

// The retry loop shared by the transactions and block transfers: up to
// three tries of attempt(), each failure followed by Reset. Returns 1 on
// the first successful try; 0 with the host's code when Reset fails, or
// with 9 after the third failure.
template <typename Attempt>
std::uint32_t withRetries(const InterfaceTable &entry, std::uint32_t handle, std::int32_t *err, Attempt attempt);

// Writes 21 and returns false when the host left a needed function out.
bool hasFunction(const void *function, std::int32_t *err);

} // namespace quorin::link

#include "link/retry.inl"
