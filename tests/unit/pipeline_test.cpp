// The shipped pipeline against the reference stages: random and
// adversarial frames, every setting that changes the path, every
// instruction-set level this processor runs, bit for bit.
#include "image/stages/defect_sets.h"
#include "image/pipeline.h"
#include "image/reference/stages.h"
#include "image/schedule/team.h"
#include "image/kernels/simd.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <random>
#include <vector>

using namespace quorin::image;

namespace {

// Grainy: a flat grey with noise of +-60, so that neighbours fall on both
// sides of every threshold of the smoothing and the interpolation.
enum class Content { Random, Saturated, Zero, Checkerboard, Smooth, Grainy };

// One frame's inputs, owned; two copies run through the two pipelines.
struct Scenario {
    Frame f{};
    std::vector<std::uint8_t> raw;
    std::vector<std::uint16_t> work, rgb, previous, cache, dark, gainA, gainB, luts;
    std::vector<std::uint32_t> defects;

    Scenario(const Scenario &) = delete;
    Scenario() = default;

    void bind()
    {
        f.raw = raw.data();
        f.work = work.data();
        f.rgb = rgb.data();
        f.previous = previous.data();
        f.cache = cache.data();
        f.dark = dark.data();
        f.gainA = gainA.data();
        f.gainB = gainB.data();
        for (int c = 0; c < 3; ++c) {
            f.lut[c] = luts.data() + 1024 * c;
            f.bilinearLut[c] = luts.data() + 1024 * (3 + c);
        }
        f.defects = defects.data();
    }
};

void fill(Scenario &s, std::mt19937 &rng, const Area &a, Content content, bool colour, int lutKind)
{
    constexpr std::size_t kPixels = 1024 * 1024;
    std::vector<std::uint16_t> values(a.pixels() + 4);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const std::size_t x = i % a.w, y = i / a.w;
        switch (content) {
        case Content::Random:
            values[i] = rng() & 1023;
            break;
        case Content::Saturated:
            values[i] = 1023;
            break;
        case Content::Zero:
            values[i] = 0;
            break;
        case Content::Checkerboard:
            values[i] = ((x / 3 + y / 2) & 1) ? 1023 : 5;
            break;
        case Content::Smooth:
            values[i] = static_cast<std::uint16_t>((x * 3 + y * 2 + (rng() & 7)) & 1023);
            break;
        case Content::Grainy:
            values[i] = static_cast<std::uint16_t>(440 + rng() % 121);
            break;
        }
    }
    s.raw.assign(0x200000, 0);
    for (std::size_t g = 0; 4 * g + 3 < values.size(); ++g) {
        std::uint64_t bits = 0;
        for (int k = 0; k < 4; ++k)
            bits |= std::uint64_t(values[4 * g + k]) << (10 * k);
        for (int b = 0; b < 5; ++b)
            s.raw[5 * g + b] = static_cast<std::uint8_t>(bits >> (8 * b));
    }
    s.work.assign(kPixels, 0);
    for (auto &v : s.work)
        v = rng() & 0xFFFF; // stale contents the unpacker may leave
    s.rgb.assign(3 * kPixels, 0);
    s.previous.assign(kPixels, 0);
    s.cache.assign(3 * kPixels, 0x5A5A);
    // The sensor tables: random under the area (the only part read),
    // constant elsewhere.
    s.dark.assign(kPixels, 7);
    s.gainA.assign(kPixels, 1000);
    s.gainB.assign(kPixels, 1000);
    const bool wildGains = (rng() % 4) == 0;
    for (std::uint32_t y = a.y0; y < a.y0 + a.h; ++y)
        for (std::uint32_t x = a.x0; x < a.x0 + a.w; ++x) {
            const std::size_t i = std::size_t{y} * 1024 + x;
            s.dark[i] = rng() % 12;
            s.gainA[i] = static_cast<std::uint16_t>(wildGains ? rng() : 900 + rng() % 200);
            s.gainB[i] = static_cast<std::uint16_t>(997 + rng() % 50);
        }
    s.luts.resize(6 * 1024);
    // Straight tables (which the fast output computes instead of looking
    // up), inverted, random and reaching past 1023 (as free curves may),
    // per channel: straight, doubled (straight with another shift) and
    // straight but for one entry, or halved (straight with a shift beyond
    // 2).
    for (std::size_t i = 0; i < s.luts.size(); ++i) {
        const std::uint32_t v = i % 1024, table = static_cast<std::uint32_t>(i / 1024) % 3;
        std::uint32_t entry = lutKind == 0   ? v
                              : lutKind == 1 ? 1023 - v
                              : lutKind == 2 ? rng() % 2100
                              : lutKind == 4 ? v / 2
                                             : v;
        if (lutKind == 3 && table == 1)
            entry = 2 * v;
        if (lutKind == 3 && table == 2 && v == 700)
            entry = 9;
        s.luts[i] = static_cast<std::uint16_t>(entry);
    }
    // Defects: scattered, clustered with their neighbours, some outside the area.
    const std::uint32_t count = rng() % 3 == 0 ? 0 : 1 + rng() % 1024;
    s.defects.clear();
    for (std::uint32_t k = 0; k < count; ++k) {
        std::uint32_t x = a.x0 + rng() % (a.w + 2), y = a.y0 + rng() % (a.h + 2);
        if (k % 5 == 1 && !s.defects.empty()) { // next to the previous one
            x = (s.defects.back() >> 16) + 1;
            y = s.defects.back() & 0xFFFF;
        }
        s.defects.push_back(x << 16 | y);
    }
    s.defects.resize(1024);
    Frame &f = s.f;
    f.area = a;
    f.colour = colour;
    f.defectCount = count;
}

constexpr int kLutKinds = 5;

// The settings a camera has after open: the fast design's default path.
void afterOpen(Frame &f)
{
    f.kernelVariant = 0x80000000u;
    f.darkSubtract = true;
    f.columnCorrect = false;
    f.pixelGainMode = 1;
    f.defectCorrect = true;
    f.rawBayerOutput = false;
    f.outputShift = 2;
    f.demosaicMethod = 1;
    f.keepLiveCache = false;
    f.colourMode = 2;
    const std::uint32_t gains[3] = {26, 16, 22};
    std::copy(gains, gains + 3, f.balanceGains);
    f.matrixOn = true;
    const std::int32_t matrix[9] = {320, -32, -32, -40, 300, -8, -16, -48, 330};
    std::copy(matrix, matrix + 9, f.matrix);
    f.mode71 = 0;
}

// Each output configuration a host reaches, as a change to the settings
// after open, and the rarer ones the pipeline must get right all the same.
struct Configuration {
    const char *name;
    void (*change)(Frame &f);
    bool vectorKernels = false; // needs a width of a multiple of 8
};

const Configuration kConfigurations[] = {
    {"after open", [](Frame &) {}},
    {"edge enhancement 1", [](Frame &f) { f.mode71 = 1; }},
    {"edge enhancement 2", [](Frame &f) { f.mode71 = 2; }},
    {"edge enhancement 3", [](Frame &f) { f.mode71 = 3; }},
    {"live cache kept", [](Frame &f) { f.keepLiveCache = true; }},
    {"live cache kept, edge enhancement", [](Frame &f) { f.keepLiveCache = true, f.mode71 = 2; }},
    {"raw Bayer output", [](Frame &f) { f.rawBayerOutput = true; }},
    {"raw Bayer output, shift 0", [](Frame &f) { f.rawBayerOutput = true, f.outputShift = 0; }},
    {"colour matrix off", [](Frame &f) { f.matrixOn = false; }},
    {"matrix sums that wrap", [](Frame &f) { f.matrix[4] = 0x7FFFFF00, f.matrix[6] = -0x40000000; }},
    {"red first, shift 1", [](Frame &f) { f.demosaicMethod = 0, f.outputShift = 1; }},
    {"eight-lane kernels", [](Frame &f) { f.kernelVariant = 0x80000002u; }, true},
    {"kernels skipped", [](Frame &f) { f.kernelVariant = 0x80000001u; }},
    {"column correction", [](Frame &f) { f.columnCorrect = true; }},
    {"column correction, eight-lane kernels", [](Frame &f) { f.columnCorrect = true, f.kernelVariant = 0x80000002u; },
     true},
    {"gains from the file", [](Frame &f) { f.pixelGainMode = 2; }},
    {"constant gain", [](Frame &f) { f.pixelGainMode = 3; }},
    {"no gain, no dark frame", [](Frame &f) { f.pixelGainMode = 0, f.darkSubtract = false; }},
    {"defect correction off", [](Frame &f) { f.defectCorrect = false; }},
    {"balance past 1023", [](Frame &f) { f.balanceGains[0] = 69000, f.balanceGains[2] = 200; }},
    {"balance past 1023, eight-lane kernels",
     [](Frame &f) { f.balanceGains[1] = 2000, f.kernelVariant = 0x80000002u; }, true},
    {"colour mode 1", [](Frame &f) { f.colourMode = 1; }},
    {"bilinear colour mode", [](Frame &f) { f.colourMode = 0; }},
};

// Runs both pipelines on copies and compares what the host would see.
void compare(Scenario &s, bool sixteenBit, const std::string &label, DefectIndex *const *index = nullptr)
{
    Scenario copy;
    copy.raw = s.raw;
    copy.work = s.work;
    copy.rgb = s.rgb;
    copy.previous = s.previous;
    copy.cache = s.cache;
    copy.dark = s.dark;
    copy.gainA = s.gainA;
    copy.gainB = s.gainB;
    copy.luts = s.luts;
    copy.defects = s.defects;
    copy.f = s.f;
    s.bind();
    copy.bind();
    const std::size_t values = s.f.area.pixels() * (s.f.colour && !s.f.rawBayerOutput ? 3 : 1);
    const std::size_t bytes = values * (sixteenBit ? 2 : 1);
    std::vector<std::uint8_t> expected(bytes + 16, 0xA5), buffer(bytes + 16 + 128, 0xA5);
    reference::process(s.f, sixteenBit, expected.data());
    // Destinations on a 64-byte boundary (which take streaming stores) and
    // off it, in turn; and in turn the defect set kept between frames (as
    // a device keeps it, here across every frame of the tests, so that it
    // is built again for each new list) and one built for the frame.
    static unsigned turn = 0;
    static const auto kept = std::make_unique<DefectIndex>();
    copy.f.defectIndex = index != nullptr ? *index : turn / 2 % 2 == 0 ? kept.get() : nullptr;
    const std::size_t offset = (64 - reinterpret_cast<std::uintptr_t>(buffer.data()) % 64) % 64 + (turn++ % 2) * 8;
    process(copy.f, sixteenBit, buffer.data() + offset);
    const std::vector<std::uint8_t> actual(buffer.begin() + offset, buffer.begin() + offset + bytes + 16);
    ASSERT_EQ(expected, actual) << label << " (first difference at byte "
                                << (std::mismatch(expected.begin(), expected.end(), actual.begin()).first -
                                    expected.begin())
                                << ")";
    ASSERT_EQ(s.cache, copy.cache) << label << " (live cache)";
}

std::string describe(const Frame &f, bool sixteenBit, Content content)
{
    char buf[400];
    std::snprintf(buf, sizeof buf,
                  "%ux%u at %u,%u colour=%d content=%d kv=%x dark=%d col=%d gain=%u def=%d/%u raw=%d shift=%u dm=%u "
                  "keep=%d cm=%u matrix=%d edge=%u bits=%d simd=%s",
                  f.area.w, f.area.h, f.area.x0, f.area.y0, f.colour, static_cast<int>(content), f.kernelVariant,
                  f.darkSubtract, f.columnCorrect, f.pixelGainMode, f.defectCorrect, f.defectCount, f.rawBayerOutput,
                  f.outputShift, f.demosaicMethod, f.keepLiveCache, f.colourMode, f.matrixOn, f.mode71,
                  sixteenBit ? 16 : 8, simd::name(simd::active()));
    return buf;
}

class PipelineMatchesReference : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override
    {
        previous_ = simd::active();
        const simd::Level level = simd::setActive(static_cast<simd::Level>(GetParam()));
        if (static_cast<int>(level) != GetParam())
            GTEST_SKIP() << "this processor does not run " << simd::name(static_cast<simd::Level>(GetParam()));
    }
    void TearDown() override { simd::setActive(previous_); }
    simd::Level previous_{};
};

const Area kAreas[] = {
    {512, 512, 512, 0},   // reaches the sensor's right edge
    {256, 64, 768, 960},  {128, 16, 0, 0},    {72, 40, 950, 10}, // edge rule with a short history
    {37, 23, 3, 5},       {5, 7, 1000, 1000}, {1, 3, 0, 0},      // odd sizes, a tiny area
    {2, 2, 10, 10},       {33, 1, 0, 0},      {8, 9, 1016, 1015},
    {101, 37, 923, 7},    {68, 6, 100, 100},   // odd widths of split rows, the narrowest split rows
    {96, 11, 40, 1013},                        // split rows of an odd height with the vector kernels
    {80, 65, 200, 300},                        // a lone last row after whole bands of 32
    {72, 3, 8, 500},      {88, 2, 0, 0},       // split rows two and three high
    {64, 64, 960, 0},     {200, 200, 100, 100}}; // square areas (crosstalk fused into the rows)
// Whole frames of the sensor and the size of a common recording.
const Area kLargeAreas[] = {{1024, 1024, 0, 0}, {640, 480, 192, 272}};

const Content kContents[] = {Content::Random, Content::Saturated, Content::Zero, Content::Checkerboard,
                             Content::Smooth, Content::Grainy};

// Every setup on both models at both depths, each on a few areas, contents
// and tables, which rotate from setup to setup so that all of them meet.
void everySetup(unsigned seed, std::size_t areasEach)
{
    std::mt19937 rng(seed);
    int runs = 0;
    std::size_t turn = 0;
    for (const Configuration &configuration : kConfigurations)
        for (const bool colour : {false, true})
            for (const bool sixteenBit : {false, true})
                for (std::size_t k = 0; k < areasEach; ++turn) {
                    const Area &area = kAreas[(turn * 7) % std::size(kAreas)];
                    if (configuration.vectorKernels && area.w % 8 != 0)
                        continue; // refused before the camera is asked
                    ++k;
                    const Content content = kContents[turn % std::size(kContents)];
                    Scenario s;
                    fill(s, rng, area, content, colour, static_cast<int>(turn % kLutKinds));
                    afterOpen(s.f);
                    configuration.change(s.f);
                    compare(s, sixteenBit, std::string(configuration.name) + ": " + describe(s.f, sixteenBit, content));
                    if (::testing::Test::HasFatalFailure())
                        return;
                    ++runs;
                }
    EXPECT_EQ(runs, static_cast<int>(std::size(kConfigurations) * 4 * areasEach));
}

} // namespace

TEST_P(PipelineMatchesReference, EverySetupOnSmallAreas)
{
    everySetup(1234 + GetParam(), 3);
}

// Whole frames, each setup on each model and depth once.
TEST_P(PipelineMatchesReference, EverySetupOnLargeAreas)
{
    std::mt19937 rng(4321 + GetParam());
    std::size_t turn = 0;
    for (const Configuration &configuration : kConfigurations)
        for (const bool colour : {false, true})
            for (const bool sixteenBit : {false, true}) {
                ++turn;
                const Area &area = kLargeAreas[turn % std::size(kLargeAreas)];
                const Content content = kContents[turn % std::size(kContents)];
                Scenario s;
                fill(s, rng, area, content, colour, static_cast<int>(turn % kLutKinds));
                afterOpen(s.f);
                configuration.change(s.f);
                compare(s, sixteenBit, std::string(configuration.name) + ": " + describe(s.f, sixteenBit, content));
                if (HasFatalFailure())
                    return;
            }
}

INSTANTIATE_TEST_SUITE_P(EveryLevel, PipelineMatchesReference, ::testing::Values(0, 1, 2, 3),
                         [](const ::testing::TestParamInfo<int> &info) {
                             return std::string(simd::name(static_cast<simd::Level>(info.param)));
                         });

// A device keeps its defect set between frames: whatever changes in the
// list (an entry, the count, back to a list it had before) or stays, the
// next frame corrects the pixels of the list it has then. Wide enough for
// split rows, which correct defects inside the first pass.
TEST(PipelineDefects, KeptSetFollowsTheList)
{
    std::mt19937 rng(77);
    for (const bool colour : {false, true})
        for (const bool sixteenBit : {false, true}) {
            const auto kept = std::make_unique<DefectIndex>();
            DefectIndex *const index = kept.get();
            Scenario s;
            const Area area{72, 48, 100, 200};
            fill(s, rng, area, Content::Random, colour, 0);
            afterOpen(s.f);
            std::vector<std::uint32_t> list;
            for (int k = 0; k < 40; ++k)
                list.push_back((area.x0 + 2 + rng() % 68) << 16 | (area.y0 + 2 + rng() % 44));
            auto run = [&](const std::vector<std::uint32_t> &entries, const char *step) {
                std::copy(entries.begin(), entries.end(), s.defects.begin());
                s.f.defectCount = static_cast<std::uint32_t>(entries.size());
                compare(s, sixteenBit, std::string(step) + ": " + describe(s.f, sixteenBit, Content::Random), &index);
            };
            std::vector<std::uint32_t> changed = list;
            changed.back() = (area.x0 + 30) << 16 | (area.y0 + 30);
            std::vector<std::uint32_t> shorter(list.begin(), list.end() - 1);
            std::vector<std::uint32_t> first = list;
            first.front() = (area.x0 + 10) << 16 | (area.y0 + 11);
            run(list, "first list");
            run(changed, "last entry changed");
            run(shorter, "one entry fewer");
            run(first, "first entry changed");
            run(list, "first list again");
            run(list, "the same list");
            if (HasFatalFailure())
                return;
        }
}

// The passes of a frame wait for the rows they read, whichever thread does
// them: with more threads than cores, threads are held up mid-band. With
// forty, the windows do not fit in the buffers and fewer threads run them.
TEST(PipelineThreads, EverySetupWithMoreThreadsThanCores)
{
    for (const std::uint32_t threads : {6u, 40u}) {
        SCOPED_TRACE(threads);
        team::setSize(threads);
        everySetup(99 + threads, 1);
    }
    team::setSize(0);
}
