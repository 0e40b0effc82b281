#include "image/stages/grey_output.h"

#include "image/kernels/simd.h"
#include "image/kernels/vector_kernels.h"
#include "image/stages/row_output.h"

#include <algorithm>
#include <cstring>

namespace quorin::image {
namespace {

using std::int32_t;
using std::size_t;
using std::uint16_t;
using std::uint32_t;

// Edge enhancement of the inner pixels 1 .. w - 2 of a row of looked-up
// values: L + ((4 L - L left - L right - L above - L below) >> shift), the
// sum taken as a signed 16-bit value and limited to 0 .. 1023.
QUORIN_KERNEL(EdgeGreyRow,
              (const uint16_t *above, const uint16_t *here, const uint16_t *below, size_t w, unsigned shift,
               uint16_t *out),
              {
                  for (size_t x = 1; x + 1 < w; ++x) {
                      const int32_t c = here[x];
                      const int32_t d = (4 * c - here[x - 1] - here[x + 1] - above[x] - below[x]) >> shift;
                      const int32_t t = static_cast<std::int16_t>(static_cast<uint16_t>(c + d));
                      out[x] = static_cast<uint16_t>(std::min(std::max(t, 0), int32_t{kMaxValue}));
                  }
              });

} // namespace

GreyOutput::GreyOutput(const Frame &f, bool sixteenBit, void *dest)
    : f_(f), a_(f.area), raw_(f.colour), sixteenBit_(sixteenBit),
      cache_(!f.colour && !sixteenBit && (f.keepLiveCache || f.mode71 != 0)), edge_(!f.colour && f.mode71 != 0),
      edgeShift_(edgeShift(f.mode71)), dest8_(sixteenBit ? nullptr : static_cast<std::uint8_t *>(dest)),
      dest16_(sixteenBit ? static_cast<uint16_t *>(dest) : nullptr), bytes_(f.lut[0], f.outputShift),
      table_(f.lut[0])
{
    vectorEdge_ = vec::avx512Active() && *std::max_element(f.lut[0], f.lut[0] + 1024) <= kMaxValue;
}

void GreyOutput::begin(Thread &t, uint32_t first, uint32_t end) const
{
    t.first = first;
    t.end = end;
}

void GreyOutput::lookUp16(const uint16_t *values, uint16_t *out) const
{
    lookUpRow16(values, a_.w, table_, out);
}

void GreyOutput::finished(const uint16_t *values, uint32_t y, Thread &t) const
{
    const size_t w = a_.w, row = size_t{y} * w;
    if (!edge_) {
        if (y < t.first || y >= t.end)
            return;
        if (raw_) {
            if (sixteenBit_)
                std::memcpy(dest16_ + row, values, w * 2);
            else
                reduceRow(values, w, dest8_ + row, f_.outputShift);
            return;
        }
        if (sixteenBit_ || cache_)
            lookUp16(values, sixteenBit_ ? dest16_ + row : f_.cache + row);
        if (!sixteenBit_)
            lookUpRow8(values, w, bytes_, dest8_ + row);
        return;
    }
    // Edge enhancement: keep the row's looked-up values, then output the
    // row above, whose neighbours are now all known.
    lookUp16(values, t.looked[y % 3]);
    if (y >= 1 && y - 1 >= t.first && y - 1 < t.end)
        emitEdge(y - 1, t);
    if (y + 1 == a_.h && y >= t.first && y < t.end)
        emitEdge(y, t); // the bottom row, which has no row below
}

// Row y of the edge enhancement into the destination or the cache, and
// from the cache reduced to 8 bits. The top and bottom rows, and the first
// and last pixel of every row, as looked up.
void GreyOutput::emitEdge(uint32_t y, Thread &t) const
{
    const size_t w = a_.w, row = size_t{y} * w;
    const uint16_t *here = t.looked[y % 3];
    uint16_t *out = sixteenBit_ ? dest16_ + row : f_.cache + row;
    if (y == 0 || y + 1 == a_.h) {
        std::memcpy(out, here, w * 2);
    } else if (vectorEdge_) {
        vec::edgeGreyRowAvx512(t.looked[(y - 1) % 3], here, t.looked[(y + 1) % 3], w, edgeShift_, out,
                               sixteenBit_ ? nullptr : dest8_ + row, f_.outputShift);
        return;
    } else {
        EdgeGreyRow::pick()(t.looked[(y - 1) % 3], here, t.looked[(y + 1) % 3], w, edgeShift_, out);
        out[0] = here[0];
        out[w - 1] = here[w - 1];
    }
    if (!sixteenBit_)
        reduceRow(out, w, dest8_ + row, f_.outputShift);
}

} // namespace quorin::image
