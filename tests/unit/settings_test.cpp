// User settings in the registry and the pixel-gain and free-LUT files,
// through real opens and closes of virtual cameras.
#include "bringup_fixture.h"
#include "data/registry_settings.h"
#include "data/settings_files.h"
#include "platform/platform.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

using quorin::g_state;

namespace {

// Registry keys outlive a test run on Windows: each run uses camera numbers
// of its own.
std::uint32_t freshCameraNumber()
{
    std::random_device rd;
    return 1000 + rd() % 1000000;
}

std::string cameraKey(std::uint32_t number)
{
    return "SOFTWARE\\KAVRION\\QUORIN\\CAM" + std::to_string(number) + "\n";
}

} // namespace

using Settings = BringUp;

TEST_F(Settings, UserSettingsSurviveACloseAndReopen)
{
    VcamConfig cfg = config(VCAM_K5C, 7);
    cfg.cameraNumber = freshCameraNumber();
    std::uint32_t dev = openVirtual(cfg);
    auto &rec = g_state.devices[dev];
    EXPECT_EQ(rec.pixelGainMode, 1u) << "defaults without stored settings";
    EXPECT_EQ(rec.softColorTemp[2], 16u);
    rec.userLut.gamma[0] = 0.7;
    rec.userLut.brightness[2] = -5;
    rec.userLut.freeMode = 1;
    rec.pixelGainMode = 2;
    rec.softColorTemp[1] = 20;
    close(dev);

    quorin::platform::RegistryKey key = nullptr;
    const std::string path = cameraKey(cfg.cameraNumber);
    ASSERT_TRUE(quorin::platform::registryOpenKey(path.c_str(), &key));
    double gamma = 0;
    std::uint32_t size = 8, type = 0;
    ASSERT_TRUE(quorin::platform::registryQueryValue(key, "LUTUser1GammaR", &type,
                                                     reinterpret_cast<std::uint8_t *>(&gamma), &size));
    EXPECT_EQ(type, quorin::platform::kRegBinary);
    EXPECT_EQ(gamma, 0.7);
    quorin::platform::registryCloseKey(key);
    const std::string withoutLineFeed = path.substr(0, path.size() - 1);
    EXPECT_FALSE(quorin::platform::registryOpenKey(withoutLineFeed.c_str(), &key))
        << "the key name ends in a line feed";

    dev = openVirtual(cfg);
    const auto &again = g_state.devices[dev];
    EXPECT_EQ(again.userLut.gamma[0], 0.7);
    EXPECT_EQ(again.userLut.brightness[2], -5);
    EXPECT_EQ(again.userLut.freeMode, 1);
    EXPECT_EQ(again.pixelGainMode, 2u);
    EXPECT_EQ(again.softColorTemp[1], 20u);
}

TEST_F(Settings, AMissingOrShortValueGivesTheDefaultsForAll)
{
    VcamConfig cfg = config(VCAM_K5, 7);
    cfg.cameraNumber = freshCameraNumber();
    std::uint32_t dev = openVirtual(cfg);
    g_state.devices[dev].pixelGainMode = 3;
    close(dev);
    // A shorter ContrastR (2 bytes) lowers the limit for the words after it.
    quorin::platform::RegistryKey key = nullptr;
    ASSERT_TRUE(quorin::platform::registryCreateKey(cameraKey(cfg.cameraNumber).c_str(), &key));
    const std::uint8_t two[2] = {1, 0};
    quorin::platform::registrySetValue(key, "LUTUser1ContrastR", quorin::platform::kRegDword, two, 2);
    quorin::platform::registryCloseKey(key);
    dev = openVirtual(cfg);
    EXPECT_EQ(g_state.devices[dev].pixelGainMode, 1u);
    EXPECT_EQ(g_state.devices[dev].userLut.contrast[0], 0);
}

class SettingsFiles : public BringUp {
protected:
    // The real folder on Windows: start and end without it.
    void SetUp() override
    {
        BringUp::SetUp();
        std::filesystem::remove_all(folder());
    }
    void TearDown() override
    {
        BringUp::TearDown();
        std::filesystem::remove_all(folder());
    }
    std::string folder() const { return quorin::settingsFolder(); }
};

TEST_F(SettingsFiles, NamesFollowTheCameraNumberAndOnlyAPixelGainSaveCreatesTheFolder)
{
    VcamConfig cfg = config(VCAM_K5, 7);
    cfg.cameraNumber = 7;
    ASSERT_FALSE(folder().empty());
    std::uint32_t dev = openVirtual(cfg);
    close(dev);
    EXPECT_FALSE(std::filesystem::exists(folder())) << "free curves are not saved without the folder";

    dev = openVirtual(cfg);
    g_state.buffers.gainTableB[dev][5] = 1234;
    std::int32_t err = 0;
    ASSERT_EQ(quorin::savePixelGain(dev, &err), 1u);
    EXPECT_EQ(err, QUORIN_SUCCESS);
    EXPECT_EQ(std::filesystem::file_size(folder() + "PixelGainData_VELTA_007_1.gdf"), 2097152u);
    g_state.buffers.freeLut[1][dev][0] = 77;
    close(dev);
    EXPECT_EQ(std::filesystem::file_size(folder() + "FreeLUTData_VELTA_0007.pal"), 6144u);

    dev = openVirtual(cfg);
    EXPECT_EQ(g_state.buffers.gainTableB[dev][5], 1234);
    EXPECT_EQ(g_state.buffers.gainTableB[dev][6], 997);
    EXPECT_EQ(g_state.buffers.freeLut[1][dev][0], 77);
}

TEST_F(SettingsFiles, ShortFilesAndLargeCameraNumbers)
{
    std::filesystem::create_directories(folder());
    { // one byte short
        std::ofstream f(folder() + "PixelGainData_VELTA_008_1.gdf", std::ios::binary);
        std::vector<char> bytes(2097151, 1);
        f.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    { // 1,500 entries: R whole, G cut short, B never read
        std::ofstream f(folder() + "FreeLUTData_VELTA_0008.pal", std::ios::binary);
        std::vector<std::uint16_t> entries(1500, 9);
        f.write(reinterpret_cast<const char *>(entries.data()), 3000);
    }
    VcamConfig cfg = config(VCAM_K5, 7);
    cfg.cameraNumber = 8;
    std::uint32_t dev = openVirtual(cfg);
    std::int32_t err = 0;
    EXPECT_EQ(quorin::loadPixelGain(dev, &err), 0u);
    EXPECT_EQ(err, QUORIN_ERR_GAIN_FILE_READ);
    const auto &b = g_state.buffers;
    EXPECT_EQ(b.freeLut[0][dev][1023], 9);
    EXPECT_EQ(b.freeLut[1][dev][475], 9) << "the cut curve is partly overwritten";
    EXPECT_EQ(b.freeLut[1][dev][476], 476);
    EXPECT_EQ(b.freeLut[2][dev][100], 100);

    g_state.devices[dev].cameraNumber = 1000;
    EXPECT_EQ(quorin::savePixelGain(dev, &err), 0u);
    EXPECT_EQ(err, QUORIN_ERR_GAIN_FILE_WRITE);
    EXPECT_EQ(quorin::loadPixelGain(dev, &err), 0u);
    EXPECT_EQ(err, QUORIN_ERR_GAIN_FILE_READ);
}

TEST(SettingsFolder, LivesInTheApplicationDataFolderUnderKavrionQelmar)
{
    testing_support::TempHome home;
    const char sep = quorin::platform::pathSeparator();
    const std::string expected = std::string(1, sep) + "Kavrion" + sep + "QELMAR" + sep;
    const std::string folder = quorin::settingsFolder();
    ASSERT_GE(folder.size(), expected.size());
    EXPECT_EQ(folder.substr(folder.size() - expected.size()), expected);
}

TEST_F(Settings, EveryOneOfTheTwentyValuesIsNeeded)
{
    const char *names[20] = {"LUTUser1BrightnessR", "LUTUser1BrightnessG", "LUTUser1BrightnessB", "LUTUser1ContrastR",
                             "LUTUser1ContrastG",   "LUTUser1ContrastB",   "LUTUser1GainR",       "LUTUser1GainG",
                             "LUTUser1GainB",       "LUTUser1GammaR",      "LUTUser1GammaG",      "LUTUser1GammaB",
                             "LUTUser1PosiNegaR",   "LUTUser1PosiNegaG",   "LUTUser1PosiNegaB",   "LUTUser1FreeMode",
                             "PixelGain",           "SoftColorTempR",      "SoftColorTempG",      "SoftColorTempB"};
    std::uint32_t dev = openVirtual(config(VCAM_K5, 7));
    auto &rec = g_state.devices[dev];
    const std::uint8_t zeros[8] = {};
    for (int missing = -1; missing < 20; ++missing) {
        rec.cameraNumber = freshCameraNumber();
        quorin::platform::RegistryKey key = nullptr;
        ASSERT_TRUE(quorin::platform::registryCreateKey(cameraKey(rec.cameraNumber).c_str(), &key));
        for (int i = 0; i < 20; ++i) {
            if (i == missing)
                continue;
            const bool binary = i >= 6 && i < 16;
            const std::uint32_t size = i < 6 || i >= 16 ? 4 : i < 12 ? 8 : 1;
            quorin::platform::registrySetValue(key, names[i],
                                               binary ? quorin::platform::kRegBinary : quorin::platform::kRegDword,
                                               zeros, size);
        }
        quorin::platform::registryCloseKey(key);
        EXPECT_EQ(quorin::loadSettings(dev), missing < 0 ? 1u : 0u) << (missing < 0 ? "all" : names[missing]);
    }
}

TEST_F(SettingsFiles, AnInterruptedSaveLeavesThePreviousFileWhole)
{
    VcamConfig cfg = config(VCAM_K5, 7);
    cfg.cameraNumber = 7;
    std::uint32_t dev = openVirtual(cfg);
    g_state.buffers.gainTableB[dev][9] = 4321;
    std::int32_t err = 0;
    ASSERT_EQ(quorin::savePixelGain(dev, &err), 1u);
    close(dev);
    // A save cut off before its rename leaves only a partial temporary file.
    {
        std::ofstream partial(folder() + "PixelGainData_VELTA_007_1.gdf.x1y2z3", std::ios::binary);
        partial << "short";
    }
    dev = openVirtual(cfg);
    EXPECT_EQ(g_state.buffers.gainTableB[dev][9], 4321);
    EXPECT_EQ(quorin::loadPixelGain(dev, &err), 1u);
}
