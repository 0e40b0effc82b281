// Device data and written lists through the shipped library: look-up
// settings, the pixel-gain tables and the flat-field computation, the defect
// list and the free curves.
#include "caps_fixture.h"

#include <cstring>

namespace {

struct Lut76 {
    int32_t brightness[3], contrast[3];
    double gain[3], gamma[3];
    uint8_t posiNega[3], freeMode;
};
static_assert(sizeof(Lut76) == 80, "the 76 packed bytes plus padding");

constexpr size_t kTableEntries = 1024 * 1024;

} // namespace

TEST_F(CapsTest, DefectListIsSortedByRowDeduplicatedAndSentEntryByEntry)
{
    open(VCAM_K5, 7);
    std::vector<uint32_t> list(1024, 0x12345678);
    list[0] = 5u << 16 | 9;
    list[1] = 2u << 16 | 9;
    list[2] = 5u << 16 | 9;
    list[3] = 7u << 16 | 1;
    uint32_t stored = 0;
    int32_t err = 0;
    sent();
    ASSERT_EQ(DEV_SetList(dev_, 0, QUORIN_SETLIST_DEFECTS, 0, list.data(), 4, &stored, &err), 1u);
    EXPECT_EQ(stored, 3u);
    EXPECT_EQ(list[0], 7u << 16 | 1);
    EXPECT_EQ(list[1], 2u << 16 | 9);
    EXPECT_EQ(list[2], 5u << 16 | 9);
    EXPECT_EQ(list[3], 0xFFFFFFFFu);
    EXPECT_EQ(list[1023], 0xFFFFFFFFu) << "the whole 1024-entry buffer is rewritten";
    auto cmds = sent();
    ASSERT_EQ(cmds.size(), 3u);
    for (uint32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(cmds[i].code, 141);
        EXPECT_EQ(cmds[i].p1, 0x30000u | (i + 1));
        EXPECT_EQ(cmds[i].p2, list[i]);
    }
    EXPECT_EQ(this->list(QUORIN_LIST_DEFECTS).entries, std::vector<uint32_t>(list.begin(), list.begin() + 3));
    EXPECT_EQ(get(QUORIN_CAP_DEFECT_CORRECT).value, 1u);

    ASSERT_EQ(DEV_SetList(dev_, 0, QUORIN_SETLIST_DEFECTS, 0, list.data(), 0, &stored, &err), 1u);
    EXPECT_EQ(stored, 0u);
    cmds = sent();
    ASSERT_EQ(cmds.size(), 1u);
    EXPECT_EQ(cmds[0].p1, 0u) << "an empty list clears the camera's";
    EXPECT_TRUE(this->list(QUORIN_LIST_DEFECTS).entries.empty());
    EXPECT_EQ(get(QUORIN_CAP_DEFECT_CORRECT).value, 0u);

    std::vector<uint32_t> tooLong(1100, 1);
    EXPECT_EQ(DEV_SetList(dev_, 0, QUORIN_SETLIST_DEFECTS, 0, tooLong.data(), 1025, &stored, &err), 0u);
    EXPECT_EQ(err, QUORIN_ERR_OUT_OF_RANGE);
    EXPECT_TRUE(sent().empty());
    EXPECT_EQ(DEV_SetList(dev_, 0, 19, 0, list.data(), 1, &stored, &err), 0u);
    EXPECT_EQ(err, QUORIN_ERR_NOT_SUPPORTED);
}

TEST_F(CapsTest, FreeCurvesOnlyWithTheUserTableAndRedServesAMonochromeCamera)
{
    open(VCAM_K5, 7);
    std::vector<uint32_t> curve(1024);
    for (uint32_t i = 0; i < 1024; ++i)
        curve[i] = 0xABCD0000u | (1023 - i); // only the low 16 bits count
    uint32_t stored = 0;
    int32_t err = 0;
    EXPECT_EQ(DEV_SetList(dev_, 0, QUORIN_SETLIST_FREE_LUT_G, 0, curve.data(), 7, &stored, &err), 0u);
    EXPECT_EQ(err, QUORIN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(stored, 1024u);
    EXPECT_EQ(list(QUORIN_LIST_FREE_LUT_R).entries[0], 0u) << "nothing changed";

    ASSERT_EQ(set(QUORIN_CAP_LUT_MODE, 11).ok, 1);
    ASSERT_EQ(DEV_SetList(dev_, 0, QUORIN_SETLIST_FREE_LUT_R, 0, curve.data(), 0, &stored, &err), 1u);
    auto output = list(QUORIN_LIST_OUTPUT_LUT_R).entries;
    ASSERT_EQ(output.size(), 1024u);
    EXPECT_EQ(output[0], 1023u) << "the free curve through the neutral colour gains";
    EXPECT_EQ(output[1023], 0u);
    // A green curve changes nothing a monochrome camera uses.
    std::vector<uint32_t> flat(1024, 7);
    ASSERT_EQ(DEV_SetList(dev_, 0, QUORIN_SETLIST_FREE_LUT_G, 0, flat.data(), 0, &stored, &err), 1u);
    EXPECT_EQ(list(QUORIN_LIST_OUTPUT_LUT_R).entries, output);
}

TEST_F(CapsTest, LookUpSettingsAndGainTables)
{
    open(VCAM_K5C, 7);
    Lut76 lut{};
    uint32_t size = 0;
    int32_t err = 0;
    ASSERT_EQ(DEV_GetData(dev_, 0, QUORIN_DATA_LUT_SETTINGS, 2, 0, &lut, &size, &err), 1u);
    EXPECT_EQ(size, 76u);
    EXPECT_EQ(lut.gamma[0], 0.7);
    EXPECT_EQ(lut.gamma[2], 0.7);
    EXPECT_EQ(DEV_GetData(dev_, 0, QUORIN_DATA_LUT_SETTINGS, 6, 0, &lut, &size, &err), 0u);
    EXPECT_EQ(err, QUORIN_ERR_OUT_OF_RANGE);

    Lut76 mine{};
    for (int c = 0; c < 3; ++c) {
        mine.gain[c] = 1.0;
        mine.gamma[c] = 1.0;
    }
    mine.brightness[1] = 100;
    mine.posiNega[2] = 1;
    ASSERT_EQ(DEV_SetData(dev_, 0, QUORIN_DATA_LUT_SETTINGS, 11, 0, &mine, 0, &err), 1u);
    Lut76 back{};
    ASSERT_EQ(DEV_GetData(dev_, 0, QUORIN_DATA_LUT_SETTINGS, 11, 0, &back, &size, &err), 1u);
    EXPECT_EQ(std::memcmp(&back, &mine, 76), 0);

    std::vector<uint16_t> table(kTableEntries, 1234), a(kTableEntries), b(kTableEntries);
    ASSERT_EQ(DEV_SetData(dev_, 0, QUORIN_DATA_GAIN_TABLES, 0, 0, table.data(), 0, &err), 1u);
    ASSERT_EQ(DEV_GetData(dev_, 0, QUORIN_DATA_GAIN_TABLES, 2, 0, b.data(), &size, &err), 1u);
    EXPECT_EQ(b, table);
    ASSERT_EQ(DEV_GetData(dev_, 0, QUORIN_DATA_GAIN_TABLES, 1, 0, a.data(), &size, &err), 1u);
    EXPECT_GE(a[0], 988u) << "the camera's own table";
    EXPECT_EQ(DEV_GetData(dev_, 0, QUORIN_DATA_GAIN_TABLES, 3, 0, a.data(), &size, &err), 0u);
    EXPECT_EQ(DEV_GetData(dev_, 0, 7, 0, 0, a.data(), &size, &err), 0u);
    EXPECT_EQ(err, QUORIN_ERR_NOT_SUPPORTED);
}

TEST_F(CapsTest, FlatFieldGainsFollowTheBrightLevelPerMosaicClass)
{
    open(VCAM_K5, 7);
    ASSERT_EQ(set(QUORIN_CAP_RESOLUTION, packed(256, 128)).ok, 1);
    ASSERT_EQ(get(QUORIN_CAP_RESOLUTION).value, packed(256, 128));
    ASSERT_EQ(get(QUORIN_CAP_VALUE_73).ok, 1); // the area sits at (384, 448)
    std::vector<uint16_t> image(256 * 128, 600);
    image[10] = 300;     // half the level
    image[11] = 200;     // a third
    image[12] = 0;       // no light: neutral
    int32_t err = 0;
    ASSERT_EQ(DEV_SetData(dev_, 0, QUORIN_DATA_FLAT_FIELD, 0, 0, image.data(), 0, &err), 1u);
    std::vector<uint16_t> table(kTableEntries);
    uint32_t size = 0;
    ASSERT_EQ(DEV_GetData(dev_, 0, QUORIN_DATA_GAIN_TABLES, 2, 0, table.data(), &size, &err), 1u);
    const size_t first = 448 * 1024 + 384;
    EXPECT_EQ(table[first], 997) << "p = L";
    EXPECT_EQ(table[first + 10], 1994);
    EXPECT_EQ(table[first + 11], 2047);
    EXPECT_EQ(table[first + 12], 997);
    EXPECT_EQ(table[0], 997) << "outside the area";
    EXPECT_EQ(table[first + 127 * 1024 + 255], 997);
    EXPECT_EQ(DEV_SetData(dev_, 0, QUORIN_DATA_FLAT_FIELD, 0, 0, nullptr, 0, &err), 0u);

    // Colour: red, blue and the greens each have their own level.
    open(VCAM_K5C, 7);
    ASSERT_EQ(set(QUORIN_CAP_RESOLUTION, packed(256, 128)).ok, 1);
    ASSERT_EQ(get(QUORIN_CAP_RESOLUTION).ok, 1);
    ASSERT_EQ(get(QUORIN_CAP_VALUE_73).ok, 1);
    for (size_t y = 0; y < 128; ++y)
        for (size_t x = 0; x < 256; ++x)
            image[y * 256 + x] = (y % 2 == 0 && x % 2 == 0) ? 800 : (y % 2 == 1 && x % 2 == 1) ? 400 : 600;
    image[0] = 400; // red at half its level
    ASSERT_EQ(DEV_SetData(dev_, 0, QUORIN_DATA_FLAT_FIELD, 0, 0, image.data(), 0, &err), 1u);
    ASSERT_EQ(DEV_GetData(dev_, 0, QUORIN_DATA_GAIN_TABLES, 2, 0, table.data(), &size, &err), 1u);
    EXPECT_EQ(table[first], 1994);
    EXPECT_EQ(table[first + 2], 997);
    EXPECT_EQ(table[first + 1], 997);
    EXPECT_EQ(table[first + 1024 + 1], 997);
}
