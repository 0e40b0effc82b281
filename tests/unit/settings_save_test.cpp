// Saving settings on Linux: a save that cannot be stored is reported by the
// close, and a process killed at any moment while it changes settings and
// closes cameras leaves files that a fresh open reads whole.
#include "bringup_fixture.h"
#include "data/registry_settings.h"
#include "data/settings_files.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

using quorin::g_state;
namespace fs = std::filesystem;

namespace {

constexpr std::size_t kGainEntries = 1024 * 1024;

std::vector<std::uint16_t> readWords(const std::string &path, bool *exists)
{
    std::vector<std::uint16_t> words;
    std::FILE *f = std::fopen(path.c_str(), "rb");
    *exists = f != nullptr;
    if (f == nullptr)
        return words;
    std::uint16_t chunk[4096];
    std::size_t bytes = 0, n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) {
        words.insert(words.end(), chunk, chunk + n / 2);
        bytes += n;
    }
    std::fclose(f);
    if (bytes % 2 != 0)
        words.push_back(0xFFFF); // an odd length is damage of its own
    return words;
}

// Every stored setting of generation k, as the writer below sets them.
quorin::LutSettings lutOf(std::uint32_t k)
{
    quorin::LutSettings s{};
    for (int c = 0; c < 3; ++c) {
        s.brightness[c] = static_cast<std::int32_t>(k % 100) - 50 + c;
        s.contrast[c] = static_cast<std::int32_t>(k * 7 % 100) - 50 - c;
        s.gain[c] = 1.0 + k / 512.0 + c;
        s.gamma[c] = 1.0 + k / 1024.0;
        s.posiNega[c] = static_cast<std::uint8_t>((k >> c) & 1);
    }
    s.freeMode = 1;
    return s;
}
std::uint32_t pixelGainModeOf(std::uint32_t k) { return k % 4; }
std::uint32_t softGainOf(std::uint32_t k, int c) { return 16 + (k + c) % 40; }
std::uint16_t curveOf(std::uint32_t k, int c, std::size_t i) { return static_cast<std::uint16_t>(k + 7 * c + i); }
std::uint16_t gainOf(std::uint32_t k) { return static_cast<std::uint16_t>(998 + k / 8); }

} // namespace

class SettingsSave : public BringUp {
protected:
    std::string configFolder() const { return home_.path() + "/config"; }
    std::string dataFolder() const { return quorin::settingsFolder(); }
    std::uint32_t openK5C(std::uint32_t cameraNumber)
    {
        VcamConfig cfg = config(VCAM_K5C, 2);
        cfg.cameraNumber = cameraNumber;
        return openVirtual(cfg);
    }
    // Changes every stored setting of the open camera to generation k; with
    // saveGain the pixel-gain file too.
    static void write(std::uint32_t dev, std::uint32_t k, bool saveGain)
    {
        std::int32_t err = 0;
        quorin::LutSettings lut = lutOf(k);
        DEV_SetData(dev, 0, QUORIN_DATA_LUT_SETTINGS, 11, 0, &lut, 0, &err);
        DEV_SetDeviceCaps(dev, 0, QUORIN_CAP_PIXEL_GAIN, 0, pixelGainModeOf(k), 0, &err);
        for (int c = 0; c < 3; ++c)
            DEV_SetDeviceCaps(dev, 0, QUORIN_CAP_SOFT_GAIN_R + c, 0, softGainOf(k, c), 0, &err);
        std::uint32_t curve[1024], stored = 0;
        for (int c = 0; c < 3; ++c) {
            for (std::size_t i = 0; i < 1024; ++i)
                curve[i] = curveOf(k, c, i);
            DEV_SetList(dev, 0, QUORIN_SETLIST_FREE_LUT_R + c, 0, curve, 1024, &stored, &err);
        }
        if (saveGain) {
            std::vector<std::uint16_t> gains(kGainEntries, gainOf(k));
            DEV_SetData(dev, 0, QUORIN_DATA_GAIN_TABLES, 0, 0, gains.data(), 0, &err);
            DEV_SetDeviceCaps(dev, 0, QUORIN_CAP_PIXEL_GAIN, 0, 6, 0, &err);
        }
    }
};

TEST_F(SettingsSave, ACloseThatCannotStoreTheSettingsReportsSeventeen)
{
    enum Block { kNothing, kConfigIsAFile, kCurveFileIsAFolder, kNoDataFolderForCurves, kNoDataFolderNoCurves };
    struct Case {
        Block block;
        bool curves; // free curves other than the identity
        std::int32_t err;
    };
    const Case cases[] = {
        {kNothing, true, QUORIN_SUCCESS},
        {kConfigIsAFile, false, QUORIN_ERR_GAIN_FILE_WRITE},
        {kCurveFileIsAFolder, true, QUORIN_ERR_GAIN_FILE_WRITE},
        {kNoDataFolderForCurves, true, QUORIN_ERR_GAIN_FILE_WRITE},
        {kNoDataFolderNoCurves, false, QUORIN_SUCCESS},
    };
    std::uint32_t number = 60;
    for (const Case &c : cases) {
        ++number;
        fs::remove_all(configFolder());
        fs::remove_all(home_.path() + "/data");
        if (c.block != kNoDataFolderForCurves && c.block != kNoDataFolderNoCurves)
            fs::create_directories(dataFolder());
        if (c.block == kConfigIsAFile)
            std::ofstream(configFolder()) << "not a folder";
        if (c.block == kCurveFileIsAFolder)
            fs::create_directories(dataFolder() + "FreeLUTData_VELTA_00" + std::to_string(number) + ".pal");
        const std::uint32_t dev = openK5C(number);
        std::int32_t err = 0;
        ASSERT_EQ(DEV_SetDeviceCaps(dev, 0, QUORIN_CAP_LUT_MODE, 0, 11, 0, &err), 1);
        if (c.curves)
            write(dev, 3, false);
        EXPECT_EQ(DEV_CloseDevice(dev, &err), 1) << "case " << c.block;
        EXPECT_EQ(err, c.err) << "case " << c.block;
        EXPECT_EQ(DEV_CloseDevice(dev, &err), 0) << "the slot is free all the same";
    }
}

// A child forked with two open cameras writes generation after generation
// of settings and closes the cameras; it is killed at a random moment. What
// is on disk then must be one whole generation, never older than the last
// one seen.
TEST_F(SettingsSave, KilledWhileSavingLeavesOneWholeGenerationOnDisk)
{
    const std::uint32_t numbers[2] = {31, 32};
    std::uint32_t devs[2];
    std::int32_t err = 0;
    for (int i = 0; i < 2; ++i) {
        devs[i] = openK5C(numbers[i]);
        ASSERT_EQ(DEV_SetDeviceCaps(devs[i], 0, QUORIN_CAP_LUT_MODE, 0, 11, 0, &err), 1);
    }
    fs::create_directories(dataFolder());

    // The generation last seen on disk per camera and file (registry,
    // curves, gains); -1 while nothing was stored.
    long seen[2][3] = {{-1, -1, -1}, {-1, -1, -1}};
    auto check = [&](int cam, const char *when) {
        auto &rec = g_state.devices[63];
        rec.cameraNumber = numbers[cam];
        const bool loaded = quorin::loadSettings(63) == 1;
        const quorin::LutSettings lut = rec.userLut;
        const std::uint32_t mode = rec.pixelGainMode, soft[3] = {rec.softColorTemp[0], rec.softColorTemp[1],
                                                                   rec.softColorTemp[2]};
        std::memset(&rec, 0, sizeof rec);
        if (!loaded) {
            EXPECT_EQ(seen[cam][0], -1) << when << ": the registry settings went missing";
        } else {
            const auto k = static_cast<std::uint32_t>((lut.gamma[0] - 1.0) * 1024.0 + 0.5);
            const quorin::LutSettings expect = lutOf(k);
            EXPECT_EQ(std::memcmp(&lut, &expect, sizeof lut), 0) << when << ": registry generation " << k;
            EXPECT_EQ(mode, pixelGainModeOf(k)) << when;
            for (int c = 0; c < 3; ++c)
                EXPECT_EQ(soft[c], softGainOf(k, c)) << when;
            EXPECT_GE(static_cast<long>(k), seen[cam][0]) << when;
            seen[cam][0] = k;
        }
        bool exists = false;
        const auto curves = readWords(dataFolder() + "FreeLUTData_VELTA_00" + std::to_string(numbers[cam]) + ".pal",
                                      &exists);
        if (!exists) {
            EXPECT_EQ(seen[cam][1], -1) << when << ": the curve file went missing";
        } else {
            ASSERT_EQ(curves.size(), 3072u) << when;
            const std::uint32_t k = curves[0];
            std::vector<std::uint16_t> expect(3072);
            for (int c = 0; c < 3; ++c)
                for (std::size_t i = 0; i < 1024; ++i)
                    expect[c * 1024 + i] = curveOf(k, c, i);
            ASSERT_TRUE(curves == expect) << when << ": the curves are not one generation";
            EXPECT_GE(static_cast<long>(k), seen[cam][1]) << when;
            seen[cam][1] = k;
        }
        const auto gains = readWords(dataFolder() + "PixelGainData_VELTA_0" + std::to_string(numbers[cam]) + "_1.gdf",
                                     &exists);
        if (!exists) {
            EXPECT_EQ(seen[cam][2], -1) << when << ": the pixel-gain file went missing";
        } else {
            ASSERT_EQ(gains.size(), kGainEntries) << when;
            ASSERT_TRUE(std::all_of(gains.begin(), gains.end(), [&](std::uint16_t g) { return g == gains[0]; }))
                << when << ": the pixel-gain file is not one generation";
            EXPECT_GE(static_cast<long>(gains[0]), seen[cam][2]) << when;
            seen[cam][2] = gains[0];
        }
    };

    // Each child starts where the last one was killed: from the parent's
    // copy of the two open cameras, with generations above all before.
    std::uint32_t base = 1;
    auto runChild = [&](long killAfterUs) {
        const pid_t pid = fork();
        if (pid == 0) {
            // Each camera: a new generation with its pixel-gain file, then
            // the close, which saves the curves and the registry settings;
            // the cameras take turns at going first.
            for (int n = 0; n < 2; ++n) {
                const int i = (n + base / 2) % 2;
                write(devs[i], base + i, true);
                std::int32_t e = 0;
                DEV_CloseDevice(devs[i], &e);
            }
            _exit(0);
        }
        base += 2;
        if (killAfterUs >= 0) {
            usleep(static_cast<useconds_t>(killAfterUs));
            kill(pid, SIGKILL);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    };

    // One undisturbed run tells how long the work takes here (the first,
    // with cold caches, the longest); kills fall in its first three quarters.
    const auto start = std::chrono::steady_clock::now();
    ASSERT_FALSE(runChild(-1));
    const long span = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start)
                          .count();
    check(0, "after an undisturbed run");
    check(1, "after an undisturbed run");
    ASSERT_NE(seen[0][0], -1) << "the undisturbed run stored its settings";

    std::mt19937 random(17);
    int kills = 0, rounds = 0;
    std::chrono::steady_clock::duration checking{};
    for (int round = 0; kills < 100 && round < 400; ++round) {
        kills += runChild(std::uniform_int_distribution<long>(0, span * 3 / 4)(random));
        ++rounds;
        const std::string when = "after kill " + std::to_string(kills);
        const auto checkStart = std::chrono::steady_clock::now();
        check(0, when.c_str());
        check(1, when.c_str());
        checking += std::chrono::steady_clock::now() - checkStart;
        if (HasFatalFailure())
            return;
    }
    EXPECT_GE(kills, 100);
    std::printf("%d kills in %d rounds within %ld us of work each, %lld ms checking; last generations %ld and %ld\n",
                kills, rounds, span,
                static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(checking).count()),
                seen[0][0], seen[1][0]);

    // A real open reads what the last check saw.
    const std::uint32_t dev = openK5C(numbers[0]);
    quorin::LutSettings lut{};
    std::uint32_t size = 0;
    ASSERT_EQ(DEV_GetData(dev, 0, QUORIN_DATA_LUT_SETTINGS, 11, 0, &lut, &size, &err), 1u);
    const quorin::LutSettings expect = lutOf(static_cast<std::uint32_t>(seen[0][0]));
    EXPECT_EQ(std::memcmp(&lut, &expect, sizeof lut), 0);
    std::uint32_t curve[1024], count = 0;
    ASSERT_EQ(DEV_GetList(dev, 0, QUORIN_LIST_FREE_LUT_G, 0, curve, &count, &err), 1);
    EXPECT_EQ(curve[5], curveOf(static_cast<std::uint32_t>(seen[0][1]), 1, 5));
}
