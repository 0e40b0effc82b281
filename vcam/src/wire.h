// The camera's side of the wire format: reading command frames and writing
// reply frames for a link type.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vcam {

struct Frame {
    std::uint16_t code;
    std::uint32_t first;
    std::uint32_t second;
};

inline std::size_t wireFrameLength(std::uint32_t linkType)
{
    return linkType == 2 ? 12 : 10;
}

inline std::size_t wireHeadLength(std::uint32_t linkType)
{
    return linkType == 2 ? 4 : 2;
}

// Reads a whole frame of wireFrameLength(linkType) bytes.
Frame readFrame(std::uint32_t linkType, const std::uint8_t *bytes);
// Reads only the code of a frame head.
std::uint16_t readCode(const std::uint8_t *bytes);
// Writes a whole frame of wireFrameLength(linkType) bytes.
void writeFrame(std::uint32_t linkType, const Frame &frame, std::uint8_t *bytes);

// The reply code the camera gives to a command code.
inline std::uint16_t replyCodeFor(std::uint16_t command)
{
    return static_cast<std::uint16_t>(command >= 112 ? command + 16 : (command & 127) + 48);
}

} // namespace vcam
