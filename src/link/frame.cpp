#include "link/frame.h"

namespace quorin::link {
namespace {

void put16(std::uint8_t *p, std::uint32_t v)
{
    p[0] = static_cast<std::uint8_t>(v >> 8);
    p[1] = static_cast<std::uint8_t>(v);
}

std::uint32_t get16(const std::uint8_t *p)
{
    return static_cast<std::uint32_t>(p[0]) << 8 | p[1];
}

} // namespace

void encodeFrame(std::uint32_t type, std::uint16_t code, std::uint32_t first, std::uint32_t second,
                 std::uint8_t *out)
{
    put16(out, code);
    if (type == 2) {
        put16(out + 2, 0);
        put16(out + 4, first & 0xFFFF);
        put16(out + 6, first >> 16);
        put16(out + 8, second & 0xFFFF);
        put16(out + 10, second >> 16);
    } else {
        put16(out + 2, first >> 16);
        put16(out + 4, first & 0xFFFF);
        put16(out + 6, second >> 16);
        put16(out + 8, second & 0xFFFF);
    }
}

void decodeFrame(std::uint32_t type, const std::uint8_t *in, std::uint16_t *code, std::uint32_t *first,
                 std::uint32_t *second)
{
    *code = static_cast<std::uint16_t>(get16(in));
    if (type == 2) {
        *first = get16(in + 4) | get16(in + 6) << 16;
        *second = get16(in + 8) | get16(in + 10) << 16;
    } else {
        *first = get16(in + 2) << 16 | get16(in + 4);
        *second = get16(in + 6) << 16 | get16(in + 8);
    }
}

} // namespace quorin::link
