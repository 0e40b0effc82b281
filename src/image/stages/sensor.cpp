#include "image/stages/sensor.h"

#include "image/kernels/simd.h"
#include "image/kernels/vector_kernels.h"
#include "image/schedule/team.h"
#include "image/stages/crosstalk.h"

#include <cstring>

namespace quorin::image {
namespace {

using std::int32_t;
using std::size_t;
using std::uint16_t;
using std::uint32_t;

// Row y of the area into row: unpack (when whole groups lie in the row),
// subtract the dark frame, correct the crosstalk (when the job says so),
// apply the pixel gain.
template <bool Unpack>
QUORIN_ALWAYS_INLINE inline void sensorRow(const SensorJob &job, uint32_t y, uint16_t *row)
{
    const Frame &f = *job.f;
    const Area &a = f.area;
    const size_t table = size_t{a.y0 + y} * kSensorSide + a.x0;
    // The gain waits for the crosstalk correction when there is one.
    const bool gainNow = job.gain && !job.crosstalk;
    const std::uint16_t *gainRow = gainNow && !job.constantGain ? job.gainTable + table : nullptr;
    const std::uint16_t constant = gainNow && job.constantGain ? 997 : 0;
    // The columns that a vector kernel corrected as a whole.
    uint32_t done = 0;
    if (Unpack && job.vbmiRow) {
        // All of it in registers, 32 values at a time.
        vec::sensorRowVbmi(f.raw + size_t{y} * a.w / 4 * 5, a.w / 4, job.dark ? f.dark + table : nullptr,
                           job.darkVector, gainRow, constant, row);
        done = a.w;
    } else if (Unpack && job.shuffleUnpack) {
        // 16 values at a time while the bytes read lie in the frame.
        const size_t frameBytes = a.pixels() / 4 * 5;
        done = 4 * static_cast<uint32_t>(vec::sensorRowAvx2(f.raw + size_t{y} * a.w / 4 * 5, a.w / 4,
                                                              frameBytes - size_t{y} * a.w / 4 * 5,
                                                              job.dark ? f.dark + table : nullptr, job.darkVector,
                                                              gainRow, constant, row));
    }
    const bool gainDone = gainNow && done == a.w;
    if constexpr (Unpack) {
        // Each group is a 40-bit little-endian number; read it as 64 bits
        // (a frame is at most 1.25 MiB of the 2 MiB buffer, so the three
        // bytes beyond the last group are always inside it).
        const std::uint8_t *in = f.raw + size_t{y} * a.w / 4 * 5;
        for (uint32_t g = done / 4; g < a.w / 4; ++g) {
            std::uint64_t v;
            std::memcpy(&v, in + 5 * g, sizeof v);
            row[4 * g] = static_cast<uint16_t>(v & 0x3FF);
            row[4 * g + 1] = static_cast<uint16_t>((v >> 10) & 0x3FF);
            row[4 * g + 2] = static_cast<uint16_t>((v >> 20) & 0x3FF);
            row[4 * g + 3] = static_cast<uint16_t>((v >> 30) & 0x3FF);
        }
    }
    if (job.dark) {
        const uint16_t *d = f.dark + table;
        if (job.darkVector) {
            for (uint32_t x = done; x < a.w; ++x) {
                int32_t v = static_cast<std::int16_t>(static_cast<uint16_t>(row[x] - d[x]));
                v = v < 0 ? 0 : v;
                row[x] = static_cast<uint16_t>(v > kMaxValue ? kMaxValue : v);
            }
        } else {
            for (uint32_t x = done; x < a.w; ++x) {
                const int32_t v = static_cast<std::int16_t>(static_cast<uint16_t>(row[x] - d[x]));
                row[x] = static_cast<uint16_t>(v < 1 ? 0 : v);
            }
        }
    }
    if (job.crosstalk)
        crosstalkRow(row, a, y);
    if (job.gain && !gainDone) {
        // The columns the vector kernel did have their gain unless the
        // crosstalk correction sat between.
        const uint32_t from = gainNow ? done : 0;
        if (job.constantGain) {
            for (uint32_t x = from; x < a.w; ++x) {
                const auto p = static_cast<uint16_t>((uint32_t{row[x]} * 997u) >> 9);
                row[x] = static_cast<std::int16_t>(p) > kMaxValue ? kMaxValue : p;
            }
        } else {
            const uint16_t *g = job.gainTable + table;
            for (uint32_t x = from; x < a.w; ++x) {
                const auto p = static_cast<uint16_t>((uint32_t{row[x]} * g[x]) >> 9);
                row[x] = static_cast<std::int16_t>(p) > kMaxValue ? kMaxValue : p;
            }
        }
    }
}

QUORIN_KERNEL(SensorRowFused, (const SensorJob &job, uint32_t y, uint16_t *row), sensorRow<true>(job, y, row););
QUORIN_KERNEL(SensorRowCorrect, (const SensorJob &job, uint32_t y, uint16_t *row), sensorRow<false>(job, y, row););

// Runs a row kernel over every row of the area into f.work, rows split
// statically.
template <typename Kernel> void forEachRow(const SensorJob &job)
{
    const auto kernel = Kernel::pick();
    const Frame &f = *job.f;
    team::parallelFor(f.area.h, 16, [&](uint32_t begin, uint32_t end) {
        for (uint32_t y = begin; y < end; ++y)
            kernel(job, y, f.work + size_t{y} * f.area.w);
    });
}

void unpackParallel(const std::uint8_t *raw, size_t pixels, uint16_t *work)
{
    team::parallelFor(static_cast<uint32_t>(pixels >> 2), 16384, [&](uint32_t begin, uint32_t end) {
        for (size_t i = begin; i < end; ++i) {
            const std::uint8_t *b = raw + 5 * i;
            uint16_t *o = work + 4 * i;
            o[0] = static_cast<uint16_t>((b[1] & 0x03) << 8 | b[0]);
            o[1] = static_cast<uint16_t>((b[2] & 0x0F) << 6 | b[1] >> 2);
            o[2] = static_cast<uint16_t>((b[3] & 0x3F) << 4 | b[2] >> 4);
            o[3] = static_cast<uint16_t>(b[4] << 2 | b[3] >> 6);
        }
    });
}

} // namespace

SensorRowKernel sensorRowKernel()
{
    return SensorRowFused::pick();
}

SensorJob sensorJob(const Frame &f)
{
    const Kernel kernel = kernelFor(f.kernelVariant);
    SensorJob job{&f, f.darkSubtract && kernel != Kernel::Skip, kernel == Kernel::Vector, nullptr, false, false};
    if (kernel != Kernel::Skip && f.pixelGainMode >= 1 && f.pixelGainMode <= 3) {
        job.gain = true;
        job.constantGain = f.pixelGainMode == 3;
        job.gainTable = f.pixelGainMode == 1 ? f.gainA : f.pixelGainMode == 2 ? f.gainB : nullptr;
    }
    job.shuffleUnpack = vec::avx2Active();
    job.vbmiRow = vec::vbmiActive();
    return job;
}

bool fusedSensor(const Frame &f)
{
    const Area &a = f.area;
    return a.w % 4 == 0 && (!f.columnCorrect || (a.h == a.w && crosstalkRowsIndependent(a)));
}

SensorJob fusedSensorJob(const Frame &f)
{
    SensorJob job = sensorJob(f);
    job.crosstalk = f.columnCorrect;
    return job;
}

void sensorPass(const Frame &f)
{
    const SensorJob job = sensorJob(f);
    // The crosstalk correction sits between dark and gain: split there.
    const bool split = f.columnCorrect;
    SensorJob first = job;
    if (split)
        first.gain = false;
    if (f.area.w % 4 == 0) {
        forEachRow<SensorRowFused>(first);
    } else {
        unpackParallel(f.raw, f.area.pixels(), f.work);
        forEachRow<SensorRowCorrect>(first);
    }
    if (split) {
        crosstalk(f.work, f.area);
        SensorJob gainOnly = job;
        gainOnly.dark = false;
        forEachRow<SensorRowCorrect>(gainOnly);
    }
}

} // namespace quorin::image
