// Wire framing and the reply-code rule.
#include "link/frame.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

using namespace quorin::link;

namespace {

std::vector<std::uint8_t> encode(std::uint32_t type, std::uint16_t code, std::uint32_t p1, std::uint32_t p2)
{
    std::vector<std::uint8_t> out(frameLength(type));
    encodeFrame(type, code, p1, p2, out.data());
    return out;
}

} // namespace

TEST(Frame, TypeTwoSendsEachNumberAsLowThenHighBigEndianHalves)
{
    EXPECT_EQ(encode(2, 0x00B9, 0x00010002, 0x11223344),
              (std::vector<std::uint8_t>{0x00, 0xB9, 0x00, 0x00, 0x00, 0x02, 0x00, 0x01, 0x33, 0x44, 0x11, 0x22}));
}

TEST(Frame, OtherTypesSendBigEndianNumbers)
{
    for (std::uint32_t type : {0u, 3u, 4u, 9u, 0xFFFFFFFFu})
        EXPECT_EQ(encode(type, 0x1234, 0x11223344, 0xA0B0C0D0),
                  (std::vector<std::uint8_t>{0x12, 0x34, 0x11, 0x22, 0x33, 0x44, 0xA0, 0xB0, 0xC0, 0xD0}))
            << "type " << type;
}

TEST(Frame, DecodingReversesEncodingOnEveryType)
{
    std::mt19937 rng(7);
    for (std::uint32_t type : {2u, 3u, 4u, 5u}) {
        for (int i = 0; i < 200; ++i) {
            auto code = static_cast<std::uint16_t>(rng());
            std::uint32_t a = rng(), b = rng();
            auto bytes = encode(type, code, a, b);
            CommandReply r = decodeReply(type, bytes.data());
            ASSERT_EQ(r.code, code);
            ASSERT_EQ(r.value1, a);
            ASSERT_EQ(r.value2, b);
        }
    }
}

TEST(Frame, TypeTwoIgnoresTheSecondWordOfAReply)
{
    std::vector<std::uint8_t> bytes{0x00, 0x40, 0xAB, 0xCD, 0x00, 0x05, 0x00, 0x00, 0x00, 0x09, 0x00, 0x01};
    CommandReply r = decodeReply(2, bytes.data());
    EXPECT_EQ(r.code, 0x40);
    EXPECT_EQ(r.value1, 5u);
    EXPECT_EQ(r.value2, 0x00010009u);
}

TEST(ReplyRule, CameraAnswersCommandPlus48BelowOneHundredTwelveAndPlus16Above)
{
    const std::pair<std::uint16_t, std::uint16_t> worked[] = {{16, 64},   {17, 65},   {43, 91},   {54, 102},
                                                               {74, 122},  {79, 127},  {144, 160}, {145, 161},
                                                               {157, 173}, {185, 201}, {188, 204}, {111, 159},
                                                               {112, 128}};
    for (auto [c, r] : worked) {
        EXPECT_EQ(expectedReplyCode(c), r);
        EXPECT_TRUE(replyAccepted(ReplyRule::Command, c, r)) << c;
        EXPECT_TRUE(replyAccepted(ReplyRule::WithData, c, r)) << c;
        EXPECT_FALSE(replyAccepted(ReplyRule::Command, c, static_cast<std::uint16_t>(r + 1))) << c;
    }
    // From 112 on the mask plays no part: 200 wants 216, not (200 & 127) + 48.
    EXPECT_TRUE(replyAccepted(ReplyRule::Command, 200, 216));
}

TEST(ReplyRule, UniversalCodePassesEveryCommand)
{
    for (std::uint32_t c = 0; c < 0x10000; c += 97)
        EXPECT_TRUE(replyAccepted(ReplyRule::Command, static_cast<std::uint16_t>(c), 177));
    for (std::uint16_t c : {97, 98, 99})
        EXPECT_TRUE(replyAccepted(ReplyRule::Command, c, 177));
}

TEST(ReplyRule, CodesNinetySevenToNinetyNineAcceptOnlyTheUniversalCode)
{
    for (std::uint16_t c : {97, 98, 99}) {
        EXPECT_FALSE(replyAccepted(ReplyRule::Command, c, static_cast<std::uint16_t>(c + 48))) << c;
        EXPECT_FALSE(replyAccepted(ReplyRule::Command, c, static_cast<std::uint16_t>(c + 16))) << c;
    }
    // With a data payload only 97 and 98 are held to it; 99 wants 147.
    EXPECT_FALSE(replyAccepted(ReplyRule::WithData, 98, 114));
    EXPECT_FALSE(replyAccepted(ReplyRule::WithData, 97, 145));
    EXPECT_TRUE(replyAccepted(ReplyRule::WithData, 99, 147));
}
