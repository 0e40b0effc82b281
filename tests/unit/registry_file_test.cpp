// The registry file dialect of the Linux build.
#include "platform/platform.h"
#include "platform/registry_file.h"

#include <gtest/gtest.h>

#include <random>

using namespace quorin::platform;

namespace {

const char *const kCameraKey = "SOFTWARE\\KAVRION\\QUORIN\\CAM3\n";

RegistryValue dword(const char *name, std::uint32_t v)
{
    return {name, kRegDword, {std::uint8_t(v), std::uint8_t(v >> 8), std::uint8_t(v >> 16), std::uint8_t(v >> 24)}};
}

} // namespace

TEST(RegistryFile, WritesTheCameraKeyAndValuesAsWineDoes)
{
    RegistryDocument doc;
    RegistryFileKey &key = doc.findOrCreate(kCameraKey);
    key.set(dword("PixelGain", 10));
    key.set({"LUTUser1GainR", kRegBinary, {0, 0, 0, 0, 0, 0, 0xf0, 0x3f}});
    key.set({"Odd", 7, {1, 0xab}});
    std::string text = doc.serialise();
    EXPECT_EQ(text.rfind("WINE REGISTRY Version 2\n", 0), 0u);
    EXPECT_NE(text.find("\n[SOFTWARE\\\\KAVRION\\\\QUORIN\\\\CAM3\\n]\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\n\"PixelGain\"=dword:0000000a\n"), std::string::npos);
    EXPECT_NE(text.find("\n\"LUTUser1GainR\"=hex:00,00,00,00,00,00,f0,3f\n"), std::string::npos);
    EXPECT_NE(text.find("\n\"Odd\"=hex(7):01,ab\n"), std::string::npos);
}

TEST(RegistryFile, RoundTripKeepsNamesTypesAndBytes)
{
    RegistryDocument doc;
    RegistryFileKey &a = doc.findOrCreate(kCameraKey);
    a.set(dword("X", 0xFFFFFFFF));
    a.set({"quote\"and\\slash\ttab", kRegBinary, {}});
    RegistryFileKey &b = doc.findOrCreate(std::string("K\x01\x7f]\xe9", 5));
    b.set({"", kRegString, {'h', 'i', 0}});
    RegistryDocument back = RegistryDocument::parse(doc.serialise());
    ASSERT_EQ(back.keys().size(), 2u);
    const RegistryFileKey *k = back.find(kCameraKey);
    ASSERT_NE(k, nullptr);
    ASSERT_NE(k->find("x"), nullptr) << "names match without regard to case";
    EXPECT_EQ(k->find("X")->data, (std::vector<std::uint8_t>{0xff, 0xff, 0xff, 0xff}));
    const RegistryValue *odd = k->find("quote\"and\\slash\ttab");
    ASSERT_NE(odd, nullptr);
    EXPECT_EQ(odd->type, kRegBinary);
    EXPECT_TRUE(odd->data.empty());
    const RegistryFileKey *k2 = back.find(std::string("k\x01\x7f]\xe9", 5));
    ASSERT_NE(k2, nullptr);
    EXPECT_EQ(k2->find("")->data, (std::vector<std::uint8_t>{'h', 'i', 0}));
    EXPECT_EQ(back.serialise(), doc.serialise());
}

TEST(RegistryFile, ReadsWineFilesWithTimestampsCommentsAndWrappedHex)
{
    const char *text = "WINE REGISTRY Version 2\n"
                       ";; All keys relative to \\\\User\\\\S-1-5-21-0-0-0-1000\n"
                       "\n"
                       "#arch=win64\n"
                       "\n"
                       "[Software\\\\Kavrion\\\\Quorin\\\\CAM12\\n] 1700000000\n"
                       "#time=1d9a0c0e0f0a0b0\n"
                       "\"Blob\"=hex:01,02,\\\n"
                       "  03,04\n"
                       "\"Text\"=\"a\\\\b\"\n"
                       "@=dword:7\n";
    RegistryDocument doc = RegistryDocument::parse(text);
    const RegistryFileKey *k = doc.find("SOFTWARE\\KAVRION\\QUORIN\\CAM12\n");
    ASSERT_NE(k, nullptr);
    EXPECT_EQ(k->find("Blob")->data, (std::vector<std::uint8_t>{1, 2, 3, 4}));
    EXPECT_EQ(k->find("Text")->type, kRegString);
    EXPECT_EQ(k->find("Text")->data, (std::vector<std::uint8_t>{'a', '\\', 'b', 0}));
    EXPECT_EQ(k->find("")->data, (std::vector<std::uint8_t>{7, 0, 0, 0}));
}

TEST(RegistryFile, DamagedFilesReadAsEmpty)
{
    const char *bad[] = {
        "",
        "WINE REGISTRY Version 2",                                       // no final line feed
        "WINE REGISTRY Version 1\n[A]\n",                                // wrong header
        "WINE REGISTRY Version 2\n\"A\"=dword:1\n",                      // value outside a key
        "WINE REGISTRY Version 2\n[A\n",                                 // unterminated key
        "WINE REGISTRY Version 2\n[A]\n\"B\"=dword:123456789\n",         // nine digits
        "WINE REGISTRY Version 2\n[A]\n\"B\"=hex:0g\n",                  // not hex
        "WINE REGISTRY Version 2\n[A]\n\"B\"=hex:01,,02\n",              // empty byte
        "WINE REGISTRY Version 2\n[A]\n\"B=dword:1\n",                   // unterminated name
        "WINE REGISTRY Version 2\n[A]\n\"B\"=sz:x\n",                    // unknown type
        "WINE REGISTRY Version 2\n[A\\x]\n",                             // empty escape
        "WINE REGISTRY Version 2\n[A]\n\"B\"=hex(:01\n",                 // broken type
    };
    for (const char *text : bad)
        EXPECT_TRUE(RegistryDocument::parse(text).keys().empty()) << text;
}

TEST(RegistryFile, AnyTruncationOrByteFlipOfAFileIsHarmless)
{
    RegistryDocument doc;
    RegistryFileKey &key = doc.findOrCreate(kCameraKey);
    for (int i = 0; i < 20; ++i)
        key.set({"Value" + std::to_string(i), i % 2 ? kRegDword : kRegBinary, std::vector<std::uint8_t>(i % 9, 0x3f)});
    const std::string text = doc.serialise();
    for (std::size_t cut = 0; cut < text.size(); ++cut) {
        RegistryDocument part = RegistryDocument::parse(text.substr(0, cut));
        // A file cut at a line end is a smaller, still valid file.
        if (cut == 0 || text[cut - 1] != '\n') {
            EXPECT_TRUE(part.keys().empty()) << cut;
        }
    }
    std::mt19937 rng(42);
    for (int round = 0; round < 2000; ++round) {
        std::string mutated = text;
        for (int k = 0; k < 3; ++k)
            mutated[rng() % mutated.size()] = static_cast<char>(rng());
        RegistryDocument d = RegistryDocument::parse(mutated);
        (void)d.serialise();
    }
}
