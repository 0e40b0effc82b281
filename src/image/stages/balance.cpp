#include "image/stages/balance.h"

#include "image/kernels/portable.h"

#include <cstring>

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

// The lanes of a followed by b that index names, as GCC's
// __builtin_shuffle picks them; clang (the fuzz build) has only the
// constant-index form, so there the lanes (U, kLanes of the kernel) are
// picked one by one, in place: a call would pass vectors across targets.
#ifdef __clang__
#define QUORIN_SHUFFLE2(a, b, index)                                                                                   \
    ({                                                                                                                 \
        U picked_;                                                                                                     \
        for (size_t j_ = 0; j_ < kLanes; ++j_)                                                                         \
            picked_[j_] = index[j_] < kLanes ? a[index[j_]] : b[index[j_] - kLanes];                                   \
        picked_;                                                                                                       \
    })
#else
#define QUORIN_SHUFFLE2(a, b, index) __builtin_shuffle(a, b, index)
#endif

// The balance of a row into split halves (see vec::SplitBalance), in
// 16-bit lanes: pairs of registers split into their even and odd lanes,
// each half times its gain; the columns of a last, partial pair one by one.
QUORIN_LANES_KERNEL(BalanceSplit,
                    (const uint16_t *in, size_t w, const vec::SplitBalance *rule, uint16_t *even, uint16_t *odd,
                     uint32_t *bits),
                    {
                        constexpr size_t kLanes = sizeof(V) / 2;
                        typedef std::uint16_t U __attribute__((vector_size(sizeof(V))));
                        typedef std::uint32_t Wide __attribute__((vector_size(2 * sizeof(V))));
                        U evenIndex, oddIndex, lane;
                        for (size_t j = 0; j < kLanes; ++j) {
                            evenIndex[j] = static_cast<uint16_t>(2 * j);
                            oddIndex[j] = static_cast<uint16_t>(2 * j + 1);
                            lane[j] = static_cast<uint16_t>(j);
                        }
                        uint16_t *const out[2] = {even, odd};
                        auto balanced = [rule](uint32_t v, size_t x) -> uint16_t {
                            if (x >= rule->columns)
                                return static_cast<uint16_t>(v);
                            const auto p = static_cast<uint16_t>((v * rule->gain[x & 1]) >> 4);
                            if (rule->signedLimit)
                                return static_cast<std::int16_t>(p) > kMaxValue ? kMaxValue : p;
                            return p > kMaxValue ? kMaxValue : p;
                        };
                        U all{};
                        size_t k = 0;
                        for (; k + 2 * kLanes <= w; k += 2 * kLanes) {
                            U a, b;
                            std::memcpy(&a, in + k, sizeof a);
                            std::memcpy(&b, in + k + kLanes, sizeof b);
                            const U halves[2] = {QUORIN_SHUFFLE2(a, b, evenIndex), QUORIN_SHUFFLE2(a, b, oddIndex)};
                            for (unsigned h = 0; h < 2; ++h) {
                                U v = halves[h];
                                if (rule->columns > k) {
                                    const Wide product = __builtin_convertvector(v, Wide) * rule->gain[h];
                                    const U p = __builtin_convertvector(product >> 4, U);
                                    const U limited = rule->signedLimit ? (U)((V)p > 1023 ? (V){} + 1023 : (V)p)
                                                                        : (p > 1023 ? (U){} + 1023 : p);
                                    const U column = lane * 2 + static_cast<uint16_t>(k + h);
                                    v = column < static_cast<uint16_t>(rule->columns) ? limited : v;
                                }
                                std::memcpy(out[h] + k / 2, &v, sizeof v);
                                all |= v;
                            }
                        }
                        uint32_t result = 0;
                        for (size_t j = 0; j < kLanes; ++j)
                            result |= all[j];
                        for (; k < w; ++k) {
                            const uint16_t v = balanced(in[k], k);
                            out[k & 1][k / 2] = v;
                            result |= v;
                        }
                        *bits = result;
                    });

uint32_t balanceSplitLanes(const uint16_t *in, size_t w, const vec::SplitBalance &rule, uint16_t *even, uint16_t *odd)
{
    uint32_t bits;
    BalanceSplit::pick()(in, w, &rule, even, odd, &bits);
    return bits;
}

} // namespace

BalanceSplitKernel balanceSplitKernel()
{
    if (vec::avx512Active())
        return vec::balanceSplitAvx512;
    return vec::avx2Active() ? vec::balanceSplitAvx2 : balanceSplitLanes;
}

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
