// The shipped pixel pipeline: which path a frame takes. It produces
// exactly what the reference stages produce, organised for speed; the
// layout of this folder follows that organisation:
//  - stages/: what each stage computes over a row or a range of rows
//    (sensor corrections, defects, balance, smoothing, the three
//    interpolation passes, the colour finish, the output);
//  - schedule/: how stages are fused and run on the thread team (bands,
//    rings and windows of rows);
//  - kernels/: the vector kernels per instruction set, and the one
//    dispatch point that picks the level (kernels/simd.h).
// In short:
//  - unpacking (byte shuffles with AVX2, byte permutes with VBMI), dark
//    subtraction, pixel gain and, for monochrome 8-bit output, the look-up
//    run as one pass per row;
//  - defect correction looks neighbours up in a hash set of the list (kept
//    by the device between frames, see stages/defect_sets.h) and corrects the pixels
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
//    the processor has AVX-512 VBMI (see kernels/vector_kernels.h), and as
//    a shift when the table is straight (the identity table a camera opens
//    with);
//  - per-row passes are OpenMP loops (static schedules, dynamic ones where
//    rows take unequal time), and the inner loops are written so that the
//    compiler vectorises them for the instruction set picked at run time
//    (see kernels/simd.h).
#include "image/pipeline.h"

#include "image/kernels/simd.h"
#include "image/kernels/vector_kernels.h"
#include "image/reference/stages.h"
#include "image/schedule/first_pass.h"
#include "image/schedule/team.h"
#include "image/schedule/whole_frame.h"
#include "image/schedule/window_pass.h"
#include "image/stages/balance.h"
#include "image/stages/colour_finish.h"
#include "image/stages/defect_correction.h"
#include "image/stages/interpolation.h"
#include "image/stages/output.h"
#include "image/stages/sensor.h"
#include "image/stages/smoothing.h"

#include <cstring>

namespace quorin::image {
namespace {

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
