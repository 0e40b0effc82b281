#include "image/unpack.h"

namespace quorin {

void unpackTenBit(const std::uint8_t *in, std::size_t groups, std::uint16_t *out)
{
    for (std::size_t g = 0; g < groups; ++g, in += 5, out += 4) {
        out[0] = static_cast<std::uint16_t>(in[0] | (in[1] & 3) << 8);
        out[1] = static_cast<std::uint16_t>(in[1] >> 2 | (in[2] & 15) << 6);
        out[2] = static_cast<std::uint16_t>(in[2] >> 4 | (in[3] & 63) << 4);
        out[3] = static_cast<std::uint16_t>(in[3] >> 6 | in[4] << 2);
    }
}

} // namespace quorin
