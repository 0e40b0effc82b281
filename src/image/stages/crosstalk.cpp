#include "image/stages/crosstalk.h"

#include "image/kernels/portable.h"
#include "image/schedule/team.h"

#include <algorithm>

namespace quorin::image {
namespace {

using std::int32_t;
using std::size_t;
using std::uint16_t;
using std::uint32_t;

// A 16-bit result taken as signed and limited to 0 .. 1023.
QUORIN_ALWAYS_INLINE inline uint16_t clampSigned16(int32_t v)
{
    const int32_t s = static_cast<std::int16_t>(static_cast<uint16_t>(v));
    return static_cast<uint16_t>(std::min(std::max(s, 0), int32_t{kMaxValue}));
}

// Rules A and B on columns from .. last of `count` rows (at most 4), in
// steps of 32 columns: each step reads the 32 columns before it, which the
// step before has corrected, so the 32 columns of a step are independent;
// the rows, independent of each other, interleave so that one row's step
// does not wait for its last.
QUORIN_KERNEL(CrosstalkRules, (uint16_t *const *rows, int count, int32_t from, int32_t last), {
    for (int32_t c0 = from; c0 <= last; c0 += 32) {
        const int32_t n = std::min(32, last - c0 + 1);
        for (int r = 0; r < count; ++r) {
            uint16_t *__restrict here = rows[r] + c0;
            const uint16_t *__restrict left = rows[r] + c0 - 32;
            for (int32_t k = 0; k < n; ++k) {
                const int32_t p = here[k], l = left[k];
                const bool a = p > 580 && l < 160, b = p > 440 && l > 600;
                const int32_t shifted = a ? (p - l) >> 5 : (p - l) >> 3;
                here[k] = (a || b) ? clampSigned16(p + shifted) : static_cast<uint16_t>(p);
            }
        }
    }
});

// The same for one row in 16-bit lanes, each step of 32 columns reading the
// last from registers (the step before would otherwise wait for its
// stores). Exact for any 16-bit values: rule A's difference is positive,
// and rule B's floor((p - l) / 8) is (p >> 3) - (l >> 3), one less when
// p's low three bits are below l's.
QUORIN_LANES_KERNEL(CrosstalkRowLanes, (uint16_t *row, int32_t last), {
    typedef std::uint16_t U __attribute__((vector_size(sizeof(V))));
    constexpr int32_t kLanes = sizeof(V) / 2, kVectors = 32 / kLanes;
    U before[kVectors];
    for (int32_t j = 0; j < kVectors; ++j)
        std::memcpy(&before[j], row + j * kLanes, sizeof(U));
    int32_t c0 = 32;
    for (; c0 + 31 <= last; c0 += 32)
        for (int32_t j = 0; j < kVectors; ++j) {
            U p, l = before[j];
            std::memcpy(&p, row + c0 + j * kLanes, sizeof p);
            const U a = (U)((p > 580) & (l < 160));
            const U b = (U)(~(V)a & (p > 440) & (l > 600));
            const U ruleA = p + ((p - l) >> 5);
            const U ruleB = p + (p >> 3) - (l >> 3) + (U)((p & 7) < (l & 7));
            V t = (V)((ruleA & a) | (ruleB & ~a));
            t = t < 0 ? 0 : t;
            t = t > 1023 ? 1023 : t;
            const U out = ((U)t & (a | b)) | (p & ~(a | b));
            std::memcpy(row + c0 + j * kLanes, &out, sizeof out);
            before[j] = out;
        }
    for (; c0 <= last; ++c0) { // the columns of the last, partial step
        const int32_t p = row[c0], l = row[c0 - 32];
        const bool a = p > 580 && l < 160, b = p > 440 && l > 600;
        const int32_t shifted = a ? (p - l) >> 5 : (p - l) >> 3;
        row[c0] = (a || b) ? clampSigned16(p + shifted) : static_cast<uint16_t>(p);
    }
});

// The rule for the last 32 columns when the area reaches the sensor's last
// 32 columns, from column `from` on (the columns are independent: each
// reads only columns 32 and 64 to its left).
QUORIN_KERNEL(EdgeColumns, (uint16_t *row, int32_t from, int32_t w), {
    for (int32_t c = from; c < w; ++c) {
        const int32_t p = row[c], va = row[c - 64], vb = row[c - 32];
        int32_t x = static_cast<std::int16_t>(static_cast<uint16_t>(p + ((p - va) >> 3) + ((p - vb) >> 4)));
        x = static_cast<std::int16_t>(static_cast<uint16_t>(x + ((x - vb) >> 4)));
        if (vb > 460 && va > 400)
            x = static_cast<std::int16_t>(static_cast<uint16_t>(x + ((x - vb) >> 5)));
        row[c] = clampSigned16(x);
    }
});

// Row r of a buffer whose rows start `step` values apart: the rule reaches
// 64 columns back, and a value before the start of the image buffer does
// not exist: such pixels are left alone.
void edgeColumns(uint16_t *row, int32_t w, size_t r, size_t step)
{
    const std::int64_t firstReadable = 64 - static_cast<std::int64_t>(r * step);
    EdgeColumns::pick()(row, static_cast<int32_t>(std::max<std::int64_t>(w - 32, firstReadable)), w);
}

} // namespace

bool crosstalkRowsIndependent(const Area &a)
{
    return a.h >= a.w && (a.w >= 96 || a.x0 + a.w <= 992);
}

void crosstalkRow(std::uint16_t *row, const Area &a, std::uint32_t r)
{
    const int32_t w = static_cast<int32_t>(a.w);
    const bool reachesEdge = a.x0 + a.w > 992;
    CrosstalkRowLanes::pick()(row, reachesEdge ? w - 33 : w - 1);
    if (reachesEdge && w >= 32)
        edgeColumns(row, w, r, a.h);
}

void crosstalk(std::uint16_t *work, const Area &a)
{
    const int32_t w = static_cast<int32_t>(a.w);
    const bool reachesEdge = a.x0 + a.w > 992;
    const int32_t lastRuleColumn = reachesEdge ? w - 33 : w - 1;
    const bool edge = reachesEdge && w >= 32;
    const auto rules = CrosstalkRules::pick();
    // Each row starts H values after the last, whatever the width: rows
    // that overlap or read the row before run in order.
    const size_t step = a.h;
    if (!crosstalkRowsIndependent(a)) {
        for (size_t r = 0; r < a.h; ++r) {
            uint16_t *row = work + r * step;
            rules(&row, 1, 32, lastRuleColumn);
            if (edge)
                edgeColumns(row, w, r, step);
        }
        return;
    }
    constexpr uint32_t kGroup = 4;
    const uint32_t groups = (a.h + kGroup - 1) / kGroup;
    team::parallelFor(groups, 8, [&](uint32_t begin, uint32_t end) {
        for (uint32_t g = begin; g < end; ++g) {
            uint16_t *rows[kGroup];
            const int count = static_cast<int>(std::min(kGroup, a.h - g * kGroup));
            for (int r = 0; r < count; ++r)
                rows[r] = work + size_t(g * kGroup + r) * step;
            rules(rows, count, 32, lastRuleColumn);
            if (edge)
                for (int r = 0; r < count; ++r)
                    edgeColumns(rows[r], w, size_t(g * kGroup + r), step);
        }
    });
}

} // namespace quorin::image
