// Block receive and send, the type-3 transfer wait and the type-4 data
// transaction.
#include "link/block_transfer.h"

#include "link/transaction.h"
#include "link_fixture.h"
#include "vcam/vcam.h"

#include <algorithm>

using namespace quorin::link;
using testing_support::ScriptedLink;
using testing_support::VirtualCamera;

using BlockTransfer = LinkTest;

TEST_F(BlockTransfer, ReceiveRecoversAfterOneFailureWithOneReset)
{
    ScriptedLink link(2);
    std::uint32_t dev = open(link.table());
    link.receiveResults = {false};
    link.receiveQueue.push_back({9, 8, 7});
    std::uint8_t buf[3] = {};
    std::int32_t err = -1;
    EXPECT_EQ(receiveBlock(dev, 3, buf, &err), 1u);
    EXPECT_EQ(err, link.failCode) << "success writes nothing over the failed try's code";
    EXPECT_EQ(link.resets, 1);
    EXPECT_EQ(buf[0], 9);
    EXPECT_TRUE(link.sent.empty()) << "no command is sent";
}

TEST_F(BlockTransfer, ReceiveGivesUpAfterThreeFailures)
{
    ScriptedLink link(3);
    std::uint32_t dev = open(link.table());
    link.receiveResults = {false, false, false};
    std::uint8_t buf[4];
    std::int32_t err = 0;
    EXPECT_EQ(receiveBlock(dev, 4, buf, &err), 0u);
    EXPECT_EQ(err, QUORIN_ERR_LINK_RETRIES);
    EXPECT_EQ(link.resets, 3);
    EXPECT_EQ(link.receiveLengths, (std::vector<std::uint32_t>{4, 4, 4}));
}

TEST_F(BlockTransfer, SendAlwaysSendsOneKilobyte)
{
    ScriptedLink link(3);
    std::uint32_t dev = open(link.table());
    std::vector<std::uint8_t> data(3072, 0x5A);
    std::int32_t err = 0;
    link.sendResults = {false};
    EXPECT_EQ(sendBlock1024(dev, data.data(), &err), 1u);
    ASSERT_EQ(link.sent.size(), 2u);
    EXPECT_EQ(link.sent[0].size(), 1024u);
    EXPECT_EQ(link.sent[1].size(), 1024u);
    EXPECT_EQ(link.resets, 1);
}

TEST_F(BlockTransfer, CompleteTransferWaitsOnlyOnTypeThree)
{
    for (std::uint32_t type : {2u, 4u, 7u}) {
        ScriptedLink link(type);
        std::uint32_t dev = open(link.table());
        std::int32_t err = 1234;
        EXPECT_EQ(completeTransfer(dev, &err), 0u);
        EXPECT_EQ(err, 1234);
        EXPECT_EQ(link.awaits, 0);
        DEV_CloseDevice(dev, &err);
    }
    ScriptedLink link(3);
    std::uint32_t dev = open(link.table());
    std::int32_t err = 0;
    EXPECT_EQ(completeTransfer(dev, &err), 1u);
    EXPECT_EQ(link.awaits, 1);
}

TEST_F(BlockTransfer, TransactDataOnlyOnTypeFour)
{
    ScriptedLink link(3);
    std::uint32_t dev = open(link.table());
    CameraCommand cmd{185, 0, 1};
    CommandReply reply{};
    std::uint8_t data[16];
    std::int32_t err = 1234;
    EXPECT_EQ(transactData(dev, &cmd, &reply, 16, data, &err), 0u);
    EXPECT_EQ(err, 1234);
    EXPECT_TRUE(link.sent.empty());
    EXPECT_EQ(link.transactDatas, 0);
}

TEST_F(BlockTransfer, TransactDataFramesBigEndianAndSkipsTheReplyCheck)
{
    ScriptedLink link(4);
    std::uint32_t dev = open(link.table());
    link.transactReply = replyFrame(4, 1, 0x10, 0x20);
    CameraCommand cmd{185, 0x01020304, 1};
    CommandReply reply{};
    std::uint8_t data[16];
    std::int32_t err = 0;
    EXPECT_EQ(transactData(dev, &cmd, &reply, 16, data, &err), 1u);
    EXPECT_EQ(reply.code, 1);
    EXPECT_EQ(reply.value1, 0x10u);
    ASSERT_EQ(link.sent.size(), 1u);
    EXPECT_EQ(link.sent[0], (std::vector<std::uint8_t>{0, 185, 1, 2, 3, 4, 0, 0, 0, 1}));
}

// The calibration image of a virtual camera arrives the same way whichever
// path the link type takes.
TEST_F(BlockTransfer, VirtualCameraDeliversBulkDataPerLinkType)
{
    constexpr std::uint32_t kBytes = 0x140000;
    std::vector<std::uint8_t> reference;
    for (std::uint32_t type : {2u, 3u, 4u, 5u}) {
        VirtualCamera cam(VCAM_K5, type);
        std::uint32_t dev = open(*cam.table(), cam.hostArg());
        std::vector<std::uint8_t> buf(kBytes, 0xEE);
        CameraCommand cmd{185, 0, 1};
        CommandReply reply{};
        std::int32_t err = 0;
        if (type == 4) {
            ASSERT_EQ(transactData(dev, &cmd, &reply, kBytes, buf.data(), &err), 1u);
        } else {
            ASSERT_EQ(sendCommand(dev, &cmd, &reply, &err), 1u) << "type " << type;
            ASSERT_EQ(receiveBlock(dev, kBytes, buf.data(), &err), 1u) << "type " << type;
        }
        EXPECT_EQ(reply.code, 201);
        if (reference.empty())
            reference = buf;
        EXPECT_EQ(buf, reference) << "type " << type;
        DEV_CloseDevice(dev, &err);
    }
    // Dark frame: small positive offsets, packed.
    EXPECT_NE(reference[0], 0xEE);
}

TEST_F(BlockTransfer, VirtualCameraFillsTheArmedBufferAfterTheAnnounce)
{
    VirtualCamera cam(VCAM_K5C, 3);
    std::uint32_t dev = open(*cam.table(), cam.hostArg());
    constexpr std::uint32_t kBytes = 0x140000;
    std::vector<std::uint8_t> buf(kBytes, 0);
    const InterfaceTable &entry = quorin::deviceInterface(dev);
    std::uint32_t a = 0, b = 0;
    std::int32_t err = 0;
    ASSERT_EQ(entry.armTransfer(quorin::device(dev).linkHandle, buf.data(), kBytes, &a, &b, &err), 1);
    CameraCommand announce{188, a << 16 | b, kBytes};
    CommandReply reply{};
    ASSERT_EQ(sendCommand(dev, &announce, &reply, &err), 1u);
    EXPECT_EQ(reply.code, 204);
    CameraCommand image{183, 0, 0x00010000}; // a live frame of the full sensor
    ASSERT_EQ(sendCommand(dev, &image, &reply, &err), 1u);
    EXPECT_EQ(completeTransfer(dev, &err), 1u);
    EXPECT_NE(std::count(buf.begin(), buf.end(), 0), static_cast<std::ptrdiff_t>(buf.size()));

    // Without a matching announce the armed read never completes.
    ASSERT_EQ(entry.armTransfer(quorin::device(dev).linkHandle, buf.data(), kBytes, &a, &b, &err), 1);
    CameraCommand wrong{188, (a << 16 | b) + 1, kBytes};
    ASSERT_EQ(sendCommand(dev, &wrong, &reply, &err), 1u);
    ASSERT_EQ(sendCommand(dev, &image, &reply, &err), 1u);
    EXPECT_EQ(completeTransfer(dev, &err), 0u);
    EXPECT_EQ(err, VCAM_ERR_TIMEOUT);
}
