#include "image/stages/sensor.h"

#include "image/kernels/simd.h"
#include "image/kernels/vector_kernels.h"
#include "image/reference/stages.h"

#include <cstring>

namespace quorin::image {
namespace {

using std::int32_t;
using std::size_t;
using std::uint16_t;
using std::uint32_t;

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

} // namespace

SensorRowKernel sensorRowKernel()
{
    return SensorRowFused::pick();
}

SensorJob sensorJob(const Frame &f, const OutputTable *output, std::uint8_t *dest8)
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

void sensorPass(const Frame &f, const OutputTable *output, std::uint8_t *dest8)
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

} // namespace quorin::image
