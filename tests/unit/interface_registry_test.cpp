// Interface entries and device slots, seen from inside: reference counts,
// copies and release.
#include "link_fixture.h"

using quorin::g_state;
using testing_support::ScriptedLink;

using InterfaceRegistry = LinkTest;

TEST_F(InterfaceRegistry, SameCodeSharesOneEntryAndKeepsTheFirstCopy)
{
    ScriptedLink first(6);
    InterfaceTable second = first.table();
    second.Send = nullptr; // a different table under the same code
    second.refCount = 40;  // the host's count is only read at the first copy

    std::uint32_t a = 99, b = 99;
    std::int32_t err = 0;
    ASSERT_EQ(DEV_OpenDevice(6, &first.table(), 1, &a, &err), 1);
    ASSERT_EQ(DEV_OpenDevice(6, &second, 2, &b, &err), 1);
    EXPECT_EQ(a, 0u);
    EXPECT_EQ(b, 1u);
    EXPECT_EQ(g_state.devices[a].interfaceIndex, g_state.devices[b].interfaceIndex);
    const InterfaceTable &entry = g_state.interfaces[g_state.devices[a].interfaceIndex];
    EXPECT_EQ(entry.refCount, 2);
    EXPECT_NE(entry.Send, nullptr) << "the second table was not copied";
    EXPECT_EQ(first.opens, 2);

    ASSERT_EQ(DEV_CloseDevice(a, &err), 1);
    EXPECT_EQ(entry.refCount, 1);
    EXPECT_NE(entry.inUseWord, 0u);
    ASSERT_EQ(DEV_CloseDevice(b, &err), 1);
    EXPECT_EQ(entry.inUseWord, 0u) << "cleared with the last device";
    EXPECT_EQ(entry.type, 0u);
}

TEST_F(InterfaceRegistry, HostRefCountIsTheStartingPoint)
{
    ScriptedLink link(6);
    link.table().refCount = 3;
    std::uint32_t dev = open(link.table());
    const InterfaceTable &entry = g_state.interfaces[g_state.devices[dev].interfaceIndex];
    EXPECT_EQ(entry.refCount, 4);
    std::int32_t err = 0;
    DEV_CloseDevice(dev, &err);
    EXPECT_EQ(entry.refCount, 3) << "still at or above 1: the entry stays";
    EXPECT_NE(entry.inUseWord, 0u);
}

TEST_F(InterfaceRegistry, OpenFillsTheRecordHead)
{
    ScriptedLink link(4);
    link.handleToGive = 0xABCD;
    std::uint32_t dev = 99;
    std::int32_t err = 0;
    ASSERT_EQ(DEV_OpenDevice(4, &link.table(), 0x1234, &dev, &err), 1);
    const quorin::DeviceRecord &rec = g_state.devices[dev];
    EXPECT_EQ(rec.inUse, 1u);
    EXPECT_EQ(rec.linkHandle, 0xABCDu);
    EXPECT_EQ(rec.hostDeviceArg, 0x1234u);
    EXPECT_EQ(rec.interfaceCode, 4u);
    EXPECT_EQ(link.lastOpenArg, 0x1234u);
    EXPECT_EQ(rec.kernelVariant, 0x80000000u);
    EXPECT_EQ(g_state.openCount, 1);
    ASSERT_NE(g_state.buffers.freeLut[2][dev], nullptr);
    EXPECT_EQ(g_state.buffers.freeLut[2][dev][1023], 1023);
    DEV_CloseDevice(dev, &err);
    EXPECT_EQ(g_state.openCount, 0);
    EXPECT_EQ(g_state.buffers.rawFrameBuffer[dev], nullptr);
    EXPECT_EQ(g_state.buffers.freeLut[2][dev], nullptr);
    EXPECT_EQ(g_state.devices[dev].inUse, 0u);
}

TEST_F(InterfaceRegistry, CodeZeroTakesAFreeZeroedEntry)
{
    ScriptedLink link(0);
    std::uint32_t dev = open(link.table());
    EXPECT_EQ(g_state.interfaces[0].Open, link.table().Open) << "the table was copied into the free entry";
    EXPECT_EQ(g_state.devices[dev].interfaceIndex, 0u);
}

TEST_F(InterfaceRegistry, CloseSendsThePowerCommandAndClosesTheLink)
{
    for (std::uint32_t power : {0u, 1u, 2u}) {
        ScriptedLink link(3);
        std::uint32_t dev = open(link.table());
        g_state.devices[dev].powerMode = power;
        link.receiveQueue.push_back(replyFrame(3, 160, 0, 0));
        std::int32_t err = 0;
        ASSERT_EQ(DEV_CloseDevice(dev, &err), 1);
        EXPECT_EQ(err, QUORIN_SUCCESS);
        ASSERT_EQ(link.sent.size(), 1u);
        EXPECT_EQ(link.sent[0], (std::vector<std::uint8_t>{0, 144, 0, 0, 0, std::uint8_t(power == 1 ? 1 : 0), 0, 0, 0, 0}));
        EXPECT_EQ(link.closes, 1);
    }
}

TEST_F(InterfaceRegistry, CloseGoesOnWhenTheCameraIsGone)
{
    ScriptedLink link(2);
    std::uint32_t dev = open(link.table());
    link.receiveResults = {false, false, false};
    std::int32_t err = 0;
    EXPECT_EQ(DEV_CloseDevice(dev, &err), 1);
    EXPECT_EQ(err, QUORIN_ERR_LINK_RETRIES) << "the failed command's code stays";
    EXPECT_EQ(link.closes, 1);
    EXPECT_EQ(g_state.devices[dev].inUse, 0u);
}
