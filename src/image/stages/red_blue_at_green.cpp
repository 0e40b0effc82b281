// Pass 3, red and blue at green sites: from the two neighbours of the
// wanted colour on the site's row or column, guided by the green plane.
#include "image/kernels/portable.h"
#include "image/kernels/vector_kernels.h"
#include "image/schedule/team.h"
#include "image/stages/interpolation.h"

namespace quorin::image {
namespace {

QUORIN_ALWAYS_INLINE inline int32_t fromLine(int32_t ca, int32_t cb, int32_t g, int32_t ga, int32_t gb)
{
    const int32_t lap = 2 * g - ga - gb;
    const int32_t da = magnitude(g - ga), db = magnitude(g - gb);
    const int32_t flat = (ca + cb + lap) >> 1;
    const int32_t steady = (ca + cb + (g - ga) + (g - gb)) >> 1;
    const int32_t towardsB = cb + (g - gb), towardsA = ca + (g - ga);
    const int32_t c = choose(maskOf(magnitude(lap) < 200), flat,
                             choose(maskOf(da < 100) & maskOf(db < 100), steady, choose(maskOf(da >= db), towardsB, towardsA)));
    return clampValue(c);
}

// Pass 3 over the inner columns of an inner row, from column `from`.
QUORIN_ALWAYS_INLINE inline void lineInnerLoop(const uint16_t *__restrict m, const uint16_t *__restrict g,
                                               uint16_t *__restrict horizontal, uint16_t *__restrict vertical,
                                               size_t w, uint32_t odd, uint32_t from = 2)
{
    const uint32_t end = static_cast<uint32_t>(w) - 2;
    const auto s = static_cast<std::ptrdiff_t>(w); // signed: the row above lies before m
    for (uint32_t x = from; x < end; ++x) {
        const bool green = ((x ^ odd) & 1u) != 0;
        const int32_t gc = m[x];
        const int32_t hv = fromLine(m[x - 1], m[x + 1], gc, g[x - 1], g[x + 1]);
        const int32_t vv = fromLine(m[x - s], m[x + s], gc, g[x - s], g[x + s]);
        horizontal[x] = static_cast<uint16_t>(choose(maskOf(green), hv, horizontal[x]));
        vertical[x] = static_cast<uint16_t>(choose(maskOf(green), vv, vertical[x]));
    }
}

QUORIN_KERNEL(LineInnerPlanar, (const PassRow &r),
              lineInnerLoop(r.m, r.plane[kGreen], r.plane[r.odd ? kBlue : kRed], r.plane[r.odd ? kRed : kBlue], r.w,
                            r.odd););

#define QUORIN_LANES_FROM_LINE(ca, cb, g, ga, gb)                                                                      \
    ({                                                                                                                 \
        const V lap_ = (g) + (g) - (ga) - (gb);                                                                        \
        const V da_ = QUORIN_LANES_MAGNITUDE((g) - (ga)), db_ = QUORIN_LANES_MAGNITUDE((g) - (gb));                    \
        const V flat_ = ((ca) + (cb) + lap_) >> 1;                                                                     \
        const V steady_ = ((ca) + (cb) + ((g) - (ga)) + ((g) - (gb))) >> 1;                                            \
        const V towardsB_ = (cb) + ((g) - (gb)), towardsA_ = (ca) + ((g) - (ga));                                      \
        QUORIN_LANES_CLAMP(QUORIN_LANES_PICK(                                                                          \
            QUORIN_LANES_MAGNITUDE(lap_) < 200, flat_,                                                                 \
            QUORIN_LANES_PICK((da_ < 100) & (db_ < 100), steady_,                                                      \
                              QUORIN_LANES_PICK(da_ >= db_, towardsB_, towardsA_))));                                  \
    })

// Pass 3 over an inner row in 16-bit lanes, the last columns one by one.
QUORIN_LANES_KERNEL(LineInnerNarrow, (const PassRow &r), {
    constexpr uint32_t kLanes = sizeof(V) / 2;
    const size_t w = r.w;
    const uint32_t odd = r.odd, end = static_cast<uint32_t>(w) - 2;
    const uint16_t *__restrict m = r.m;
    const uint16_t *__restrict g = r.plane[kGreen];
    uint16_t *__restrict horizontal = r.plane[odd ? kBlue : kRed];
    uint16_t *__restrict vertical = r.plane[odd ? kRed : kBlue];
    uint32_t x = 2;
    for (; end >= 2 + kLanes; x += kLanes) {
        x = std::min(x, end - kLanes); // the last block again over done columns
        const size_t i = x;
        const V green = QUORIN_LANES_ODD(x, odd);
        const V gc = QUORIN_LANES_LOAD(m + i);
        const V hv = QUORIN_LANES_FROM_LINE(QUORIN_LANES_LOAD(m + i - 1), QUORIN_LANES_LOAD(m + i + 1), gc,
                                            QUORIN_LANES_LOAD(g + i - 1), QUORIN_LANES_LOAD(g + i + 1));
        const V vv = QUORIN_LANES_FROM_LINE(QUORIN_LANES_LOAD(m + i - w), QUORIN_LANES_LOAD(m + i + w), gc,
                                            QUORIN_LANES_LOAD(g + i - w), QUORIN_LANES_LOAD(g + i + w));
        QUORIN_LANES_STORE(horizontal + i, QUORIN_LANES_PICK(green, hv, QUORIN_LANES_LOAD(horizontal + i)));
        QUORIN_LANES_STORE(vertical + i, QUORIN_LANES_PICK(green, vv, QUORIN_LANES_LOAD(vertical + i)));
        if (x + kLanes == end) {
            x = end;
            break;
        }
    }
    lineInnerLoop(m, g, horizontal, vertical, w, odd, x); // rows too short for a block
});

void lineBorderPixel(const ColourJob &job, uint32_t x, uint32_t y)
{
    const Area &a = job.f->area;
    // The mean of the two neighbours on a line, or the one there is.
    auto line = [&](bool hasA, uint32_t xa, uint32_t ya, bool hasB, uint32_t xb, uint32_t yb) -> int32_t {
        const int32_t va = hasA ? job.mosaicAt(xa, ya) : 0, vb = hasB ? job.mosaicAt(xb, yb) : 0;
        return hasA && hasB ? (va + vb) >> 1 : hasA ? va : vb;
    };
    job.p.at((y & 1) ? kBlue : kRed, x, y) =
        static_cast<uint16_t>(line(x > 0, x - 1, y, x + 1 < a.w, x + 1, y));
    job.p.at((y & 1) ? kRed : kBlue, x, y) =
        static_cast<uint16_t>(line(y > 0, x, y - 1, y + 1 < a.h, x, y + 1));
}

// Pass 3 over an inner row of split rows.
QUORIN_LANES_KERNEL(LineInnerSplit, (const PassRow &r), {
    constexpr size_t kLanes = sizeof(V) / 2;
    const size_t w = r.w, half = (w + 1) / 2;
    const SplitSites sites(2, w - 3, r.odd ^ 1u);
    const uint16_t *mosaic = r.m, *plane = r.plane[kGreen];
    uint16_t *horizontal = r.plane[r.odd ? kBlue : kRed], *vertical = r.plane[r.odd ? kRed : kBlue];
    for (size_t t = 0;; t += kLanes) {
        t = std::min(t, sites.count - kLanes);
        const size_t x = sites.first + 2 * t;
        const V gc = QUORIN_SPLIT_AT(mosaic, x);
        const V ml = QUORIN_SPLIT_AT(mosaic, x - 1), mr = QUORIN_SPLIT_AT(mosaic, x + 1);
        const V gl = QUORIN_SPLIT_AT(plane, x - 1), gr = QUORIN_SPLIT_AT(plane, x + 1);
        const V mu = QUORIN_SPLIT_AT(mosaic - w, x), md = QUORIN_SPLIT_AT(mosaic + w, x);
        const V gu = QUORIN_SPLIT_AT(plane - w, x), gd = QUORIN_SPLIT_AT(plane + w, x);
        QUORIN_LANES_STORE(QUORIN_SPLIT_PLACE(horizontal, x), QUORIN_LANES_FROM_LINE(ml, mr, gc, gl, gr));
        QUORIN_LANES_STORE(QUORIN_SPLIT_PLACE(vertical, x), QUORIN_LANES_FROM_LINE(mu, md, gc, gu, gd));
        if (t + kLanes == sites.count)
            return;
    }
});

void lineInnerSplitAvx512(const PassRow &r)
{
    vec::lineSplitAvx512(r.m, r.plane[kGreen], r.plane[r.odd ? kBlue : kRed], r.plane[r.odd ? kRed : kBlue], r.w,
                         r.odd);
}

} // namespace

void redBlueAtGreenRow(const ColourJob &job, uint32_t y, PassRowKernel inner)
{
    const Area &a = job.f->area;
    const bool isInner = innerRow(y, a) && a.w >= 5;
    if (isInner)
        inner(passRow(job, y));
    // Green sites outside the inner part: the whole row, or two columns at
    // each end.
    const uint32_t parity = (y & 1) ? 0 : 1;
    auto sites = [&](uint32_t from, uint32_t to) {
        for (uint32_t x = from + ((from ^ parity) & 1); x < to; x += 2)
            lineBorderPixel(job, x, y);
    };
    if (isInner) {
        sites(0, 2);
        sites(a.w - 2, a.w);
    } else {
        sites(0, a.w);
    }
}

PassRowKernel lineKernel(const ColourJob &job)
{
    if (job.p.half != 0)
        return vec::avx512Active() ? lineInnerSplitAvx512 : LineInnerSplit::pick();
    return job.narrow ? LineInnerNarrow::pick() : LineInnerPlanar::pick();
}

void redBlueAtGreen(const ColourJob &job)
{
    const PassRowKernel inner = lineKernel(job);
    team::parallelFor(job.f->area.h, 16, [&](uint32_t begin, uint32_t end) {
        for (uint32_t y = begin; y < end; ++y)
            redBlueAtGreenRow(job, y, inner);
    });
}

} // namespace quorin::image
