// The shipped pixel pipeline. It produces exactly what the reference
// stages produce, but organised for speed:
//  - unpacking, dark subtraction and pixel gain run as one pass per row;
//  - defect correction looks neighbours up in a sorted copy of the list
//    (a corrected pixel never feeds another one: listed neighbours are
//    excluded, so the order of the list does not matter);
//  - colour balance and the copy for green smoothing are one pass;
//  - the last interpolation pass, the colour matrix, the look-up and the
//    8-bit reduction are one pass per row when nothing needs the 16-bit
//    result;
//  - every per-row pass is an OpenMP loop with a static schedule, and the
//    inner loops are written so that the compiler vectorises them for the
//    instruction set picked at run time (see simd.h).
#include "image/pipeline.h"

#include "image/reference/stages.h"
#include "image/simd.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace quorin::image {
namespace {

using std::int32_t;
using std::size_t;
using std::uint16_t;
using std::uint32_t;

// ---- Sensor pass ----------------------------------------------------------

struct SensorJob {
    const Frame *f;
    bool dark;
    bool darkVector;
    const uint16_t *gainTable; // null with constantGain
    bool gain;
    bool constantGain;
};

// Row y of the area: unpack (when whole groups lie in the row), subtract
// the dark frame, apply the pixel gain.
template <bool Unpack>
QUORIN_ALWAYS_INLINE inline void sensorRow(const SensorJob &job, uint32_t y)
{
    const Frame &f = *job.f;
    const Area &a = f.area;
    uint16_t *row = f.work + size_t{y} * a.w;
    if constexpr (Unpack) {
        const std::uint8_t *in = f.raw + size_t{y} * a.w / 4 * 5;
        for (uint32_t g = 0; g < a.w / 4; ++g) {
            const std::uint8_t *b = in + 5 * g;
            row[4 * g] = static_cast<uint16_t>((b[1] & 0x03) << 8 | b[0]);
            row[4 * g + 1] = static_cast<uint16_t>((b[2] & 0x0F) << 6 | b[1] >> 2);
            row[4 * g + 2] = static_cast<uint16_t>((b[3] & 0x3F) << 4 | b[2] >> 4);
            row[4 * g + 3] = static_cast<uint16_t>(b[4] << 2 | b[3] >> 6);
        }
    }
    const size_t table = size_t{a.y0 + y} * kSensorSide + a.x0;
    if (job.dark) {
        const uint16_t *d = f.dark + table;
        if (job.darkVector) {
            for (uint32_t x = 0; x < a.w; ++x) {
                int32_t v = static_cast<std::int16_t>(static_cast<uint16_t>(row[x] - d[x]));
                v = v < 0 ? 0 : v;
                row[x] = static_cast<uint16_t>(v > kMaxValue ? kMaxValue : v);
            }
        } else {
            for (uint32_t x = 0; x < a.w; ++x) {
                const int32_t v = static_cast<std::int16_t>(static_cast<uint16_t>(row[x] - d[x]));
                row[x] = static_cast<uint16_t>(v < 1 ? 0 : v);
            }
        }
    }
    if (job.gain) {
        if (job.constantGain) {
            for (uint32_t x = 0; x < a.w; ++x) {
                const auto p = static_cast<uint16_t>((uint32_t{row[x]} * 997u) >> 9);
                row[x] = static_cast<std::int16_t>(p) > kMaxValue ? kMaxValue : p;
            }
        } else {
            const uint16_t *g = job.gainTable + table;
            for (uint32_t x = 0; x < a.w; ++x) {
                const auto p = static_cast<uint16_t>((uint32_t{row[x]} * g[x]) >> 9);
                row[x] = static_cast<std::int16_t>(p) > kMaxValue ? kMaxValue : p;
            }
        }
    }
}

QUORIN_KERNEL(SensorRowFused, (const SensorJob &job, uint32_t y), sensorRow<true>(job, y););
QUORIN_KERNEL(SensorRowCorrect, (const SensorJob &job, uint32_t y), sensorRow<false>(job, y););

// Runs a row kernel over every row of the area, rows split statically.
template <typename Kernel, typename Job> void forEachRow(const Job &job, uint32_t rows)
{
    const auto kernel = Kernel::pick();
    const int h = static_cast<int>(rows);
#pragma omp parallel for schedule(static)
    for (int y = 0; y < h; ++y)
        kernel(job, static_cast<uint32_t>(y));
}

void unpackParallel(const std::uint8_t *raw, size_t pixels, uint16_t *work)
{
    const long groups = static_cast<long>(pixels >> 2);
#pragma omp parallel for schedule(static)
    for (long i = 0; i < groups; ++i) {
        const std::uint8_t *b = raw + 5 * i;
        uint16_t *o = work + 4 * i;
        o[0] = static_cast<uint16_t>((b[1] & 0x03) << 8 | b[0]);
        o[1] = static_cast<uint16_t>((b[2] & 0x0F) << 6 | b[1] >> 2);
        o[2] = static_cast<uint16_t>((b[3] & 0x3F) << 4 | b[2] >> 4);
        o[3] = static_cast<uint16_t>(b[4] << 2 | b[3] >> 6);
    }
}

void sensorPass(const Frame &f)
{
    const Kernel kernel = kernelFor(f.kernelVariant);
    SensorJob job{&f, f.darkSubtract && kernel != Kernel::Skip, kernel == Kernel::Vector, nullptr, false, false};
    if (kernel != Kernel::Skip && f.pixelGainMode >= 1 && f.pixelGainMode <= 3) {
        job.gain = true;
        job.constantGain = f.pixelGainMode == 3;
        job.gainTable = f.pixelGainMode == 1 ? f.gainA : f.pixelGainMode == 2 ? f.gainB : nullptr;
    }
    // The crosstalk correction sits between dark and gain: split there.
    const bool split = f.columnCorrect;
    SensorJob first = job;
    if (split)
        first.gain = false;
    if (f.area.w % 4 == 0) {
        forEachRow<SensorRowFused>(first, f.area.h);
    } else {
        unpackParallel(f.raw, f.area.pixels(), f.work);
        forEachRow<SensorRowCorrect>(first, f.area.h);
    }
    if (split) {
        reference::crosstalk(f.work, f.area);
        SensorJob gainOnly = job;
        gainOnly.dark = false;
        forEachRow<SensorRowCorrect>(gainOnly, f.area.h);
    }
}

// ---- Defects ----------------------------------------------------------------

class DefectSet {
public:
    DefectSet(const uint32_t *list, uint32_t count) : count_(count)
    {
        std::copy(list, list + count, sorted_);
        std::sort(sorted_, sorted_ + count);
    }
    bool holds(uint32_t entry) const { return std::binary_search(sorted_, sorted_ + count_, entry); }

private:
    uint32_t sorted_[1024];
    uint32_t count_;
};

void correctDefects(const Frame &f)
{
    if (!f.defectCorrect || f.defectCount == 0)
        return;
    const Area &a = f.area;
    const DefectSet set(f.defects, f.defectCount);
    struct Offset {
        int dx, dy;
    };
    static constexpr Offset kFour[4] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
    static constexpr Offset kDiagonal[4] = {{-1, -1}, {-1, 1}, {1, -1}, {1, 1}};
    static constexpr Offset kTwoAway[4] = {{-2, 0}, {2, 0}, {0, -2}, {0, 2}};
    for (uint32_t k = 0; k < f.defectCount; ++k) {
        const uint32_t entry = f.defects[k];
        const uint32_t x = (entry >> 16) - a.x0, y = (entry & 0xFFFF) - a.y0;
        if (x >= a.w || y >= a.h)
            continue;
        const Offset *offsets = kFour;
        if (f.colour) {
            const bool green = ((x ^ y) & 1) != 0;
            offsets = green ? kDiagonal : kTwoAway;
        }
        uint32_t sum = 0, used = 0;
        for (int i = 0; i < 4; ++i) {
            const int64_t cx = int64_t{x} + offsets[i].dx, cy = int64_t{y} + offsets[i].dy;
            if (cx < 0 || cy < 0 || cx >= int64_t{a.w} || cy >= int64_t{a.h})
                continue;
            if (set.holds(entry + static_cast<uint32_t>(offsets[i].dx * 0x10000 + offsets[i].dy)))
                continue;
            sum += f.work[size_t(cy) * a.w + size_t(cx)];
            ++used;
        }
        if (used > 0)
            f.work[size_t{y} * a.w + x] = static_cast<uint16_t>(std::min<uint32_t>(sum / used, kMaxValue));
    }
}

// ---- Output helpers -------------------------------------------------------

// Table of the 8-bit output of each look-up index.
struct Reduced {
    std::uint8_t v[1024];
    Reduced(const uint16_t *table, uint32_t shift)
    {
        for (uint32_t i = 0; i < 1024; ++i)
            v[i] = reduce8(table[i], shift);
    }
};

QUORIN_KERNEL(ReduceRange, (const uint16_t *in, size_t begin, size_t end, std::uint8_t *out, uint32_t shift),
              for (size_t i = begin; i < end; ++i) {
                  const uint32_t o = in[i] >> shift;
                  out[i] = static_cast<std::uint8_t>(o > 255 ? 255 : o);
              });

// The 8-bit reduction of count values, in chunks split statically.
void reduceValues(const uint16_t *in, size_t count, std::uint8_t *out, uint32_t shift)
{
    constexpr size_t kChunk = 16384;
    const auto kernel = ReduceRange::pick();
    const long chunks = static_cast<long>((count + kChunk - 1) / kChunk);
#pragma omp parallel for schedule(static)
    for (long c = 0; c < chunks; ++c)
        kernel(in, size_t(c) * kChunk, std::min(count, size_t(c + 1) * kChunk), out, shift);
}

void lookUpMono(const Frame &f, bool sixteenBit, void *dest)
{
    const Area &a = f.area;
    const long n = static_cast<long>(a.pixels());
    const uint16_t *table = f.lut[0];
    if (f.mode71 != 0) {
        uint16_t *target = sixteenBit ? static_cast<uint16_t *>(dest) : f.cache;
        reference::edgeMono(f.work, target, table, a, edgeShift(f.mode71));
        if (!sixteenBit)
            reduceValues(f.cache, a.pixels(), static_cast<std::uint8_t *>(dest), f.outputShift);
        return;
    }
    if (sixteenBit || f.keepLiveCache) {
        uint16_t *target = sixteenBit ? static_cast<uint16_t *>(dest) : f.cache;
#pragma omp parallel for schedule(static)
        for (long i = 0; i < n; ++i)
            target[i] = table[lutIndex(f.work[i])];
        if (!sixteenBit)
            reduceValues(f.cache, a.pixels(), static_cast<std::uint8_t *>(dest), f.outputShift);
        return;
    }
    const Reduced reduced(table, f.outputShift);
    auto *d = static_cast<std::uint8_t *>(dest);
#pragma omp parallel for schedule(static)
    for (long i = 0; i < n; ++i)
        d[i] = reduced.v[lutIndex(f.work[i])];
}

// ---- Colour -----------------------------------------------------------------

enum : unsigned { kRed = 0, kGreen = 1, kBlue = 2 };

int32_t clamp10(int32_t v)
{
    return v < 0 ? 0 : v > kMaxValue ? kMaxValue : v;
}

// Colour balance, and for colour mode 2 the copy the smoothing reads.
void balance(const Frame &f, bool copyForSmoothing)
{
    const Area &a = f.area;
    const Kernel kernel = kernelFor(f.kernelVariant);
    const int h = static_cast<int>(a.h);
    if (kernel == Kernel::Skip) {
        if (copyForSmoothing)
            std::memcpy(f.previous, f.work, a.pixels() * 2);
        return;
    }
    const uint32_t *g = f.balanceGains;
    const bool vector = kernel == Kernel::Vector;
    const uint32_t vectorRows = (a.h >> 1) * 2;
    const uint32_t pairs = a.w >> 1;
#pragma omp parallel for schedule(static)
    for (int yi = 0; yi < h; ++yi) {
        const uint32_t y = static_cast<uint32_t>(yi);
        uint16_t *row = f.work + size_t{y} * a.w;
        const uint32_t gainEven = (y & 1) ? g[1] : g[0], gainOdd = (y & 1) ? g[2] : g[1];
        if (vector) {
            if (y < vectorRows) {
                const uint32_t ge = static_cast<uint16_t>(gainEven), go = static_cast<uint16_t>(gainOdd);
                for (uint32_t x = 0; x < a.w; ++x) {
                    const auto p = static_cast<std::int16_t>(
                        static_cast<uint16_t>((uint32_t{row[x]} * ((x & 1) ? go : ge)) >> 4));
                    row[x] = static_cast<uint16_t>(p > kMaxValue ? kMaxValue : p);
                }
            }
        } else {
            for (uint32_t x = 0; x < 2 * pairs; ++x) {
                const auto p = static_cast<uint16_t>((uint32_t{row[x]} * ((x & 1) ? gainOdd : gainEven)) >> 4);
                row[x] = p > kMaxValue ? kMaxValue : p;
            }
        }
        if (copyForSmoothing)
            std::memcpy(f.previous + size_t{y} * a.w, row, size_t{a.w} * 2);
    }
}

void greenSmoothing(const Frame &f)
{
    const Area &a = f.area;
    const uint16_t *c0 = f.previous;
    const size_t w = a.w;
    auto smooth = [&](size_t x, size_t y) {
        const size_t i = y * w + x;
        const int32_t c = c0[i];
        int32_t sum = 4 * c, weight = 4;
        const int32_t n[4] = {c0[i - w - 1], c0[i - w + 1], c0[i + w - 1], c0[i + w + 1]};
        for (int32_t v : n) {
            const int32_t d = std::abs(c - v);
            const int32_t k = d < 25 ? 2 : d < 50 ? 1 : 0;
            sum += k * v;
            weight += k;
        }
        f.work[i] = static_cast<uint16_t>(sum / weight);
    };
    const int pairs = a.h >= 3 ? static_cast<int>((a.h - 2 + 1) / 2) : 0; // odd rows 1 .. H-2
#pragma omp parallel for schedule(static)
    for (int p = 0; p < pairs; ++p) {
        const size_t y = 1 + 2 * size_t(p);
        for (size_t x = 2; x + 2 <= w; x += 2)
            smooth(x, y);
        if (y + 3 <= a.h)
            for (size_t x = 1; x + 3 <= w; x += 2)
                smooth(x, y + 1);
    }
}

struct ColourJob {
    const Frame *f;
    unsigned slot[3]; // position of red, green, blue in a triple
};

int32_t borderMean(int32_t sum, int n)
{
    switch (n) {
    case 1:
        return sum;
    case 2:
        return sum >> 1;
    case 3:
        return sum / 3;
    case 4:
        return sum >> 2;
    default:
        return 0;
    }
}

// Pass 2 for one pixel at an inner position (red or blue site).
QUORIN_ALWAYS_INLINE inline int32_t innerGreen(const uint16_t *m, size_t i, size_t w)
{
    const int32_t c = m[i];
    const int32_t gl = m[i - 1], gr = m[i + 1], gu = m[i - w], gd = m[i + w];
    const int32_t lh = 2 * c - m[i - 2] - m[i + 2];
    const int32_t lv = 2 * c - m[i - 2 * w] - m[i + 2 * w];
    const int32_t dh = std::abs(gl - gr) + std::abs(lh);
    const int32_t dv = std::abs(gu - gd) + std::abs(lv);
    int32_t g;
    const bool strong = dh >= 80 || dv >= 80;
    if (strong && dh < dv)
        g = ((gl + gr) >> 1) + (lh >> 2);
    else if (strong && dh > dv)
        g = ((gu + gd) >> 1) + (lv >> 2);
    else
        g = ((gl + gr + gu + gd) >> 2) + ((lv + lh) >> 3);
    return clamp10(g);
}

void greenPlanePixel(const ColourJob &job, uint32_t x, uint32_t y, bool inner)
{
    const Frame &f = *job.f;
    const Area &a = f.area;
    const size_t w = a.w, i = size_t{y} * w + x;
    const uint16_t *m = f.work;
    uint16_t *px = f.rgb + 3 * i;
    const int32_t c = m[i];
    if (((x ^ y) & 1) != 0) {
        px[job.slot[kGreen]] = static_cast<uint16_t>(c);
        return;
    }
    px[job.slot[(y & 1) ? kBlue : kRed]] = static_cast<uint16_t>(c);
    int32_t g;
    if (inner) {
        g = innerGreen(m, i, w);
    } else {
        int32_t sum = 0;
        int n = 0;
        if (x > 0) {
            sum += m[i - 1];
            ++n;
        }
        if (x + 1 < a.w) {
            sum += m[i + 1];
            ++n;
        }
        if (y > 0) {
            sum += m[i - w];
            ++n;
        }
        if (y + 1 < a.h) {
            sum += m[i + w];
            ++n;
        }
        g = n == 0 ? c : borderMean(sum, n);
    }
    px[job.slot[kGreen]] = static_cast<uint16_t>(g);
}

bool innerRow(uint32_t y, const Area &a)
{
    return y >= 2 && y + 3 <= a.h;
}

// Pass 2 over the inner columns of an inner row: green sites copy, red
// and blue sites keep their own colour and interpolate green.
QUORIN_ALWAYS_INLINE inline void greenPlaneInner(const ColourJob &job, uint32_t y)
{
    const Frame &f = *job.f;
    const size_t w = f.area.w;
    const uint16_t *m = f.work;
    uint16_t *rgb = f.rgb;
    const unsigned gs = job.slot[kGreen], own = job.slot[(y & 1) ? kBlue : kRed];
    const size_t row = size_t{y} * w;
    const uint32_t firstSite = (y & 1) ? 3 : 2; // red or blue sites from column 2 on
    for (size_t x = 5 - firstSite; x + 3 <= w; x += 2)
        rgb[3 * (row + x) + gs] = m[row + x];
    for (size_t x = firstSite; x + 3 <= w; x += 2) {
        const size_t i = row + x;
        rgb[3 * i + own] = m[i];
        rgb[3 * i + gs] = static_cast<uint16_t>(innerGreen(m, i, w));
    }
}

void greenPlane(const ColourJob &job)
{
    const Area &a = job.f->area;
    const int h = static_cast<int>(a.h);
#pragma omp parallel for schedule(static)
    for (int yi = 0; yi < h; ++yi) {
        const uint32_t y = static_cast<uint32_t>(yi);
        if (innerRow(y, a) && a.w >= 5) {
            for (uint32_t x : {0u, 1u, a.w - 2, a.w - 1})
                greenPlanePixel(job, x, y, false);
            greenPlaneInner(job, y);
        } else {
            for (uint32_t x = 0; x < a.w; ++x)
                greenPlanePixel(job, x, y, false);
        }
    }
}

QUORIN_ALWAYS_INLINE inline int32_t fromLine(int32_t ca, int32_t cb, int32_t g, int32_t ga, int32_t gb)
{
    const int32_t lap = 2 * g - ga - gb;
    int32_t c;
    if (std::abs(lap) < 200) {
        c = (ca + cb + lap) >> 1;
    } else {
        const int32_t da = std::abs(g - ga), db = std::abs(g - gb);
        if (da < 100 && db < 100)
            c = (ca + cb + (g - ga) + (g - gb)) >> 1;
        else if (da >= db)
            c = cb + (g - gb);
        else
            c = ca + (g - ga);
    }
    return clamp10(c);
}

void redBlueAtGreen(const ColourJob &job)
{
    const Frame &f = *job.f;
    const Area &a = f.area;
    const size_t w = a.w;
    const uint16_t *m = f.work;
    const unsigned gs = job.slot[kGreen];
    const int h = static_cast<int>(a.h);
#pragma omp parallel for schedule(static)
    for (int yi = 0; yi < h; ++yi) {
        const uint32_t y = static_cast<uint32_t>(yi);
        const unsigned horizontal = job.slot[(y & 1) ? kBlue : kRed], vertical = job.slot[(y & 1) ? kRed : kBlue];
        const bool innerY = innerRow(y, a);
        for (uint32_t x = (y & 1) ? 0 : 1; x < a.w; x += 2) { // the green sites of the row
            const size_t i = size_t{y} * w + x;
            uint16_t *px = f.rgb + 3 * i;
            if (innerY && x >= 2 && x + 3 <= a.w) {
                const int32_t g = m[i];
                px[horizontal] = static_cast<uint16_t>(
                    fromLine(m[i - 1], m[i + 1], g, f.rgb[3 * (i - 1) + gs], f.rgb[3 * (i + 1) + gs]));
                px[vertical] = static_cast<uint16_t>(
                    fromLine(m[i - w], m[i + w], g, f.rgb[3 * (i - w) + gs], f.rgb[3 * (i + w) + gs]));
                continue;
            }
            auto line = [&](bool hasA, size_t ia, bool hasB, size_t ib) -> int32_t {
                return hasA && hasB ? (m[ia] + m[ib]) >> 1 : hasA ? m[ia] : hasB ? m[ib] : 0;
            };
            px[horizontal] = static_cast<uint16_t>(line(x > 0, i - 1, x + 1 < a.w, i + 1));
            px[vertical] = static_cast<uint16_t>(line(y > 0, i - w, y + 1 < a.h, i + w));
        }
    }
}

QUORIN_ALWAYS_INLINE inline int32_t fromDiagonals(const uint16_t *m, const uint16_t *rgb, unsigned gs, size_t i,
                                                  size_t w)
{
    const int32_t g = rgb[3 * i + gs];
    const size_t pos[4] = {i - w - 1, i + w + 1, i - w + 1, i + w - 1};
    int32_t c[4], gi[4];
    for (int k = 0; k < 4; ++k) {
        c[k] = m[pos[k]];
        gi[k] = rgb[3 * pos[k] + gs];
    }
    const int32_t d1 = 2 * g - gi[0] - gi[1], d2 = 2 * g - gi[2] - gi[3];
    const int32_t a1 = std::abs(d1), a2 = std::abs(d2);
    const int32_t all = (c[0] + c[1] + c[2] + c[3] + d1 + d2) >> 2;
    if (a1 < 200 && a2 < 200)
        return clamp10(all);
    if (a1 < a2 && a1 < 200)
        return clamp10((c[0] + c[1] + d1) >> 1);
    if (a1 >= a2 && a2 < 200)
        return clamp10((c[2] + c[3] + d2) >> 1);
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

// Pass 4 for a whole row: the missing colour of red and blue sites.
void redBlueRow(const ColourJob &job, uint32_t y)
{
    const Frame &f = *job.f;
    const Area &a = f.area;
    const size_t w = a.w;
    const uint16_t *m = f.work;
    const unsigned gs = job.slot[kGreen];
    const bool blueRow = (y & 1) != 0;
    const unsigned missing = job.slot[blueRow ? kRed : kBlue];
    const bool innerY = y >= 1 && y + 2 <= a.h;
    for (uint32_t x = blueRow ? 1 : 0; x < a.w; x += 2) {
        const size_t i = size_t{y} * w + x;
        if (innerY && x >= 1 && x + 2 <= a.w) {
            f.rgb[3 * i + missing] = static_cast<uint16_t>(fromDiagonals(m, f.rgb, gs, i, w));
            continue;
        }
        int32_t sum = 0;
        int n = 0;
        for (int dy = -1; dy <= 1; dy += 2)
            for (int dx = -1; dx <= 1; dx += 2) {
                const int64_t cx = int64_t{x} + dx, cy = int64_t{y} + dy;
                if (cx >= 0 && cy >= 0 && cx < int64_t{a.w} && cy < int64_t{a.h}) {
                    sum += m[size_t(cy) * w + size_t(cx)];
                    ++n;
                }
            }
        f.rgb[3 * i + missing] = static_cast<uint16_t>(n == 0 ? 0 : borderMean(sum, n));
    }
}

// Colour matrix of one pixel, in place.
QUORIN_ALWAYS_INLINE inline void matrixPixel(uint16_t *px, const int32_t m[9], const unsigned slot[3])
{
    const uint32_t in[3] = {px[slot[0]], px[slot[1]], px[slot[2]]};
    for (unsigned row = 0; row < 3; ++row) {
        const uint32_t sum = static_cast<uint32_t>(m[row * 3]) * in[0] + static_cast<uint32_t>(m[row * 3 + 1]) * in[1] +
                             static_cast<uint32_t>(m[row * 3 + 2]) * in[2];
        const auto s = static_cast<int32_t>(sum);
        const int32_t shifted = s >> 8;
        px[slot[row]] = static_cast<uint16_t>(s <= 0 ? 0 : shifted >= 1024 ? kMaxValue : shifted);
    }
}

// The colour matrix on one value triple in colour order, as the
// reference computes it.
QUORIN_ALWAYS_INLINE inline uint32_t matrixRow(const int32_t *m, uint32_t r, uint32_t g, uint32_t b)
{
    const auto s = static_cast<int32_t>(static_cast<uint32_t>(m[0]) * r + static_cast<uint32_t>(m[1]) * g +
                                        static_cast<uint32_t>(m[2]) * b);
    const int32_t shifted = s >> 8;
    return s <= 0 ? 0u : shifted >= 1024 ? kMaxValue : static_cast<uint32_t>(shifted);
}

// The colour rows after pass 4: the matrix, the look-up, and, when only
// 8-bit values are wanted, the reduction straight into the destination.
// Out is either the 8-bit destination row or the 16-bit row itself.
template <bool Matrix, bool Eight>
void finishColourRowT(const ColourJob &job, uint32_t y, void *out, const Reduced *reduced[3])
{
    const Frame &f = *job.f;
    const size_t w = f.area.w;
    const uint16_t *in = f.rgb + size_t{y} * w * 3;
    const unsigned sr = job.slot[kRed], sg = job.slot[kGreen], sb = job.slot[kBlue];
    const int32_t *m = f.matrix;
    for (size_t x = 0; x < w; ++x) {
        uint32_t r = in[3 * x + sr], g = in[3 * x + sg], b = in[3 * x + sb];
        if constexpr (Matrix) {
            const uint32_t r2 = matrixRow(m, r, g, b), g2 = matrixRow(m + 3, r, g, b), b2 = matrixRow(m + 6, r, g, b);
            r = r2;
            g = g2;
            b = b2;
        }
        if constexpr (Eight) {
            auto *o = static_cast<std::uint8_t *>(out) + 3 * x;
            o[sr] = reduced[kRed]->v[lutIndex(r)];
            o[sg] = reduced[kGreen]->v[lutIndex(g)];
            o[sb] = reduced[kBlue]->v[lutIndex(b)];
        } else {
            auto *o = static_cast<uint16_t *>(out) + 3 * x;
            o[sr] = f.lut[kRed][lutIndex(r)];
            o[sg] = f.lut[kGreen][lutIndex(g)];
            o[sb] = f.lut[kBlue][lutIndex(b)];
        }
    }
}

void finishColourRow(const ColourJob &job, uint32_t y, uint16_t *rowOut, std::uint8_t *dest8,
                     const Reduced *reduced[3])
{
    const bool matrix = job.f->matrixOn;
    if (dest8 != nullptr) {
        void *out = dest8 + size_t{y} * job.f->area.w * 3;
        (matrix ? finishColourRowT<true, true> : finishColourRowT<false, true>)(job, y, out, reduced);
    } else {
        (matrix ? finishColourRowT<true, false> : finishColourRowT<false, false>)(job, y, rowOut, reduced);
    }
}

void colourPipeline(const Frame &f, bool sixteenBit, void *dest)
{
    const Area &a = f.area;
    ColourJob job{&f, {channelSlot(f.demosaicMethod, kRed), channelSlot(f.demosaicMethod, kGreen),
                       channelSlot(f.demosaicMethod, kBlue)}};
    balance(f, f.colourMode == 2);
    if (f.colourMode == 2)
        greenSmoothing(f);
    greenPlane(job);
    redBlueAtGreen(job);

    // Pass 4 reads only the mosaic and the green plane, which it does not
    // change: its rows are independent.
    const int h = static_cast<int>(a.h);
#pragma omp parallel for schedule(static)
    for (int yi = 1; yi < h - 1; ++yi)
        redBlueRow(job, static_cast<uint32_t>(yi));
    // Rows 0 and H-1 outside the inner rows.
    redBlueRow(job, 0);
    if (a.h > 1)
        redBlueRow(job, a.h - 1);
    if (a.h > 1) {
        // The top row's red sites take blue from below, the bottom row's
        // odd pixels red from above.
        for (uint32_t x = 0; x < a.w; x += 2)
            f.rgb[3 * x + job.slot[kBlue]] = f.rgb[3 * (a.w + x) + job.slot[kBlue]];
        const size_t last = size_t{a.h - 1} * a.w, above = last - a.w;
        for (uint32_t x = 1; x < a.w; x += 2)
            f.rgb[3 * (last + x) + job.slot[kRed]] = f.rgb[3 * (above + x) + job.slot[kRed]];
    }

    const bool direct8 = !sixteenBit && f.mode71 == 0 && !f.keepLiveCache;
    if (direct8) {
        const Reduced r0(f.lut[0], f.outputShift), r1(f.lut[1], f.outputShift), r2(f.lut[2], f.outputShift);
        const Reduced *reduced[3] = {&r0, &r1, &r2};
#pragma omp parallel for schedule(static)
        for (int yi = 0; yi < h; ++yi)
            finishColourRow(job, static_cast<uint32_t>(yi), nullptr, static_cast<std::uint8_t *>(dest), reduced);
        return;
    }
    // The 16-bit result is needed whole: matrix and look-up in place.
#pragma omp parallel for schedule(static)
    for (int yi = 0; yi < h; ++yi) {
        uint16_t *row = f.rgb + size_t(yi) * a.w * 3;
        finishColourRow(job, static_cast<uint32_t>(yi), row, nullptr, nullptr);
    }
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
    } else {
        std::memcpy(f.cache, f.rgb, values * 2);
    }
    reduceValues(source, values, static_cast<std::uint8_t *>(dest), f.outputShift);
}

} // namespace

void process(const Frame &f, bool sixteenBit, void *dest)
{
    const Area &a = f.area;
    sensorPass(f);
    correctDefects(f);
    if (!f.colour) {
        lookUpMono(f, sixteenBit, dest);
        return;
    }
    if (f.rawBayerOutput) {
        if (sixteenBit)
            std::memcpy(dest, f.work, a.pixels() * 2);
        else
            reduceValues(f.work, a.pixels(), static_cast<std::uint8_t *>(dest), f.outputShift);
        return;
    }
    if (f.colourMode == 1 || f.colourMode == 2) {
        colourPipeline(f, sixteenBit, dest);
        return;
    }
    // The bilinear colour modes are rare: the reference stages serve them.
    reference::bilinear(f.work, f.rgb, a, f.demosaicMethod, f.bilinearLut);
    if (f.matrixOn)
        reference::colourMatrix(f.rgb, f.matrix, a, f.demosaicMethod);
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
