// The shipped pixel pipeline. It produces exactly what the reference
// stages produce, but organised for speed:
//  - unpacking (byte shuffles with AVX2, byte permutes with VBMI), dark
//    subtraction, pixel gain and, for monochrome 8-bit output, the look-up
//    run as one pass per row;
//  - defect correction looks neighbours up in a hash set of the list (kept
//    by the device between frames, see defects.h) and corrects the pixels
//    in parallel (a corrected pixel never feeds another one: listed
//    neighbours are excluded, so the order of the list does not matter);
//  - colour balance, the copy for green smoothing and the check that every
//    value is below 1024 are one pass;
//  - when only the 8-bit result is wanted, the colours are planes: the
//    interpolation passes and the output (colour matrix, look-up, 8-bit
//    reduction, interleaving) run row after row over each thread's band of
//    rows, and with values below 1024 the passes compute in 16-bit lanes;
//  - with AVX-512 VBMI the planes hold split rows (even columns, then odd
//    ones): balance, smoothing and the interpolation passes then compute
//    only the sites each one changes, whole registers at a time; the
//    sensor corrections through the smoothing run as one pass over bands
//    of rows, and the interpolation and output in bands of 32 rows whose
//    planes live only in a window of rows on their thread, the two in one
//    parallel region;
//  - the 1024-entry 8-bit look-up runs as in-register table look-ups where
//    the processor has AVX-512 VBMI (see vector_rows.h), and as a shift when
//    the table is straight (the identity table a camera opens with);
//  - per-row passes are OpenMP loops (static schedules, dynamic ones where
//    rows take unequal time), and the inner loops are written so that the
//    compiler vectorises them for the instruction set picked at run time
//    (see simd.h).
#include "image/pipeline.h"

#include "image/defects.h"
#include "image/reference/stages.h"
#include "image/simd.h"
#include "image/vector_rows.h"

#ifdef _OPENMP
#include <omp.h>
#endif

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <thread>

namespace quorin::image {
namespace {

using std::int32_t;
using std::size_t;
using std::uint16_t;
using std::uint32_t;

// Branch-free selection for the inner loops, which keeps them vectorisable:
// a mask is all ones for true, zero for false.
QUORIN_ALWAYS_INLINE inline int32_t maskOf(bool c)
{
    return -static_cast<int32_t>(c);
}

QUORIN_ALWAYS_INLINE inline int32_t choose(int32_t mask, int32_t ifSet, int32_t ifClear)
{
    return (ifSet & mask) | (ifClear & ~mask);
}

QUORIN_ALWAYS_INLINE inline int32_t magnitude(int32_t v)
{
    const int32_t sign = v >> 31;
    return (v ^ sign) - sign;
}

QUORIN_ALWAYS_INLINE inline int32_t clampValue(int32_t v)
{
    return std::min(std::max(v, 0), static_cast<int32_t>(kMaxValue));
}

// ---- 16-bit lanes ------------------------------------------------------------
//
// The inner loops of the planar passes, written once with the compiler's
// vector types: 16-bit lanes filling one register of the level (8 with
// SSE2, 16 with AVX2, 32 with AVX-512). They give the same results as the
// 32-bit loops whenever the inputs are below 1024 (every intermediate then
// stays within +-12288). The helpers are macros: the compiler lowers a
// function's vector operations for that function's own instruction set
// before inlining, so they must be expanded inside each kernel.

namespace lanes {
// One register of each level: SSE2 (also the scalar level, which never
// runs these kernels), AVX2, AVX-512.
typedef std::int16_t V8 __attribute__((vector_size(16)));
typedef std::int16_t V16 __attribute__((vector_size(32)));
typedef std::int16_t V32 __attribute__((vector_size(64)));
// 0 1 0 1 ... and 0 1 2 3 ..., loaded as far as a register reaches.
constexpr std::int16_t kAlternate[32] = {0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1,
                                         0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1};
constexpr std::int16_t kColumn[32] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15,
                                      16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31};
} // namespace lanes

// Like QUORIN_KERNEL, with V the 16-bit lane vector of the level's register
// width and kLanes its number of lanes in the body: wider vectors would be
// split into single lanes.
#define QUORIN_LANES_KERNEL(name, params, ...)                                                                         \
    struct name {                                                                                                      \
        static void scalar params                                                                                      \
        {                                                                                                              \
            using V = ::quorin::image::lanes::V8;                                                                      \
            __VA_ARGS__                                                                                                \
        }                                                                                                              \
        static void sse2 params                                                                                        \
        {                                                                                                              \
            using V = ::quorin::image::lanes::V8;                                                                      \
            __VA_ARGS__                                                                                                \
        }                                                                                                              \
        __attribute__((target("avx2"))) static void avx2 params                                                        \
        {                                                                                                              \
            using V = ::quorin::image::lanes::V16;                                                                     \
            __VA_ARGS__                                                                                                \
        }                                                                                                              \
        __attribute__((target("avx512f,avx512bw,avx512vl"))) static void avx512 params                                 \
        {                                                                                                              \
            using V = ::quorin::image::lanes::V32;                                                                     \
            __VA_ARGS__                                                                                                \
        }                                                                                                              \
        QUORIN_KERNEL_PICK                                                                                             \
    }

#define QUORIN_LANES_LOAD(p)                                                                                           \
    ({                                                                                                                 \
        V v_;                                                                                                          \
        std::memcpy(&v_, (p), sizeof v_);                                                                              \
        v_;                                                                                                            \
    })
#define QUORIN_LANES_STORE(p, v)                                                                                       \
    do {                                                                                                               \
        const V s_ = (v);                                                                                              \
        std::memcpy((p), &s_, sizeof s_);                                                                              \
    } while (0)
// Lanes of a where mask is set, else of b.
#define QUORIN_LANES_PICK(mask, a, b)                                                                                  \
    ({                                                                                                                 \
        const V m_ = (mask);                                                                                           \
        ((a) & m_) | ((b) & ~m_);                                                                                      \
    })
#define QUORIN_LANES_MAGNITUDE(v)                                                                                      \
    ({                                                                                                                 \
        const V v_ = (v);                                                                                              \
        v_ < 0 ? -v_ : v_;                                                                                             \
    })
#define QUORIN_LANES_CLAMP(v)                                                                                          \
    ({                                                                                                                 \
        V c_ = (v);                                                                                                    \
        c_ = c_ & ~(c_ < 0);                                                                                           \
        const V high_ = c_ > static_cast<std::int16_t>(kMaxValue);                                                     \
        (c_ & ~high_) | (high_ & static_cast<std::int16_t>(kMaxValue));                                                \
    })
// All ones in the lanes of columns x, x + 1, ... with ((x ^ odd) & 1) set.
#define QUORIN_LANES_ODD(x, odd)                                                                                       \
    ({                                                                                                                 \
        const V alternate_ = QUORIN_LANES_LOAD(reinterpret_cast<const uint16_t *>(lanes::kAlternate));                 \
        -(alternate_ ^ static_cast<std::int16_t>(((x) ^ (odd)) & 1u));                                                 \
    })

// ---- Sensor pass ----------------------------------------------------------

using vec::OutputTable;

struct SensorJob {
    const Frame *f;
    bool dark;
    bool darkVector;
    const uint16_t *gainTable; // null with constantGain
    bool gain;
    bool constantGain;
    // When set, each finished row also goes through this table into dest8.
    const OutputTable *output = nullptr;
    std::uint8_t *dest8 = nullptr;
    bool shuffleUnpack = false; // the AVX2 unpacking kernel runs
    bool vbmiRow = false;       // the VBMI kernel unpacks and corrects
    bool tableOutput = false;   // the VBMI look-up kernel runs
    bool gatherOutput = false;  // else the AVX2 one
    // When set, row y goes to row y % kRingRows of this ring of rows of
    // w values rather than to f.work.
    uint16_t *ring = nullptr;
};

constexpr uint32_t kRingRows = 8;

// Row y of the area: unpack (when whole groups lie in the row), subtract
// the dark frame, apply the pixel gain.
template <bool Unpack>
QUORIN_ALWAYS_INLINE inline void sensorRow(const SensorJob &job, uint32_t y)
{
    const Frame &f = *job.f;
    const Area &a = f.area;
    uint16_t *row = job.ring != nullptr ? job.ring + size_t{y % kRingRows} * a.w : f.work + size_t{y} * a.w;
    const size_t table = size_t{a.y0 + y} * kSensorSide + a.x0;
    bool corrected = false;
    if constexpr (Unpack) {
        if (job.vbmiRow) {
            // All of it in registers, 32 values at a time.
            vec::sensorRowVbmi(f.raw + size_t{y} * a.w / 4 * 5, a.w / 4, job.dark ? f.dark + table : nullptr,
                               job.darkVector, job.gain && !job.constantGain ? job.gainTable + table : nullptr,
                               job.gain && job.constantGain ? 997 : 0, row);
            corrected = true;
        }
    }
    if (Unpack && !corrected) {
        // Each group is a 40-bit little-endian number; read it as 64 bits
        // (a frame is at most 1.25 MiB of the 2 MiB buffer, so the three
        // bytes beyond the last group are always inside it).
        const std::uint8_t *in = f.raw + size_t{y} * a.w / 4 * 5;
        uint32_t g = 0;
        if (job.shuffleUnpack) {
            const size_t frameBytes = a.pixels() / 4 * 5;
            g = static_cast<uint32_t>(
                vec::unpackGroupsAvx2(in, a.w / 4, frameBytes - size_t{y} * a.w / 4 * 5, row));
        }
        for (; g < a.w / 4; ++g) {
            std::uint64_t v;
            std::memcpy(&v, in + 5 * g, sizeof v);
            row[4 * g] = static_cast<uint16_t>(v & 0x3FF);
            row[4 * g + 1] = static_cast<uint16_t>((v >> 10) & 0x3FF);
            row[4 * g + 2] = static_cast<uint16_t>((v >> 20) & 0x3FF);
            row[4 * g + 3] = static_cast<uint16_t>((v >> 30) & 0x3FF);
        }
    }
    if (job.dark && !corrected) {
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
    if (job.gain && !corrected) {
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
    if (job.dest8 != nullptr) {
        std::uint8_t *out = job.dest8 + size_t{y} * a.w;
        if (job.tableOutput)
            vec::lookUp8Vbmi(row, a.w, *job.output, out);
        else if (job.gatherOutput)
            vec::lookUp8Avx2(row, a.w, *job.output, out);
        else
            for (uint32_t x = 0; x < a.w; ++x)
                out[x] = job.output->bytes[lutIndex(row[x])];
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

// The sensor corrections; when output is given, the rows also go through
// that table into dest8 as they are finished.
SensorJob sensorJob(const Frame &f, const OutputTable *output = nullptr, std::uint8_t *dest8 = nullptr)
{
    const Kernel kernel = kernelFor(f.kernelVariant);
    SensorJob job{&f, f.darkSubtract && kernel != Kernel::Skip, kernel == Kernel::Vector, nullptr, false, false};
    if (kernel != Kernel::Skip && f.pixelGainMode >= 1 && f.pixelGainMode <= 3) {
        job.gain = true;
        job.constantGain = f.pixelGainMode == 3;
        job.gainTable = f.pixelGainMode == 1 ? f.gainA : f.pixelGainMode == 2 ? f.gainB : nullptr;
    }
    job.output = output;
    job.dest8 = dest8;
    job.shuffleUnpack = vec::avx2Active();
    job.vbmiRow = vec::vbmiActive();
    job.tableOutput = vec::vbmiActive();
    job.gatherOutput = vec::avx2Active();
    return job;
}

void sensorPass(const Frame &f, const OutputTable *output = nullptr, std::uint8_t *dest8 = nullptr)
{
    const SensorJob job = sensorJob(f, output, dest8);
    // The crosstalk correction sits between dark and gain: split there.
    const bool split = f.columnCorrect;
    SensorJob first = job;
    if (split) {
        first.gain = false;
        first.dest8 = nullptr;
    }
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

// The frame's defect set: the device's kept one, else one built in local.
const DefectSet &defectSet(const Frame &f, std::optional<DefectSet> &local)
{
    if (f.defectIndex != nullptr)
        return f.defectIndex->setOf(f.defects, f.defectCount);
    return local.emplace(f.defects, std::min<uint32_t>(f.defectCount, 1024));
}

// Corrects one listed pixel: the mean of its neighbours in the area that
// are not listed themselves (four for the monochrome model; for the colour
// model the four diagonal ones at a green site, else the four two away).
// Row y of the mosaic is at rows(y). Returns the pixel's index, or
// SIZE_MAX when it lies off the area or has no such neighbour (and keeps
// its value).
template <typename Rows>
QUORIN_ALWAYS_INLINE inline size_t correctDefect(const Frame &f, const DefectSet &set, uint32_t entry, Rows rows)
{
    const Area &a = f.area;
    struct Offset {
        int dx, dy;
    };
    static constexpr Offset kFour[4] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
    static constexpr Offset kDiagonal[4] = {{-1, -1}, {-1, 1}, {1, -1}, {1, 1}};
    static constexpr Offset kTwoAway[4] = {{-2, 0}, {2, 0}, {0, -2}, {0, 2}};
    const uint32_t x = (entry >> 16) - a.x0, y = (entry & 0xFFFF) - a.y0;
    if (x >= a.w || y >= a.h)
        return SIZE_MAX;
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
        sum += rows(static_cast<uint32_t>(cy))[cx];
        ++used;
    }
    if (used == 0)
        return SIZE_MAX;
    rows(y)[x] = static_cast<uint16_t>(std::min<uint32_t>(sum / used, kMaxValue));
    return size_t{y} * a.w + x;
}

// Defect correction; when output is given, each corrected pixel's output
// value in dest8 is written again. A corrected pixel never feeds another
// one (listed neighbours are excluded), so the pixels are independent.
void correctDefects(const Frame &f, const OutputTable *output = nullptr, std::uint8_t *dest8 = nullptr)
{
    if (!f.defectCorrect || f.defectCount == 0)
        return;
    std::optional<DefectSet> local;
    const DefectSet &set = defectSet(f, local);
    const int count = static_cast<int>(set.distinctCount());
    const uint32_t *entries = set.distinct();
#pragma omp parallel for schedule(static) if (count >= 256)
    for (int k = 0; k < count; ++k) {
        const size_t i = correctDefect(f, set, entries[k], [&f](uint32_t y) { return f.work + size_t{y} * f.area.w; });
        if (i != SIZE_MAX && dest8 != nullptr)
            dest8[i] = output->bytes[lutIndex(f.work[i])];
    }
}

// ---- Output helpers -------------------------------------------------------

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
    const OutputTable reduced(table, f.outputShift);
    auto *d = static_cast<std::uint8_t *>(dest);
#pragma omp parallel for schedule(static)
    for (long i = 0; i < n; ++i)
        d[i] = reduced.bytes[lutIndex(f.work[i])];
}

// ---- Colour -----------------------------------------------------------------

enum : unsigned { kRed = 0, kGreen = 1, kBlue = 2 };

int32_t clamp10(int32_t v)
{
    return v < 0 ? 0 : v > kMaxValue ? kMaxValue : v;
}

QUORIN_KERNEL(OrRange, (const uint16_t *in, size_t n, uint32_t *out), {
    uint32_t bits = 0;
    for (size_t i = 0; i < n; ++i)
        bits |= in[i];
    *out = bits;
});

// Colour balance of row y from `in` to `out` (the same row, or another;
// values the balance leaves alone are copied then), and a copy of the
// result when `copy` is given; returns the OR of the balanced values.
QUORIN_ALWAYS_INLINE inline uint32_t balanceRow(const Frame &f, uint32_t y, bool vector, const uint16_t *in,
                                                uint16_t *out, uint16_t *copy)
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
    if (copy != nullptr)
        std::memcpy(copy, out, size_t{a.w} * 2);
    uint32_t bits = 0;
    for (uint32_t x = 0; x < a.w; ++x)
        bits |= out[x];
    return bits;
}

QUORIN_KERNEL(BalanceRow,
              (const Frame &f, uint32_t y, bool vector, const uint16_t *in, uint16_t *out, uint16_t *copy,
               uint32_t *bits),
              *bits = balanceRow(f, y, vector, in, out, copy););

// Colour balance, and for colour mode 2 the copy the smoothing reads.
// Returns whether every balanced value is below 1024.
bool balance(const Frame &f, bool copyForSmoothing)
{
    const Area &a = f.area;
    const Kernel kernel = kernelFor(f.kernelVariant);
    const int h = static_cast<int>(a.h);
    const auto orRange = OrRange::pick();
    uint32_t bits = 0;
    if (kernel == Kernel::Skip) {
        if (copyForSmoothing)
            std::memcpy(f.previous, f.work, a.pixels() * 2);
#pragma omp parallel for schedule(static) reduction(| : bits)
        for (int yi = 0; yi < h; ++yi) {
            uint32_t rowBits;
            orRange(f.work + size_t(yi) * a.w, a.w, &rowBits);
            bits |= rowBits;
        }
        return bits <= kMaxValue;
    }
    const auto kernelRow = BalanceRow::pick();
    const bool vector = kernel == Kernel::Vector;
#pragma omp parallel for schedule(static) reduction(| : bits)
    for (int yi = 0; yi < h; ++yi) {
        uint32_t rowBits;
        uint16_t *row = f.work + size_t(yi) * a.w;
        kernelRow(f, static_cast<uint32_t>(yi), vector, row, row,
                  copyForSmoothing ? f.previous + size_t(yi) * a.w : nullptr, &rowBits);
        bits |= rowBits;
    }
    return bits <= kMaxValue;
}

// Adaptive smoothing of the green sites of one row, from the copy c0 into
// work, for every green site x of the row with x <= last. The division by
// the weight (4 to 12) is done in single precision, which is exact here:
// sums stay below 2^20, so a quotient is never within half a unit in the
// last place of an integer it does not reach.
QUORIN_ALWAYS_INLINE inline void smoothRow(const uint16_t *__restrict c0, uint16_t *__restrict work, size_t row,
                                           size_t w, uint32_t odd, uint32_t last, uint32_t from = 1)
{
    for (uint32_t x = from; x + 1 < w; ++x) {
        const size_t i = row + x;
        const int32_t c = c0[i];
        const int32_t n[4] = {c0[i - w - 1], c0[i - w + 1], c0[i + w - 1], c0[i + w + 1]};
        int32_t sum = 4 * c, weight = 4;
        for (int32_t v : n) {
            const int32_t d = magnitude(c - v);
            const int32_t k = (maskOf(d < 25) & 2) | (maskOf(d >= 25) & maskOf(d < 50) & 1);
            sum += k * v;
            weight += k;
        }
        const auto smoothed = static_cast<int32_t>(static_cast<float>(sum) / static_cast<float>(weight));
        const bool green = ((x ^ odd) & 1u) != 0 && x <= last;
        work[i] = static_cast<uint16_t>(choose(maskOf(green), smoothed, work[i]));
    }
}

QUORIN_KERNEL(SmoothRow,
              (const uint16_t *c0, uint16_t *work, size_t row, size_t w, uint32_t odd, uint32_t last),
              smoothRow(c0, work, row, w, odd, last););

// The same in 16-bit lanes when the copy holds values below 1024 (sums stay
// below 12288), the division in single precision as above; the last columns
// one by one.
QUORIN_LANES_KERNEL(SmoothRowNarrow,
              (const uint16_t *c0, uint16_t *work, size_t row, size_t w, uint32_t odd, uint32_t last), {
                  constexpr uint32_t kLanes = sizeof(V) / 2;
                  // The division takes half a register of sums at a time.
                  typedef std::int16_t Half __attribute__((vector_size(sizeof(V) / 2)));
                  typedef float Quotients __attribute__((vector_size(sizeof(V))));
                  typedef std::int32_t Wide __attribute__((vector_size(sizeof(V))));
                  const V column = QUORIN_LANES_LOAD(reinterpret_cast<const uint16_t *>(lanes::kColumn));
                  const uint32_t end = static_cast<uint32_t>(w) - 1;
                  uint32_t x = 1;
                  for (; end >= 1 + kLanes; x += kLanes) {
                      // The last block ends at the last column, over columns
                      // done already: it writes the same values again.
                      x = std::min(x, end - kLanes);
                      const size_t i = row + x;
                      const V green = QUORIN_LANES_ODD(x, odd);
                      const V c = QUORIN_LANES_LOAD(c0 + i);
                      const V n[4] = {QUORIN_LANES_LOAD(c0 + i - w - 1), QUORIN_LANES_LOAD(c0 + i - w + 1),
                                      QUORIN_LANES_LOAD(c0 + i + w - 1), QUORIN_LANES_LOAD(c0 + i + w + 1)};
                      V sum = c << 2, weight = V{} + 4;
                      for (const V v : n) {
                          const V d = QUORIN_LANES_MAGNITUDE(c - v);
                          const V close = d < 25, near = (d >= 25) & (d < 50);
                          sum += ((v + v) & close) | (v & near);
                          weight += (close & 2) | (near & 1);
                      }
                      Half sums[2], weights[2], quotients[2];
                      std::memcpy(sums, &sum, sizeof sums);
                      std::memcpy(weights, &weight, sizeof weights);
                      for (int k = 0; k < 2; ++k) {
                          const Quotients q = __builtin_convertvector(sums[k], Quotients) /
                                              __builtin_convertvector(weights[k], Quotients);
                          quotients[k] = __builtin_convertvector(__builtin_convertvector(q, Wide), Half);
                      }
                      V smoothed;
                      std::memcpy(&smoothed, quotients, sizeof smoothed);
                      const V mask = green & (column + static_cast<std::int16_t>(x) <= static_cast<std::int16_t>(last));
                      QUORIN_LANES_STORE(work + i, QUORIN_LANES_PICK(mask, smoothed, QUORIN_LANES_LOAD(work + i)));
                      if (x + kLanes == end) {
                          x = end;
                          break;
                      }
                  }
                  smoothRow(c0, work, row, w, odd, last, x); // rows too short for a block
              });

// The same with the intrinsic kernels of AVX-512 and AVX2 (see
// vector_rows.h), which divide by a reciprocal multiplication; rows too
// short for their blocks one by one.
void smoothRowAvx512(const uint16_t *c0, uint16_t *work, size_t row, size_t w, uint32_t odd, uint32_t last)
{
    const auto from = static_cast<uint32_t>(vec::smoothGreenAvx512(c0, work, row, w, odd, last));
    smoothRow(c0, work, row, w, odd, last, from);
}

void smoothRowAvx2(const uint16_t *c0, uint16_t *work, size_t row, size_t w, uint32_t odd, uint32_t last)
{
    const auto from = static_cast<uint32_t>(vec::smoothGreenAvx2(c0, work, row, w, odd, last));
    smoothRow(c0, work, row, w, odd, last, from);
}

void greenSmoothing(const Frame &f, bool narrow)
{
    const Area &a = f.area;
    const size_t w = a.w;
    if (a.h < 3 || a.w < 3)
        return;
    auto kernel = narrow ? SmoothRowNarrow::pick() : SmoothRow::pick();
    if (narrow && vec::avx512Active())
        kernel = smoothRowAvx512;
    else if (narrow && vec::avx2Active())
        kernel = smoothRowAvx2;
    const int pairs = static_cast<int>((a.h - 1) / 2); // odd rows 1 .. H-2
#pragma omp parallel for schedule(static)
    for (int p = 0; p < pairs; ++p) {
        const size_t y = 1 + 2 * size_t(p);
        // Odd rows: green at even columns up to W-2; the even row below:
        // green at odd columns up to W-3.
        kernel(f.previous, f.work, y * w, w, 1, a.w - 2);
        if (y + 3 <= a.h)
            kernel(f.previous, f.work, (y + 1) * w, w, 0, a.w - 3);
    }
}

bool innerRow(uint32_t y, const Area &a)
{
    return y >= 2 && y + 3 <= a.h;
}

// Where the interpolation passes keep the three colours: interleaved in
// the RGB image in the layout's order (stride 3), or as three planes
// (stride 1) when only the 8-bit result is wanted, which lets the compiler
// vectorise the passes.
// Planes may also keep split rows (see vector_rows.h): each row's even
// columns, then its odd ones.
template <size_t S> struct Planes {
    uint16_t *c[3]; // red, green, blue: pixel i at c[colour][i * S]
    size_t w = 0;
    size_t half = 0;    // split rows: (w + 1) / 2, else 0
    uint32_t first = 0; // the row c[colour] starts with (a window of rows)
    uint16_t *row(unsigned colour, uint32_t y) const { return c[colour] + size_t{y - first} * w * S; }
    uint16_t &at(unsigned colour, uint32_t x, uint32_t y) const
    {
        const size_t column = half == 0 ? x : (x & 1u) * half + x / 2;
        return row(colour, y)[column * S];
    }
};

template <size_t S> struct ColourJob {
    const Frame *f;
    Planes<S> p;
    // Every mosaic value is below 1024, so the planar passes may compute in
    // 16-bit lanes (every intermediate then stays within +-8192).
    bool narrow = false;
    // Split rows: the mosaic split likewise, which every pass reads.
    uint16_t *splitMosaic = nullptr;
    // The mosaic value at column x of row y.
    int32_t mosaic(uint32_t x, uint32_t y) const
    {
        if (splitMosaic != nullptr)
            return splitMosaic[size_t{y} * p.w + (x & 1u) * p.half + x / 2];
        return f->work[size_t{y} * p.w + x];
    }
    // Split rows leave the values the mosaic holds (a green site's green,
    // a red or blue site's own colour) in the split mosaic only: the planes
    // hold the interpolated ones. In a row of parity `odd` those are the
    // green plane's half odd ^ 1 and the own colour's half odd.
    const uint16_t *rowHalf(unsigned colour, uint32_t y, unsigned h) const
    {
        if (siteColour(h, y) == colour)
            return splitMosaic + size_t{y} * p.w + h * p.half;
        return p.row(colour, y) + h * p.half;
    }
    // The finished interpolation of one colour at column x of row y.
    uint16_t value(unsigned colour, uint32_t x, uint32_t y) const
    {
        if (splitMosaic == nullptr)
            return p.at(colour, x, y);
        return rowHalf(colour, y, x & 1u)[x / 2];
    }
};


// ---- Pass 2: the green plane ------------------------------------------------

template <size_t S> void greenBorderPixel(const ColourJob<S> &job, uint32_t x, uint32_t y)
{
    const Frame &f = *job.f;
    const Area &a = f.area;
    const int32_t c = job.mosaic(x, y);
    // The values the mosaic holds: split rows keep them there only.
    const bool copy = job.splitMosaic == nullptr;
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
        sum += job.mosaic(x - 1, y);
        ++n;
    }
    if (x + 1 < a.w) {
        sum += job.mosaic(x + 1, y);
        ++n;
    }
    if (y > 0) {
        sum += job.mosaic(x, y - 1);
        ++n;
    }
    if (y + 1 < a.h) {
        sum += job.mosaic(x, y + 1);
        ++n;
    }
    job.p.at(kGreen, x, y) = static_cast<uint16_t>(n == 0 ? c : borderMean(sum, n));
}

// The gradient-guided green of a red or blue site, written without
// branches so that whole rows vectorise.
QUORIN_ALWAYS_INLINE inline int32_t innerGreen(const uint16_t *__restrict m, size_t i, size_t w)
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

// Pass 2 over the inner columns of an inner row. Pointers do not overlap;
// stride S between a pixel's values.
template <size_t S>
QUORIN_ALWAYS_INLINE inline void greenInnerLoop(const uint16_t *__restrict m, uint16_t *__restrict green,
                                                uint16_t *__restrict own, size_t row, size_t w, uint32_t odd,
                                                uint32_t from = 2)
{
    const uint32_t end = static_cast<uint32_t>(w) - 2;
    for (uint32_t x = from; x < end; ++x) {
        const size_t i = row + x;
        const bool isGreen = ((x ^ odd) & 1u) != 0;
        const int32_t g = innerGreen(m, i, w);
        green[i * S] = static_cast<uint16_t>(choose(maskOf(isGreen), m[i], g));
        if constexpr (S == 1)
            own[i] = m[i]; // green sites get theirs in pass 3
        else if (!isGreen)
            own[i * S] = m[i];
    }
}

template <size_t S> QUORIN_ALWAYS_INLINE inline void greenInnerRow(const ColourJob<S> &job, uint32_t y)
{
    const Frame &f = *job.f;
    greenInnerLoop<S>(f.work, job.p.c[kGreen], job.p.c[(y & 1) ? kBlue : kRed], size_t{y} * f.area.w, f.area.w,
                      y & 1);
}

QUORIN_KERNEL(GreenInnerPlanar, (const ColourJob<1> &job, uint32_t y), greenInnerRow<1>(job, y););

// Pass 2 over an inner row in 16-bit lanes, the last columns one by one.
QUORIN_LANES_KERNEL(GreenInnerNarrow, (const ColourJob<1> &job, uint32_t y), {
    constexpr uint32_t kLanes = sizeof(V) / 2;
    const Frame &f = *job.f;
    const size_t w = f.area.w, row = size_t{y} * w;
    const uint32_t odd = y & 1, end = static_cast<uint32_t>(w) - 2;
    const uint16_t *__restrict m = f.work;
    uint16_t *__restrict green = job.p.c[kGreen];
    uint16_t *__restrict own = job.p.c[odd ? kBlue : kRed];
    uint32_t x = 2;
    for (; end >= 2 + kLanes; x += kLanes) {
        x = std::min(x, end - kLanes); // the last block again over done columns
        const uint16_t *p = m + row + x;
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
        QUORIN_LANES_STORE(green + row + x, QUORIN_LANES_PICK(isGreen, c, g));
        QUORIN_LANES_STORE(own + row + x, c);
        if (x + kLanes == end) {
            x = end;
            break;
        }
    }
    greenInnerLoop<1>(m, green, own, row, w, odd, x); // rows too short for a block
});

using PlanarRowKernel = void (*)(const ColourJob<1> &, uint32_t);

// The row kernel of a pass for planes: on split rows, in 16-bit lanes when
// the values allow, else in 32-bit values; none for interleaved triples,
// which use the plain loops.
template <typename Narrow, typename Planar, size_t S>
PlanarRowKernel rowKernel(const ColourJob<S> &job, PlanarRowKernel split)
{
    if constexpr (S == 1)
        return job.p.half != 0 ? split : job.narrow ? Narrow::pick() : Planar::pick();
    else
        return nullptr;
}

template <size_t S> void greenPlaneRow(const ColourJob<S> &job, uint32_t y, PlanarRowKernel planar)
{
    const Area &a = job.f->area;
    {
        if (innerRow(y, a) && a.w >= 5) {
            for (uint32_t x : {0u, 1u, a.w - 2, a.w - 1})
                greenBorderPixel(job, x, y);
            if constexpr (S == 1)
                planar(job, y);
            else
                greenInnerRow<S>(job, y);
        } else {
            for (uint32_t x = 0; x < a.w; ++x)
                greenBorderPixel(job, x, y);
        }
    }
}

// Pass 2 over an inner row of split rows (see vector_rows.h).
void greenInnerSplit(const ColourJob<1> &job, uint32_t y)
{
    const size_t w = job.p.w;
    vec::greenSplitAvx512(job.splitMosaic + size_t{y} * w, job.p.row(kGreen, y), w, y & 1);
}

template <size_t S> PlanarRowKernel greenKernel(const ColourJob<S> &job)
{
    return rowKernel<GreenInnerNarrow, GreenInnerPlanar>(job, greenInnerSplit);
}

template <size_t S> void greenPlane(const ColourJob<S> &job)
{
    const int h = static_cast<int>(job.f->area.h);
    const PlanarRowKernel planar = greenKernel(job);
#pragma omp parallel for schedule(static)
    for (int yi = 0; yi < h; ++yi)
        greenPlaneRow(job, static_cast<uint32_t>(yi), planar);
}

// ---- Pass 3: red and blue at green sites -----------------------------------

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

// Pass 3 over an inner row of split rows.
void lineInnerSplit(const ColourJob<1> &job, uint32_t y)
{
    const size_t w = job.p.w;
    const uint32_t odd = y & 1;
    vec::lineSplitAvx512(job.splitMosaic + size_t{y} * w, job.p.row(kGreen, y), job.p.row(odd ? kBlue : kRed, y),
                         job.p.row(odd ? kRed : kBlue, y), w, odd);
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

// ---- Pass 4: red at blue sites, blue at red sites ---------------------------

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

// Pass 4 over an inner row of split rows.
void diagonalInnerSplit(const ColourJob<1> &job, uint32_t y)
{
    const size_t w = job.p.w;
    const uint32_t odd = y & 1;
    vec::diagonalSplitAvx512(job.splitMosaic + size_t{y} * w, job.p.row(kGreen, y), job.p.row(odd ? kRed : kBlue, y), w,
                             odd);
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

template <size_t S> void redBlueAtEdges(const ColourJob<S> &job)
{
    redBlueAtTop(job);
    redBlueAtBottom(job);
}

template <size_t S> void redBlueAtRedBlue(const ColourJob<S> &job)
{
    const int h = static_cast<int>(job.f->area.h);
    const PlanarRowKernel planar = diagonalKernel(job);
#pragma omp parallel for schedule(static)
    for (int yi = 0; yi < h; ++yi)
        redBlueAtRedBlueRow(job, static_cast<uint32_t>(yi), planar);
    redBlueAtEdges(job);
}

// ---- Matrix, look-up and output ----------------------------------------------

// One row of the colour matrix, as the reference computes it.
QUORIN_ALWAYS_INLINE inline int32_t matrixRow(const int32_t *m, uint32_t r, uint32_t g, uint32_t b)
{
    const auto s = static_cast<int32_t>(static_cast<uint32_t>(m[0]) * r + static_cast<uint32_t>(m[1]) * g +
                                        static_cast<uint32_t>(m[2]) * b);
    const int32_t shifted = s >> 8;
    return s <= 0 ? 0 : shifted >= 1024 ? kMaxValue : shifted;
}

constexpr size_t kBlock = vec::kBlock;

// The matrix over a block of pixels held as planes.
QUORIN_ALWAYS_INLINE inline void matrixBlock(const int32_t *m, const uint16_t *r, const uint16_t *g,
                                             const uint16_t *b, size_t n, uint16_t (*out)[kBlock])
{
    for (size_t k = 0; k < n; ++k) {
        const uint32_t rv = r[k], gv = g[k], bv = b[k];
        out[0][k] = static_cast<uint16_t>(matrixRow(m, rv, gv, bv));
        out[1][k] = static_cast<uint16_t>(matrixRow(m + 3, rv, gv, bv));
        out[2][k] = static_cast<uint16_t>(matrixRow(m + 6, rv, gv, bv));
    }
}

QUORIN_KERNEL(MatrixBlock,
              (const int32_t *m, const uint16_t *r, const uint16_t *g, const uint16_t *b, size_t n,
               uint16_t (*out)[kBlock]),
              matrixBlock(m, r, g, b, n, out););

// Look-up and reduction of a block, stored as triples in the layout's order.
template <unsigned SR, unsigned SG, unsigned SB>
QUORIN_ALWAYS_INLINE inline void storeReduced(const uint16_t (*values)[kBlock], size_t n, const OutputTable *const *reduced,
                                              std::uint8_t *o)
{
    const std::uint8_t *r = reduced[kRed]->bytes, *g = reduced[kGreen]->bytes, *b = reduced[kBlue]->bytes;
    for (size_t k = 0; k < n; ++k) {
        o[3 * k + SR] = r[lutIndex(values[kRed][k])];
        o[3 * k + SG] = g[lutIndex(values[kGreen][k])];
        o[3 * k + SB] = b[lutIndex(values[kBlue][k])];
    }
}

// Planes to the 8-bit destination: matrix, look-up and reduction per row.
class PlanarFinish {
public:
    PlanarFinish(const ColourJob<1> &job, std::uint8_t *dest)
        : job_(job), f_(*job.f), dest_(dest), r0_(f_.lut[0], f_.outputShift), r1_(f_.lut[1], f_.outputShift),
          r2_(f_.lut[2], f_.outputShift), tableOutput_(vec::vbmiActive()), matrix_(MatrixBlock::pick())
    {
        for (unsigned c = 0; c < 3; ++c)
            slot_[c] = channelSlot(f_.demosaicMethod, c);
        // With values below 1024 and coefficients that fit 16 bits, the
        // matrix sums never wrap: 16-bit multiply-adds serve.
        bool fits = true;
        for (int k = 0; k < 9; ++k) {
            fits = fits && f_.matrix[k] >= -32768 && f_.matrix[k] <= 32767;
            narrowMatrix_[k] = static_cast<std::int16_t>(f_.matrix[k]);
        }
        matrixNarrow_ = tableOutput_ && job.narrow && f_.matrixOn && fits;
        // The AVX2 kernel serves without the matrix too, with the identity
        // (which leaves values below 1024 as they are).
        avx2Narrow_ = !tableOutput_ && vec::avx2Active() && job.narrow && job.p.half == 0 && (fits || !f_.matrixOn);
        if (avx2Narrow_ && !f_.matrixOn)
            for (int k = 0; k < 9; ++k)
                narrowMatrix_[k] = k % 4 == 0 ? 256 : 0;
    }

    void row(uint32_t y) const
    {
        const size_t w = f_.area.w, row = size_t{y} * w;
        const OutputTable *tables[3] = {&r0_, &r1_, &r2_};
        if (matrixNarrow_) {
            const bool split = job_.p.half != 0;
            const uint16_t *rows[3][2];
            for (unsigned c = 0; c < 3; ++c)
                for (unsigned h = 0; h < 2; ++h)
                    rows[c][h] = split ? job_.rowHalf(c, y, h) : job_.p.row(c, y);
            vec::matrixTriples8Vbmi(rows, w, split, narrowMatrix_, tables, slot_, dest_ + 3 * row);
            return;
        }
        size_t done = 0;
        if (avx2Narrow_)
            done = vec::matrixTriples8Avx2(job_.p.row(0, y), job_.p.row(1, y), job_.p.row(2, y), w, narrowMatrix_,
                                           tables, slot_, dest_ + 3 * row);
        const OutputTable *reduced[3] = {&r0_, &r1_, &r2_};
        uint16_t values[3][kBlock], joined[3][kBlock];
        for (size_t x0 = done; x0 < w; x0 += kBlock) {
            const size_t n = std::min(kBlock, w - x0);
            const uint16_t *in[3];
            for (unsigned c = 0; c < 3; ++c) {
                if (job_.p.half != 0) {
                    // Split rows: the block's pixels in their order first.
                    for (size_t k = 0; k < n; ++k)
                        joined[c][k] = job_.value(c, static_cast<uint32_t>(x0 + k), y);
                    in[c] = joined[c];
                } else {
                    in[c] = job_.p.row(c, y) + x0;
                }
            }
            if (f_.matrixOn)
                matrix_(f_.matrix, in[0], in[1], in[2], n, values);
            else
                for (unsigned c = 0; c < 3; ++c)
                    for (size_t k = 0; k < n; ++k)
                        values[c][k] = in[c][k];
            std::uint8_t *o = dest_ + 3 * (row + x0);
            if (tableOutput_)
                vec::triples8Vbmi(values, n, tables, slot_, o);
            else if (slot_[kRed] == 2) // blue, green, red
                storeReduced<2, 1, 0>(values, n, reduced, o);
            else
                storeReduced<0, 1, 2>(values, n, reduced, o);
        }
    }

private:
    const ColourJob<1> &job_;
    const Frame &f_;
    std::uint8_t *dest_;
    const OutputTable r0_, r1_, r2_;
    unsigned slot_[3];
    bool tableOutput_;
    bool matrixNarrow_;
    bool avx2Narrow_;
    std::int16_t narrowMatrix_[9];
    decltype(MatrixBlock::pick()) matrix_;
};

// Bands of rows for passes whose rows take unequal time (the fall-backs of
// pass 4 depend on the scene): each thread takes the next band when done
// with its own, and the bands shrink towards the end, so that the threads
// finish together.
struct Bands {
    static constexpr uint32_t kMinRows = 16;
    static constexpr uint32_t kMax = 128; // more than 1024 rows ever need
    uint32_t count = 0;
    uint32_t start[kMax + 1] = {};
    Bands(uint32_t rows, uint32_t threads)
    {
        uint32_t y = 0;
        while (y < rows && count < kMax - 1) {
            const uint32_t size = threads <= 1 ? rows : std::max(kMinRows, (rows - y) / (2 * threads));
            start[count++] = y;
            y += std::min(size, rows - y);
        }
        if (y < rows)
            start[count++] = y;
        start[count] = rows;
    }
};

// The size of the team a parallel region starts, and the calling thread's
// number in its team.
#ifdef _OPENMP
uint32_t teamSize()
{
    return static_cast<uint32_t>(omp_get_max_threads());
}
uint32_t threadNumber()
{
    return static_cast<uint32_t>(omp_get_thread_num());
}
#else
uint32_t teamSize()
{
    return 1;
}
uint32_t threadNumber()
{
    return 0;
}
#endif

// Interpolation of the planes and the 8-bit output, row by row so that a
// row's data is still in cache for the next pass: the green plane of the
// first and last row of every band (which the neighbouring bands read),
// then band by band, row after row, the green plane one row ahead, red and
// blue at green sites, red and blue at red and blue sites, and the output.
// The top and bottom rows, which the edge rule changes afterwards, are
// output last.
void interpolateAndFinish(const ColourJob<1> &job, std::uint8_t *dest)
{
    const Area &a = job.f->area;
    const PlanarRowKernel green = greenKernel(job), line = lineKernel(job), diagonal = diagonalKernel(job);
    const PlanarFinish finish(job, dest);
    const Bands bands(a.h, teamSize());
    const int count = static_cast<int>(bands.count);
#pragma omp parallel
    {
#pragma omp for schedule(static)
        for (int b = 0; b < count; ++b) {
            const uint32_t first = bands.start[b], end = bands.start[b + 1];
            greenPlaneRow(job, first, green);
            if (end - 1 > first)
                greenPlaneRow(job, end - 1, green);
        }
#pragma omp for schedule(dynamic, 1)
        for (int b = 0; b < count; ++b) {
            const uint32_t first = bands.start[b], end = bands.start[b + 1];
            for (uint32_t y = first; y < end; ++y) {
                if (y + 2 < end)
                    greenPlaneRow(job, y + 1, green);
                redBlueAtGreenRow(job, y, line);
                redBlueAtRedBlueRow(job, y, diagonal);
                if (y > 0 && y + 1 < a.h)
                    finish.row(y);
            }
        }
#pragma omp sections
        {
#pragma omp section
            {
                redBlueAtTop(job);
                finish.row(0);
            }
#pragma omp section
            {
                redBlueAtBottom(job);
                if (a.h > 1)
                    finish.row(a.h - 1);
            }
        }
    }
}

// Split rows to 8 bits, the planes only in windows: the frame in bands of
// kWindowBand rows (the last one taking a lone last row), each thread
// taking the next band when done with its own. Each band is interpolated
// into a window of rows on its thread, in the smoothing copy's buffer
// (free by now): the band's rows of the three planes and the green plane
// of the row above and the row below it, which the band's passes read.
// A row is output as soon as it is done; the top row once the edge rule
// has read the row below it, the bottom row likewise. So the planes take
// no room in the caches beyond the windows, and the full planes are not
// written (splitPlanes() computes them when asked). The buffer has room
// for a window per thread only for so many threads (fits()).
class WindowPass {
public:
    static constexpr uint32_t kBand = 32;
    static constexpr size_t kRows = kBand + 3;

    WindowPass(const ColourJob<1> &job, std::uint8_t *dest)
        : job_(job), dest_(dest), a_(job.f->area), windowValues_(windowValues(a_.w)), green_(greenKernel(job)),
          line_(lineKernel(job)), diagonal_(diagonalKernel(job))
    {
        bands_ = (a_.h + kBand - 1) / kBand;
        if (bands_ > 1 && a_.h - (bands_ - 1) * kBand == 1)
            --bands_;
    }
    // Whether the buffer holds a window for each of `threads` threads.
    static bool fits(size_t w, uint32_t threads)
    {
        return size_t{threads} * windowValues(w) <= size_t{kSensorSide} * kSensorSide;
    }
    uint32_t bands() const { return bands_; }
    uint32_t first(uint32_t b) const { return b * kBand; }
    uint32_t end(uint32_t b) const { return b + 1 == bands_ ? a_.h : (b + 1) * kBand; }

    // Thread t's window and output.
    struct Thread {
        ColourJob<1> local;
        const PlanarFinish finish;
        Thread(const WindowPass &pass, size_t t) : local(pass.window(t)), finish(local, pass.dest_) {}
    };

    void run(uint32_t b, Thread &thread) const
    {
        ColourJob<1> &local = thread.local;
        const uint32_t first = this->first(b), end = this->end(b);
        // Green rows top .. bottom - 1; the window starts at row top.
        const uint32_t top = first > 0 ? first - 1 : 0, bottom = std::min(end + 1, a_.h);
        local.p.first = top;
        for (uint32_t y = top; y < std::min(first + 2, bottom); ++y)
            greenPlaneRow(local, y, green_);
        for (uint32_t y = first; y < end; ++y) {
            if (y + 1 >= first + 2 && y + 1 < bottom)
                greenPlaneRow(local, y + 1, green_);
            redBlueAtGreenRow(local, y, line_);
            redBlueAtRedBlueRow(local, y, diagonal_);
            if (y == 1) {
                redBlueAtTop(local);
                thread.finish.row(0);
            }
            if (y + 1 == a_.h)
                redBlueAtBottom(local);
            if (y > 0 || a_.h == 1)
                thread.finish.row(y);
        }
    }

private:
    static size_t windowValues(size_t w) { return 3 * kRows * w; }

    ColourJob<1> window(size_t t) const
    {
        ColourJob<1> local = job_;
        for (unsigned c = 0; c < 3; ++c)
            local.p.c[c] = job_.f->previous + t * windowValues_ + c * kRows * a_.w;
        return local;
    }

    const ColourJob<1> &job_;
    std::uint8_t *const dest_;
    const Area &a_;
    const size_t windowValues_;
    const PlanarRowKernel green_, line_, diagonal_;
    uint32_t bands_;
};

// The window pass alone; false, having done nothing, when the windows do
// not fit.
bool interpolateInWindows(const ColourJob<1> &job, std::uint8_t *dest)
{
    const uint32_t threads = teamSize();
    if (!WindowPass::fits(job.f->area.w, threads))
        return false;
    const WindowPass pass(job, dest);
#pragma omp parallel num_threads(threads)
    {
        WindowPass::Thread thread(pass, threadNumber());
#pragma omp for schedule(dynamic, 1)
        for (int b = 0; b < static_cast<int>(pass.bands()); ++b)
            pass.run(static_cast<uint32_t>(b), thread);
    }
    return true;
}

// Interleaved triples: matrix and look-up in place, for the 16-bit result.
void finishInterleaved(const ColourJob<3> &job)
{
    const Frame &f = *job.f;
    const unsigned slot[3] = {channelSlot(f.demosaicMethod, kRed), channelSlot(f.demosaicMethod, kGreen),
                              channelSlot(f.demosaicMethod, kBlue)};
    const long n = static_cast<long>(f.area.pixels());
#pragma omp parallel for schedule(static)
    for (long i = 0; i < n; ++i) {
        uint16_t *px = f.rgb + 3 * i;
        uint32_t v[3] = {px[slot[0]], px[slot[1]], px[slot[2]]};
        if (f.matrixOn) {
            const uint32_t r = v[0], g = v[1], b = v[2];
            for (unsigned c = 0; c < 3; ++c)
                v[c] = static_cast<uint32_t>(matrixRow(f.matrix + 3 * c, r, g, b));
        }
        for (unsigned c = 0; c < 3; ++c)
            px[slot[c]] = f.lut[c][lutIndex(v[c])];
    }
}

template <size_t S> void interpolate(const ColourJob<S> &job)
{
    greenPlane(job);
    redBlueAtGreen(job);
    redBlueAtRedBlue(job);
}

// The finished 16-bit RGB image to the destination: edge enhancement, the
// live cache and the 8-bit reduction as the request asks.
void outputColour(const Frame &f, bool sixteenBit, void *dest)
{
    const Area &a = f.area;
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

constexpr size_t kUnbalanced = SIZE_MAX;

// The colour balance of row y as the split-row kernel applies it (see
// balanceRow): the vector rule on every column of the rows of whole pairs
// of rows, the scalar rule on whole pairs of columns; columns kUnbalanced
// when the gains are too wide for its 16-bit products.
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

// The first step of split rows (see vector_rows.h): colour balance, each
// balanced row split into the split mosaic, with green smoothing in colour
// mode 2 for its green half; band by band, a few bands per thread, each
// thread taking the next band when done, so that a row is split and
// smoothed while it is in cache and a thread the machine slows down does
// less. The balanced green halves that the smoothing reads stay in a ring
// of rows on each thread, which also balances the row above and the row
// below its band (writing only its ring). With `sensor` given, the sensor
// corrections and the defect correction of each row come first, the
// corrected rows likewise only in a ring on each thread (which also
// corrects the rows beyond its band that the defect correction reads), so
// that the corrected mosaic never takes room in the caches; f.work is then
// left as it was. Without, the corrected mosaic is read from f.work. Each
// band redoes a few rows beyond it: a few percent of the pass.
class FirstPass {
public:
    static constexpr uint32_t kMaxBands = 64;

    FirstPass(const FirstPass &) = delete; // set_ may point into the pass
    FirstPass(const ColourJob<1> &job, const SensorJob *sensor, uint32_t threads)
        : job_(job), f_(*job.f), a_(f_.area), w_(a_.w), sensor_(sensor), kernel_(kernelFor(f_.kernelVariant)),
          balanceRow_(BalanceRow::pick()), sensorRow_(SensorRowFused::pick()),
          smoothing_(f_.colourMode == 2 && a_.h >= 3),
          defects_(sensor != nullptr && f_.defectCorrect && f_.defectCount != 0),
          bands_(threads <= 1 ? 1 : std::min(kMaxBands, std::max(threads, std::min(4 * threads, a_.h / 64))))
    {
        if (defects_) {
            set_ = &defectSet(f_, localSet_);
            defectRows_.emplace(*set_, a_);
        }
    }
    uint32_t bands() const { return bands_; }
    uint32_t first(uint32_t b) const { return static_cast<uint32_t>(uint64_t{a_.h} * b / bands_); }

    // A thread's rings and scratch rows.
    struct Thread {
        alignas(64) uint16_t row[kSensorSide], spare[kSensorSide];
        alignas(64) uint16_t ring[kRingRows * kSensorSide], greens[4 * kSensorSide];
        SensorJob ringJob{};
        explicit Thread(const FirstPass &pass)
        {
            if (pass.sensor_ != nullptr) {
                ringJob = *pass.sensor_;
                ringJob.ring = ring;
            }
        }
    };

    // Band b; returns the OR of its balanced values.
    uint32_t run(uint32_t b, Thread &thread) const
    {
        const uint32_t first = this->first(b), end = this->first(b + 1);
        uint32_t bits = 0;
        if (first == end)
            return bits;
        // Rows prepareFirst .. prepareEnd - 1 are balanced, rows
        // senseFirst .. senseEnd - 1 corrected; each row two rows ahead of
        // its balance. A row is smoothed once the row below it is balanced.
        const uint32_t prepareFirst = smoothing_ && first > 0 ? first - 1 : first;
        const uint32_t prepareEnd = smoothing_ ? std::min(end + 1, a_.h) : end;
        const uint32_t senseFirst = prepareFirst >= 2 ? prepareFirst - 2 : 0;
        const uint32_t senseEnd = std::min(prepareEnd + 2, a_.h);
        for (uint32_t y = senseFirst; y < std::min(prepareFirst + 2, senseEnd); ++y)
            sense(y, thread);
        for (uint32_t y = prepareFirst; y < prepareEnd; ++y) {
            if (y + 2 < senseEnd)
                sense(y + 2, thread);
            bits |= prepare(y, y >= first && y < end, thread);
            if (y > first && y - 1 < end)
                smooth(y - 1, thread);
        }
        if (prepareEnd == end)
            smooth(end - 1, thread);
        return bits;
    }

private:
    uint16_t *rowOf(uint32_t y, Thread &thread) const
    {
        return sensor_ != nullptr ? thread.ring + size_t{y % kRingRows} * w_ : f_.work + y * w_;
    }
    uint16_t *greensOf(uint32_t y, Thread &thread) const { return thread.greens + size_t{y % 4} * w_; }

    void sense(uint32_t y, Thread &thread) const
    {
        if (sensor_ != nullptr)
            sensorRow_(thread.ringJob, y);
    }

    // Row y balanced and split: both halves to the split mosaic, except
    // with smoothing the green one, which the smoothing reads, to the ring.
    // Rows beyond the band (not `own`) only to the ring.
    uint32_t prepare(uint32_t y, bool own, Thread &thread) const
    {
        if (defects_)
            for (const uint32_t *e = defectRows_->begin(y); e != defectRows_->end(y); ++e)
                correctDefect(f_, *set_, *e, [&](uint32_t r) { return rowOf(r, thread); });
        const size_t greenHalf = (y & 1) ? 0 : 1;
        uint16_t *halves[2];
        for (size_t h = 0; h < 2; ++h) {
            if (smoothing_ && h == greenHalf)
                halves[h] = greensOf(y, thread) + h * job_.p.half;
            else
                halves[h] = own ? job_.splitMosaic + y * w_ + h * job_.p.half : thread.spare;
        }
        const uint16_t *from = rowOf(y, thread);
        vec::SplitBalance rule = splitBalance(f_, y, kernel_);
        if (rule.columns == kUnbalanced) {
            uint32_t rowBits;
            balanceRow_(f_, y, kernel_ == Kernel::Vector, from, thread.row, nullptr, &rowBits);
            from = thread.row;
            rule.columns = 0;
        }
        return vec::balanceSplitAvx512(from, w_, rule, halves[0], halves[1]);
    }

    void smooth(uint32_t y, Thread &thread) const
    {
        if (!smoothing_)
            return;
        uint16_t *mosaic = job_.splitMosaic + y * w_;
        if (y >= 1 && y + 1 < a_.h) {
            vec::smoothSplitAvx512(greensOf(y - 1, thread), greensOf(y, thread), greensOf(y + 1, thread), mosaic, w_,
                                   y & 1, (y & 1) ? a_.w - 2 : a_.w - 3);
        } else {
            const size_t at = (y & 1) ? 0 : job_.p.half;
            std::memcpy(mosaic + at, greensOf(y, thread) + at, ((y & 1) ? job_.p.half : w_ / 2) * 2);
        }
    }

    const ColourJob<1> &job_;
    const Frame &f_;
    const Area &a_;
    const size_t w_;
    const SensorJob *sensor_;
    const Kernel kernel_;
    const decltype(BalanceRow::pick()) balanceRow_;
    const decltype(SensorRowFused::pick()) sensorRow_;
    const bool smoothing_;
    const bool defects_;
    const uint32_t bands_;
    std::optional<DefectSet> localSet_;
    const DefectSet *set_ = nullptr;
    std::optional<DefectRows> defectRows_;
};

// The first pass alone. Returns whether every balanced value is below
// 1024; when not, the split mosaic is of no use.
bool correctBalanceAndSplit(const ColourJob<1> &job, const SensorJob *sensor)
{
    const uint32_t threads = teamSize();
    const FirstPass pass(job, sensor, threads);
    uint32_t bits = 0;
#pragma omp parallel num_threads(threads) reduction(| : bits)
    {
        FirstPass::Thread thread(pass);
#pragma omp for schedule(dynamic, 1)
        for (int b = 0; b < static_cast<int>(pass.bands()); ++b)
            bits |= pass.run(static_cast<uint32_t>(b), thread);
    }
    return bits <= kMaxValue;
}

// Both passes of split rows to 8 bits in one parallel region: each window
// band starts as soon as the first pass has finished the rows it reads
// (its own and three beyond each end), so that no thread waits for the
// whole first pass. Returns whether every balanced value is below 1024;
// when not, neither the split mosaic nor the output is of use.
bool splitRowsToBytes(const ColourJob<1> &job, const SensorJob *sensor, std::uint8_t *dest, uint32_t threads)
{
    const FirstPass first(job, sensor, threads);
    const WindowPass windows(job, dest);
    const uint32_t h = job.f->area.h;
    std::atomic<bool> done[FirstPass::kMaxBands] = {};
    uint32_t bits = 0;
#pragma omp parallel num_threads(threads) reduction(| : bits)
    {
        {
            FirstPass::Thread thread(first);
#pragma omp for schedule(dynamic, 1) nowait
            for (int b = 0; b < static_cast<int>(first.bands()); ++b) {
                bits |= first.run(static_cast<uint32_t>(b), thread);
                done[b].store(true, std::memory_order_release);
            }
        }
        WindowPass::Thread thread(windows, threadNumber());
#pragma omp for schedule(dynamic, 1)
        for (int b = 0; b < static_cast<int>(windows.bands()); ++b) {
            const uint32_t from = windows.first(static_cast<uint32_t>(b));
            const uint32_t needFirst = from >= 3 ? from - 3 : 0;
            const uint32_t needEnd = std::min(windows.end(static_cast<uint32_t>(b)) + 3, h);
            // Every first-pass band is taken by now: those not done are
            // being done. Spin briefly, then yield: the thread doing one may
            // be waiting for a core.
            for (uint32_t k = 0; k < first.bands(); ++k)
                if (first.first(k) < needEnd && first.first(k + 1) > needFirst)
                    for (uint32_t spins = 0; !done[k].load(std::memory_order_acquire); ++spins) {
                        if (spins < 4096)
                            __builtin_ia32_pause();
                        else
                            std::this_thread::yield();
                    }
            windows.run(static_cast<uint32_t>(b), thread);
        }
    }
    return bits <= kMaxValue;
}

// Split rows need AVX-512 VBMI and rows wide enough for their kernels.
bool splitRowsFor(const Frame &f)
{
    return vec::vbmiActive() && f.area.w >= vec::kSplitMinWidth;
}

// The planes of the 8-bit colour path: red at the RGB image, green in the
// smoothing copy's buffer (free again), blue at the RGB image's second
// part; with split rows the split mosaic in its third part.
ColourJob<1> planeJob(const Frame &f, const stage::ColourPlanes &planes)
{
    const size_t n = f.area.pixels();
    ColourJob<1> job{&f, {{f.rgb, f.previous, f.rgb + n}, f.area.w}, planes.narrow};
    if (planes.split) {
        job.p.half = (f.area.w + 1) / 2;
        job.splitMosaic = f.rgb + 2 * n;
    }
    return job;
}

// Balance and smoothing of the corrected mosaic in work into the 8-bit
// colour path's planes, in natural rows.
stage::ColourPlanes naturalPlanes(const Frame &f)
{
    const bool narrow = balance(f, f.colourMode == 2) && simd::active() != simd::Level::Scalar;
    if (f.colourMode == 2)
        greenSmoothing(f, narrow);
    return {false, narrow};
}

// Colour modes 1 and 2 from the raw frame. Only the 8-bit result wanted:
// planes, interpolated and finished band by band; with split rows the
// sensor corrections run in the same bands as the balance when nothing
// runs between them over the whole frame, and the planes only in windows
// where the buffer has room for one per thread. Else natural interleaved
// triples, finished in place.
ImageLayout colourPipeline(const Frame &f, bool sixteenBit, void *dest)
{
    const Area &a = f.area;
    if (!sixteenBit && f.mode71 == 0 && !f.keepLiveCache) {
        auto *dest8 = static_cast<std::uint8_t *>(dest);
        const bool split = splitRowsFor(f);
        const bool fused = split && a.w % 4 == 0 && !f.columnCorrect;
        if (!fused) {
            sensorPass(f);
            correctDefects(f);
        }
        if (split) {
            const ColourJob<1> job = planeJob(f, {true, true});
            const SensorJob sensor = sensorJob(f);
            const SensorJob *withSensor = fused ? &sensor : nullptr;
            const uint32_t threads = teamSize();
            if (WindowPass::fits(a.w, threads)) {
                if (splitRowsToBytes(job, withSensor, dest8, threads))
                    return ImageLayout::SplitMosaic;
            } else if (correctBalanceAndSplit(job, withSensor)) {
                interpolateAndFinish(job, dest8);
                return ImageLayout::SplitPlanes;
            }
            // A balanced value reached 1024: natural rows, from the
            // corrected mosaic in work.
            if (fused) {
                sensorPass(f);
                correctDefects(f);
            }
        }
        interpolateAndFinish(planeJob(f, naturalPlanes(f)), dest8);
        return ImageLayout::Planes;
    }
    sensorPass(f);
    correctDefects(f);
    naturalPlanes(f); // the balanced mosaic in work, smoothed, for the triples
    const unsigned dm = f.demosaicMethod;
    const ColourJob<3> job{
        &f, {{f.rgb + channelSlot(dm, kRed), f.rgb + channelSlot(dm, kGreen), f.rgb + channelSlot(dm, kBlue)}, a.w}};
    interpolate(job);
    finishInterleaved(job);
    outputColour(f, sixteenBit, dest);
    return ImageLayout::Triples;
}

} // namespace

ImageLayout process(const Frame &f, bool sixteenBit, void *dest)
{
    const Area &a = f.area;
    if (!f.colour && !sixteenBit && f.mode71 == 0 && !f.keepLiveCache) {
        // Monochrome to 8 bits: each row is looked up as soon as it is
        // corrected; defect correction then redoes the pixels it changes.
        const OutputTable output(f.lut[0], f.outputShift);
        auto *dest8 = static_cast<std::uint8_t *>(dest);
        sensorPass(f, &output, dest8);
        correctDefects(f, &output, dest8);
        return ImageLayout::Grey;
    }
    if (f.colour && !f.rawBayerOutput && (f.colourMode == 1 || f.colourMode == 2))
        return colourPipeline(f, sixteenBit, dest);
    sensorPass(f);
    correctDefects(f);
    if (!f.colour) {
        lookUpMono(f, sixteenBit, dest);
        return ImageLayout::Grey;
    }
    if (f.rawBayerOutput) {
        if (sixteenBit)
            std::memcpy(dest, f.work, a.pixels() * 2);
        else
            reduceValues(f.work, a.pixels(), static_cast<std::uint8_t *>(dest), f.outputShift);
        return ImageLayout::Grey;
    }
    // The bilinear colour modes are rare: the reference stages serve them.
    reference::bilinear(f.work, f.rgb, a, f.demosaicMethod, f.bilinearLut);
    if (f.matrixOn)
        reference::colourMatrix(f.rgb, f.matrix, a, f.demosaicMethod);
    outputColour(f, sixteenBit, dest);
    return ImageLayout::Triples;
}

namespace stage {

void sensor(const Frame &f)
{
    sensorPass(f);
}

void sensorToBytes(const Frame &f, std::uint8_t *dest)
{
    const OutputTable output(f.lut[0], f.outputShift);
    sensorPass(f, &output, dest);
}

void defects(const Frame &f)
{
    correctDefects(f);
}

ColourPlanes colourPlanes(const Frame &f)
{
    if (splitRowsFor(f) && correctBalanceAndSplit(planeJob(f, {true, true}), nullptr))
        return {true, true};
    return naturalPlanes(f);
}

void colourFinish(const Frame &f, const ColourPlanes &planes, std::uint8_t *dest)
{
    const ColourJob<1> job = planeJob(f, planes);
    if (!planes.split || !interpolateInWindows(job, dest))
        interpolateAndFinish(job, dest);
}

} // namespace stage

void splitPlanes(const Area &area, std::uint16_t *rgb, std::uint16_t *previous)
{
    Frame f{};
    f.area = area;
    f.rgb = rgb;
    f.previous = previous;
    interpolate(planeJob(f, {true, true}));
}

} // namespace quorin::image
