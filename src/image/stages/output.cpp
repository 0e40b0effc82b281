#include "image/stages/output.h"

#include "image/kernels/simd.h"
#include "image/schedule/team.h"
#include "image/reference/stages.h"

#include <algorithm>
#include <cstring>

namespace quorin::image {

using std::int32_t;
using std::size_t;
using std::uint16_t;
using std::uint32_t;

namespace {

QUORIN_KERNEL(ReduceRange, (const uint16_t *in, size_t begin, size_t end, std::uint8_t *out, uint32_t shift),
              for (size_t i = begin; i < end; ++i) {
                  const uint32_t o = in[i] >> shift;
                  out[i] = static_cast<std::uint8_t>(o > 255 ? 255 : o);
              });

} // namespace

void reduceValues(const uint16_t *in, size_t count, std::uint8_t *out, uint32_t shift)
{
    const auto kernel = ReduceRange::pick();
    team::parallelFor(static_cast<uint32_t>(count), 16384,
                      [&](uint32_t begin, uint32_t end) { kernel(in, begin, end, out, shift); });
}

void outputColour(const Frame &f, bool sixteenBit, void *dest)
{
    const Area &a = f.area;
    const size_t values = a.pixels() * 3;
    if (sixteenBit) {
        if (f.mode71 != 0)
            reference::edgeColour(f.rgb, static_cast<uint16_t *>(dest), f.previous, a, edgeShift(f.mode71));
        else
            std::memcpy(dest, f.rgb, values * 2);
        return;
    }
    const uint16_t *source = f.rgb;
    if (f.mode71 != 0) {
        reference::edgeColour(f.rgb, f.cache, f.previous, a, edgeShift(f.mode71));
        source = f.cache;
    } else if (f.keepLiveCache) {
        std::memcpy(f.cache, f.rgb, values * 2);
    }
    reduceValues(source, values, static_cast<std::uint8_t *>(dest), f.outputShift);
}

} // namespace quorin::image
