// Transfer speed against the virtual camera on link type 4, with memcpy of
// 6 MiB as the yardstick: full 1024 x 1024 transfers of a K5C and a K5 in
// every output configuration a host can reach (a table below: the
// settings a camera has after open, 16 bits, edge enhancement, the live
// cache, raw Bayer output, a gamma curve, the matrix off, the eight-lane
// kernels, column correction, file gains, recorded frames and the split
// transfer), each on 1 and 2 threads; and each stage alone.
// bench/speed_table.py runs it several times and prints the README's table.
#include "image/stages/defect_sets.h"
#include "image/frame.h"
#include "image/pipeline.h"
#include "image/reference/stages.h"
#include "image/schedule/team.h"
#include "quorin/quorin.h"
#include "bench_camera.h"
#include "vcam/vcam.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

void BM_Memcpy6MiB(benchmark::State &state)
{
    std::vector<char> a(6 << 20, 1), b(6 << 20);
    for (auto _ : state) {
        std::memcpy(b.data(), a.data(), a.size());
        benchmark::DoNotOptimize(b.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * (6 << 20));
}
BENCHMARK(BM_Memcpy6MiB);

using namespace bench;

// Capability 41: demosaic << 16 | raw Bayer << 8 | output shift.
constexpr std::uint32_t kRawBayer = 1u << 16 | 1u << 8 | 2u;

const std::vector<Config> &configs()
{
    static const std::vector<Config> table = [] {
        std::vector<Config> t;
        for (const std::uint32_t model : {VCAM_K5C, VCAM_K5}) {
            const std::string m = model == VCAM_K5C ? "K5C" : "K5";
            auto add = [&](const char *what, int bits, Source source, std::vector<Setting> settings,
                           std::uint32_t firmware = 120) {
                t.push_back({m + "_" + std::to_string(bits) + "bit" + (*what != 0 ? "_" : "") + what, model, bits,
                             source, std::move(settings), firmware});
            };
            for (const int bits : {8, 16}) {
                add("", bits, Source::Live, {});
                add("edge", bits, Source::Live, {{QUORIN_CAP_MODE_133, 2}});
                add("edge_strong", bits, Source::Live, {{QUORIN_CAP_MODE_133, 4}});
                add("gamma", bits, Source::Live, {{QUORIN_CAP_LUT_MODE, 2}});
                add("memory", bits, Source::Memory, {});
                if (model == VCAM_K5C) {
                    add("raw_bayer", bits, Source::Live, {{QUORIN_CAP_IMAGE_OUTPUT, kRawBayer}});
                    add("matrix_off", bits, Source::Live, {{QUORIN_CAP_COLOUR_MATRIX_SET, 0}});
                }
            }
            add("keep_cache", 8, Source::Live, {{QUORIN_CAP_KEEP_LIVE_CACHE, 1}});
            add("keep_cache_edge", 8, Source::Live, {{QUORIN_CAP_KEEP_LIVE_CACHE, 1}, {QUORIN_CAP_MODE_133, 2}});
            add("eight_lane", 8, Source::Live, {{QUORIN_CAP_KERNEL_VARIANT, 0x80000002u}});
            add("column", 8, Source::Live, {{QUORIN_CAP_COLUMN_CORRECT, 1}}, 113);
            add("file_gain", 8, Source::Live, {{QUORIN_CAP_PIXEL_GAIN, 2}});
            add("split_transfer", 8, Source::Split, {});
        }
        return t;
    }();
    return table;
}

// The camera of the configuration running now: opening takes the camera's
// fixed pauses, so each configuration opens once for all its runs.
OpenCamera &cameraFor(const Config *c)
{
    static const Config *current = nullptr;
    static std::unique_ptr<OpenCamera> open;
    if (current != c) {
        open.reset();
        open = std::make_unique<OpenCamera>(*c);
        current = c;
    }
    return *open;
}

void transfer(benchmark::State &state, const Config *c)
{
    quorin::image::team::setSize(static_cast<std::uint32_t>(state.range(0)));
    OpenCamera &open = cameraFor(c);
    Destination destination;
    std::uint8_t *const dest = destination.data();
    std::uint32_t frame = 0;
    auto next = [&] { return frame++ % 16 + 1; };
    for (int warm = 0; warm < 17 && open.ok && !open.warmed; ++warm) // render the live cycle once
        open.ok = transferOnce(*c, open.dev, next(), dest);
    open.warmed = true;
    if (!open.ok)
        state.SkipWithError("setting up or transferring failed");
    for (auto _ : state) {
        if (!transferOnce(*c, open.dev, next(), dest)) {
            state.SkipWithError("transfer failed");
            break;
        }
        benchmark::DoNotOptimize(dest);
    }
    quorin::image::team::setSize(0);
}

// ---- Stages alone, on a prepared frame ------------------------------------

struct Buffers {
    std::vector<std::uint8_t> raw = std::vector<std::uint8_t>(0x200000);
    std::vector<std::uint16_t> work = std::vector<std::uint16_t>(1 << 20), rgb = std::vector<std::uint16_t>(3 << 20),
                               prev = std::vector<std::uint16_t>(1 << 20), cache = std::vector<std::uint16_t>(3 << 20),
                               dark = std::vector<std::uint16_t>(1 << 20, 3),
                               gain = std::vector<std::uint16_t>(1 << 20, 996), lut = std::vector<std::uint16_t>(1024);
    std::vector<std::uint32_t> defects = std::vector<std::uint32_t>(1024);
    std::vector<std::uint8_t> dest = std::vector<std::uint8_t>(3 << 20);
    std::unique_ptr<quorin::image::DefectIndex> defectIndex = std::make_unique<quorin::image::DefectIndex>();
    quorin::image::Frame f{};

    explicit Buffers(bool colour)
    {
        std::mt19937 rng(3);
        for (auto &b : raw)
            b = static_cast<std::uint8_t>(rng());
        for (int i = 0; i < 1024; ++i)
            lut[i] = static_cast<std::uint16_t>(i);
        for (auto &d : defects)
            d = (rng() % 1024) << 16 | (rng() % 1024);
        f.area = {1024, 1024, 0, 0};
        f.raw = raw.data();
        f.work = work.data();
        f.rgb = rgb.data();
        f.previous = prev.data();
        f.cache = cache.data();
        f.dark = dark.data();
        f.gainA = f.gainB = gain.data();
        for (auto &t : f.lut)
            t = lut.data();
        for (auto &t : f.bilinearLut)
            t = lut.data();
        f.colour = colour;
        f.darkSubtract = true;
        f.pixelGainMode = 1;
        f.defectCorrect = true;
        f.defectCount = 1024;
        f.defects = defects.data();
        f.defectIndex = defectIndex.get(); // as a device keeps it
        f.outputShift = 2;
        f.demosaicMethod = 1;
        f.colourMode = 2;
        f.balanceGains[0] = f.balanceGains[1] = f.balanceGains[2] = 16;
        f.matrixOn = true;
        const std::int32_t m[9] = {300, -20, -24, -30, 310, -24, -20, -30, 320};
        std::memcpy(f.matrix, m, sizeof m);
        f.kernelVariant = 0x80000000u;
    }
};

void BM_ReferenceK5C(benchmark::State &state)
{
    Buffers b(true);
    for (auto _ : state)
        quorin::image::reference::process(b.f, false, b.dest.data());
}
BENCHMARK(BM_ReferenceK5C)->Unit(benchmark::kMillisecond);

// Each stage alone, over a frame that process() has been through once so
// that every buffer holds what the stage reads.
template <void (*Stage)(Buffers &), bool Colour> void runStage(benchmark::State &state)
{
    quorin::image::team::setSize(static_cast<std::uint32_t>(state.range(0)));
    Buffers b(Colour);
    quorin::image::process(b.f, false, b.dest.data());
    for (auto _ : state)
        Stage(b);
    quorin::image::team::setSize(0);
}

namespace stage = quorin::image::stage;

void greyStage(Buffers &b)
{
    stage::grey(b.f, false, b.dest.data());
}
void defectsStage(Buffers &b)
{
    stage::defects(b.f);
}
void colourFirstPassStage(Buffers &b)
{
    stage::colourFirstPass(b.f);
}
void colourWindowPassStage(Buffers &b)
{
    stage::colourWindowPass(b.f, false, b.dest.data());
}

#define QUORIN_STAGE(name, fn, colour)                                                                                \
    BENCHMARK_TEMPLATE2(runStage, fn, colour)->Name(name)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime()

QUORIN_STAGE("BM_StageK5C_FirstPass", colourFirstPassStage, true);
QUORIN_STAGE("BM_StageK5C_WindowPass", colourWindowPassStage, true);
QUORIN_STAGE("BM_StageK5_Grey", greyStage, false);
QUORIN_STAGE("BM_StageK5_Defects", defectsStage, false);

} // namespace

int main(int argc, char **argv)
{
    for (const Config &c : configs())
        benchmark::RegisterBenchmark(("BM_Transfer/" + c.name).c_str(), transfer, &c)
            ->Arg(1)
            ->Arg(2)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
