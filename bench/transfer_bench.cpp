// Transfer speed against the virtual camera, with memcpy of 6 MiB as the
// yardstick: full 1024 x 1024 8-bit transfers of a K5C and a K5 with the
// settings a camera has after open (and 1024 defect pixels), and each
// stage alone, on 1 and 2 threads.
#include "image/defects.h"
#include "image/frame.h"
#include "image/pipeline.h"
#include "image/reference/stages.h"
#include "quorin/quorin.h"
#include "vcam/vcam.h"

#include <benchmark/benchmark.h>
#include <omp.h>

#include <cstring>
#include <memory>
#include <random>
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

// One opened virtual camera, read to the point a host would be at.
struct OpenCamera {
    VcamCamera *cam = nullptr;
    std::uint32_t dev = 0;
    std::vector<std::uint32_t> defects;

    explicit OpenCamera(std::uint32_t model)
    {
        std::int32_t err = 0;
        DEV_Init(&err);
        VcamConfig cfg;
        vcam_default_config(&cfg, model, 7);
        std::mt19937 rng(5);
        for (int k = 0; k < 1024; ++k)
            defects.push_back((rng() % 1024) << 16 | (rng() % 1024));
        cfg.defects = defects.data();
        cfg.defectCount = 1024;
        cam = vcam_create(&cfg);
        DEV_OpenDevice(7, vcam_interface(cam), vcam_host_arg(cam), &dev, &err);
        std::uint32_t v = 0, v2 = 0;
        DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_RESOLUTION, 0, &v, &v2, &err);
        DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_VALUE_73, 0, &v, &v2, &err);
    }
    ~OpenCamera()
    {
        std::int32_t err = 0;
        DEV_CloseDevice(dev, &err);
        vcam_destroy(cam);
    }
};

void transfer(benchmark::State &state, std::uint32_t model)
{
    omp_set_num_threads(static_cast<int>(state.range(0)));
    OpenCamera open(model);
    std::vector<std::uint8_t> destBytes(1024 * 1024 * 3 + 64);
    std::uint8_t *const destData = destBytes.data() + (64 - reinterpret_cast<std::uintptr_t>(destBytes.data()) % 64) % 64;
    std::int32_t err = 0;
    for (int warm = 0; warm < 17; ++warm) // render the live cycle once
        DEV_TransferLiveImage(open.dev, 0, 8, destData, &err);
    for (auto _ : state) {
        if (!DEV_TransferLiveImage(open.dev, 0, 8, destData, &err))
            state.SkipWithError("transfer failed");
        benchmark::DoNotOptimize(destData);
    }
    omp_set_num_threads(2);
}

void BM_TransferK5C(benchmark::State &state)
{
    transfer(state, VCAM_K5C);
}
BENCHMARK(BM_TransferK5C)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_TransferK5(benchmark::State &state)
{
    transfer(state, VCAM_K5);
}
BENCHMARK(BM_TransferK5)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

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

void BM_PipelineK5C(benchmark::State &state)
{
    omp_set_num_threads(static_cast<int>(state.range(0)));
    Buffers b(true);
    for (auto _ : state)
        quorin::image::process(b.f, false, b.dest.data());
    omp_set_num_threads(2);
}
BENCHMARK(BM_PipelineK5C)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PipelineK5(benchmark::State &state)
{
    omp_set_num_threads(static_cast<int>(state.range(0)));
    Buffers b(false);
    for (auto _ : state)
        quorin::image::process(b.f, false, b.dest.data());
    omp_set_num_threads(2);
}
BENCHMARK(BM_PipelineK5)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

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
    omp_set_num_threads(static_cast<int>(state.range(0)));
    Buffers b(Colour);
    quorin::image::process(b.f, false, b.dest.data());
    for (auto _ : state)
        Stage(b);
    omp_set_num_threads(2);
}

namespace stage = quorin::image::stage;

void sensorStage(Buffers &b)
{
    stage::sensor(b.f);
}
void sensorToBytesStage(Buffers &b)
{
    stage::sensorToBytes(b.f, b.dest.data());
}
void defectsStage(Buffers &b)
{
    stage::defects(b.f);
}
void colourPlanesStage(Buffers &b)
{
    benchmark::DoNotOptimize(stage::colourPlanes(b.f));
}
void colourFinishStage(Buffers &b)
{
    static const stage::ColourPlanes planes = stage::colourPlanes(b.f);
    stage::colourFinish(b.f, planes, b.dest.data());
}

void referenceUnpackStage(Buffers &b)
{
    quorin::image::reference::unpack(b.raw.data(), 1 << 20, b.work.data());
}
void referenceGreenPlaneStage(Buffers &b)
{
    quorin::image::reference::greenPlane(b.work.data(), b.rgb.data(), b.f.area, 1);
}
void referenceDefectsStage(Buffers &b)
{
    quorin::image::reference::defectsColour(b.work.data(), b.defects.data(), 1024, b.f.area);
}

#define QUORIN_STAGE(name, fn, colour, threads)                                                                       \
    BENCHMARK_TEMPLATE2(runStage, fn, colour)                                                                         \
        ->Name(name)                                                                                                  \
        ->threads->Unit(benchmark::kMillisecond)                                                                      \
        ->UseRealTime()

QUORIN_STAGE("BM_StageK5C_Sensor", sensorStage, true, Arg(1)->Arg(2));
QUORIN_STAGE("BM_StageK5C_Defects", defectsStage, true, Arg(1)->Arg(2));
QUORIN_STAGE("BM_StageK5C_BalanceSmoothing", colourPlanesStage, true, Arg(1)->Arg(2));
QUORIN_STAGE("BM_StageK5C_InterpolationOutput", colourFinishStage, true, Arg(1)->Arg(2));
QUORIN_STAGE("BM_StageK5_SensorLookUp", sensorToBytesStage, false, Arg(1)->Arg(2));
QUORIN_STAGE("BM_StageK5_Defects", defectsStage, false, Arg(1)->Arg(2));
// The reference stages run on one thread.
QUORIN_STAGE("BM_ReferenceUnpack", referenceUnpackStage, true, Arg(1));
QUORIN_STAGE("BM_ReferenceGreenPlane", referenceGreenPlaneStage, true, Arg(1));
QUORIN_STAGE("BM_ReferenceDefects", referenceDefectsStage, true, Arg(1));

} // namespace

BENCHMARK_MAIN();
