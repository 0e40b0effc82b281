// The sub-commands that read and change settings, against virtual cameras
// and the test link driver.
#include "tool_runner.h"

#include "quorin/quorin.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

using namespace cli_test;

namespace {

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

} // namespace

TEST(Commands, InfoThroughTheLinkDriver)
{
    Workspace ws;
    const ToolResult r = ws.run(driverArgs() + std::vector<std::string>{"info"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "model:         ORBILUX-VELTA model K5\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "camera number: 7\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "firmware:      120\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "frame rate:    1000 fps\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "resolution:    1024x1024\n")) << r.out;
    // The shutter reads as a speed only once the exposure switch is known.
    EXPECT_TRUE(contains(r.out, "shutter:       1/1000 s\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "LUT mode:      normal (1)\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "defect pixels: 0\n")) << r.out;
    EXPECT_EQ(ws.driverLog(), "interface\nopen 10759 ok\nclose\n");
}

TEST(Commands, LinkDriverErrorsAreNamed)
{
    Workspace ws;
    const ToolResult r = ws.run({"--camera", std::string("driver:") + QUORIN_TEST_DRIVER_PATH, "--host-arg", "5", "info"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "quorin: could not open the camera: error 28674 (virtual link: no camera at this host "
                     "argument or link handle)\n");
}

TEST(Commands, NamesAndNumbersReadAndSetTheSameSettings)
{
    Workspace ws;
    const ToolResult r = ws.run({"--camera", "virtual:k5", "--link", "2", "--set", "resolution=256x128", "--set",
                                 "shutter=1/4000", "get", "resolution", "3", "frame-rate", "2", "shutter",
                                 "colour-model", "area-origin"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "resolution (3): 256x128\n"
                     "resolution (3): 256x128\n"
                     "frame-rate (2): 1000 fps\n"
                     "frame-rate (2): 1000 fps\n"
                     "shutter (4): 1/4000 s\n"
                     "colour-model (11): off\n"
                     "area-origin (48): (384, 448)\n");

    const ToolResult set = ws.run({"--camera", "virtual:k5c", "set", "3", "640x480"});
    ASSERT_EQ(set.status, 0) << set.err;
    EXPECT_EQ(set.out, "resolution (3): 640x480\n");

    // A refusal of the library names its ErrorCode in words.
    const ToolResult refused = ws.run({"--camera", "virtual:k5", "set", "colour-temperature", "3100K"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "quorin: could not set colour-temperature (8): error 21 (not supported by this camera "
                           "model, firmware or link)\n");
}

TEST(Commands, ListsByNameAndNumber)
{
    Workspace ws;
    const ToolResult byName = ws.run({"--set", "resolution=512x256", "--set", "frame-rate=20000", "list", "picture-sizes"});
    const ToolResult byNumber = ws.run({"--set", "resolution=512x256", "--set", "frame-rate=20000", "list", "1"});
    ASSERT_EQ(byName.status, 0) << byName.err;
    EXPECT_EQ(byName.out, byNumber.out);
    const auto l = lines(byName.out);
    ASSERT_EQ(l.size(), 15u) << byName.out;
    EXPECT_EQ(l[0], "picture-sizes (1): 14 entries");
    EXPECT_EQ(l[1], "  512x256");
    EXPECT_EQ(l[14], "  128x16");
}

TEST(Commands, UserLutSettingsAreKeptPerCamera)
{
    Workspace ws;
    const ToolResult set = ws.run({"lut", "user", "--gamma", "0.5", "--gain", "1.5,1,1", "--negative", "off,off,on"});
    ASSERT_EQ(set.status, 0) << set.err;
    EXPECT_TRUE(contains(set.out, "LUT mode: user (11)")) << set.out;
    // A second run changes one value and keeps the others the library stored.
    const ToolResult again = ws.run({"lut", "user", "--brightness", "10"});
    ASSERT_EQ(again.status, 0) << again.err;
    EXPECT_TRUE(contains(again.out, "brightness 10, 10, 10\n")) << again.out;
    EXPECT_TRUE(contains(again.out, "gain       1.5, 1, 1\n")) << again.out;
    EXPECT_TRUE(contains(again.out, "gamma      0.5, 0.5, 0.5\n")) << again.out;
    EXPECT_TRUE(contains(again.out, "negative   off, off, on\n")) << again.out;

    const ToolResult preset = ws.run({"lut", "3"});
    ASSERT_EQ(preset.status, 0) << preset.err;
    EXPECT_TRUE(contains(preset.out, "LUT mode: gain-2 (3)\n  brightness 0, 0, 0")) << preset.out;
}

TEST(Commands, DefectListFromAFile)
{
    Workspace ws;
    std::FILE *f = std::fopen(ws.file("defects.txt").c_str(), "w");
    std::fputs("# column row\n5 9\n2 9\n\n5,9   # again\n7\t1\n", f);
    std::fclose(f);
    const ToolResult r = ws.run(driverArgs() + std::vector<std::string>{"defects", "defects.txt"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "stored 3 defect pixels (1 repeats dropped)\n");
    const ToolResult cleared = ws.run(driverArgs() + std::vector<std::string>{"defects", "--clear"});
    ASSERT_EQ(cleared.status, 0) << cleared.err;
    EXPECT_EQ(cleared.out, "stored 0 defect pixels\n");
}

TEST(Commands, FlatFieldIsSavedAndSelected)
{
    Workspace ws;
    const ToolResult r = ws.run({"--camera", "virtual:k5", "--camera-number", "12", "--set", "resolution=512x256",
                                 "flatfield", "--average", "2", "--table", "gains.tiff"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "saved the pixel-gain file of camera 12")) << r.out;

    // The library's file holds the table the tool wrote out as an image.
    const std::string gdf = ws.file("data/Kavrion/QELMAR/PixelGainData_VELTA_012_1.gdf");
    const std::string bytes = readText(gdf);
    ASSERT_EQ(bytes.size(), 2097152u);
    const Image table = readImage(ws.file("gains.tiff"));
    ASSERT_EQ(table.width, 1024u);
    ASSERT_EQ(table.bits, 16u);
    std::size_t inArea = 0, outside = 0;
    for (std::uint32_t y = 0; y < 1024; ++y)
        for (std::uint32_t x = 0; x < 1024; ++x) {
            std::uint16_t g;
            std::memcpy(&g, bytes.data() + 2 * (std::size_t{y} * 1024 + x), 2);
            ASSERT_EQ(g, table.at(x, y, 0));
            ASSERT_GE(g, 997);
            ASSERT_LE(g, 2047);
            // The 512x256 area sits at (256, 384); gains outside it are neutral.
            const bool area = x >= 256 && x < 768 && y >= 384 && y < 640;
            (area ? inArea : outside) += g != 997;
        }
    EXPECT_GT(inArea, 0u);
    EXPECT_EQ(outside, 0u);

    // The selection is kept with the camera's settings.
    const ToolResult mode = ws.run({"--camera", "virtual:k5", "--camera-number", "12", "get", "pixel-gain"});
    EXPECT_EQ(mode.out, "pixel-gain (32): file (2)\n") << mode.err;
    // ... and the run that selected it said so, and how to go back.
    EXPECT_TRUE(contains(r.out, "for this and every later run of camera 12 (it was camera (1); undo with: quorin set "
                                "pixel-gain camera)"))
        << r.out;
}

TEST(Commands, ConventionsAndMessagesAsAUserReadsThem)
{
    Workspace ws;
    struct Case {
        std::vector<std::string> args;
        int status;
        const char *out; // a part of stdout, or of stderr when the run fails
    };
    const std::string version = std::string("quorin ") + QUORIN_VERSION_STRING;
    const Case cases[] = {
        {{"--version"}, 0, version.c_str()},
        {{"--camera", "virtual:k5", "info", "--json"}, 0,
         "{\"model\": \"ORBILUX-VELTA model K5\", \"firmware\": 120, \"camera_number\": 1, \"frame_rate\": 1000, "
         "\"width\": 1024, \"height\": 1024, \"shutter\": 1000, \"trigger_mode\": 0, \"trigger_parameter\": 3276, "
         "\"lut_mode\": 1, \"defect_pixels\": 0}\n"},
        {{"get", "frame-rate", "shutter", "--json"}, 0,
         "{\"frame-rate\": {\"id\": 2, \"value\": 1000, \"value2\": 0, \"text\": \"1000 fps\"}, \"shutter\": {\"id\": 4, "},
        {{"list", "lut-modes", "--json"}, 0,
         "{\"name\": \"lut-modes\", \"id\": 10, \"entries\": [1, 2, 3, 4, 5, 11], \"texts\": [\"normal (1)\", "},
        {{"grab", "-o", "one.png"}, 0, "grabbed 1 1024x1024 RGB 8-bit frame to ."},
        {{"list", "single-value"}, 0, "single-value (19): 1 entry\n"},
        {{"download", "--frames", "3277"}, 2, "frame 3277 lies outside the recording (frames 1-3276)"},
        {{"--set", "frame-rate=250000", "info"}, 1, "250000 fps at 1024x1024 is more than the frame time allows (at "
                                                    "most 3130 fps at that size)"},
        {{"--set", "frame-rate=3000", "set", "resolution", "1024x1024"}, 0, "resolution (3): 1024x1024"},
        {{"--camera", "virtual:k5", "--camera-number", "1000", "flatfield"}, 2,
         "camera number 1000 has no pixel-gain file (the library names them for numbers up to 999); use --no-save"},
    };
    for (const Case &c : cases) {
        const ToolResult r = ws.run(c.args);
        EXPECT_EQ(r.status, c.status) << c.args[0] << "\n" << r.err;
        EXPECT_TRUE(contains(c.status == 0 ? r.out : r.err, c.out)) << c.args[0] << "\n" << r.out << r.err;
    }
    // The tool's virtual camera and the binding's use the same link type.
    EXPECT_TRUE(contains(ws.run({"--help"}).out, "--link, default 7"));
    // QUORIN_CAMERA names the camera when --camera does not.
    ws.setEnv("QUORIN_CAMERA", std::string("driver:") + QUORIN_TEST_DRIVER_PATH);
    const ToolResult viaEnvironment = ws.run({"--host-arg", "10759", "get", "camera-number"});
    EXPECT_EQ(viaEnvironment.out, "camera-number (12): 7\n") << viaEnvironment.err;
}

TEST(Commands, SettingsThatCannotBeSavedFailTheRun)
{
    // A file where the configuration folder should be: nothing can be
    // created below it, whoever runs the test.
    Workspace ws;
    std::FILE *f = std::fopen(ws.file("config").c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fclose(f);
    const std::vector<std::string> runs[] = {
        {"--camera", "virtual:k5", "lut", "user", "--gamma", "0.5"},
        {"--camera", "virtual:k5", "set", "pixel-gain", "off"},
    };
    for (const auto &args : runs) {
        const ToolResult r = ws.run(args);
        EXPECT_EQ(r.status, 1) << args[2] << "\n" << r.out << r.err;
        EXPECT_TRUE(contains(r.err, "the camera's settings could not be saved")) << r.err;
    }
}
