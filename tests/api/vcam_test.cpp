// The virtual camera's own promises to host developers.
#include "support/temp_env.h"
#include "vcam/vcam.h"

#include <gtest/gtest.h>

#include <cstring>

using testing_support::VirtualCamera;

namespace {

std::uint32_t openLink(const VirtualCamera &cam)
{
    std::uint32_t handle = 0;
    std::int32_t err = 0;
    EXPECT_EQ(cam.table()->Open(cam.hostArg(), &handle, &err), 1);
    return handle;
}

} // namespace

TEST(VirtualCamera, HostArgumentsAreUniqueAndCarryTheCameraNumber)
{
    VcamConfig cfg;
    vcam_default_config(&cfg, VCAM_K5, 2);
    cfg.cameraNumber = 42;
    VirtualCamera a(cfg), b(cfg);
    EXPECT_NE(a.hostArg(), b.hostArg());
    EXPECT_EQ(a.hostArg() & 0xFF, 42u);
    cfg.hostArg = a.hostArg();
    EXPECT_EQ(vcam_create(&cfg), nullptr) << "a taken host argument is refused";
}

TEST(VirtualCamera, UndecodableFramesGoUnansweredAndResetClearsTheLine)
{
    VirtualCamera cam(VCAM_K5, 3);
    std::uint32_t h = openLink(cam);
    const InterfaceTable *t = cam.table();
    std::int32_t err = 0;
    std::uint8_t junk[7] = {0, 16, 0, 0, 0, 0, 0};
    EXPECT_EQ(t->Send(h, junk, sizeof junk, &err), 1);
    std::uint8_t reply[10];
    EXPECT_EQ(t->Receive(h, reply, 10, &err), 0);
    EXPECT_EQ(err, VCAM_ERR_TIMEOUT);

    std::uint8_t ident[10] = {0, 16, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(t->Send(h, ident, 10, &err), 1);
    EXPECT_EQ(t->Reset(h, &err), 1);
    EXPECT_EQ(t->Receive(h, reply, 10, &err), 0) << "the reset dropped the answer";
    EXPECT_EQ(t->Send(h, ident, 10, &err), 1);
    ASSERT_EQ(t->Receive(h, reply, 10, &err), 1);
    EXPECT_EQ(reply[1], 64);
}

TEST(VirtualCamera, FaultsHitExactlyTheCallsAsked)
{
    VirtualCamera cam(VCAM_K5C, 2);
    std::uint32_t h = openLink(cam);
    vcam_fail_calls(cam.get(), VCAM_CALL_SEND, 2, 2, 77);
    std::uint8_t frame[12] = {0, 17};
    std::int32_t err = 0;
    int results[5];
    for (int &r : results) {
        err = 0;
        r = cam.table()->Send(h, frame, 12, &err);
    }
    EXPECT_EQ(results[0], 1);
    EXPECT_EQ(results[1], 0);
    EXPECT_EQ(results[2], 0);
    EXPECT_EQ(results[3], 1);
    EXPECT_EQ(results[4], 1);
    VcamTraceEntry e;
    ASSERT_TRUE(vcam_trace_entry(cam.get(), 2, &e)); // Open, Send, Send(fails)
    EXPECT_EQ(e.call, static_cast<std::uint32_t>(VCAM_CALL_SEND));
    EXPECT_EQ(e.result, 0);
    EXPECT_EQ(e.err, 77);
    EXPECT_EQ(e.hasCommand, 0u) << "a failed send never reached the camera";
}

TEST(VirtualCamera, DestroyedCameraLeavesADeadLinkNotACrash)
{
    auto *cam = new VirtualCamera(VCAM_K5, 4);
    std::uint32_t h = openLink(*cam);
    InterfaceTable table = *cam->table();
    delete cam;
    std::uint8_t frame[10] = {}, reply[10];
    std::int32_t err = 0;
    EXPECT_EQ(table.Transact(h, frame, reply, &err), 0);
    EXPECT_EQ(err, VCAM_ERR_NO_LINK);
}

TEST(VirtualCamera, TransactDataCannotReadMoreThanTheCameraSends)
{
    VirtualCamera cam(VCAM_K5, 4);
    std::uint32_t h = openLink(cam);
    std::uint8_t frame[10] = {0, 185, 0, 0, 0, 0, 0, 0, 0, 1}, reply[10];
    std::vector<std::uint8_t> data(0x140001);
    std::int32_t err = 0;
    EXPECT_EQ(cam.table()->TransactData(h, frame, reply, data.data(), 0x140001, &err), 0);
    EXPECT_EQ(err, VCAM_ERR_TIMEOUT);
    EXPECT_EQ(cam.table()->TransactData(h, frame, reply, data.data(), 0x140000, &err), 1);
    EXPECT_EQ(reply[1], 201);
}
