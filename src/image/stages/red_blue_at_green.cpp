// Pass 3, red and blue at green sites: from the two neighbours of the
// wanted colour on the site's row or column, guided by the green plane.
#include "image/kernels/portable.h"
#include "image/kernels/vector_kernels.h"
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

template <size_t S>
QUORIN_ALWAYS_INLINE inline void lineInnerLoop(const uint16_t *__restrict m, const uint16_t *__restrict g,
                                               uint16_t *__restrict horizontal, uint16_t *__restrict vertical,
                                               size_t row, size_t w, uint32_t odd, uint32_t from = 2)
{
    const uint32_t end = static_cast<uint32_t>(w) - 2;
    for (uint32_t x = from; x < end; ++x) {
        const size_t i = row + x;
        const bool green = ((x ^ odd) & 1u) != 0;
        const int32_t gc = m[i];
        const int32_t hv = fromLine(m[i - 1], m[i + 1], gc, g[(i - 1) * S], g[(i + 1) * S]);
        const int32_t vv = fromLine(m[i - w], m[i + w], gc, g[(i - w) * S], g[(i + w) * S]);
        if constexpr (S == 1) {
            horizontal[i] = static_cast<uint16_t>(choose(maskOf(green), hv, horizontal[i]));
            vertical[i] = static_cast<uint16_t>(choose(maskOf(green), vv, vertical[i]));
        } else if (green) {
            horizontal[i * S] = static_cast<uint16_t>(hv);
            vertical[i * S] = static_cast<uint16_t>(vv);
        }
    }
}

template <size_t S> QUORIN_ALWAYS_INLINE inline void lineInnerRow(const ColourJob<S> &job, uint32_t y)
{
    const Frame &f = *job.f;
    lineInnerLoop<S>(f.work, job.p.c[kGreen], job.p.c[(y & 1) ? kBlue : kRed], job.p.c[(y & 1) ? kRed : kBlue],
                     size_t{y} * f.area.w, f.area.w, y & 1);
}

QUORIN_KERNEL(LineInnerPlanar, (const ColourJob<1> &job, uint32_t y), lineInnerRow<1>(job, y););

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
QUORIN_LANES_KERNEL(LineInnerNarrow, (const ColourJob<1> &job, uint32_t y), {
    constexpr uint32_t kLanes = sizeof(V) / 2;
    const Frame &f = *job.f;
    const size_t w = f.area.w, row = size_t{y} * w;
    const uint32_t odd = y & 1, end = static_cast<uint32_t>(w) - 2;
    const uint16_t *__restrict m = f.work;
    const uint16_t *__restrict g = job.p.c[kGreen];
    uint16_t *__restrict horizontal = job.p.c[odd ? kBlue : kRed];
    uint16_t *__restrict vertical = job.p.c[odd ? kRed : kBlue];
    uint32_t x = 2;
    for (; end >= 2 + kLanes; x += kLanes) {
        x = std::min(x, end - kLanes); // the last block again over done columns
        const size_t i = row + x;
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
    lineInnerLoop<1>(m, g, horizontal, vertical, row, w, odd, x); // rows too short for a block
});

template <size_t S> void lineBorderPixel(const ColourJob<S> &job, uint32_t x, uint32_t y)
{
    const Frame &f = *job.f;
    const Area &a = f.area;
    // The mean of the two neighbours on a line, or the one there is.
    auto line = [&](bool hasA, uint32_t xa, uint32_t ya, bool hasB, uint32_t xb, uint32_t yb) -> int32_t {
        const int32_t va = hasA ? job.mosaic(xa, ya) : 0, vb = hasB ? job.mosaic(xb, yb) : 0;
        return hasA && hasB ? (va + vb) >> 1 : hasA ? va : vb;
    };
    job.p.at((y & 1) ? kBlue : kRed, x, y) =
        static_cast<uint16_t>(line(x > 0, x - 1, y, x + 1 < a.w, x + 1, y));
    job.p.at((y & 1) ? kRed : kBlue, x, y) =
        static_cast<uint16_t>(line(y > 0, x, y - 1, y + 1 < a.h, x, y + 1));
}

// Pass 3 over an inner row of split rows.
void lineInnerSplit(const ColourJob<1> &job, uint32_t y)
{
    const size_t w = job.p.w;
    const uint32_t odd = y & 1;
    vec::lineSplitAvx512(job.splitMosaic + size_t{y} * w, job.p.row(kGreen, y), job.p.row(odd ? kBlue : kRed, y),
                         job.p.row(odd ? kRed : kBlue, y), w, odd);
}

} // namespace

template <size_t S> void redBlueAtGreenRow(const ColourJob<S> &job, uint32_t y, PlanarRowKernel planar)
{
    const Area &a = job.f->area;
    {
        const bool inner = innerRow(y, a) && a.w >= 5;
        if (inner) {
            if constexpr (S == 1)
                planar(job, y);
            else
                lineInnerRow<S>(job, y);
        }
        // Green sites outside the inner part: the whole row, or two columns
        // at each end.
        const uint32_t parity = (y & 1) ? 0 : 1;
        auto sites = [&](uint32_t from, uint32_t to) {
            for (uint32_t x = from + ((from ^ parity) & 1); x < to; x += 2)
                lineBorderPixel(job, x, y);
        };
        if (inner) {
            sites(0, 2);
            sites(a.w - 2, a.w);
        } else {
            sites(0, a.w);
        }
    }
}

template <size_t S> PlanarRowKernel lineKernel(const ColourJob<S> &job)
{
    return rowKernel<LineInnerNarrow, LineInnerPlanar>(job, lineInnerSplit);
}

template <size_t S> void redBlueAtGreen(const ColourJob<S> &job)
{
    const int h = static_cast<int>(job.f->area.h);
    const PlanarRowKernel planar = lineKernel(job);
#pragma omp parallel for schedule(static)
    for (int yi = 0; yi < h; ++yi)
        redBlueAtGreenRow(job, static_cast<uint32_t>(yi), planar);
}

template PlanarRowKernel lineKernel(const ColourJob<1> &job);
template void redBlueAtGreenRow(const ColourJob<1> &job, uint32_t y, PlanarRowKernel planar);
template void redBlueAtGreen(const ColourJob<1> &job);
template PlanarRowKernel lineKernel(const ColourJob<3> &job);
template void redBlueAtGreenRow(const ColourJob<3> &job, uint32_t y, PlanarRowKernel planar);
template void redBlueAtGreen(const ColourJob<3> &job);

} // namespace quorin::image
