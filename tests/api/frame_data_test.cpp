// Recorded frames' time stamps and channel records from a virtual camera
// whose recording starts at day 200, 23:59:58.5 and runs at its frame rate.
#include "caps_fixture.h"

#include <cstring>

namespace {

struct Time {
    uint32_t day;
    uint8_t hour, minute, second, reserved;
    uint32_t microsecond;
    uint8_t flag, rest[7];
};
static_assert(sizeof(Time) == 20, "the 20-byte time record");

} // namespace

class FrameData : public CapsTest {
protected:
    // A camera in playback whose memory row knows the recording rate.
    void playback(uint32_t type, uint32_t rate)
    {
        open(VCAM_K5, type);
        ASSERT_EQ(set(QUORIN_CAP_FRAME_RATE, rate).ok, 1);
        ASSERT_EQ(set(QUORIN_CAP_CAMERA_MODE, 1).ok, 1);
        ASSERT_EQ(get(QUORIN_CAP_FRAME_RATE).value, rate); // fills the memory row
        sent();
    }
    uint32_t read(uint32_t id, uint32_t first, uint32_t count, void *buffer, int32_t *err)
    {
        uint32_t size = 0;
        return DEV_GetData(dev_, 0, id, first, count, buffer, &size, err);
    }
};

TEST_F(FrameData, TimeStampsAdvanceAtTheRecordingRateAndCarryPastMidnight)
{
    playback(7, 1000);
    std::vector<Time> times(3);
    std::memset(times.data(), 0x5C, times.size() * sizeof(Time));
    int32_t err = 0;
    ASSERT_EQ(read(QUORIN_DATA_TIME_STAMPS, 1, 3, times.data(), &err), 1u);
    EXPECT_EQ(err, QUORIN_SUCCESS);
    EXPECT_EQ(times[0].day, 200u);
    EXPECT_EQ(times[0].hour, 23);
    EXPECT_EQ(times[0].minute, 59);
    EXPECT_EQ(times[0].second, 58);
    EXPECT_EQ(times[0].microsecond, 500000u);
    EXPECT_EQ(times[0].flag, 1);
    EXPECT_EQ(times[2].microsecond, 502000u) << "1 ms apart at 1000 frames per second";
    EXPECT_EQ(times[1].reserved, 0x5C) << "reserved bytes stay as they were";
    EXPECT_EQ(times[1].rest[6], 0x5C);
    auto cmds = sent();
    ASSERT_EQ(cmds.size(), 2u);
    EXPECT_EQ(cmds[0].code, 178);
    EXPECT_EQ(cmds[0].p1, 1u);
    EXPECT_EQ(cmds[0].p2, 1u << 24 | 0x20000) << "the playback selector and the header flag";
    EXPECT_EQ(cmds[1].code, 184);
    EXPECT_EQ(cmds[1].p1, 3u);

    // 1.5 s after the start is the next day's first instant.
    ASSERT_EQ(read(QUORIN_DATA_TIME_STAMPS, 1501, 1, times.data(), &err), 1u);
    EXPECT_EQ(times[0].day, 201u);
    EXPECT_EQ(times[0].hour, 0);
    EXPECT_EQ(times[0].minute, 0);
    EXPECT_EQ(times[0].second, 0);
    EXPECT_EQ(times[0].microsecond, 0u);
}

TEST_F(FrameData, ChannelRecordsAndBothTogether)
{
    playback(3, 500);
    std::vector<uint8_t> channels(332 * 2), both(352 * 2);
    int32_t err = 0;
    ASSERT_EQ(read(QUORIN_DATA_CHANNELS, 4, 2, channels.data(), &err), 1u);
    ASSERT_EQ(read(QUORIN_DATA_TIME_AND_CHANNELS, 4, 2, both.data(), &err), 1u);
    // Frame 4 is recorded frame index 3; channel j's A is ±(j + 1) plus a
    // small wave, in tenths.
    double a0 = 0, a1 = 0;
    std::memcpy(&a0, channels.data() + 172, 8);
    std::memcpy(&a1, channels.data() + 172 + 8, 8);
    EXPECT_DOUBLE_EQ(a0, (10 + (3 % 21) - 10) / 10.0);
    EXPECT_DOUBLE_EQ(a1, (-20 + (3 % 21) - 10) / 10.0);
    EXPECT_EQ(channels[0], 3) << "status of channel 0";
    EXPECT_EQ(std::memcmp(both.data() + 20, channels.data(), 332), 0) << "the channel record follows the time record";
    EXPECT_EQ(std::memcmp(both.data() + 352 + 20, channels.data() + 332, 332), 0);
    Time t{};
    std::memcpy(&t, both.data() + 352, sizeof t);
    EXPECT_EQ(t.microsecond, 500000u + 4 * 2000u);
}

TEST_F(FrameData, RefusalsAndTheElevenHeadersOfLinkTypeTwo)
{
    open(VCAM_K5, 2);
    std::vector<uint8_t> buffer(352 * 2048);
    int32_t err = 0;
    EXPECT_EQ(read(QUORIN_DATA_TIME_STAMPS, 1, 1, buffer.data(), &err), 0u);
    EXPECT_EQ(err, QUORIN_ERR_NO_DATA) << "no recording rate known yet";
    EXPECT_EQ(read(QUORIN_DATA_CHANNELS, 1, 1, buffer.data(), &err), 0u);
    EXPECT_EQ(err, QUORIN_ERR_NOT_PLAYBACK);
    ASSERT_EQ(set(QUORIN_CAP_CAMERA_MODE, 1).ok, 1);
    ASSERT_EQ(get(QUORIN_CAP_FRAME_RATE).ok, 1);
    sent();
    for (uint32_t count : {0u, 2049u}) {
        EXPECT_EQ(read(QUORIN_DATA_TIME_STAMPS, 1, count, buffer.data(), &err), 0u);
        EXPECT_EQ(err, QUORIN_ERR_OUT_OF_RANGE);
    }
    EXPECT_TRUE(sent().empty()) << "no camera traffic";
    vcam_trace_clear(camera());
    ASSERT_EQ(read(QUORIN_DATA_TIME_STAMPS, 1, 3, buffer.data(), &err), 1u);
    EXPECT_EQ(sent().back().p1, 11u) << "at least 11 headers on link type 2";
    ASSERT_EQ(read(QUORIN_DATA_TIME_STAMPS, 1, 2048, buffer.data(), &err), 1u);
}

// Firmware 108 to 116 stamps a frame at its end: one frame period is added,
// and a stamp that reaches the next second carries up to the day.
TEST_F(FrameData, FirmwareThatStampsAtTheFrameEndAddsOnePeriod)
{
    struct Row {
        uint32_t frame, day;
        uint8_t hour, minute, second;
        uint32_t microsecond;
    };
    const Row rows[] = {
        {1, 200, 23, 59, 58, 501000},
        {500, 200, 23, 59, 59, 0},
        {1500, 201, 0, 0, 0, 0},
    };
    VcamConfig cfg = config(VCAM_K5, 7);
    cfg.firmwareVersion = 110;
    open(cfg);
    ASSERT_EQ(set(QUORIN_CAP_FRAME_RATE, 1000).ok, 1);
    ASSERT_EQ(set(QUORIN_CAP_CAMERA_MODE, 1).ok, 1);
    ASSERT_EQ(get(QUORIN_CAP_FRAME_RATE).value, 1000u);
    for (const Row &r : rows) {
        Time t{};
        int32_t err = 0;
        ASSERT_EQ(read(QUORIN_DATA_TIME_STAMPS, r.frame, 1, &t, &err), 1u) << r.frame;
        EXPECT_EQ(t.day, r.day) << r.frame;
        EXPECT_EQ(t.hour, r.hour) << r.frame;
        EXPECT_EQ(t.minute, r.minute) << r.frame;
        EXPECT_EQ(t.second, r.second) << r.frame;
        EXPECT_EQ(t.microsecond, r.microsecond) << r.frame;
    }
}
