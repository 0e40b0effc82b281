// The shipped pixel pipeline: which path a frame takes. It produces
// exactly what the reference stages (reference/) produce, organised for
// speed, and the layout of this folder follows that organisation:
//  - stages/: what each stage computes over a row or a range of rows: the
//    sensor corrections (unpacking, dark frame, crosstalk, pixel gain),
//    defects, balance, smoothing, the three interpolation passes, the
//    colour finish (matrix and look-up) and the outputs of grey and colour
//    frames (8 or 16 bits, the live cache, edge enhancement);
//  - schedule/: how the stages are fused and run on the thread team: a
//    grey frame in one pass over bands of rows (grey_pass), a colour frame
//    in a first pass over bands (first_pass) and a window pass over bands
//    of 32 rows (window_pass), the two in one parallel region
//    (colour_frame);
//  - kernels/: the kernels written with intrinsics, one file per family and
//    instruction set, and the one dispatch point that picks the level
//    (kernels/simd.h, kernels/dispatch.cpp).
// Every row is taken through all its stages while it is in cache: a grey
// row is sensed, corrected and output a row or two behind; a colour row is
// sensed, corrected and balanced into rings of rows on its thread, then
// smoothed into the prepared mosaic, and a window band interpolates its
// rows (and, for edge enhancement, one row beyond each end) in a window of
// rows and hands each finished row to the output. The rows beyond a band
// that its stages read are done again on the band's thread, so that no
// thread waits for another (a window band waits only for the first-pass
// bands it reads). With AVX-512 VBMI the colour planes keep split rows
// (even columns, then odd ones), so that each interpolation pass computes
// only the sites it changes; with values below 1024 (every frame but
// adversarial ones) the passes compute in 16-bit lanes, and a frame whose
// balanced values reach 1024 is done again in 32-bit values.
#include "image/pipeline.h"

#include "image/kernels/simd.h"
#include "image/kernels/vector_kernels.h"
#include "image/reference/stages.h"
#include "image/schedule/colour_frame.h"
#include "image/schedule/grey_pass.h"
#include "image/schedule/team.h"
#include "image/schedule/window_pass.h"
#include "image/stages/colour_output.h"
#include "image/stages/grey_output.h"
#include "image/stages/defect_correction.h"
#include "image/stages/interpolation.h"
#include "image/stages/output.h"
#include "image/stages/sensor.h"

#include <cstring>

namespace quorin::image {
namespace {

// Split rows need rows wide enough for their kernels.
bool splitRowsFor(const Frame &f)
{
    return simd::active() != simd::Level::Scalar && f.area.w >= vec::kSplitMinWidth;
}

// A colour job over the frame: the prepared mosaic at the RGB image's last
// third; the whole planes (which only planesFromMosaic() fills) red at the
// RGB image, green in the smoothing copy's buffer, blue at the RGB image's
// second third.
ColourJob colourJob(const Frame &f, bool split, bool narrow)
{
    const size_t n = f.area.pixels();
    ColourJob job{&f, {{f.rgb, f.previous, f.rgb + n}, f.area.w}, narrow, f.rgb + 2 * n};
    if (split)
        job.p.half = (f.area.w + 1) / 2;
    return job;
}

// Colour modes 1 and 2: both passes in one region; with values below 1024
// (every frame but adversarial ones) in 16-bit lanes, in split rows where
// the machine runs them, else again in natural rows and 32-bit values.
ImageLayout colourPipeline(const Frame &f, bool sixteenBit, void *dest)
{
    const bool fused = fusedSensor(f);
    if (!fused) {
        sensorPass(f);
        correctDefects(f);
    }
    const SensorJob sensor = fusedSensorJob(f);
    for (const bool narrow : {simd::active() != simd::Level::Scalar, false}) {
        const bool split = narrow && splitRowsFor(f);
        const ColourJob job = colourJob(f, split, narrow);
        const ColourOutput output(job, sixteenBit, dest);
        const uint32_t threads = WindowPass::threadsFor(job, output, team::threadsFor(f.area.pixels()));
        const uint32_t bits = colourFrame(job, fused ? &sensor : nullptr, output, threads);
        if (bits <= kMaxValue || !narrow)
            return split ? ImageLayout::SplitMosaic : ImageLayout::Mosaic;
    }
    return ImageLayout::Mosaic; // not reached: the second round is never narrow
}

} // namespace

ImageLayout process(const Frame &f, bool sixteenBit, void *dest)
{
    const Area &a = f.area;
    if (!f.colour || f.rawBayerOutput) {
        // Grey frames: every row sensed, corrected and output in one pass.
        const bool fused = fusedSensor(f);
        if (!fused) {
            sensorPass(f);
            correctDefects(f);
        }
        const SensorJob sensor = fusedSensorJob(f);
        const GreyOutput output(f, sixteenBit, dest);
        greyFrame(f, fused ? &sensor : nullptr, output, team::threadsFor(f.area.pixels()));
        return ImageLayout::Grey;
    }
    if (f.colourMode == 1 || f.colourMode == 2)
        return colourPipeline(f, sixteenBit, dest);
    // The bilinear colour modes, which no host can select (the colour mode
    // has no setter): the reference stages serve them.
    sensorPass(f);
    correctDefects(f);
    reference::bilinear(f.work, f.rgb, a, f.demosaicMethod, f.bilinearLut);
    if (f.matrixOn)
        reference::colourMatrix(f.rgb, f.matrix, a, f.demosaicMethod);
    outputColour(f, sixteenBit, dest);
    return ImageLayout::Triples;
}

ImageLayout planesFromMosaic(ImageLayout layout, const Area &area, std::uint16_t *rgb, std::uint16_t *previous)
{
    Frame f{};
    f.area = area;
    f.rgb = rgb;
    f.previous = previous;
    const bool split = layout == ImageLayout::SplitMosaic;
    // Split rows hold values below 1024; natural ones may not.
    interpolate(colourJob(f, split, split));
    return split ? ImageLayout::SplitPlanes : ImageLayout::Planes;
}

namespace stage {

void sensor(const Frame &f)
{
    sensorPass(f);
}

void grey(const Frame &f, bool sixteenBit, void *dest)
{
    const SensorJob sensor = fusedSensorJob(f);
    const GreyOutput output(f, sixteenBit, dest);
    greyFrame(f, &sensor, output, team::threadsFor(f.area.pixels()));
}

void defects(const Frame &f)
{
    correctDefects(f);
}

void colourFirstPass(const Frame &f)
{
    const SensorJob sensor = fusedSensorJob(f);
    const ColourJob job = colourJob(f, splitRowsFor(f), true);
    image::colourFirstPass(job, fusedSensor(f) ? &sensor : nullptr, team::threadsFor(f.area.pixels()));
}

void colourWindowPass(const Frame &f, bool sixteenBit, void *dest)
{
    const ColourJob job = colourJob(f, splitRowsFor(f), true);
    const ColourOutput output(job, sixteenBit, dest);
    image::colourWindowPass(job, output, WindowPass::threadsFor(job, output, team::threadsFor(f.area.pixels())));
}

} // namespace stage

} // namespace quorin::image
