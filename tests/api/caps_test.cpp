// Capabilities through the shipped library against virtual cameras:
// translations both ways, quirks the camera family keeps, firmware, model
// and link gates, refusals in playback, and round trips through the camera.
#include "caps_fixture.h"

TEST_F(CapsTest, SettingsRoundTripThroughTheCamera)
{
    open();
    sent();
    ASSERT_EQ(set(QUORIN_CAP_FRAME_RATE, 5000).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_FRAME_RATE).value, 5000u);
    ASSERT_EQ(set(QUORIN_CAP_RESOLUTION, packed(512, 256)).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_RESOLUTION).value, packed(512, 256));
    EXPECT_EQ(vcam_resolution(camera()), packed(512, 256));
    ASSERT_EQ(set(QUORIN_CAP_CHANNEL_COUNT, 4).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_CHANNEL_COUNT).value, 4u);
    ASSERT_EQ(set(QUORIN_CAP_CHANNEL_NUMBER, 3).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_CHANNEL_NUMBER).value, 3u);
    EXPECT_EQ(set(QUORIN_CAP_CHANNEL_NUMBER, 5).err, QUORIN_ERR_OUT_OF_RANGE) << "beyond the channel count";
    ASSERT_EQ(set(QUORIN_CAP_LUT_MODE, 11).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_LUT_MODE).value, 11u);
    ASSERT_EQ(set(QUORIN_CAP_LUT_MODE, 4).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_LUT_MODE).value, 4u);
    ASSERT_EQ(set(QUORIN_CAP_IMAGE_OUTPUT, 0x00010102).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_IMAGE_OUTPUT).value, 0x00010102u);
    EXPECT_EQ(set(QUORIN_CAP_IMAGE_OUTPUT, 3).err, QUORIN_ERR_OUT_OF_RANGE);
}

TEST_F(CapsTest, FrameRateThirtyIsReportedAsThreeThousand)
{
    open();
    ASSERT_EQ(set(QUORIN_CAP_FRAME_RATE, 30).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_FRAME_RATE).value, 3000u);
}

TEST_F(CapsTest, TriggerCodesThreeAndFourAreSwappedBothWays)
{
    open();
    sent();
    ASSERT_EQ(set(QUORIN_CAP_TRIGGER_MODE, 0x03000000).ok, 1);
    auto cmds = sent();
    ASSERT_EQ(cmds.size(), 2u);
    EXPECT_EQ(cmds[0].code, 136) << "the count goes first";
    EXPECT_EQ(cmds[1].code, 121);
    EXPECT_EQ(cmds[1].p1, 0x04000000u);
    CapResult r = get(QUORIN_CAP_TRIGGER_MODE);
    EXPECT_EQ(r.value, 0x03000000u);

    ASSERT_EQ(set(QUORIN_CAP_FRAME_COUNT, 0).ok, 0) << "get-only id";
    ASSERT_EQ(get(QUORIN_CAP_FRAME_COUNT).ok, 1);
    sent();
    ASSERT_EQ(set(QUORIN_CAP_TRIGGER_MODE, 0x04000000, 10).ok, 1);
    cmds = sent();
    ASSERT_EQ(cmds.size(), 1u);
    EXPECT_EQ(cmds[0].p1, 0x03000000u);
    EXPECT_EQ(cmds[0].p2, 10u);
    r = get(QUORIN_CAP_TRIGGER_MODE);
    EXPECT_EQ(r.value, 0x04000000u);

    EXPECT_EQ(set(QUORIN_CAP_TRIGGER_MODE, 0x04000005).err, QUORIN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(set(QUORIN_CAP_TRIGGER_COUNTS, 5, 11).err, QUORIN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(set(QUORIN_CAP_TRIGGER_COUNTS, 0, 1).err, QUORIN_ERR_OUT_OF_RANGE);
    ASSERT_EQ(set(QUORIN_CAP_TRIGGER_COUNTS, 5, 2).ok, 1);
    r = get(QUORIN_CAP_TRIGGER_COUNTS);
    EXPECT_EQ(r.value, 5u);
    EXPECT_EQ(r.value2, 2u);
}

TEST_F(CapsTest, SignMagnitudeValuesAndMatrixCoefficients)
{
    VcamConfig cfg = config();
    cfg.colourMatrix[0][1] = 5;
    open(cfg);
    ASSERT_EQ(set(QUORIN_CAP_SIGNED_OFFSET, 0x80000005).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_SIGNED_OFFSET).value, 0x80000005u);
    ASSERT_EQ(set(QUORIN_CAP_SIGNED_OFFSET, 7).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_SIGNED_OFFSET).value, 7u);

    CapResult row1 = get(QUORIN_CAP_COLOUR_MATRIX_ROW1);
    EXPECT_EQ(row1.value, 320u << 16 | 0x8005) << "-5 is sent as 0x8005";
    EXPECT_EQ(row1.value2, 0x8020u);
    EXPECT_EQ(get(QUORIN_CAP_COLOUR_MATRIX_SET).value, 2u);
    ASSERT_EQ(set(QUORIN_CAP_COLOUR_MATRIX_SET, 0).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_COLOUR_MATRIX_ROW1).value, 256u << 16) << "the default set";
    EXPECT_EQ(get(QUORIN_CAP_COLOUR_MATRIX_SET).value, 0u);
}

TEST_F(CapsTest, KeptQuirks)
{
    open();
    // Shutter and exposure report 21 with a zero value until exposure control is read.
    CapResult shutter = get(QUORIN_CAP_SHUTTER);
    EXPECT_EQ(shutter.ok, 1);
    EXPECT_EQ(shutter.value, 0u);
    EXPECT_EQ(shutter.err, QUORIN_ERR_NOT_SUPPORTED);
    CapResult exposure = get(QUORIN_CAP_EXPOSURE_US);
    EXPECT_EQ(exposure.ok, 1);
    EXPECT_EQ(exposure.value, 0u);
    EXPECT_EQ(exposure.err, QUORIN_ERR_NOT_SUPPORTED);
    ASSERT_EQ(get(QUORIN_CAP_EXPOSURE_ENABLE).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_SHUTTER).value, 1000u);

    // Kept colour settings ignore values of 64 and more, yet succeed.
    ASSERT_EQ(set(QUORIN_CAP_SOFT_GAIN_R, 12).ok, 1);
    CapResult big = set(QUORIN_CAP_SOFT_GAIN_R, 64);
    EXPECT_EQ(big.ok, 1);
    EXPECT_EQ(big.err, QUORIN_SUCCESS);
    EXPECT_EQ(get(QUORIN_CAP_SOFT_GAIN_R).value, 12u);
    // Id 120 needs id 92.
    EXPECT_EQ(set(QUORIN_CAP_KEPT_120, 3).err, QUORIN_ERR_NOT_ALLOWED);
    ASSERT_EQ(set(QUORIN_CAP_SOFT_COLOUR, 1).ok, 1);
    ASSERT_EQ(set(QUORIN_CAP_KEPT_120, 3).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_KEPT_120).value, 3u);
    // Id 14 on the smallest picture.
    ASSERT_EQ(set(QUORIN_CAP_RESOLUTION, packed(128, 16)).ok, 1);
    EXPECT_EQ(set(QUORIN_CAP_FLAG_137_BIT0, 1).err, QUORIN_ERR_NOT_ALLOWED);
    EXPECT_EQ(set(QUORIN_CAP_FLAG_137_BIT0, 0).ok, 1);
    // Unknown and get-only ids.
    EXPECT_EQ(get(9).err, QUORIN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(get(163).err, QUORIN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(set(QUORIN_CAP_FIRMWARE, 1).err, QUORIN_ERR_NOT_SUPPORTED);
}

TEST_F(CapsTest, ExternalSyncKeepsTheSyncSourceAtTwo)
{
    open();
    ASSERT_EQ(set(QUORIN_CAP_SYNC_SOURCE, 3, 0, 1).ok, 1); // raw 1
    EXPECT_EQ(get(QUORIN_CAP_SYNC_SOURCE, 1).value, 3u);
    ASSERT_EQ(set(QUORIN_CAP_EXTERNAL_SYNC, 1).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_EXTERNAL_SYNC).value, 1u);
    // The library keeps raw 2 after a sync change, whatever the camera
    // reports: trigger 0x05000000 is refused only for the external flag.
    EXPECT_EQ(set(QUORIN_CAP_TRIGGER_MODE, 0x05000000).err, QUORIN_ERR_NOT_ALLOWED);
    EXPECT_EQ(list(QUORIN_LIST_TRIGGER_MODES).entries.size(), 10u);
    ASSERT_EQ(set(QUORIN_CAP_EXTERNAL_SYNC, 0).ok, 1);
    EXPECT_EQ(list(QUORIN_LIST_TRIGGER_MODES).entries.size(), 11u);
    EXPECT_EQ(set(QUORIN_CAP_TRIGGER_MODE, 0x05000000).ok, 1);
}

TEST_F(CapsTest, FirmwareModelAndLinkGates)
{
    VcamConfig old = config(VCAM_K5C, 7);
    old.firmwareVersion = 107;
    open(old);
    EXPECT_EQ(get(QUORIN_CAP_EXPOSURE_ENABLE).err, QUORIN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(set(QUORIN_CAP_EXPOSURE_ENABLE, 1).err, QUORIN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(get(QUORIN_CAP_MODE_143).err, QUORIN_ERR_NOT_SUPPORTED) << "colour below 116";
    EXPECT_EQ(get(QUORIN_CAP_EXTERNAL_SYNC).err, QUORIN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(get(QUORIN_CAP_COLUMN_CORRECT).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_INTERFACE_REGISTER).err, QUORIN_ERR_NOT_SUPPORTED) << "link type 2 only";
    EXPECT_EQ(list(QUORIN_LIST_FRAME_RATES).entries.size(), 25u);

    VcamConfig mono = config(VCAM_K5, 2);
    mono.firmwareVersion = 117;
    mono.sensorKind = 3;
    open(mono);
    for (uint32_t id : {8u, 44u, 45u, 46u, 77u, 86u, 87u, 88u, 120u, 121u, 122u, 123u})
        EXPECT_EQ(get(id).err, QUORIN_ERR_NOT_SUPPORTED) << id;
    EXPECT_EQ(set(QUORIN_CAP_COLOUR_TEMPERATURE, 1).err, QUORIN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(get(QUORIN_CAP_COLUMN_CORRECT).err, QUORIN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(get(QUORIN_CAP_EXTERNAL_SYNC).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_INTERFACE_REGISTER, 1).value, 0x22u);
    ASSERT_EQ(set(QUORIN_CAP_INTERFACE_REGISTER, 0x99, 0, 1).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_INTERFACE_REGISTER, 1).value, 0x99u);
    EXPECT_EQ(get(QUORIN_CAP_INTERFACE_REGISTER, 3).err, QUORIN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(list(QUORIN_LIST_FRAME_RATES).entries.size(), 27u);
    EXPECT_EQ(list(QUORIN_LIST_EXT_SYNC_FRAME_RATES).entries.size(), 73u);
}

TEST_F(CapsTest, PlaybackRefusesEverySetterOutsideTheFirstGroup)
{
    open();
    ASSERT_EQ(set(QUORIN_CAP_CAMERA_MODE, 1).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_CAMERA_MODE).value, 1u);
    sent();
    for (uint32_t id : {2u, 3u, 4u, 6u, 7u, 40u, 99u, 128u, 200u}) {
        CapResult r = set(id, 1);
        EXPECT_EQ(r.ok, 0) << id;
        EXPECT_EQ(r.err, QUORIN_ERR_PLAYBACK) << id;
    }
    EXPECT_TRUE(sent().empty()) << "nothing is sent";
    EXPECT_EQ(set(QUORIN_CAP_LUT_MODE, 2).ok, 1);
    EXPECT_EQ(set(QUORIN_CAP_IMAGE_OUTPUT, 0).ok, 1);
    ASSERT_EQ(set(QUORIN_CAP_CAMERA_MODE, 0).ok, 1);
    EXPECT_EQ(set(QUORIN_CAP_FRAME_RATE, 2000).ok, 1);
}

TEST_F(CapsTest, ModeChangesFollowTheCameraState)
{
    open();
    EXPECT_EQ(set(QUORIN_CAP_CAMERA_MODE, 4).err, QUORIN_ERR_OUT_OF_RANGE) << "4 only from mode 2";
    EXPECT_EQ(set(QUORIN_CAP_CAMERA_MODE, 3).err, QUORIN_ERR_OUT_OF_RANGE);
    ASSERT_EQ(set(QUORIN_CAP_CAMERA_MODE, 2).ok, 1);
    sent();
    ASSERT_EQ(set(QUORIN_CAP_CAMERA_MODE, 2).ok, 1);
    EXPECT_EQ(sent().size(), 1u) << "already there: only the status read";
    ASSERT_EQ(set(QUORIN_CAP_CAMERA_MODE, 4).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_CAMERA_MODE).value, 4u);
    // Stopping the recording waits until the camera stops reporting 8.
    sent();
    ASSERT_EQ(set(QUORIN_CAP_CAMERA_MODE, 0).ok, 1);
    auto cmds = sent();
    ASSERT_GE(cmds.size(), 4u);
    EXPECT_EQ(cmds[1].code, 162);
    EXPECT_EQ(get(QUORIN_CAP_CAMERA_MODE).value, 0u);
}

TEST_F(CapsTest, PresetsStoreRecallAndDelete)
{
    open();
    ASSERT_EQ(set(QUORIN_CAP_PRESET_FRAME_RATE, 2000).ok, 1);
    ASSERT_EQ(set(QUORIN_CAP_PRESET_RESOLUTION, packed(512, 512)).ok, 1);
    ASSERT_EQ(set(QUORIN_CAP_PRESET_VALUE_52, 0x00030004).ok, 1);
    sent();
    ASSERT_EQ(set(QUORIN_CAP_PRESET_STORE, 7).ok, 1);
    auto cmds = sent();
    ASSERT_EQ(cmds.size(), 6u) << "firmware 120 stores the external-sync word too";
    EXPECT_EQ(cmds[1].p1, 7u << 16 | 1);
    EXPECT_EQ(cmds[1].p2, 31500u) << "the frame budget 63,000,000 / 2000";
    // 512 x 512 needs trunc((16 + 7) * 512 * 0.5 + 150) = 6038 clocks.
    EXPECT_EQ(cmds[4].p2, 31500u - 6038u);
    EXPECT_EQ(get(QUORIN_CAP_PRESET_FRAME_RATE, 7).value, 2000u);
    EXPECT_EQ(get(QUORIN_CAP_PRESET_RESOLUTION, 7).value, packed(512, 512));

    ASSERT_EQ(set(QUORIN_CAP_RESOLUTION, packed(1024, 1024)).ok, 1);
    ASSERT_EQ(set(QUORIN_CAP_PRESET_RECALL, 7).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_RESOLUTION).value, packed(512, 512)) << "the camera took the preset's size";
    ASSERT_EQ(set(QUORIN_CAP_PRESET_DELETE, 7).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_PRESET_FRAME_RATE, 7).value, 0u);
    EXPECT_EQ(set(QUORIN_CAP_PRESET_STORE, 21).err, QUORIN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(get(QUORIN_CAP_PRESET_FRAME_RATE, 21).err, QUORIN_ERR_OUT_OF_RANGE);
}

TEST_F(CapsTest, ResolutionCommandFramesItselfAndRetries)
{
    open(VCAM_K5, 2);
    sent();
    ASSERT_EQ(set(QUORIN_CAP_RESOLUTION, packed(640, 480)).ok, 1);
    auto cmds = sent();
    ASSERT_EQ(cmds.size(), 1u);
    EXPECT_EQ(cmds[0].code, 115);
    EXPECT_EQ(cmds[0].p1, packed(640, 480));
    EXPECT_EQ(cmds[0].p2, 0u) << "a standard size";
    ASSERT_EQ(set(QUORIN_CAP_RESOLUTION, packed(600, 400)).ok, 1);
    EXPECT_EQ(sent()[0].p2, 1u) << "a size outside the table is flagged, not refused";

    vcam_fail_calls(camera(), VCAM_CALL_RECEIVE, 1, 2, 0);
    EXPECT_EQ(set(QUORIN_CAP_RESOLUTION, packed(256, 256)).ok, 1);
    EXPECT_EQ(vcam_call_count(camera(), VCAM_CALL_RESET), 2u);
    vcam_fail_calls(camera(), VCAM_CALL_RECEIVE, 1, 3, 0);
    EXPECT_EQ(set(QUORIN_CAP_RESOLUTION, packed(128, 128)).err, QUORIN_ERR_LINK_RETRIES);
    vcam_override_reply_code(camera(), 115, 132);
    EXPECT_EQ(set(QUORIN_CAP_RESOLUTION, packed(128, 128)).err, QUORIN_ERR_REPLY_MISMATCH);
    vcam_override_reply_code(camera(), 115, 177);
    EXPECT_EQ(set(QUORIN_CAP_RESOLUTION, packed(128, 128)).ok, 1);
}

TEST_F(CapsTest, StartupValuesGoOutWithTheUniversalReply)
{
    open();
    for (uint32_t k = 0; k < 5; ++k)
        ASSERT_EQ(set(QUORIN_CAP_STARTUP_VALUE_1 + k, 10 + k).ok, 1);
    sent();
    ASSERT_EQ(set(QUORIN_CAP_SEND_STARTUP_VALUES, 0).ok, 1);
    EXPECT_EQ(sent().size(), 5u);
    EXPECT_EQ(get(QUORIN_CAP_STARTUP_VALUE_5).value, 14u);
    ASSERT_EQ(get(QUORIN_CAP_REFRESH_STARTUP).ok, 1);
    EXPECT_EQ(get(QUORIN_CAP_STARTUP_VALUE_5).value, 104u) << "re-read from the camera";
}

TEST_F(CapsTest, NamesAndBadDeviceNumbers)
{
    open(VCAM_K5, 7);
    char name[256];
    int32_t err = 0;
    ASSERT_EQ(DEV_GetDeviceName(dev_, 0, name, &err), 1);
    EXPECT_STREQ(name, "ORBILUX-VELTA model K5");
    open(VCAM_K5C, 7);
    ASSERT_EQ(DEV_GetDeviceName(dev_, 0, name, &err), 1);
    EXPECT_STREQ(name, "ORBILUX-VELTA model K5C");
    EXPECT_EQ(DEV_GetDeviceName(dev_, 1, name, &err), 0);
    EXPECT_EQ(err, QUORIN_ERR_NOT_SUPPORTED);

    uint32_t v = 0;
    EXPECT_EQ(DEV_GetDeviceCaps(64, 0, QUORIN_CAP_FRAME_RATE, 0, &v, &v, &err), 0);
    EXPECT_EQ(err, QUORIN_ERR_NOT_OPEN);
    EXPECT_EQ(DEV_SetDeviceCaps(1000, 0, QUORIN_CAP_FRAME_RATE, 0, 1, 0, &err), 0);
    EXPECT_EQ(err, QUORIN_ERR_NOT_OPEN);
    EXPECT_EQ(DEV_GetDeviceCaps(dev_ + 1, 0, QUORIN_CAP_FRAME_RATE, 0, &v, &v, &err), 0);
    EXPECT_EQ(err, QUORIN_ERR_NOT_OPEN) << "a slot that is not open sends nothing";
    EXPECT_EQ(DEV_GetDeviceCaps(dev_, 0, QUORIN_CAP_FRAME_RATE, 0, nullptr, nullptr, &err), 1);
}
