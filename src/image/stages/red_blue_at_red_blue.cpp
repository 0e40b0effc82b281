// Pass 4, red at blue sites and blue at red sites: from the two diagonal
// pairs of neighbours, guided by the green plane, with fall-backs when
// neither pair agrees with the green.
#include "image/kernels/portable.h"
#include "image/kernels/vector_kernels.h"
#include "image/schedule/team.h"
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

// Pass 4 over the inner columns of an inner row from column `from`, in
// its common cases; returns non-zero when some site needs the fall-backs,
// and marks those sites in flags (indexed by column).
QUORIN_ALWAYS_INLINE inline int32_t diagonalInnerLoop(const uint16_t *__restrict m, const uint16_t *__restrict g,
                                                      uint16_t *__restrict missing, size_t w, uint32_t odd,
                                                      std::uint8_t *__restrict flags, uint32_t from = 1)
{
    int32_t fallbacks = 0;
    const uint32_t end = static_cast<uint32_t>(w) - 1;
    const auto s = static_cast<std::ptrdiff_t>(w); // signed: the row above lies before m
    for (uint32_t x = from; x < end; ++x) {
        const std::ptrdiff_t i = x;
        const bool site = ((x ^ odd) & 1u) == 0;
        const int32_t gc = g[i];
        const int32_t c0 = m[i - s - 1], c1 = m[i + s + 1], c2 = m[i - s + 1], c3 = m[i + s - 1];
        const int32_t d1 = 2 * gc - g[i - s - 1] - g[i + s + 1];
        const int32_t d2 = 2 * gc - g[i - s + 1] - g[i + s - 1];
        const int32_t a1 = magnitude(d1), a2 = magnitude(d2);
        const int32_t all = (c0 + c1 + c2 + c3 + d1 + d2) >> 2;
        const int32_t first = (c0 + c1 + d1) >> 1, second = (c2 + c3 + d2) >> 1;
        const int32_t v = clampValue(choose(maskOf(a1 < 200) & maskOf(a2 < 200), all,
                                            choose(maskOf(a1 < a2) & maskOf(a1 < 200), first, second)));
        const int32_t fallback = maskOf(site) & maskOf(a1 >= 200) & maskOf(a2 >= 200);
        fallbacks |= fallback;
        flags[x] = static_cast<std::uint8_t>(fallback);
        missing[i] = static_cast<uint16_t>(choose(maskOf(site), v, missing[i]));
    }
    return fallbacks;
}

// The fall-backs of an inner row of pass 4, after its common cases: the
// loops mark the sites (columns 1 .. w-2), and only blocks of eight
// columns with a mark are visited again.
QUORIN_ALWAYS_INLINE inline void diagonalFixRow(const PassRow &r, std::uint8_t *flags)
{
    const size_t w = r.w;
    const uint16_t *m = r.m;
    const uint16_t *g = r.plane[kGreen];
    uint16_t *missing = r.plane[r.odd ? kRed : kBlue];
    auto fix = [&](size_t x) {
        const auto i = static_cast<std::ptrdiff_t>(x), s = static_cast<std::ptrdiff_t>(w);
        const int32_t gc = g[i];
        const std::ptrdiff_t pos[4] = {i - s - 1, i + s + 1, i - s + 1, i + s - 1};
        int32_t c[4], gi[4];
        for (int k = 0; k < 4; ++k) {
            c[k] = m[pos[k]];
            gi[k] = g[pos[k]];
        }
        const int32_t d1 = 2 * gc - gi[0] - gi[1], d2 = 2 * gc - gi[2] - gi[3];
        if (magnitude(d1) >= 200 && magnitude(d2) >= 200)
            missing[i] = static_cast<uint16_t>(diagonalFallback(c, gi, gc, (c[0] + c[1] + c[2] + c[3] + d1 + d2) >> 2));
    };
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
}

QUORIN_ALWAYS_INLINE inline void diagonalInnerRow(const PassRow &r)
{
    alignas(8) std::uint8_t flags[kSensorSide + 16];
    if (diagonalInnerLoop(r.m, r.plane[kGreen], r.plane[r.odd ? kRed : kBlue], r.w, r.odd, flags) != 0)
        diagonalFixRow(r, flags);
}

QUORIN_KERNEL(DiagonalInnerPlanar, (const PassRow &r), diagonalInnerRow(r););

// The colour a red or blue site misses, from its diagonal neighbours' values
// c0 .. c3 (up-left, down-right, up-right, down-left) and greens g0 .. g3
// and its own green gc, in 16-bit lanes, fall-backs included.
#define QUORIN_LANES_DIAGONAL(gc, c0, c1, c2, c3, g0, g1, g2, g3)                                                      \
    ({                                                                                                                 \
        const V d1_ = (gc) + (gc) - (g0) - (g1), d2_ = (gc) + (gc) - (g2) - (g3);                                      \
        const V a1_ = QUORIN_LANES_MAGNITUDE(d1_), a2_ = QUORIN_LANES_MAGNITUDE(d2_);                                  \
        const V all_ = ((c0) + (c1) + (c2) + (c3) + d1_ + d2_) >> 2;                                                   \
        const V first_ = ((c0) + (c1) + d1_) >> 1, second_ = ((c2) + (c3) + d2_) >> 1;                                 \
        V v_ = QUORIN_LANES_CLAMP(QUORIN_LANES_PICK((a1_ < 200) & (a2_ < 200), all_,                                   \
                                                    QUORIN_LANES_PICK((a1_ < a2_) & (a1_ < 200), first_, second_)));   \
        const V fallback_ = (a1_ >= 200) & (a2_ >= 200);                                                               \
        std::uint64_t words_[sizeof(V) / 8], any_ = 0;                                                                 \
        std::memcpy(words_, &fallback_, sizeof words_);                                                                \
        for (const std::uint64_t word_ : words_)                                                                       \
            any_ |= word_;                                                                                             \
        if (any_ != 0) {                                                                                               \
            /* When neither diagonal pair agrees with the green: the first mixed pair that does, else the closest */   \
            /* single neighbour within 100 (the first of equals), else the mean of all. */                             \
            V bestDistance_ = V{} + 100, best_ = QUORIN_LANES_CLAMP(all_);                                             \
            const V cs_[4] = {(c0), (c1), (c2), (c3)}, gs_[4] = {(g0), (g1), (g2), (g3)};                              \
            for (int k_ = 0; k_ < 4; ++k_) {                                                                           \
                const V distance_ = QUORIN_LANES_MAGNITUDE((gc) - gs_[k_]);                                            \
                const V closer_ = distance_ < bestDistance_;                                                           \
                bestDistance_ = QUORIN_LANES_PICK(closer_, distance_, bestDistance_);                                  \
                best_ = QUORIN_LANES_PICK(closer_, QUORIN_LANES_CLAMP(cs_[k_] + ((gc) - gs_[k_])), best_);             \
            }                                                                                                          \
            constexpr int kMixed_[4][2] = {{1, 3}, {1, 2}, {0, 3}, {0, 2}}; /* the last one first */                   \
            for (const auto &p_ : kMixed_) {                                                                           \
                const V d_ = (gc) + (gc) - gs_[p_[0]] - gs_[p_[1]];                                                    \
                best_ = QUORIN_LANES_PICK(QUORIN_LANES_MAGNITUDE(d_) < 200,                                            \
                                          QUORIN_LANES_CLAMP((cs_[p_[0]] + cs_[p_[1]] + d_) >> 1), best_);             \
            }                                                                                                          \
            v_ = QUORIN_LANES_PICK(fallback_, best_, v_);                                                              \
        }                                                                                                              \
        v_;                                                                                                            \
    })

// Pass 4 over an inner row in 16-bit lanes; the last columns one by one.
QUORIN_LANES_KERNEL(DiagonalInnerNarrow, (const PassRow &r), {
    constexpr uint32_t kLanes = sizeof(V) / 2;
    const size_t w = r.w;
    const uint32_t odd = r.odd, end = static_cast<uint32_t>(w) - 1;
    const uint16_t *__restrict m = r.m;
    const uint16_t *__restrict g = r.plane[kGreen];
    uint16_t *__restrict missing = r.plane[odd ? kRed : kBlue];
    alignas(8) std::uint8_t flags[kSensorSide + 16];
    uint32_t x = 1;
    for (; end >= 1 + kLanes; x += kLanes) {
        x = std::min(x, end - kLanes); // the last block again over done columns
        const size_t i = x;
        const V site = ~QUORIN_LANES_ODD(x, odd);
        const V v = QUORIN_LANES_DIAGONAL(QUORIN_LANES_LOAD(g + i), QUORIN_LANES_LOAD(m + i - w - 1),
                                          QUORIN_LANES_LOAD(m + i + w + 1), QUORIN_LANES_LOAD(m + i - w + 1),
                                          QUORIN_LANES_LOAD(m + i + w - 1), QUORIN_LANES_LOAD(g + i - w - 1),
                                          QUORIN_LANES_LOAD(g + i + w + 1), QUORIN_LANES_LOAD(g + i - w + 1),
                                          QUORIN_LANES_LOAD(g + i + w - 1));
        QUORIN_LANES_STORE(missing + i, QUORIN_LANES_PICK(site, v, QUORIN_LANES_LOAD(missing + i)));
        if (x + kLanes == end)
            return;
    }
    // Rows too short for a block: the plain loop marks its fall-backs.
    std::memset(flags, 0, sizeof flags);
    if (diagonalInnerLoop(m, g, missing, w, odd, flags, x) != 0)
        diagonalFixRow(r, flags);
});

// Pass 4 over an inner row of split rows: only the red and blue sites,
// whole registers of them, the last register over sites done already.
QUORIN_LANES_KERNEL(DiagonalInnerSplit, (const PassRow &r), {
    constexpr size_t kLanes = sizeof(V) / 2;
    const size_t w = r.w, half = (w + 1) / 2;
    const SplitSites sites(1, w - 2, r.odd);
    const uint16_t *above = r.m - w, *under = r.m + w;
    const uint16_t *green = r.plane[kGreen], *greenAbove = green - w, *greenUnder = green + w;
    uint16_t *missing = r.plane[r.odd ? kRed : kBlue];
    for (size_t t = 0;; t += kLanes) {
        t = std::min(t, sites.count - kLanes);
        const size_t x = sites.first + 2 * t;
        const V v = QUORIN_LANES_DIAGONAL(QUORIN_SPLIT_AT(green, x), QUORIN_SPLIT_AT(above, x - 1),
                                          QUORIN_SPLIT_AT(under, x + 1), QUORIN_SPLIT_AT(above, x + 1),
                                          QUORIN_SPLIT_AT(under, x - 1), QUORIN_SPLIT_AT(greenAbove, x - 1),
                                          QUORIN_SPLIT_AT(greenUnder, x + 1), QUORIN_SPLIT_AT(greenAbove, x + 1),
                                          QUORIN_SPLIT_AT(greenUnder, x - 1));
        QUORIN_LANES_STORE(QUORIN_SPLIT_PLACE(missing, x), v);
        if (t + kLanes == sites.count)
            return;
    }
});

void diagonalBorderPixel(const ColourJob &job, uint32_t x, uint32_t y)
{
    const Area &a = job.f->area;
    int32_t sum = 0;
    int n = 0;
    for (int dy = -1; dy <= 1; dy += 2)
        for (int dx = -1; dx <= 1; dx += 2) {
            const int64_t cx = int64_t{x} + dx, cy = int64_t{y} + dy;
            if (cx >= 0 && cy >= 0 && cx < int64_t{a.w} && cy < int64_t{a.h}) {
                sum += job.mosaicAt(static_cast<uint32_t>(cx), static_cast<uint32_t>(cy));
                ++n;
            }
        }
    job.p.at((y & 1) ? kRed : kBlue, x, y) = static_cast<uint16_t>(n == 0 ? 0 : borderMean(sum, n));
}

// Pass 4 over an inner row of split rows.
void diagonalInnerSplitAvx512(const PassRow &r)
{
    vec::diagonalSplitAvx512(r.m, r.plane[kGreen], r.plane[r.odd ? kRed : kBlue], r.w, r.odd);
}

} // namespace

void redBlueAtRedBlueRow(const ColourJob &job, uint32_t y, PassRowKernel inner)
{
    const Area &a = job.f->area;
    const bool isInner = y >= 1 && y + 2 <= a.h && a.w >= 3;
    if (isInner)
        inner(passRow(job, y));
    // Red or blue sites outside the inner part: the whole row, or the first
    // and last column.
    const uint32_t parity = (y & 1) ? 1 : 0;
    auto sites = [&](uint32_t from, uint32_t to) {
        for (uint32_t x = from + ((from ^ parity) & 1); x < to; x += 2)
            diagonalBorderPixel(job, x, y);
    };
    if (isInner) {
        sites(0, 1);
        sites(a.w - 1, a.w);
    } else {
        sites(0, a.w);
    }
}

PassRowKernel diagonalKernel(const ColourJob &job)
{
    if (job.p.half != 0)
        return vec::avx512Active() ? diagonalInnerSplitAvx512 : DiagonalInnerSplit::pick();
    return job.narrow ? DiagonalInnerNarrow::pick() : DiagonalInnerPlanar::pick();
}

void redBlueAtTop(const ColourJob &job)
{
    const Area &a = job.f->area;
    if (a.h > 1)
        for (uint32_t x = 0; x < a.w; x += 2)
            job.p.at(kBlue, x, 0) = job.p.at(kBlue, x, 1);
}

void redBlueAtBottom(const ColourJob &job)
{
    const Area &a = job.f->area;
    if (a.h > 1)
        for (uint32_t x = 1; x < a.w; x += 2)
            job.p.at(kRed, x, a.h - 1) = job.p.at(kRed, x, a.h - 2);
}

void redBlueAtRedBlue(const ColourJob &job)
{
    const PassRowKernel inner = diagonalKernel(job);
    team::parallelFor(job.f->area.h, 16, [&](uint32_t begin, uint32_t end) {
        for (uint32_t y = begin; y < end; ++y)
            redBlueAtRedBlueRow(job, y, inner);
    });
    redBlueAtTop(job);
    redBlueAtBottom(job);
}

} // namespace quorin::image
