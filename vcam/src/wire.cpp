#include "wire.h"

namespace vcam {
namespace {

// Big-endian 32-bit number at p.
std::uint32_t be32(const std::uint8_t *p)
{
    return std::uint32_t(p[0]) << 24 | std::uint32_t(p[1]) << 16 | std::uint32_t(p[2]) << 8 | p[3];
}

void putBe32(std::uint8_t *p, std::uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        p[i] = std::uint8_t(v >> (24 - 8 * i));
}

// Link type 2: a 32-bit number as two big-endian halves, low half first.
std::uint32_t halves(const std::uint8_t *p)
{
    std::uint32_t low = std::uint32_t(p[0]) << 8 | p[1];
    std::uint32_t high = std::uint32_t(p[2]) << 8 | p[3];
    return high << 16 | low;
}

void putHalves(std::uint8_t *p, std::uint32_t v)
{
    p[0] = std::uint8_t(v >> 8);
    p[1] = std::uint8_t(v);
    p[2] = std::uint8_t(v >> 24);
    p[3] = std::uint8_t(v >> 16);
}

} // namespace

std::uint16_t readCode(const std::uint8_t *bytes)
{
    return std::uint16_t(bytes[0] << 8 | bytes[1]);
}

Frame readFrame(std::uint32_t linkType, const std::uint8_t *bytes)
{
    if (linkType == 2)
        return {readCode(bytes), halves(bytes + 4), halves(bytes + 8)};
    return {readCode(bytes), be32(bytes + 2), be32(bytes + 6)};
}

void writeFrame(std::uint32_t linkType, const Frame &frame, std::uint8_t *bytes)
{
    bytes[0] = std::uint8_t(frame.code >> 8);
    bytes[1] = std::uint8_t(frame.code);
    if (linkType == 2) {
        bytes[2] = bytes[3] = 0;
        putHalves(bytes + 4, frame.first);
        putHalves(bytes + 8, frame.second);
    } else {
        putBe32(bytes + 2, frame.first);
        putBe32(bytes + 6, frame.second);
    }
}

} // namespace vcam
