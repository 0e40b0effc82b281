// Command transactions over scripted links and the virtual camera.
#include "link/transaction.h"

#include "link_fixture.h"
#include "vcam/vcam.h"

#include <chrono>

using quorin::link::sendCommand;
using quorin::link::sendCommandWithData;
using testing_support::ScriptedLink;
using testing_support::VirtualCamera;

namespace {

struct Outcome {
    std::uint32_t result;
    std::int32_t err;
    CommandReply reply;
};

Outcome run(std::uint32_t deviceNo, CameraCommand cmd)
{
    Outcome o{0, -1, CommandReply{0xEEEE, 0xEEEEEEEE, 0xEEEEEEEE}};
    o.result = sendCommand(deviceNo, &cmd, &o.reply, &o.err);
    return o;
}

Outcome runWithData(std::uint32_t deviceNo, CameraCommand cmd, const std::vector<std::uint8_t> &payload)
{
    Outcome o{0, -1, CommandReply{0xEEEE, 0xEEEEEEEE, 0xEEEEEEEE}};
    o.result = sendCommandWithData(deviceNo, &cmd, &o.reply, payload.data(),
                                   static_cast<std::uint32_t>(payload.size()), &o.err);
    return o;
}

} // namespace

using Transaction = LinkTest;

TEST_F(Transaction, SendsOneFrameAndDecodesTheReplyOnEachFramedType)
{
    for (std::uint32_t type : {2u, 3u, 6u}) {
        ScriptedLink link(type);
        std::uint32_t dev = open(link.table());
        link.receiveQueue.push_back(replyFrame(type, 91, 0x01020304, 7));
        Outcome o = run(dev, {43, 0x00010002, 0x11223344});
        EXPECT_EQ(o.result, 1u);
        EXPECT_EQ(o.err, -1) << "an ordinary success writes nothing";
        EXPECT_EQ(o.reply.code, 91);
        EXPECT_EQ(o.reply.value1, 0x01020304u);
        EXPECT_EQ(o.reply.value2, 7u);
        ASSERT_EQ(link.sent.size(), 1u);
        EXPECT_EQ(link.sent[0].size(), type == 2 ? 12u : 10u);
        EXPECT_EQ(link.receiveLengths, std::vector<std::uint32_t>{type == 2 ? 12u : 10u});
        EXPECT_EQ(link.lastHandle, link.handleToGive) << "the library passes the handle Open gave";
        if (type == 2) {
            EXPECT_EQ(std::vector<std::uint8_t>(link.sent[0].begin() + 4, link.sent[0].begin() + 8),
                      (std::vector<std::uint8_t>{0x00, 0x02, 0x00, 0x01}));
        }
        std::int32_t err;
        DEV_CloseDevice(dev, &err);
    }
}

TEST_F(Transaction, ReceiveFailuresAreRetriedThreeTimesWithResetsThenNine)
{
    ScriptedLink link(2);
    std::uint32_t dev = open(link.table());
    link.receiveResults = {false, false, false};
    Outcome o = run(dev, {16, 0, 0});
    EXPECT_EQ(o.result, 0u);
    EXPECT_EQ(o.err, QUORIN_ERR_LINK_RETRIES);
    EXPECT_EQ(link.sent.size(), 3u);
    EXPECT_EQ(link.resets, 3) << "the third failure is reset too before 9 is written";
}

TEST_F(Transaction, SendFailureSkipsTheReceiveAndRecoversOnTheNextTry)
{
    ScriptedLink link(3);
    std::uint32_t dev = open(link.table());
    link.sendResults = {false};
    link.receiveQueue.push_back(replyFrame(3, 65, 0, 120));
    Outcome o = run(dev, {17, 0, 0});
    EXPECT_EQ(o.result, 1u);
    EXPECT_EQ(o.reply.value2, 120u);
    EXPECT_EQ(link.sent.size(), 2u);
    EXPECT_EQ(link.receiveLengths.size(), 1u);
    EXPECT_EQ(link.resets, 1);
}

TEST_F(Transaction, FailedResetEndsAtOnceWithTheHostsCode)
{
    ScriptedLink link(2);
    std::uint32_t dev = open(link.table());
    link.receiveResults = {false};
    link.resetResults = {false};
    link.failCode = 4242;
    Outcome o = run(dev, {16, 0, 0});
    EXPECT_EQ(o.result, 0u);
    EXPECT_EQ(o.err, 4242);
    EXPECT_EQ(link.sent.size(), 1u);
}

TEST_F(Transaction, ReplyCodeMismatchIs203AndLeavesTheReplyUntouched)
{
    ScriptedLink link(3);
    std::uint32_t dev = open(link.table());
    link.receiveQueue.push_back(replyFrame(3, 65, 1, 2)); // the answer to 17, not 16
    Outcome o = run(dev, {16, 0, 0});
    EXPECT_EQ(o.result, 0u);
    EXPECT_EQ(o.err, QUORIN_ERR_REPLY_MISMATCH);
    EXPECT_EQ(o.reply.code, 0xEEEE);
    EXPECT_EQ(o.reply.value1, 0xEEEEEEEEu);
    EXPECT_EQ(link.sent.size(), 1u) << "a mismatch is not retried";
}

TEST_F(Transaction, TypeFourRunsOneTransactWithoutRetryOrReplyCheck)
{
    ScriptedLink link(4);
    std::uint32_t dev = open(link.table());
    link.transactReply = replyFrame(4, 999, 5, 6);
    Outcome o = run(dev, {16, 1, 2});
    EXPECT_EQ(o.result, 1u);
    EXPECT_EQ(o.reply.code, 999);
    EXPECT_EQ(o.reply.value1, 5u);
    EXPECT_EQ(link.transacts, 1);
    EXPECT_TRUE(link.receiveLengths.empty());

    link.transactResult = false;
    link.failCode = 31337;
    o = run(dev, {16, 1, 2});
    EXPECT_EQ(o.result, 0u);
    EXPECT_EQ(o.err, 31337);
    EXPECT_EQ(link.transacts, 2);
    EXPECT_EQ(link.resets, 0);
}

TEST_F(Transaction, TypeThreeCommandsThatTheCameraDoesNotAnswer)
{
    ScriptedLink link(3);
    std::uint32_t dev = open(link.table());
    for (std::uint32_t p1 : {2u, 3u}) {
        Outcome o = run(dev, {145, p1, 0});
        EXPECT_EQ(o.result, 1u);
        EXPECT_EQ(o.err, QUORIN_SUCCESS);
        EXPECT_EQ(o.reply.code, 0xEEEE);
    }
    EXPECT_EQ(link.sent.size(), 2u);
    EXPECT_TRUE(link.receiveLengths.empty());

    link.receiveQueue.push_back(replyFrame(3, 161, 0, 0));
    EXPECT_EQ(run(dev, {145, 1, 0}).result, 1u);
    EXPECT_EQ(link.receiveLengths.size(), 1u) << "other parameters are answered";

    auto start = std::chrono::steady_clock::now();
    Outcome o = run(dev, {157, 0, 0});
    auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(o.result, 1u);
    EXPECT_EQ(o.err, QUORIN_SUCCESS);
    EXPECT_EQ(link.receiveLengths.size(), 1u);
    EXPECT_GE(waited, std::chrono::milliseconds(1000));
}

TEST_F(Transaction, OnlyTypeThreeSkipsTheReplyOfCommand145)
{
    ScriptedLink link(2);
    std::uint32_t dev = open(link.table());
    link.receiveQueue.push_back(replyFrame(2, 161, 0, 0));
    EXPECT_EQ(run(dev, {145, 2, 0}).result, 1u);
    EXPECT_EQ(link.receiveLengths.size(), 1u);
}

TEST_F(Transaction, DataCommandSendsTheHeadThenThePayloadWithoutParameters)
{
    const std::vector<std::uint8_t> payload{1, 2, 3, 4, 5};
    for (std::uint32_t type : {2u, 4u, 8u}) {
        ScriptedLink link(type);
        std::uint32_t dev = open(link.table());
        link.receiveQueue.push_back(replyFrame(type, 203, 9, 8));
        Outcome o = runWithData(dev, {187, 0xAAAAAAAA, 0xBBBBBBBB}, payload);
        EXPECT_EQ(o.result, 1u);
        EXPECT_EQ(o.reply.value1, 9u);
        ASSERT_EQ(link.sent.size(), 1u);
        std::vector<std::uint8_t> expected = type == 2 ? std::vector<std::uint8_t>{0x00, 0xBB, 0x00, 0x00}
                                                       : std::vector<std::uint8_t>{0x00, 0xBB};
        expected.insert(expected.end(), payload.begin(), payload.end());
        EXPECT_EQ(link.sent[0], expected) << "type " << type;
        EXPECT_EQ(link.transacts, 0) << "type 4 goes through Send and Receive here";
        std::int32_t err;
        DEV_CloseDevice(dev, &err);
    }
}

TEST_F(Transaction, DataCommandRetriesAndReportsNine)
{
    ScriptedLink link(3);
    std::uint32_t dev = open(link.table());
    link.sendResults = {false, false, false};
    Outcome o = runWithData(dev, {187, 0, 0}, std::vector<std::uint8_t>(1024, 7));
    EXPECT_EQ(o.result, 0u);
    EXPECT_EQ(o.err, QUORIN_ERR_LINK_RETRIES);
    EXPECT_EQ(link.resets, 3);
}

TEST_F(Transaction, ReplyRulesDifferForCode99BetweenTheTwoTransactions)
{
    ScriptedLink link(3);
    std::uint32_t dev = open(link.table());
    struct Case {
        std::uint16_t command, reply;
        bool plain, withData;
    } cases[] = {{98, 114, false, false}, {99, 147, false, true}, {98, 177, true, true}, {16, 177, true, true}};
    for (const Case &c : cases) {
        link.receiveQueue.push_back(replyFrame(3, c.reply, 1, 1));
        Outcome plain = run(dev, {c.command, 0, 0});
        EXPECT_EQ(plain.result, c.plain ? 1u : 0u) << c.command << "/" << c.reply;
        if (!c.plain) {
            EXPECT_EQ(plain.err, QUORIN_ERR_REPLY_MISMATCH);
        }
        link.receiveQueue.push_back(replyFrame(3, c.reply, 1, 1));
        Outcome data = runWithData(dev, {c.command, 0, 0}, {1});
        EXPECT_EQ(data.result, c.withData ? 1u : 0u) << c.command << "/" << c.reply;
    }
}

TEST_F(Transaction, MissingHostFunctionsAreRefusedNotCalled)
{
    ScriptedLink link(2);
    link.table().Reset = nullptr;
    std::uint32_t dev = open(link.table());
    link.receiveResults = {false};
    Outcome o = run(dev, {16, 0, 0});
    EXPECT_EQ(o.result, 0u);
    EXPECT_EQ(o.err, QUORIN_ERR_NOT_SUPPORTED);
}

TEST_F(Transaction, VirtualCameraAnswersOnEveryLinkType)
{
    for (std::uint32_t type : {2u, 3u, 4u, 11u}) {
        VcamConfig cfg;
        vcam_default_config(&cfg, VCAM_K5C, type);
        cfg.firmwareVersion = 0x12345678;
        VirtualCamera cam(cfg);
        std::uint32_t dev = open(*cam.table(), cam.hostArg());
        vcam_trace_clear(cam.get());
        Outcome o = run(dev, {17, 0xCAFEBABE, 0x01020304});
        EXPECT_EQ(o.result, 1u) << "type " << type;
        EXPECT_EQ(o.reply.code, 65);
        EXPECT_EQ(o.reply.value2, 0x12345678u);
        CameraCommand seen[8];
        std::size_t n = vcam_commands(cam.get(), seen, 8);
        ASSERT_EQ(n, 1u);
        EXPECT_EQ(seen[n - 1].code, 17);
        EXPECT_EQ(seen[n - 1].p1, 0xCAFEBABEu) << "type " << type;
        EXPECT_EQ(seen[n - 1].p2, 0x01020304u);
        std::int32_t err;
        DEV_CloseDevice(dev, &err);
    }
}

TEST_F(Transaction, VirtualCameraFaultsDriveTheRetryLoop)
{
    VirtualCamera cam(VCAM_K5, 2);
    std::uint32_t dev = open(*cam.table(), cam.hostArg());
    vcam_trace_clear(cam.get());
    vcam_fail_calls(cam.get(), VCAM_CALL_RECEIVE, 1, 2, 0);
    Outcome o = run(dev, {43, 0, 0});
    EXPECT_EQ(o.result, 1u);
    EXPECT_EQ(o.reply.value1, 1u);
    EXPECT_EQ(cam.calls(VCAM_CALL_SEND), 3u);
    EXPECT_EQ(cam.calls(VCAM_CALL_RESET), 2u);

    vcam_override_reply_code(cam.get(), 43, 92);
    o = run(dev, {43, 0, 0});
    EXPECT_EQ(o.err, QUORIN_ERR_REPLY_MISMATCH);
}

TEST_F(Transaction, CommandsWithoutAReplyNeedNoReceiveFunction)
{
    ScriptedLink link(3);
    link.table().Receive = nullptr;
    std::uint32_t dev = open(link.table());
    EXPECT_EQ(run(dev, {145, 2, 0}).result, 1u);
    Outcome o = run(dev, {145, 1, 0});
    EXPECT_EQ(o.result, 0u);
    EXPECT_EQ(o.err, QUORIN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(link.sent.size(), 1u) << "nothing is sent when the reply could not be read";
}

TEST_F(Transaction, AHostRefCountAtTheTopWrapsInsteadOfOverflowing)
{
    ScriptedLink link(6);
    link.table().refCount = 0x7FFFFFFF;
    std::uint32_t dev = open(link.table());
    EXPECT_EQ(quorin::deviceInterface(dev).refCount, static_cast<std::int32_t>(0x80000000u));
}
