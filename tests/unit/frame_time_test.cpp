// The frame-time model against values worked out by hand.
#include "caps/caps_common.h"

#include <gtest/gtest.h>

using namespace quorin;

namespace {

DeviceRecord internalClock()
{
    DeviceRecord rec{};
    return rec;
}

} // namespace

TEST(FrameTime, ClocksPerFrame)
{
    // (1024 / 32 + 7) * 1024 / 2 + 150 = 39 * 512 + 150
    EXPECT_EQ(frameClocks(1024, 1024), 20118u);
    // (4 + 7) * 16 / 2 + 150 = 238
    EXPECT_EQ(frameClocks(128, 16), 238u);
    // (20 + 7) * 240 / 2 + 150 = 3390
    EXPECT_EQ(frameClocks(640, 240), 3390u);
}

TEST(FrameTime, LargestFrameRate)
{
    DeviceRecord rec = internalClock();
    EXPECT_EQ(largestFrameRate(rec, 1024u << 16 | 1024), 3130u); // 63e6 / 20123
    EXPECT_EQ(largestFrameRate(rec, 128u << 16 | 16), 259259u);  // 63e6 / 243
    rec.extSyncFlag = 1;
    rec.extClockFrequency = 10000000;
    rec.modeWord79 = 82; // the external-sync margin
    EXPECT_EQ(largestFrameRate(rec, 128u << 16 | 16), 31250u); // 1e7 / (238 + 82)
}

TEST(FrameTime, LargestWidthAndHeight)
{
    DeviceRecord rec = internalClock();
    // 5000 fps: 12600 clocks, less the margin 5. Height 256:
    // width 768 needs (24 + 7) * 128 + 150 = 4118, 1024 needs 5142: all fit.
    EXPECT_EQ(largestWidth(rec, 5000, 256), 1024u);
    // Height 1024: 256 needs (8 + 7) * 512 + 150 = 7830 < 12595,
    // 384 needs 19 * 512 + 150 = 9878, 512 needs 23 * 512 + 150 = 11926,
    // 640 needs 27 * 512 + 150 = 13974: too many.
    EXPECT_EQ(largestWidth(rec, 5000, 1024), 512u);
    // Even 256 columns fail at 1,000,000 fps (63 clocks): the answer is 128.
    EXPECT_EQ(largestWidth(rec, 1000000, 16), 128u);
    // Width 1024 at 5000 fps: 39 * h / 2 + 150 < 12595 up to h = 638, so 624.
    EXPECT_EQ(largestHeight(rec, 5000, 1024), 624u);
    EXPECT_EQ(largestHeight(rec, 1000000, 1024), 16u);
}

TEST(FrameTime, LargestPictureGrowsAsASquareAndStopsAt1024)
{
    DeviceRecord rec = internalClock();
    EXPECT_EQ(largestPicture(rec, 1), 1024u << 16 | 1024);
    EXPECT_EQ(largestPicture(rec, 0), 1024u << 16 | 1024) << "no frame rate: no limit but the sensor";
    // 3000 fps: 21000 clocks. 1024 x 1024 needs 20118 < 20995: the whole sensor.
    EXPECT_EQ(largestPicture(rec, 3000), 1024u << 16 | 1024);
    // 5000 fps: 12595 clocks. 640 x 624: 27 * 312 + 150 = 8574; 640 x 640: 8790;
    // 768 x 640: 31 * 320 + 150 = 10070; 768 x 768: 12054; 896 x 768:
    // 35 * 384 + 150 = 13590 is too many, so the picture stays 768 x 768.
    EXPECT_EQ(largestPicture(rec, 5000), 768u << 16 | 768);
}
