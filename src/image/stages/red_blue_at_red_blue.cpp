// Pass 4, red at blue sites and blue at red sites: from the two diagonal
// pairs of neighbours, guided by the green plane, with fall-backs when
// neither pair agrees with the green.
#include "image/kernels/portable.h"
#include "image/kernels/vector_kernels.h"
#include "image/stages/interpolation.h"

#include <cstdlib>

namespace quorin::image {
namespace {

int32_t clamp10(int32_t v)
{
    return v < 0 ? 0 : v > kMaxValue ? kMaxValue : v;
}

// The rare fall-backs when neither diagonal pair agrees with the green.
QUORIN_ALWAYS_INLINE inline int32_t diagonalFallback(const int32_t c[4], const int32_t gi[4], int32_t g,
                                                    int32_t all)
{
    static constexpr int kMixed[4][2] = {{0, 2}, {0, 3}, {1, 2}, {1, 3}};
    for (const auto &p : kMixed) {
        const int32_t d = 2 * g - gi[p[0]] - gi[p[1]];
        if (std::abs(d) < 200)
            return clamp10((c[p[0]] + c[p[1]] + d) >> 1);
    }
    int best = -1;
    int32_t bestDistance = 0;
    for (int k = 0; k < 4; ++k) {
        const int32_t d = std::abs(g - gi[k]);
        if (d < 100 && (best < 0 || d < bestDistance)) {
            best = k;
            bestDistance = d;
        }
    }
    if (best >= 0)
        return clamp10(c[best] + (g - gi[best]));
    return clamp10(all);
}

// Pass 4 over the inner columns of an inner row, in its common cases;
// returns non-zero when some site needs the fall-backs, and marks those
// sites in flags (indexed by column; the planar layout only).
template <size_t S>
QUORIN_ALWAYS_INLINE inline int32_t diagonalInnerLoop(const uint16_t *__restrict m, const uint16_t *__restrict g,
                                                      uint16_t *__restrict missing, size_t row, size_t w,
                                                      uint32_t odd, std::uint8_t *__restrict flags,
                                                      uint32_t from = 1)
{
    int32_t fallbacks = 0;
    const uint32_t end = static_cast<uint32_t>(w) - 1;
    for (uint32_t x = from; x < end; ++x) {
        const size_t i = row + x;
        const bool site = ((x ^ odd) & 1u) == 0;
        const int32_t gc = g[i * S];
        const int32_t c0 = m[i - w - 1], c1 = m[i + w + 1], c2 = m[i - w + 1], c3 = m[i + w - 1];
        const int32_t d1 = 2 * gc - g[(i - w - 1) * S] - g[(i + w + 1) * S];
        const int32_t d2 = 2 * gc - g[(i - w + 1) * S] - g[(i + w - 1) * S];
        const int32_t a1 = magnitude(d1), a2 = magnitude(d2);
        const int32_t all = (c0 + c1 + c2 + c3 + d1 + d2) >> 2;
        const int32_t first = (c0 + c1 + d1) >> 1, second = (c2 + c3 + d2) >> 1;
        const int32_t v = clampValue(choose(maskOf(a1 < 200) & maskOf(a2 < 200), all,
                                            choose(maskOf(a1 < a2) & maskOf(a1 < 200), first, second)));
        const int32_t fallback = maskOf(site) & maskOf(a1 >= 200) & maskOf(a2 >= 200);
        fallbacks |= fallback;
        if constexpr (S == 1) {
            flags[x] = static_cast<std::uint8_t>(fallback);
            missing[i] = static_cast<uint16_t>(choose(maskOf(site), v, missing[i]));
        }
        else if (site)
            missing[i * S] = static_cast<uint16_t>(v);
    }
    return fallbacks;
}

// The fall-backs of an inner row of pass 4, after its common cases.
template <size_t S>
QUORIN_ALWAYS_INLINE inline void diagonalFixRow(const ColourJob<S> &job, uint32_t y, std::uint8_t *flags)
{
    const Frame &f = *job.f;
    const size_t w = f.area.w;
    const uint16_t *m = f.work;
    const uint16_t *g = job.p.c[kGreen];
    uint16_t *missing = job.p.c[(y & 1) ? kRed : kBlue];
    const size_t row = size_t{y} * w;
    const size_t odd = y & 1;
    auto fix = [&](size_t x) {
        const size_t i = row + x;
        const int32_t gc = g[i * S];
        const size_t pos[4] = {i - w - 1, i + w + 1, i - w + 1, i + w - 1};
        int32_t c[4], gi[4];
        for (int k = 0; k < 4; ++k) {
            c[k] = m[pos[k]];
            gi[k] = g[pos[k] * S];
        }
        const int32_t d1 = 2 * gc - gi[0] - gi[1], d2 = 2 * gc - gi[2] - gi[3];
        if (magnitude(d1) >= 200 && magnitude(d2) >= 200)
            missing[i * S] =
                static_cast<uint16_t>(diagonalFallback(c, gi, gc, (c[0] + c[1] + c[2] + c[3] + d1 + d2) >> 2));
    };
    if constexpr (S == 1) {
        // The planar loops mark the sites (columns 1 .. w-2): only blocks
        // of eight columns with a mark are visited again.
        flags[0] = 0;
        std::memset(flags + w - 1, 0, 9);
        for (size_t b = 0; b < w; b += 8) {
            std::uint64_t word;
            std::memcpy(&word, flags + b, sizeof word);
            if (word == 0)
                continue;
            for (size_t x = b; x < b + 8; ++x)
                if (flags[x] != 0)
                    fix(x);
        }
    } else {
        for (size_t x = 2 - odd; x + 2 <= w; x += 2)
            fix(x);
    }
}

template <size_t S> QUORIN_ALWAYS_INLINE inline void diagonalInnerRow(const ColourJob<S> &job, uint32_t y)
{
    const Frame &f = *job.f;
    const size_t w = f.area.w;
    alignas(8) std::uint8_t flags[kSensorSide + 16];
    if (diagonalInnerLoop<S>(f.work, job.p.c[kGreen], job.p.c[(y & 1) ? kRed : kBlue], size_t{y} * w, w, y & 1,
                             flags) != 0)
        diagonalFixRow<S>(job, y, flags);
}

QUORIN_KERNEL(DiagonalInnerPlanar, (const ColourJob<1> &job, uint32_t y), diagonalInnerRow<1>(job, y););

// Pass 4 over an inner row in 16-bit lanes, fall-backs included; the last
// columns one by one.
QUORIN_LANES_KERNEL(DiagonalInnerNarrow, (const ColourJob<1> &job, uint32_t y), {
    constexpr uint32_t kLanes = sizeof(V) / 2;
    const Frame &f = *job.f;
    const size_t w = f.area.w, row = size_t{y} * w;
    const uint32_t odd = y & 1, end = static_cast<uint32_t>(w) - 1;
    const uint16_t *__restrict m = f.work;
    const uint16_t *__restrict g = job.p.c[kGreen];
    uint16_t *__restrict missing = job.p.c[odd ? kRed : kBlue];
    alignas(8) std::uint8_t flags[kSensorSide + 16];
    uint32_t x = 1;
    for (; end >= 1 + kLanes; x += kLanes) {
        x = std::min(x, end - kLanes); // the last block again over done columns
        const size_t i = row + x;
        const V site = ~QUORIN_LANES_ODD(x, odd);
        const V gc = QUORIN_LANES_LOAD(g + i);
        const V c0 = QUORIN_LANES_LOAD(m + i - w - 1), c1 = QUORIN_LANES_LOAD(m + i + w + 1);
        const V c2 = QUORIN_LANES_LOAD(m + i - w + 1), c3 = QUORIN_LANES_LOAD(m + i + w - 1);
        const V d1 = gc + gc - QUORIN_LANES_LOAD(g + i - w - 1) - QUORIN_LANES_LOAD(g + i + w + 1);
        const V d2 = gc + gc - QUORIN_LANES_LOAD(g + i - w + 1) - QUORIN_LANES_LOAD(g + i + w - 1);
        const V a1 = QUORIN_LANES_MAGNITUDE(d1), a2 = QUORIN_LANES_MAGNITUDE(d2);
        const V all = (c0 + c1 + c2 + c3 + d1 + d2) >> 2;
        const V first = (c0 + c1 + d1) >> 1, second = (c2 + c3 + d2) >> 1;
        V v = QUORIN_LANES_CLAMP(QUORIN_LANES_PICK((a1 < 200) & (a2 < 200), all,
                                                   QUORIN_LANES_PICK((a1 < a2) & (a1 < 200), first, second)));
        const V fallback = (a1 >= 200) & (a2 >= 200);
        std::uint64_t words[sizeof(V) / 8], anyFallback = 0;
        std::memcpy(words, &fallback, sizeof words);
        for (const std::uint64_t word : words)
            anyFallback |= word;
        if (anyFallback != 0) {
            // When neither diagonal pair agrees with the green: the first
            // mixed pair that does, else the closest single neighbour
            // within 100 (the first of equals), else the mean of all.
            const V g0 = QUORIN_LANES_LOAD(g + i - w - 1), g1 = QUORIN_LANES_LOAD(g + i + w + 1);
            const V g2 = QUORIN_LANES_LOAD(g + i - w + 1), g3 = QUORIN_LANES_LOAD(g + i + w - 1);
            V bestDistance = V{} + 100, best = QUORIN_LANES_CLAMP(all);
            const V cs[4] = {c0, c1, c2, c3}, gs[4] = {g0, g1, g2, g3};
            for (int k = 0; k < 4; ++k) {
                const V distance = QUORIN_LANES_MAGNITUDE(gc - gs[k]);
                const V closer = distance < bestDistance;
                bestDistance = QUORIN_LANES_PICK(closer, distance, bestDistance);
                best = QUORIN_LANES_PICK(closer, QUORIN_LANES_CLAMP(cs[k] + (gc - gs[k])), best);
            }
            static constexpr int kMixed[4][2] = {{1, 3}, {1, 2}, {0, 3}, {0, 2}}; // the last one first
            for (const auto &p : kMixed) {
                const V d = gc + gc - gs[p[0]] - gs[p[1]];
                best = QUORIN_LANES_PICK(QUORIN_LANES_MAGNITUDE(d) < 200,
                                         QUORIN_LANES_CLAMP((cs[p[0]] + cs[p[1]] + d) >> 1), best);
            }
            v = QUORIN_LANES_PICK(fallback, best, v);
        }
        QUORIN_LANES_STORE(missing + i, QUORIN_LANES_PICK(site, v, QUORIN_LANES_LOAD(missing + i)));
        if (x + kLanes == end)
            return;
    }
    // Rows too short for a block: the plain loop marks its fall-backs.
    std::memset(flags, 0, sizeof flags);
    if (diagonalInnerLoop<1>(m, g, missing, row, w, odd, flags, x) != 0)
        diagonalFixRow<1>(job, y, flags);
});

template <size_t S> void diagonalBorderPixel(const ColourJob<S> &job, uint32_t x, uint32_t y)
{
    const Area &a = job.f->area;
    int32_t sum = 0;
    int n = 0;
    for (int dy = -1; dy <= 1; dy += 2)
        for (int dx = -1; dx <= 1; dx += 2) {
            const int64_t cx = int64_t{x} + dx, cy = int64_t{y} + dy;
            if (cx >= 0 && cy >= 0 && cx < int64_t{a.w} && cy < int64_t{a.h}) {
                sum += job.mosaic(static_cast<uint32_t>(cx), static_cast<uint32_t>(cy));
                ++n;
            }
        }
    job.p.at((y & 1) ? kRed : kBlue, x, y) = static_cast<uint16_t>(n == 0 ? 0 : borderMean(sum, n));
}

// Pass 4 over an inner row of split rows.
void diagonalInnerSplit(const ColourJob<1> &job, uint32_t y)
{
    const size_t w = job.p.w;
    const uint32_t odd = y & 1;
    vec::diagonalSplitAvx512(job.splitMosaic + size_t{y} * w, job.p.row(kGreen, y), job.p.row(odd ? kRed : kBlue, y), w,
                             odd);
}

} // namespace

template <size_t S> void redBlueAtRedBlueRow(const ColourJob<S> &job, uint32_t y, PlanarRowKernel planar)
{
    const Area &a = job.f->area;
    {
        const bool inner = y >= 1 && y + 2 <= a.h && a.w >= 3;
        if (inner) {
            if constexpr (S == 1)
                planar(job, y);
            else
                diagonalInnerRow<S>(job, y);
        }
        // Red or blue sites outside the inner part: the whole row, or the
        // first and last column.
        const uint32_t parity = (y & 1) ? 1 : 0;
        auto sites = [&](uint32_t from, uint32_t to) {
            for (uint32_t x = from + ((from ^ parity) & 1); x < to; x += 2)
                diagonalBorderPixel(job, x, y);
        };
        if (inner) {
            sites(0, 1);
            sites(a.w - 1, a.w);
        } else {
            sites(0, a.w);
        }
    }
}

template <size_t S> PlanarRowKernel diagonalKernel(const ColourJob<S> &job)
{
    return rowKernel<DiagonalInnerNarrow, DiagonalInnerPlanar>(job, diagonalInnerSplit);
}

// The top row's red sites take blue from below, the bottom row's odd
// pixels red from above (each edge reads and writes rows the other does
// not touch).
template <size_t S> void redBlueAtTop(const ColourJob<S> &job)
{
    const Area &a = job.f->area;
    if (a.h > 1)
        for (uint32_t x = 0; x < a.w; x += 2)
            job.p.at(kBlue, x, 0) = job.p.at(kBlue, x, 1);
}

template <size_t S> void redBlueAtBottom(const ColourJob<S> &job)
{
    const Area &a = job.f->area;
    if (a.h > 1)
        for (uint32_t x = 1; x < a.w; x += 2)
            job.p.at(kRed, x, a.h - 1) = job.p.at(kRed, x, a.h - 2);
}

template <size_t S> void redBlueAtRedBlue(const ColourJob<S> &job)
{
    const int h = static_cast<int>(job.f->area.h);
    const PlanarRowKernel planar = diagonalKernel(job);
#pragma omp parallel for schedule(static)
    for (int yi = 0; yi < h; ++yi)
        redBlueAtRedBlueRow(job, static_cast<uint32_t>(yi), planar);
    redBlueAtTop(job);
    redBlueAtBottom(job);
}

template PlanarRowKernel diagonalKernel(const ColourJob<1> &job);
template void redBlueAtRedBlueRow(const ColourJob<1> &job, uint32_t y, PlanarRowKernel planar);
template void redBlueAtTop(const ColourJob<1> &job);
template void redBlueAtBottom(const ColourJob<1> &job);
template void redBlueAtRedBlue(const ColourJob<1> &job);
template PlanarRowKernel diagonalKernel(const ColourJob<3> &job);
template void redBlueAtRedBlueRow(const ColourJob<3> &job, uint32_t y, PlanarRowKernel planar);
template void redBlueAtTop(const ColourJob<3> &job);
template void redBlueAtBottom(const ColourJob<3> &job);
template void redBlueAtRedBlue(const ColourJob<3> &job);

} // namespace quorin::image
