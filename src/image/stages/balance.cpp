#include "image/stages/balance.h"

#include "image/kernels/simd.h"

namespace quorin::image {

using std::int32_t;
using std::size_t;
using std::uint16_t;
using std::uint32_t;

namespace {

// Colour balance of row y from `in` to `out` (the same row, or another;
// values the balance leaves alone are copied then); returns the OR of the
// balanced values.
QUORIN_ALWAYS_INLINE inline uint32_t balanceRow(const Frame &f, uint32_t y, bool vector, const uint16_t *in,
                                                uint16_t *out)
{
    const Area &a = f.area;
    const uint32_t *g = f.balanceGains;
    const uint32_t gainEven = (y & 1) ? g[1] : g[0], gainOdd = (y & 1) ? g[2] : g[1];
    uint32_t done = 0; // columns balanced
    if (vector) {
        if (y < (a.h >> 1) * 2) {
            const uint32_t ge = static_cast<uint16_t>(gainEven), go = static_cast<uint16_t>(gainOdd);
            for (uint32_t x = 0; x < a.w; ++x) {
                const auto p = static_cast<std::int16_t>(
                    static_cast<uint16_t>((uint32_t{in[x]} * ((x & 1) ? go : ge)) >> 4));
                out[x] = static_cast<uint16_t>(p > kMaxValue ? kMaxValue : p);
            }
            done = a.w;
        }
    } else {
        done = a.w >> 1 << 1; // whole pairs
        for (uint32_t x = 0; x < done; ++x) {
            const auto p = static_cast<uint16_t>((uint32_t{in[x]} * ((x & 1) ? gainOdd : gainEven)) >> 4);
            out[x] = p > kMaxValue ? kMaxValue : p;
        }
    }
    if (out != in)
        for (uint32_t x = done; x < a.w; ++x)
            out[x] = in[x];
    uint32_t bits = 0;
    for (uint32_t x = 0; x < a.w; ++x)
        bits |= out[x];
    return bits;
}

QUORIN_KERNEL(BalanceRow,
              (const Frame &f, uint32_t y, bool vector, const uint16_t *in, uint16_t *out, uint32_t *bits),
              *bits = balanceRow(f, y, vector, in, out););

} // namespace

BalanceRowKernel balanceRowKernel()
{
    return BalanceRow::pick();
}

vec::SplitBalance splitBalance(const Frame &f, uint32_t y, Kernel kernel)
{
    const Area &a = f.area;
    const uint32_t *g = f.balanceGains;
    const uint32_t gainEven = (y & 1) ? g[1] : g[0], gainOdd = (y & 1) ? g[2] : g[1];
    vec::SplitBalance rule{{static_cast<uint16_t>(gainEven), static_cast<uint16_t>(gainOdd)}, true, 0};
    if (kernel == Kernel::Vector) {
        rule.columns = y < (a.h >> 1) * 2 ? a.w : 0;
    } else if (kernel == Kernel::Scalar) {
        rule.signedLimit = false;
        rule.columns = gainEven <= 0xFFFF && gainOdd <= 0xFFFF ? a.w >> 1 << 1 : kUnbalanced;
    }
    return rule;
}

} // namespace quorin::image
