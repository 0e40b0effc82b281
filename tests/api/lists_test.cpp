// Value lists through the shipped library against virtual cameras.
#include "caps_fixture.h"

TEST_F(CapsTest, PictureSizesBetweenAndBeyondTheRows)
{
    open();
    ASSERT_EQ(set(QUORIN_CAP_FRAME_RATE, 4000).ok, 1);
    auto sizes = list(QUORIN_LIST_PICTURE_SIZES).entries;
    ASSERT_EQ(sizes.size(), 18u) << "the row of 5000";
    EXPECT_EQ(sizes.front(), packed(512, 1024));
    ASSERT_EQ(set(QUORIN_CAP_FRAME_RATE, 3000).ok, 1);
    EXPECT_EQ(list(QUORIN_LIST_PICTURE_SIZES).entries.size(), 23u);
    ASSERT_EQ(set(QUORIN_CAP_FRAME_RATE, 300000).ok, 1);
    EXPECT_EQ(list(QUORIN_LIST_PICTURE_SIZES).entries, std::vector<uint32_t>{packed(128, 16)})
        << "past the last row: its sizes";
}

TEST_F(CapsTest, ShutterSpeedsAboveTheFrameRate)
{
    open();
    ASSERT_EQ(set(QUORIN_CAP_FRAME_RATE, 250000).ok, 1);
    ASSERT_EQ(get(QUORIN_CAP_EXPOSURE_ENABLE).ok, 1);
    ASSERT_EQ(get(QUORIN_CAP_SHUTTER).ok, 1); // reads the shutter column
    EXPECT_EQ(list(QUORIN_LIST_SHUTTER_SPEEDS).entries, (std::vector<uint32_t>{250000, 500000, 1000000}));

    ASSERT_EQ(set(QUORIN_CAP_FRAME_RATE, 50000).ok, 1);
    auto times = list(QUORIN_LIST_EXPOSURE_TIMES_US).entries;
    // Frame period 1260 clocks = 20 us, then 55000 .. 1000000 in column 0.
    ASSERT_EQ(times.size(), 12u);
    EXPECT_EQ(times[0], 20u);
    EXPECT_EQ(times[1], 18u) << "(1014 + 136) clocks";
    EXPECT_EQ(times.back(), 1u) << "63 clocks, no offset in the last rows";
    auto ns = list(QUORIN_LIST_EXPOSURE_TIMES_NS).entries;
    EXPECT_EQ(ns[0], 20000u);
    EXPECT_EQ(ns.back(), 1000u);
}

TEST_F(CapsTest, FineListsFollowTheWidthColumn)
{
    open();
    ASSERT_EQ(set(QUORIN_CAP_FRAME_RATE, 100).ok, 1);
    auto rates = list(QUORIN_LIST_FINE_FRAME_RATES).entries;
    ASSERT_FALSE(rates.empty());
    EXPECT_EQ(rates.front(), 100u);
    EXPECT_EQ(rates.back(), 1000000u);
    for (size_t i = 1; i < rates.size(); ++i)
        ASSERT_LT(rates[i - 1], rates[i]);
    auto times = list(QUORIN_LIST_FINE_EXPOSURE_US).entries;
    EXPECT_EQ(times.size(), rates.size()) << "the frame period stands in for the row equal to the rate";
    EXPECT_EQ(times.front(), 10000u);
    EXPECT_EQ(times.back(), 1u);
}

TEST_F(CapsTest, ConstantAndSubIndexLists)
{
    open();
    EXPECT_EQ(list(QUORIN_LIST_LUT_MODES).entries, (std::vector<uint32_t>{1, 2, 3, 4, 5, 11}));
    EXPECT_EQ(list(QUORIN_LIST_SYNC_SOURCES, 2).entries.size(), 6u);
    ListResult bad = list(QUORIN_LIST_SYNC_SOURCES, 3);
    EXPECT_EQ(bad.err, QUORIN_ERR_OUT_OF_RANGE);
    EXPECT_TRUE(bad.entries.empty());
    EXPECT_EQ(list(QUORIN_LIST_PAIR_128_CODES, 2).entries.size(), 10u);
    ListResult unknown = list(42);
    EXPECT_EQ(unknown.ok, 0);
    EXPECT_EQ(unknown.err, QUORIN_ERR_NOT_SUPPORTED);
    EXPECT_TRUE(unknown.entries.empty());
    EXPECT_EQ(list(QUORIN_LIST_MODES_143).entries, std::vector<uint32_t>{1}) << "exposure control not read yet";
}

TEST_F(CapsTest, CameraEntriesAndTheirStoredClasses)
{
    open(VCAM_K5C, 3);
    ListResult entries = list(QUORIN_LIST_CAMERA_ENTRIES);
    ASSERT_EQ(entries.ok, 1);
    ASSERT_EQ(entries.entries.size(), 4u) << "four entries answer";
    EXPECT_EQ(entries.entries[0], 100u | 0x80000000u) << "flagged entry";
    EXPECT_EQ(entries.entries[1], 101u);
    auto stored = list(QUORIN_LIST_STORED_ENTRIES).entries;
    ASSERT_EQ(stored.size(), 10u);
    EXPECT_EQ(stored[0], 1u);
    EXPECT_EQ(stored[9], 10u);
    vcam_override_reply_code(camera(), 36, 85);
    ListResult broken = list(QUORIN_LIST_CAMERA_ENTRIES);
    EXPECT_EQ(broken.err, QUORIN_ERR_REPLY_MISMATCH);
    EXPECT_TRUE(broken.entries.empty());
}

TEST_F(CapsTest, DefectAndLookUpTableLists)
{
    VcamConfig cfg = config(VCAM_K5, 7);
    const uint32_t defects[] = {5u << 16 | 2, 9u << 16 | 1};
    cfg.defects = defects;
    cfg.defectCount = 2;
    open(cfg);
    EXPECT_EQ(list(QUORIN_LIST_DEFECTS).entries, (std::vector<uint32_t>{9u << 16 | 1, 5u << 16 | 2}))
        << "scanned row by row";
    auto freeCurve = list(QUORIN_LIST_FREE_LUT_G).entries;
    ASSERT_EQ(freeCurve.size(), 1024u);
    EXPECT_EQ(freeCurve[1000], 1000u);
    ASSERT_EQ(set(QUORIN_CAP_LUT_MODE, 5).ok, 1); // negative
    auto output = list(QUORIN_LIST_OUTPUT_LUT_R).entries;
    ASSERT_EQ(output.size(), 1024u);
    EXPECT_EQ(output[0], 1023u);
}
