// Decoding of recorded-frame headers: the time code with its carries and
// borrows, and the channel words with their signs and scales.
#include "data/frame_data.h"

#include <gtest/gtest.h>

#include <cstdint>

using namespace quorin;

namespace {

// Header words with a time code, as the camera encodes it (its second
// field one behind).
void encodeTime(std::uint32_t *w, std::uint32_t day, std::uint32_t hour, std::uint32_t minute,
                std::uint32_t cameraSecond, std::uint32_t microsecond, bool flag)
{
    const std::uint32_t tens = day / 10, half = hour / 2, units = minute % 10, extra = units >= 8;
    w[5] = ((tens >> 1) % 5) | ((tens >> 1) / 5) << 3 | (flag ? 1u << 5 : 0);
    w[15] = (day % 10) | (tens & 1) << 4;
    w[25] = (half % 5) | (half / 5) << 3;
    w[35] = extra | (minute / 10) << 1 | (hour & 1) << 4;
    w[45] = (cameraSecond / 10) >> 1 | (units - 8 * extra) << 2;
    w[55] = (cameraSecond % 10) | ((cameraSecond / 10) & 1) << 4;
    const std::uint32_t ms = microsecond / 1000, us = microsecond % 1000;
    w[65] = ms / 32;
    w[75] = ms % 32;
    w[85] = us / 32;
    w[95] = us % 32;
}

FrameTime timeOf(std::uint32_t day, std::uint32_t hour, std::uint32_t minute, std::uint32_t second,
                 std::uint32_t microsecond, std::int64_t offset)
{
    std::uint32_t w[100] = {};
    encodeTime(w, day, hour, minute, second - 1, microsecond, true);
    FrameTime t = decodeTime(w);
    applyOffset(t, offset);
    return t;
}

void expectTime(const FrameTime &t, int day, int hour, int minute, int second, int microsecond)
{
    EXPECT_EQ(t.day, day);
    EXPECT_EQ(t.hour, hour);
    EXPECT_EQ(t.minute, minute);
    EXPECT_EQ(t.second, second);
    EXPECT_EQ(t.microsecond, microsecond);
}

std::uint32_t reversed(std::uint32_t v)
{
    std::uint32_t r = 0;
    for (int i = 0; i < 32; ++i)
        r |= ((v >> i) & 1u) << (31 - i);
    return r;
}

} // namespace

TEST(FrameTimeCode, DecodesEveryFieldOverItsRange)
{
    for (std::uint32_t day : {1u, 9u, 10u, 19u, 99u, 100u, 200u, 366u})
        for (std::uint32_t hour : {0u, 1u, 9u, 10u, 23u})
            for (std::uint32_t minute : {0u, 7u, 8u, 9u, 18u, 59u})
                for (std::uint32_t second : {1u, 10u, 29u, 59u}) {
                    std::uint32_t w[100] = {};
                    encodeTime(w, day, hour, minute, second - 1, 999999, false);
                    const FrameTime t = decodeTime(w);
                    ASSERT_EQ(t.day, static_cast<int>(day));
                    ASSERT_EQ(t.hour, static_cast<int>(hour));
                    ASSERT_EQ(t.minute, static_cast<int>(minute));
                    ASSERT_EQ(t.second, static_cast<int>(second)) << "the camera's second plus one";
                    ASSERT_EQ(t.microsecond, 999999);
                    ASSERT_EQ(t.flag, 0);
                }
}

TEST(FrameTimeCode, OffsetsCarryAndBorrowAcrossMidnight)
{
    // 23:59:59.999900 + 200 us: the next day at 00:00:00.000100.
    expectTime(timeOf(100, 23, 59, 59, 999900, 200), 101, 0, 0, 0, 100);
    // A sixtieth second carries when there is no offset; past day 366 the day is 0.
    expectTime(timeOf(366, 23, 59, 60, 0, 0), 0, 0, 0, 0, 0);
    expectTime(timeOf(366, 23, 59, 59, 999999, 1), 1, 0, 0, 0, 0);
    expectTime(timeOf(101, 0, 0, 1, 50, -100), 101, 0, 0, 0, 999950);
    // Negative offsets borrow down the fields to the day before, and day 0 to 365.
    FrameTime t{101, 0, 0, 0, 50, 1};
    applyOffset(t, -100);
    expectTime(t, 100, 23, 59, 59, 999950);
    FrameTime first{0, 0, 0, 0, 0, 1};
    applyOffset(first, -1);
    expectTime(first, 365, 23, 59, 59, 999999);
    // A frame period added by old firmware: 1 / 1000 s.
    expectTime(timeOf(5, 12, 0, 1, 999500, 1000), 5, 12, 0, 2, 500);
}

TEST(FrameChannels, SignsAndScalesOfEachValue)
{
    std::uint32_t w[100] = {};
    // Channel 0: status 5; A = -3 (two's complement, sign bit 16), tenths;
    // B = 250, hundredths (scale 1 at bits 30..31).
    const std::uint32_t a = 5u | (static_cast<std::uint32_t>(-3) & 0x3FF) << 6 | 1u << 16 | 250u << 19 | 1u << 30;
    // C = 77 as is (scale 2 at bits 11..12); D = -512 in tenths (sign 23).
    const std::uint32_t b = 77u | 2u << 11 | (static_cast<std::uint32_t>(-512) & 0x3FF) << 13 | 1u << 23;
    w[0] = reversed(a);
    w[5] = reversed(b);
    std::uint8_t status[10];
    double values[4][10];
    decodeChannels(w, status, values);
    EXPECT_EQ(status[0], 5);
    EXPECT_DOUBLE_EQ(values[2][0], -0.3); // A
    EXPECT_DOUBLE_EQ(values[3][0], 2.5);  // B
    EXPECT_DOUBLE_EQ(values[0][0], 77.0); // C
    EXPECT_DOUBLE_EQ(values[1][0], -51.2); // D
    EXPECT_EQ(w[0], a) << "the reversed words are kept";
    EXPECT_EQ(values[2][1], 0.0);
}
