// Pass 2, the green plane: at green sites the green is copied; at red and
// blue sites it is guided by the gradients of the row and the column.
#include "image/kernels/portable.h"
#include "image/kernels/vector_kernels.h"
#include "image/schedule/team.h"
#include "image/stages/interpolation.h"

namespace quorin::image {
namespace {

void greenBorderPixel(const ColourJob &job, uint32_t x, uint32_t y)
{
    const Area &a = job.f->area;
    const int32_t c = job.mosaicAt(x, y);
    // The values the mosaic holds: split rows keep them there only.
    const bool copy = job.p.half == 0;
    if (((x ^ y) & 1) != 0) {
        if (copy)
            job.p.at(kGreen, x, y) = static_cast<uint16_t>(c);
        return;
    }
    if (copy)
        job.p.at((y & 1) ? kBlue : kRed, x, y) = static_cast<uint16_t>(c);
    int32_t sum = 0;
    int n = 0;
    if (x > 0) {
        sum += job.mosaicAt(x - 1, y);
        ++n;
    }
    if (x + 1 < a.w) {
        sum += job.mosaicAt(x + 1, y);
        ++n;
    }
    if (y > 0) {
        sum += job.mosaicAt(x, y - 1);
        ++n;
    }
    if (y + 1 < a.h) {
        sum += job.mosaicAt(x, y + 1);
        ++n;
    }
    job.p.at(kGreen, x, y) = static_cast<uint16_t>(n == 0 ? c : borderMean(sum, n));
}

// The gradient-guided green of a red or blue site, written without
// branches so that whole rows vectorise. The offsets are signed: the rows
// above lie before m + i.
QUORIN_ALWAYS_INLINE inline int32_t innerGreen(const uint16_t *__restrict m, std::ptrdiff_t i, std::ptrdiff_t w)
{
    const int32_t c = m[i];
    const int32_t gl = m[i - 1], gr = m[i + 1], gu = m[i - w], gd = m[i + w];
    const int32_t lh = 2 * c - m[i - 2] - m[i + 2];
    const int32_t lv = 2 * c - m[i - 2 * w] - m[i + 2 * w];
    const int32_t dh = magnitude(gl - gr) + magnitude(lh);
    const int32_t dv = magnitude(gu - gd) + magnitude(lv);
    const int32_t horizontal = ((gl + gr) >> 1) + (lh >> 2);
    const int32_t vertical = ((gu + gd) >> 1) + (lv >> 2);
    const int32_t both = ((gl + gr + gu + gd) >> 2) + ((lv + lh) >> 3);
    const int32_t strong = maskOf(dh >= 80) | maskOf(dv >= 80);
    const int32_t g = choose(strong & maskOf(dh < dv), horizontal, choose(strong & maskOf(dh > dv), vertical, both));
    return clampValue(g);
}

// Pass 2 over the inner columns of an inner row, from column `from`: the
// green plane at every column, and the own colour's plane at every column
// (green sites get theirs in pass 3). Pointers do not overlap.
QUORIN_ALWAYS_INLINE inline void greenInnerLoop(const uint16_t *__restrict m, uint16_t *__restrict green,
                                                uint16_t *__restrict own, size_t w, uint32_t odd,
                                                uint32_t from = 2)
{
    const uint32_t end = static_cast<uint32_t>(w) - 2;
    for (uint32_t x = from; x < end; ++x) {
        const bool isGreen = ((x ^ odd) & 1u) != 0;
        const int32_t g = innerGreen(m, x, w);
        green[x] = static_cast<uint16_t>(choose(maskOf(isGreen), m[x], g));
        own[x] = m[x];
    }
}

QUORIN_KERNEL(GreenInnerPlanar, (const PassRow &r),
              greenInnerLoop(r.m, r.plane[kGreen], r.plane[r.odd ? kBlue : kRed], r.w, r.odd););

// Pass 2 over an inner row in 16-bit lanes, the last columns one by one.
QUORIN_LANES_KERNEL(GreenInnerNarrow, (const PassRow &r), {
    constexpr uint32_t kLanes = sizeof(V) / 2;
    const size_t w = r.w;
    const uint32_t odd = r.odd, end = static_cast<uint32_t>(w) - 2;
    const uint16_t *__restrict m = r.m;
    uint16_t *__restrict green = r.plane[kGreen];
    uint16_t *__restrict own = r.plane[odd ? kBlue : kRed];
    uint32_t x = 2;
    for (; end >= 2 + kLanes; x += kLanes) {
        x = std::min(x, end - kLanes); // the last block again over done columns
        const uint16_t *p = m + x;
        const V isGreen = QUORIN_LANES_ODD(x, odd);
        const V c = QUORIN_LANES_LOAD(p), gl = QUORIN_LANES_LOAD(p - 1), gr = QUORIN_LANES_LOAD(p + 1);
        const V gu = QUORIN_LANES_LOAD(p - w), gd = QUORIN_LANES_LOAD(p + w);
        const V lh = c + c - QUORIN_LANES_LOAD(p - 2) - QUORIN_LANES_LOAD(p + 2);
        const V lv = c + c - QUORIN_LANES_LOAD(p - 2 * w) - QUORIN_LANES_LOAD(p + 2 * w);
        const V dh = QUORIN_LANES_MAGNITUDE(gl - gr) + QUORIN_LANES_MAGNITUDE(lh);
        const V dv = QUORIN_LANES_MAGNITUDE(gu - gd) + QUORIN_LANES_MAGNITUDE(lv);
        const V horizontal = ((gl + gr) >> 1) + (lh >> 2);
        const V vertical = ((gu + gd) >> 1) + (lv >> 2);
        const V both = ((gl + gr + gu + gd) >> 2) + ((lv + lh) >> 3);
        const V strong = (dh >= 80) | (dv >= 80);
        const V g = QUORIN_LANES_CLAMP(QUORIN_LANES_PICK(strong & (dh < dv), horizontal,
                                                         QUORIN_LANES_PICK(strong & (dh > dv), vertical, both)));
        QUORIN_LANES_STORE(green + x, QUORIN_LANES_PICK(isGreen, c, g));
        QUORIN_LANES_STORE(own + x, c);
        if (x + kLanes == end) {
            x = end;
            break;
        }
    }
    greenInnerLoop(m, green, own, w, odd, x); // rows too short for a block
});

// Pass 2 over an inner row of split rows (see kernels/vector_kernels.h):
// only the red and blue sites, whole registers of them, the last register
// over sites done already.
QUORIN_LANES_KERNEL(GreenInnerSplit, (const PassRow &r), {
    constexpr size_t kLanes = sizeof(V) / 2;
    const size_t w = r.w, half = (w + 1) / 2;
    const SplitSites sites(2, w - 3, r.odd);
    const uint16_t *here = r.m;
    uint16_t *green = r.plane[kGreen];
    for (size_t t = 0;; t += kLanes) {
        t = std::min(t, sites.count - kLanes);
        const size_t x = sites.first + 2 * t;
        const V c = QUORIN_SPLIT_AT(here, x), ll = QUORIN_SPLIT_AT(here, x - 2), rr = QUORIN_SPLIT_AT(here, x + 2);
        const V gl = QUORIN_SPLIT_AT(here, x - 1), gr = QUORIN_SPLIT_AT(here, x + 1);
        const V gu = QUORIN_SPLIT_AT(here - w, x), gd = QUORIN_SPLIT_AT(here + w, x);
        const V uu = QUORIN_SPLIT_AT(here - 2 * w, x), dd = QUORIN_SPLIT_AT(here + 2 * w, x);
        const V lh = c + c - ll - rr, lv = c + c - uu - dd;
        const V dh = QUORIN_LANES_MAGNITUDE(gl - gr) + QUORIN_LANES_MAGNITUDE(lh);
        const V dv = QUORIN_LANES_MAGNITUDE(gu - gd) + QUORIN_LANES_MAGNITUDE(lv);
        const V horizontal = ((gl + gr) >> 1) + (lh >> 2);
        const V vertical = ((gu + gd) >> 1) + (lv >> 2);
        const V both = ((gl + gr + gu + gd) >> 2) + ((lv + lh) >> 3);
        const V strong = (dh >= 80) | (dv >= 80);
        const V g = QUORIN_LANES_CLAMP(QUORIN_LANES_PICK(strong & (dh < dv), horizontal,
                                                         QUORIN_LANES_PICK(strong & (dh > dv), vertical, both)));
        QUORIN_LANES_STORE(QUORIN_SPLIT_PLACE(green, x), g);
        if (t + kLanes == sites.count)
            return;
    }
});

void greenInnerSplitAvx512(const PassRow &r)
{
    vec::greenSplitAvx512(r.m, r.plane[kGreen], r.w, r.odd);
}

} // namespace

void greenPlaneRow(const ColourJob &job, uint32_t y, PassRowKernel inner)
{
    const Area &a = job.f->area;
    if (innerRow(y, a) && a.w >= 5) {
        for (uint32_t x : {0u, 1u, a.w - 2, a.w - 1})
            greenBorderPixel(job, x, y);
        inner(passRow(job, y));
    } else {
        for (uint32_t x = 0; x < a.w; ++x)
            greenBorderPixel(job, x, y);
    }
}

PassRowKernel greenKernel(const ColourJob &job)
{
    if (job.p.half != 0)
        return vec::avx512Active() ? greenInnerSplitAvx512 : GreenInnerSplit::pick();
    return job.narrow ? GreenInnerNarrow::pick() : GreenInnerPlanar::pick();
}

void greenPlane(const ColourJob &job)
{
    const PassRowKernel inner = greenKernel(job);
    team::parallelFor(job.f->area.h, 16, [&](uint32_t begin, uint32_t end) {
        for (uint32_t y = begin; y < end; ++y)
            greenPlaneRow(job, y, inner);
    });
}

} // namespace quorin::image
