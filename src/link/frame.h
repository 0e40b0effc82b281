// Wire frames of camera commands and replies.
//
// Link types other than 2 carry 10 bytes: the code, then the two 32-bit
// numbers, all big-endian. Type 2 carries 12: the code, a zero word, then
// each 32-bit number as two big-endian 16-bit words, low word first.
#pragma once

#include "quorin/quorin.h"

#include <cstdint>

namespace quorin::link {

constexpr std::uint32_t kMaxFrameLength = 12;

constexpr std::uint32_t frameLength(std::uint32_t type)
{
    return type == 2 ? 12u : 10u;
}

// Bytes of the command head that precede a data payload.
constexpr std::uint32_t dataHeaderLength(std::uint32_t type)
{
    return type == 2 ? 4u : 2u;
}

// Writes frameLength(type) bytes.
void encodeFrame(std::uint32_t type, std::uint16_t code, std::uint32_t first, std::uint32_t second,
                 std::uint8_t *out);
// Reads frameLength(type) bytes.
void decodeFrame(std::uint32_t type, const std::uint8_t *in, std::uint16_t *code, std::uint32_t *first,
                 std::uint32_t *second);

inline void encodeCommand(std::uint32_t type, const CameraCommand &command, std::uint8_t *out)
{
    encodeFrame(type, command.code, command.p1, command.p2, out);
}

inline CommandReply decodeReply(std::uint32_t type, const std::uint8_t *in)
{
    CommandReply reply{};
    decodeFrame(type, in, &reply.code, &reply.value1, &reply.value2);
    return reply;
}

// Which commands answer only to the universal reply code 177.
enum class ReplyRule {
    Command,  // sendCommand: codes 97 to 99
    WithData, // sendCommandWithData: codes 97 and 98
};

// The reply code a camera gives to command code c.
constexpr std::uint16_t expectedReplyCode(std::uint16_t c)
{
    return static_cast<std::uint16_t>(c >= 112 ? c + 16 : (c & 127) + 48);
}

constexpr std::uint16_t kUniversalReplyCode = 177;

// Whether reply code r belongs to command code c.
constexpr bool replyAccepted(ReplyRule rule, std::uint16_t c, std::uint16_t r)
{
    if (r == kUniversalReplyCode)
        return true;
    // For these codes the check compares the reply with itself plus 16 and
    // so never holds: only 177 gets through.
    const std::uint16_t lastOnlyUniversal = rule == ReplyRule::Command ? 99 : 98;
    if (c >= 97 && c <= lastOnlyUniversal)
        return false;
    return r == expectedReplyCode(c);
}

} // namespace quorin::link
