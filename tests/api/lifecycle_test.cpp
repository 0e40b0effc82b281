// The lifecycle exports of the shipped library, driven like a host drives
// them, with the virtual camera as the link.
#include "quorin/quorin.h"
#include "support/scripted_link.h"
#include "support/temp_env.h"
#include "vcam/vcam.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

using testing_support::ScriptedLink;
using testing_support::VirtualCamera;

class Lifecycle : public ::testing::Test {
protected:
    void SetUp() override { DEV_Init(&err_); }
    void TearDown() override
    {
        for (std::uint32_t d = 0; d < QUORIN_MAX_DEVICES; ++d)
            DEV_CloseDevice(d, &err_);
        DEV_Exit(&err_);
    }
    std::int32_t err_ = 0;
    testing_support::TempHome home_;
};

TEST(LifecycleUninitialised, EveryExportButInitAndExitAnswersTwo)
{
    std::int32_t err = 0;
    DEV_Exit(&err);
    EXPECT_EQ(err, QUORIN_SUCCESS);
    VirtualCamera cam(VCAM_K5, 2);
    std::uint32_t dev = 0;
    EXPECT_EQ(DEV_OpenDevice(2, cam.table(), cam.hostArg(), &dev, &err), 0);
    EXPECT_EQ(err, QUORIN_ERR_NOT_INITIALISED);
    EXPECT_EQ(cam.calls(VCAM_CALL_OPEN), 0u);

    std::uint32_t u = 0;
    std::uint8_t buf[16];
    auto check = [&](int result) {
        EXPECT_EQ(result, 0);
        EXPECT_EQ(err, QUORIN_ERR_NOT_INITIALISED);
        err = 0;
    };
    check(DEV_CloseDevice(0, &err));
    check(DEV_GetDeviceCaps(0, 0, 2, 0, &u, &u, &err));
    check(DEV_GetDeviceName(0, 0, reinterpret_cast<char *>(buf), &err));
    check(DEV_SetDeviceCaps(0, 0, 2, 0, 0, 0, &err));
    check(DEV_GetList(0, 0, 1, 0, &u, &u, &err));
    check(static_cast<int>(DEV_GetData(0, 0, 0, 0, 1, buf, &u, &err)));
    check(static_cast<int>(DEV_SetData(0, 0, 3, 0, 0, buf, 0, &err)));
    check(static_cast<int>(DEV_SetList(0, 0, 18, 0, &u, 0, &u, &err)));
    check(DEV_TransferLiveImage(0, 0, 8, buf, &err));
    check(DEV_TransferMemImage(0, 0, 0, 8, buf, &err));
    check(DEV_TransferMemImageStart(0, 0, 0, 0, 0, &err));
    check(DEV_TransferMemImageEnd(0, 0, 8, buf, &err));
    std::uint32_t uerr = 0;
    EXPECT_EQ(DEV_TransferLiveImageCache(0, 0, buf, &uerr), 0);
    EXPECT_EQ(uerr, static_cast<std::uint32_t>(QUORIN_ERR_NOT_INITIALISED));
}

TEST_F(Lifecycle, OpensAndClosesOnEveryLinkType)
{
    for (std::uint32_t type : {2u, 3u, 4u, 9u}) {
        VirtualCamera cam(VCAM_K5C, type);
        std::int32_t err = 0;
        std::uint32_t dev = testing_support::openCamera(cam, &err);
        EXPECT_EQ(dev, 0u);
        EXPECT_EQ(err, QUORIN_SUCCESS);
        EXPECT_EQ(DEV_CloseDevice(dev, &err), 1);
        EXPECT_EQ(err, QUORIN_SUCCESS) << "type " << type;
        EXPECT_EQ(cam.calls(VCAM_CALL_CLOSE), 1u);
        // The slot and the entry are free again.
        EXPECT_EQ(DEV_CloseDevice(dev, &err), 0);
        EXPECT_EQ(err, QUORIN_ERR_NOT_OPEN);
    }
}

TEST_F(Lifecycle, ClosingASlotThatIsNotOpenSendsNothing)
{
    VirtualCamera cam(VCAM_K5, 3);
    std::uint32_t dev = testing_support::openCamera(cam);
    vcam_trace_clear(cam.get());
    for (std::uint32_t bad : {dev + 1, 63u, 64u, 1000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(DEV_CloseDevice(bad, &err_), 0);
        EXPECT_EQ(err_, QUORIN_ERR_NOT_OPEN) << bad;
    }
    EXPECT_EQ(vcam_trace_size(cam.get()), 0u);
}

TEST_F(Lifecycle, TheFirstTableOfACodeServesLaterOpensUntilTheLastClose)
{
    ScriptedLink first(6);
    std::uint32_t a = 0, b = 0, c = 0;
    ASSERT_EQ(DEV_OpenDevice(6, &first.table(), 1, &a, &err_), 1);
    {
        ScriptedLink second(6); // becomes the active script, but its table is not used
        ScriptedLink::active = &first;
        ASSERT_EQ(DEV_OpenDevice(6, &second.table(), 2, &b, &err_), 1);
        EXPECT_EQ(first.opens, 2);
        EXPECT_EQ(first.lastOpenArg, 2u);
        ScriptedLink::active = &first;
    }
    ASSERT_EQ(DEV_CloseDevice(a, &err_), 1);
    ASSERT_EQ(DEV_CloseDevice(b, &err_), 1);
    EXPECT_EQ(first.closes, 2);
    // Both closed: a new table with the same code is copied and used.
    ScriptedLink third(6);
    ASSERT_EQ(DEV_OpenDevice(6, &third.table(), 3, &c, &err_), 1);
    EXPECT_EQ(third.opens, 1);
    DEV_CloseDevice(c, &err_);
}

TEST_F(Lifecycle, TenCodesFillTheRegistryAndAnEleventhIsRefused)
{
    std::vector<std::unique_ptr<VirtualCamera>> cams;
    std::vector<std::uint32_t> devs;
    for (std::uint32_t code = 20; code < 30; ++code) {
        cams.push_back(std::make_unique<VirtualCamera>(VCAM_K5, code));
        vcam_fail_calls(cams.back()->get(), VCAM_CALL_RECEIVE, 1, 0, 0); // a quick, failing start-up
        devs.push_back(testing_support::openCamera(*cams.back()));
    }
    VirtualCamera extra(VCAM_K5, 30);
    std::uint32_t dev = 77;
    EXPECT_EQ(DEV_OpenDevice(30, extra.table(), extra.hostArg(), &dev, &err_), 0);
    EXPECT_EQ(err_, QUORIN_ERR_NO_FREE_ENTRY);
    EXPECT_EQ(extra.calls(VCAM_CALL_OPEN), 0u);
    EXPECT_EQ(dev, 77u);
    // Closing one frees its entry for the new code.
    DEV_CloseDevice(devs[4], &err_);
    EXPECT_EQ(DEV_OpenDevice(30, extra.table(), extra.hostArg(), &dev, &err_), 1);
    EXPECT_EQ(dev, devs[4]);
}

TEST_F(Lifecycle, SixtyFourSlotsThenTheCallersNumberDecides)
{
    // A camera that never answers: each open takes its slot at once (the
    // start-up fails, the open does not).
    VirtualCamera cam(VCAM_K5, 4);
    vcam_fail_calls(cam.get(), VCAM_CALL_TRANSACT, 1, 0, 0);
    vcam_fail_calls(cam.get(), VCAM_CALL_TRANSACT_DATA, 1, 0, 0);
    for (std::uint32_t i = 0; i < 64; ++i)
        EXPECT_EQ(testing_support::openCamera(cam), i);
    std::uint32_t opens = cam.calls(VCAM_CALL_OPEN);

    std::uint32_t dev = 64;
    EXPECT_EQ(DEV_OpenDevice(4, cam.table(), cam.hostArg(), &dev, &err_), 0);
    EXPECT_EQ(err_, QUORIN_ERR_NO_FREE_ENTRY);
    EXPECT_EQ(cam.calls(VCAM_CALL_OPEN), opens + 1) << "the link was opened and is left open";
    EXPECT_EQ(cam.calls(VCAM_CALL_CLOSE), 0u);

    // A number below 64 left in place reuses that slot.
    dev = 5;
    EXPECT_EQ(DEV_OpenDevice(4, cam.table(), cam.hostArg(), &dev, &err_), 1);
    EXPECT_EQ(dev, 5u);
}

TEST_F(Lifecycle, FailedHostOpenPassesTheHostsCodeUp)
{
    VirtualCamera cam(VCAM_K5C, 2);
    vcam_fail_calls(cam.get(), VCAM_CALL_OPEN, 1, 1, 5555);
    std::uint32_t dev = 0;
    EXPECT_EQ(DEV_OpenDevice(2, cam.table(), cam.hostArg(), &dev, &err_), 0);
    EXPECT_EQ(err_, 5555);
    EXPECT_EQ(testing_support::openCamera(cam), 0u) << "the entry is usable afterwards";
}

TEST_F(Lifecycle, NullPointersFromTheHostAreRefusedNotFollowed)
{
    VirtualCamera cam(VCAM_K5, 2);
    EXPECT_EQ(DEV_OpenDevice(2, nullptr, cam.hostArg(), nullptr, &err_), 0);
    EXPECT_EQ(err_, QUORIN_ERR_OUT_OF_RANGE);
    std::uint32_t dev = 0;
    EXPECT_EQ(DEV_OpenDevice(2, nullptr, cam.hostArg(), &dev, &err_), 0);
    EXPECT_EQ(err_, QUORIN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(DEV_OpenDevice(2, cam.table(), cam.hostArg(), &dev, nullptr), 1);
    EXPECT_EQ(DEV_CloseDevice(dev, nullptr), 1);
}

TEST_F(Lifecycle, ExitThenInitStartsAfresh)
{
    // A code of its own: the entry outlives this test.
    VirtualCamera cam(VCAM_K5, 40);
    std::uint32_t dev = testing_support::openCamera(cam);
    DEV_Exit(&err_);
    EXPECT_EQ(DEV_CloseDevice(dev, &err_), 0);
    EXPECT_EQ(err_, QUORIN_ERR_NOT_INITIALISED);
    DEV_Exit(&err_); // a second exit is harmless
    DEV_Init(&err_);
    // Init forgets the open device but not the interface entry.
    EXPECT_EQ(DEV_CloseDevice(dev, &err_), 0);
    EXPECT_EQ(err_, QUORIN_ERR_NOT_OPEN);
    EXPECT_EQ(testing_support::openCamera(cam), 0u);
}
