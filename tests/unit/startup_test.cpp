// The start-up sequence and close against virtual cameras: command order per
// link type, firmware thresholds, calibration data, and what fails how.
#include "bringup_fixture.h"
#include "data/settings_files.h"
#include "link/transaction.h"
#include "platform/platform.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

using quorin::g_state;

namespace {

std::size_t countCode(const std::vector<std::uint16_t> &codes, std::uint16_t code)
{
    return static_cast<std::size_t>(std::count(codes.begin(), codes.end(), code));
}

} // namespace

using StartUp = BringUp;

TEST_F(StartUp, CommandOrderOnAFramedLink)
{
    VcamConfig cfg = config(VCAM_K5C, 3);
    std::int32_t err = 0;
    std::uint32_t dev = openVirtual(cfg, &err);
    EXPECT_EQ(err, QUORIN_SUCCESS);
    std::vector<std::uint16_t> expected = {16, 17, 18, 114, 54, 144, 43, 185, 185, 74, 74, 74};
    for (int i = 0; i < 20; ++i)
        expected.insert(expected.end(), {70, 70, 70});
    expected.insert(expected.end(), {75, 75, 77, 79});
    EXPECT_EQ(codes(lastCamera()), expected);
    const auto &rec = g_state.devices[dev];
    EXPECT_EQ(rec.cameraModel, cfg.modelCode);
    EXPECT_EQ(rec.firmwareVersion, 120u);
    EXPECT_EQ(rec.cameraNumber, 1u);
    EXPECT_NE(rec.isColour, 0u);
    EXPECT_EQ(rec.sensorKind, 2u);
    EXPECT_EQ(rec.kernelVariant, 0x80000000u);
    EXPECT_EQ(rec.colourMode, 2u);
    EXPECT_EQ(rec.outputShift, 2u);
    EXPECT_EQ(rec.modeTable[20].modeC2, 20005u);
    EXPECT_EQ(rec.extra[4], 104u);
    EXPECT_EQ(rec.modeWord79, 0x79u);
}

TEST_F(StartUp, LinkTypeTwoTakesTheCameraNumberFromTheHostArgumentAndTypeFourCyclesPlayback)
{
    VcamConfig cfg = config(VCAM_K5, 2);
    cfg.cameraNumber = 9; // the low byte of the host argument
    std::uint32_t dev = openVirtual(cfg);
    EXPECT_EQ(countCode(codes(lastCamera()), 43), 0u);
    EXPECT_EQ(g_state.devices[dev].cameraNumber, 9u);

    std::int32_t err = 0;
    dev = openVirtual(config(VCAM_K5, 4), &err);
    EXPECT_EQ(err, QUORIN_SUCCESS);
    auto c = codes(lastCamera());
    // Image B is followed by playback (114, 178) and live again (114, 183, 125).
    auto b = std::find(c.begin(), c.end(), 185);
    ASSERT_NE(b, c.end());
    b = std::find(b + 1, c.end(), 185);
    ASSERT_NE(b, c.end());
    ASSERT_GE(c.end() - b, 9);
    EXPECT_EQ(std::vector<std::uint16_t>(b + 1, b + 9), (std::vector<std::uint16_t>{18, 114, 178, 18, 114, 183, 125, 70}));
    EXPECT_EQ(g_state.devices[dev].channelSettings[0].resolution, 0x04000400u);
    EXPECT_EQ(g_state.devices[dev].operatingStatus, 0u);
}

TEST_F(StartUp, FirmwareThresholds)
{
    struct Case {
        std::uint32_t firmware, columnCorrect;
        bool newTables;
    } cases[] = {{113, 1, false}, {114, 0, false}, {116, 0, false}, {117, 0, true}, {199, 0, true}, {200, 0, false},
                 {300, 0, true}};
    for (const Case &c : cases) {
        VcamConfig cfg = config(VCAM_K5, 7);
        cfg.firmwareVersion = c.firmware;
        std::int32_t err = 0;
        std::uint32_t dev = openVirtual(cfg, &err);
        EXPECT_EQ(err, QUORIN_SUCCESS) << c.firmware;
        const auto &rec = g_state.devices[dev];
        EXPECT_EQ(rec.columnCorrect, c.columnCorrect) << c.firmware;
        EXPECT_EQ(rec.modeTable[3].modeC2, c.newTables ? 3005u : 0u) << c.firmware;
        EXPECT_EQ(rec.modeTable[3].modeC1, 3004u);
        EXPECT_EQ(countCode(codes(lastCamera()), 79), c.newTables ? 1u : 0u) << c.firmware;
        close(dev);
    }
}

TEST_F(StartUp, CalibrationImagesGiveDarkFrameGainsAndAtMost1024Defects)
{
    VcamConfig cfg = config(VCAM_K5, 7);
    std::vector<std::uint32_t> defects;
    for (std::uint32_t k = 0; k < 1100; ++k)
        defects.push_back((k % 1000) << 16 | (k / 1000) * 7); // rows 0 and 7
    cfg.defects = defects.data();
    cfg.defectCount = static_cast<std::uint32_t>(defects.size());
    std::uint32_t dev = openVirtual(cfg);
    const auto &rec = g_state.devices[dev];
    EXPECT_EQ(rec.defectCount, 1024u);
    EXPECT_EQ(rec.defectCorrect, 1u);
    EXPECT_EQ(rec.defectList[0], 0u);
    EXPECT_EQ(rec.defectList[999], 999u << 16);
    EXPECT_EQ(rec.defectList[1000], 7u) << "row 7, column 0: scanned row by row";
    EXPECT_EQ(rec.defectList[1023], 23u << 16 | 7);
    const std::uint16_t *gainA = g_state.buffers.gainTableA[dev];
    const std::uint16_t *dark = g_state.buffers.darkFrame[dev];
    // The camera's gain codes are 247..251 and flagged pixels carry bit 9.
    for (std::uint32_t i : {0u, 5u, 7u * 1024 + 50, 7u * 1024 + 99, 1024u * 1024 - 1}) {
        EXPECT_GE(gainA[i], 247 * 4) << i;
        EXPECT_LE(gainA[i], 251 * 4) << i;
        EXPECT_GE(dark[i], 2);
        EXPECT_LE(dark[i], 6);
    }
    // With no pixel-gain file every entry is the neutral gain.
    const std::uint16_t *gainB = g_state.buffers.gainTableB[dev];
    EXPECT_EQ(std::count(gainB, gainB + 1024 * 1024, 997), 1024 * 1024);
}

TEST_F(StartUp, MonochromeCameraIsNeverAskedForItsMatrix)
{
    std::uint32_t mono = openVirtual(config(VCAM_K5, 7));
    EXPECT_EQ(countCode(codes(lastCamera()), 74), 0u);
    EXPECT_EQ(g_state.devices[mono].colourMatrixSelect, 0u);
    EXPECT_EQ(g_state.devices[mono].colourMatrix[0][1], 256);

    VcamConfig cfg = config(VCAM_K5C, 7);
    cfg.colourMatrix[1][0] = 40;
    cfg.colourMatrix[1][1] = 300;
    cfg.colourMatrix[2][2] = 290;
    std::uint32_t colour = openVirtual(cfg);
    const auto &rec = g_state.devices[colour];
    EXPECT_EQ(rec.colourMatrixSelect, 1u);
    EXPECT_EQ(rec.colourMatrix[3][1], -40) << "off-diagonal magnitudes become negative";
    EXPECT_EQ(rec.colourMatrix[4][1], 300);
    EXPECT_EQ(rec.colourMatrix[8][1], 290);
    EXPECT_EQ(rec.colourMatrix[4][0], 256) << "the default set is the identity";
    EXPECT_EQ(rec.colourMatrix[1][0], 0);
}

TEST_F(StartUp, FailuresEndTheSequenceButNotTheOpen)
{
    VcamConfig cfg = config(VCAM_K5C, 7);
    cams_.push_back(std::make_unique<testing_support::VirtualCamera>(cfg));
    VcamCamera *cam = lastCamera();
    vcam_override_reply_code(cam, 43, 1);
    std::uint32_t dev = 99;
    std::int32_t err = 0;
    ASSERT_EQ(DEV_OpenDevice(7, cams_.back()->table(), cams_.back()->hostArg(), &dev, &err), 1);
    EXPECT_EQ(err, QUORIN_ERR_REPLY_MISMATCH);
    EXPECT_EQ(countCode(codes(cam), 185), 0u);
    close(dev);

    // A failing colour matrix is ignored: the camera coefficients fall back.
    vcam_clear_faults(cam);
    vcam_override_reply_code(cam, 74, 1);
    vcam_trace_clear(cam);
    ASSERT_EQ(DEV_OpenDevice(7, cams_.back()->table(), cams_.back()->hostArg(), &dev, &err), 1);
    EXPECT_EQ(err, QUORIN_SUCCESS);
    EXPECT_EQ(g_state.devices[dev].colourMatrixSelect, 0u);

    // A short calibration block fails the read.
    close(dev);
    vcam_clear_faults(cam);
    vcam_fail_calls(cam, VCAM_CALL_RECEIVE, 9, 0, 0); // every receive from image A's block on
    ASSERT_EQ(DEV_OpenDevice(7, cams_.back()->table(), cams_.back()->hostArg(), &dev, &err), 1);
    EXPECT_NE(err, QUORIN_SUCCESS);
}

TEST_F(StartUp, CloseOfAPlayingBackCameraReturnsItToLiveFirst)
{
    std::uint32_t dev = openVirtual(config(VCAM_K5, 7));
    VcamCamera *cam = lastCamera();
    g_state.devices[dev].operatingStatus = quorin::kPlaybackStatus;
    // The camera really plays back.
    std::int32_t err = 0;
    CameraCommand toPlayback{114, 0x04000000, 5};
    CommandReply reply{};
    ASSERT_EQ(quorin::link::sendCommand(dev, &toPlayback, &reply, &err), 1u);
    vcam_trace_clear(cam);
    close(dev);
    EXPECT_EQ(codes(cam), (std::vector<std::uint16_t>{18, 114, 183, 125, 144}));
}
