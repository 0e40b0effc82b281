// The tool's notation of values, its name tables and its output names,
// tested directly (no camera, no process).
#include "cli_error.h"
#include "names.h"
#include "output_names.h"
#include "tool_runner.h"
#include "values.h"

#include "quorin/quorin.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <set>

using namespace quorin::cli;

TEST(ValuesNotation, SizesAreWxHOnTheSensor)
{
    EXPECT_EQ(parseSize("512x256"), 512u << 16 | 256u);
    EXPECT_EQ(parseSize("1024X1024"), 1024u << 16 | 1024u);
    EXPECT_EQ(parseSize("1x1"), 1u << 16 | 1u);
    for (const char *bad : {"512x", "x256", "512", "0x16", "16x0", "2048x16", "16x1025", "512x256x1", " 512x256",
                            "0x10x16", "-1x5", "5x-1", "abcxdef", "512 x 256", ""})
        EXPECT_FALSE(parseSize(bad).has_value()) << bad;
    EXPECT_THROW(parseValue(Format::Size, "512x"), UsageError);
}

TEST(ValuesNotation, NumbersFitThirtyTwoBits)
{
    EXPECT_EQ(parseNumber("0"), 0u);
    EXPECT_EQ(parseNumber("0x10"), 16u);
    EXPECT_EQ(parseNumber("4294967295"), 4294967295u);
    for (const char *bad : {"4294967296", "0x100000000", "12a", "", "-1", "0x", "1.5", " 1"})
        EXPECT_FALSE(parseNumber(bad).has_value()) << bad;
}

TEST(ValuesNotation, WrittenValuesReadBackTheSame)
{
    struct Case {
        Format format;
        const char *text;
        std::uint32_t value, value2;
        const char *shown;
    };
    const Case cases[] = {
        {Format::Size, "640x480", 640u << 16 | 480u, 0, "640x480"},
        {Format::Fps, "2000", 2000, 0, "2000 fps"},
        {Format::Fps, "2000fps", 2000, 0, "2000 fps"},
        {Format::Shutter, "1/4000", 4000, 0, "1/4000 s"},
        {Format::Shutter, "4000", 4000, 0, "1/4000 s"},
        {Format::SignedOffset, "-5", 0x80000005u, 0, "-5"},
        {Format::SignedOffset, "7", 7, 0, "7"},
        {Format::LutMode, "gamma-0.7", 2, 0, "gamma-0.7 (2)"},
        {Format::LutMode, "11", 11, 0, "user (11)"},
        {Format::CameraMode, "playback", 1, 0, "playback (1)"},
        {Format::ColourTemperature, "3100K", 2, 0, "3100K (2)"},
        {Format::PixelGain, "save", 6, 0, "save (6)"},
        {Format::OnOff, "on", 1, 0, "on"},
        {Format::Trigger, "0x04000000,10", 0x04000000u, 10, "0x04000000 (frames), parameter 10"},
        {Format::Trigger, "segments-centre", 0x06000000u, 0, "0x06000000 (segments-centre), parameter 0"},
        {Format::Trigger, "0x08000004,3", 0x08000004u, 3, "0x08000004, parameter 3"},
        {Format::CameraMode, "ready-record", 4, 0, "ready-record (4)"},
        {Format::CameraMode, "recording-8", 8, 0, "record (8)"},
        {Format::TriggerCounts, "100,2", 100, 2, "count 100, ratio 2"},
        {Format::Position, "3,4", 3u << 16 | 4u, 0, "(3, 4)"},
    };
    for (const Case &c : cases) {
        const Value v = parseValue(c.format, c.text);
        EXPECT_EQ(v.value, c.value) << c.text;
        EXPECT_EQ(v.value2, c.value2) << c.text;
        EXPECT_EQ(formatValue(c.format, v.value, v.value2), c.shown) << c.text;
    }
}

TEST(ValuesNotation, MalformedValuesAreRefused)
{
    const std::pair<Format, const char *> bad[] = {
        {Format::LutMode, "7"},          {Format::LutMode, "gamma"},       {Format::CameraMode, "3"},
        {Format::OnOff, "2"},            {Format::Shutter, "1/"},          {Format::Shutter, "2/4000"},
        {Format::Trigger, "0x04000000,"}, {Format::TriggerCounts, "100,x"}, {Format::SignedOffset, "--5"},
        {Format::SignedOffset, "-2147483648"}, {Format::Fps, "fast"},     {Format::Position, "3"},
        {Format::Plain, "1e3"},
    };
    for (const auto &[format, text] : bad)
        EXPECT_THROW(parseValue(format, text), UsageError) << text;
}

TEST(ValuesNames, EveryNameAndItsNumberResolveToTheSameEntry)
{
    std::set<std::string> names;
    std::set<std::uint32_t> ids;
    for (const CapabilityName &c : capabilityNames()) {
        EXPECT_TRUE(names.insert(c.name).second) << "repeated name " << c.name;
        EXPECT_TRUE(ids.insert(c.id).second) << "repeated id " << c.id;
        EXPECT_LE(c.id, kMaxCapabilityId);
        const Access direction = (c.access & kGet) ? kGet : kSet;
        const CapabilityName byName = resolveCapability(c.name, direction);
        const CapabilityName byNumber = resolveCapability(std::to_string(c.id), direction);
        EXPECT_EQ(byName.id, c.id);
        EXPECT_STREQ(byNumber.name, c.name);
        EXPECT_EQ(byNumber.format, c.format);
        EXPECT_EQ(byNumber.subIndex, c.subIndex);
    }
    names.clear();
    ids.clear();
    for (const ListName &l : listNames()) {
        EXPECT_TRUE(names.insert(l.name).second) << "repeated name " << l.name;
        EXPECT_TRUE(ids.insert(l.id).second) << "repeated id " << l.id;
        EXPECT_STREQ(resolveList(std::to_string(l.id)).name, l.name);
        EXPECT_EQ(resolveList(l.name).id, l.id);
    }
}

// The reference page names every capability and list; the tool must take
// each of those names for its id (the Python binding checks the same page).
TEST(ValuesNames, EveryNameOfTheReferencePageResolvesToItsId)
{
    std::ifstream page(QUORIN_REFERENCE_PAGE);
    ASSERT_TRUE(page) << QUORIN_REFERENCE_PAGE;
    const std::regex row(R"(^\| (\d+) \| `([a-z0-9-]+)` \| `QUORIN_(CAP|LIST)_)");
    std::string line;
    int rows = 0;
    while (std::getline(page, line)) {
        std::smatch m;
        if (!std::regex_search(line, m, row))
            continue;
        ++rows;
        const auto id = static_cast<std::uint32_t>(std::stoul(m[1].str()));
        const std::string name = m[2].str();
        if (m[3].str() == "LIST") {
            EXPECT_NO_THROW(EXPECT_EQ(resolveList(name).id, id) << name) << name;
        } else {
            bool found = false;
            for (Access direction : {kGet, kSet})
                try {
                    EXPECT_EQ(resolveCapability(name, direction).id, id) << name;
                    found = true;
                } catch (const UsageError &) {
                }
            EXPECT_TRUE(found) << name;
        }
    }
    EXPECT_GT(rows, 100);
}

TEST(ValuesNames, TheMainCapabilitiesKeepTheirIds)
{
    EXPECT_EQ(resolveCapability("frame-rate", kGet).id, std::uint32_t{QUORIN_CAP_FRAME_RATE});
    EXPECT_EQ(resolveCapability("resolution", kSet).format, Format::Size);
    EXPECT_EQ(resolveCapability("lut-mode", kSet).id, std::uint32_t{QUORIN_CAP_LUT_MODE});
    EXPECT_EQ(resolveList("frame-rates").id, std::uint32_t{QUORIN_LIST_FRAME_RATES});
    EXPECT_EQ(resolveList("picture-sizes").format, Format::Size);
}

TEST(ValuesNames, UnknownNamesNumbersAndDirectionsAreRefused)
{
    EXPECT_THROW(resolveCapability("frame_rate", kGet), UsageError);
    EXPECT_THROW(resolveCapability("163", kGet), UsageError);
    EXPECT_THROW(resolveCapability("-1", kGet), UsageError);
    EXPECT_THROW(resolveCapability("exposure", kSet), UsageError);
    EXPECT_THROW(resolveList("42"), UsageError);
    EXPECT_THROW(resolveList("frame-rate"), UsageError);
    // Ids without a name are reachable by number, shown as plain pairs.
    const CapabilityName unnamed = resolveCapability("9", kSet);
    EXPECT_EQ(unnamed.id, 9u);
    EXPECT_EQ(unnamed.format, Format::PlainPair);
}

TEST(ValuesOutputNames, NumberedNamesAndFormats)
{
    cli_test::Workspace ws;
    const OutputPattern p = checkOutputPattern(ws.file("frames/live_%04d.png"), "", 10);
    EXPECT_EQ(p.path(7), ws.file("frames/live_0007.png"));
    EXPECT_EQ(p.path(12345), ws.file("frames/live_12345.png"));
    EXPECT_EQ(p.format, ImageFormat::Png);
    EXPECT_FALSE(cli_test::exists(ws.file("frames"))) << "folders wait until every check passed";
    // Padding as printf pads: %4d with spaces, %04d with zeros.
    EXPECT_EQ(checkOutputPattern(ws.file("x/%4d.png"), "", 2).path(1), ws.file("x/   1.png"));
    // One file for many frames: HDF5, or TIFF pages without a number field.
    EXPECT_EQ(checkOutputPattern(ws.file("rec.h5"), "", 9, true).format, ImageFormat::Hdf5);
    EXPECT_EQ(checkOutputPattern(ws.file("rec.tif"), "", 9, true).numbered, false);
    EXPECT_THROW(checkOutputPattern(ws.file("rec.h5"), "", 9), UsageError);
    EXPECT_THROW(checkOutputPattern(ws.file("rec_%d.h5"), "", 9, true), UsageError);
    EXPECT_THROW(checkOutputPattern(ws.file("rec.png"), "", 9, true), UsageError);

    EXPECT_EQ(checkOutputPattern(ws.file("a_%d.TIFF"), "", 2).format, ImageFormat::Tiff);
    EXPECT_EQ(checkOutputPattern(ws.file("a_%d.tif"), "", 2).path(3), ws.file("a_3.tif"));
    EXPECT_EQ(checkOutputPattern(ws.file("a_%d.bmp"), "tiff", 2).format, ImageFormat::Tiff);
    EXPECT_EQ(checkOutputPattern(ws.file("100%%_%d.png"), "", 2).path(1), ws.file("100%_1.png"));
    EXPECT_EQ(checkOutputPattern(ws.file("one.png"), "", 1).path(1), ws.file("one.png"));
}

TEST(ValuesOutputNames, BadPatternsAndFoldersAreRefused)
{
    cli_test::Workspace ws;
    {
        std::FILE *f = std::fopen(ws.file("plain-file").c_str(), "w");
        std::fclose(f);
    }
    EXPECT_THROW(checkOutputPattern(ws.file("one.png"), "", 2), UsageError);
    EXPECT_THROW(checkOutputPattern(ws.file("a%d_%d.png"), "", 2), UsageError);
    EXPECT_THROW(checkOutputPattern(ws.file("a_%s.png"), "", 2), UsageError);
    EXPECT_THROW(checkOutputPattern(ws.file("a_%d.bmp"), "", 2), UsageError);
    EXPECT_THROW(checkOutputPattern(ws.file("a_%d"), "", 2), UsageError);
    EXPECT_THROW(checkOutputPattern(ws.file("a_%d.png"), "jpeg", 2), UsageError);
    EXPECT_THROW(checkOutputPattern(ws.file("run%d/a.png"), "", 2), UsageError);
    EXPECT_THROW(checkOutputPattern(ws.file("plain-file/a_%d.png"), "", 2), UsageError);
    EXPECT_THROW(checkOutputFile(ws.file("plain-file/stamps.csv"), "CSV"), UsageError);
}

// The table of notations the Python binding reads with the same results.
TEST(ValuesNotation, TheSharedTableOfNotations)
{
    const std::pair<const char *, Format> formats[] = {
        {"plain", Format::Plain},       {"plain-pair", Format::PlainPair},
        {"hex", Format::Hex},           {"fps", Format::Fps},
        {"size", Format::Size},         {"size-pair", Format::SizePair},
        {"position", Format::Position}, {"shutter", Format::Shutter},
        {"us", Format::Microseconds},   {"ns", Format::Nanoseconds},
        {"on-off", Format::OnOff},      {"camera-mode", Format::CameraMode},
        {"trigger", Format::Trigger},   {"trigger-counts", Format::TriggerCounts},
        {"lut-mode", Format::LutMode},  {"colour-temperature", Format::ColourTemperature},
        {"pixel-gain", Format::PixelGain}, {"signed", Format::SignedOffset},
    };
    std::ifstream in(QUORIN_NOTATION_CASES);
    const std::regex row(R"(^([a-z-]+) \| (.*) \| (refused|(\w+) (\w+))$)");
    std::string line;
    int rows = 0;
    while (std::getline(in, line)) {
        std::smatch m;
        if (line.empty() || line[0] == '#')
            continue;
        ASSERT_TRUE(std::regex_match(line, m, row)) << line;
        const auto *f = std::find_if(std::begin(formats), std::end(formats), [&](auto &p) { return m[1] == p.first; });
        ASSERT_NE(f, std::end(formats)) << line;
        ++rows;
        if (m[3] == "refused") {
            EXPECT_THROW(parseValue(f->second, m[2].str()), UsageError) << line;
            continue;
        }
        const Value v = parseValue(f->second, m[2].str());
        EXPECT_EQ(v.value, std::stoul(m[4].str(), nullptr, 0)) << line;
        EXPECT_EQ(v.value2, std::stoul(m[5].str(), nullptr, 0)) << line;
    }
    EXPECT_GT(rows, 40);
}
