// Fault sweeps: for each sequence of exports and each link type, every host
// call the sequence makes is failed in turn, and separately every
// allocation. After each fault the export reports a documented ErrorCode
// (or succeeds where the failure is one it ignores), nothing stays
// allocated, the device is still usable (or its slot free), and no host
// call follows DEV_CloseDevice.
#include "link_fixture.h"
#include "platform/test_hooks.h"
#include "vcam/vcam.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <tuple>
#include <vector>

namespace {

namespace hooks = quorin::platform::hooks;
using testing_support::VirtualCamera;

constexpr std::uint32_t kW = 64, kH = 32;
constexpr std::int32_t kInjected = VCAM_ERR_INJECTED;

// Codes an export may leave after a failed host call or allocation: its
// own, or the link's, passed up unchanged (a failed armTransfer, whose
// result does not count, shows as the camera not answering).
const std::set<std::int32_t> kFailureCodes = {QUORIN_ERR_NO_MEMORY, QUORIN_ERR_LINK_RETRIES, QUORIN_ERR_REPLY_MISMATCH,
                                              kInjected, VCAM_ERR_TIMEOUT};

struct Device {
    VcamCamera *cam;
    std::uint32_t dev;
};

std::uint8_t g_image[kW * kH * 6];
std::uint8_t g_data[64 * 20];
std::uint32_t g_defects[QUORIN_MAX_LIST_ENTRIES];

std::int32_t liveImage(Device &d, std::int32_t *err)
{
    return DEV_TransferLiveImage(d.dev, 0, 8, g_image, err);
}
std::int32_t memoryImage(Device &d, std::int32_t *err)
{
    return DEV_TransferMemImage(d.dev, 0, 2, 16, g_image, err);
}
std::int32_t splitImage(Device &d, std::int32_t *err)
{
    return DEV_TransferMemImageStart(d.dev, 0, 3, 0, 0, err) && DEV_TransferMemImageEnd(d.dev, 0, 8, g_image, err);
}
std::int32_t deviceData(Device &d, std::int32_t *err)
{
    std::uint32_t size = 0;
    return static_cast<std::int32_t>(DEV_GetData(d.dev, 0, QUORIN_DATA_TIME_STAMPS, 1, 12, g_data, &size, err));
}
// A defect list, and a free curve for the user look-up table, which is then
// uploaded to the camera.
std::int32_t writtenLists(Device &d, std::int32_t *err)
{
    const std::uint32_t list[3] = {5u << 16 | 7, 900u << 16 | 3, 5u << 16 | 7};
    std::copy(std::begin(list), std::end(list), g_defects);
    std::uint32_t stored = 0;
    if (!DEV_SetList(d.dev, 0, QUORIN_SETLIST_DEFECTS, 0, g_defects, 3, &stored, err))
        return 0;
    for (std::uint32_t i = 0; i < QUORIN_MAX_LIST_ENTRIES; ++i)
        g_defects[i] = 1023 - i;
    return DEV_SetDeviceCaps(d.dev, 0, QUORIN_CAP_LUT_MODE, 0, 11, 0, err) &&
           DEV_SetList(d.dev, 0, QUORIN_SETLIST_FREE_LUT_R, 0, g_defects, QUORIN_MAX_LIST_ENTRIES, &stored, err) &&
           DEV_SetDeviceCaps(d.dev, 0, QUORIN_CAP_UPLOAD_LUT, 0, 11, 0, err);
}
std::int32_t openDevice(Device &d, std::int32_t *err)
{
    const InterfaceTable *t = vcam_interface(d.cam);
    return DEV_OpenDevice(t->type, t, vcam_host_arg(d.cam), &d.dev, err);
}
std::int32_t closeDevice(Device &d, std::int32_t *err)
{
    return DEV_CloseDevice(d.dev, err);
}

enum class Kind { Open, Close, Other };

struct Sequence {
    const char *name;
    Kind kind;
    bool playback; // the camera is in playback status when it runs
    std::int32_t (*run)(Device &, std::int32_t *);
};

constexpr Sequence kSequences[] = {
    {"open", Kind::Open, false, openDevice},
    {"live transfer", Kind::Other, false, liveImage},
    {"memory transfer", Kind::Other, true, memoryImage},
    {"split transfer", Kind::Other, true, splitImage},
    {"device data", Kind::Other, true, deviceData},
    {"written list", Kind::Other, false, writtenLists},
    {"close", Kind::Close, true, closeDevice},
};

// Link types 2, 3, 4 and one that is framed like 3 without its extras.
constexpr std::uint32_t kLinkTypes[] = {2, 3, 4, 7};

const char *const kCallNames[VCAM_CALL_COUNT] = {"Open",    "Close",       "Send",          "Receive",     "Reset",
                                                  "armTransfer", "awaitTransfer", "Transact", "TransactData"};

std::vector<VcamTraceEntry> traceOf(VcamCamera *cam)
{
    std::vector<VcamTraceEntry> out(vcam_trace_size(cam));
    for (std::size_t i = 0; i < out.size(); ++i)
        vcam_trace_entry(cam, i, &out[i]);
    return out;
}

class FaultSweep : public LinkTest, public ::testing::WithParamInterface<std::tuple<std::uint32_t, std::uint32_t>> {
protected:
    void SetUp() override
    {
        LinkTest::SetUp();
        hooks::skipPauses(true);
    }
    void TearDown() override
    {
        hooks::failAllocation(0);
        hooks::skipPauses(false);
        LinkTest::TearDown();
    }

    // Opens the camera with a small picture and, for a sequence that runs
    // in playback, switches to playback and reads what the memory
    // transfers and time stamps go by.
    static testing::AssertionResult prepare(Device &d, const Sequence &s)
    {
        std::int32_t err = 0;
        std::uint32_t v = 0, v2 = 0;
        if (!openDevice(d, &err) || err != QUORIN_SUCCESS)
            return testing::AssertionFailure() << "open: error " << err;
        bool ok = DEV_SetDeviceCaps(d.dev, 0, QUORIN_CAP_RESOLUTION, 0, kW << 16 | kH, 0, &err) == 1;
        if (s.playback) {
            ok = ok && DEV_SetDeviceCaps(d.dev, 0, QUORIN_CAP_CAMERA_MODE, 0, 1, 0, &err) == 1;
            for (std::uint32_t id : {QUORIN_CAP_CHANNEL_NUMBER, QUORIN_CAP_RESOLUTION, QUORIN_CAP_VALUE_73,
                                     QUORIN_CAP_TRIGGER_MODE, QUORIN_CAP_TRIGGER_COUNTS, QUORIN_CAP_FRAME_RATE})
                ok = ok && DEV_GetDeviceCaps(d.dev, 0, id, 0, &v, &v2, &err) == 1;
        }
        return ok ? testing::AssertionSuccess() : testing::AssertionFailure() << "settings: error " << err;
    }

    // Closes the device and checks that its slot is free, that nothing it
    // took is still held and that the link hears nothing more.
    static testing::AssertionResult closeAndCheck(Device &d, std::int64_t held, bool alreadyClosed = false)
    {
        std::int32_t err = 0;
        if (!alreadyClosed && DEV_CloseDevice(d.dev, &err) != 1)
            return testing::AssertionFailure() << "close: error " << err;
        const std::size_t calls = vcam_trace_size(d.cam);
        if (quorin::g_state.devices[d.dev].inUse != 0 || DEV_CloseDevice(d.dev, &err) != 0 ||
            err != QUORIN_ERR_NOT_OPEN)
            return testing::AssertionFailure() << "the slot is still taken";
        if (vcam_trace_size(d.cam) != calls)
            return testing::AssertionFailure() << "a host call after the close";
        if (hooks::blocksHeld() != held)
            return testing::AssertionFailure() << hooks::blocksHeld() - held << " blocks still held";
        return testing::AssertionSuccess();
    }

    // Runs s with one fault injected and checks everything after it.
    static testing::AssertionResult faulted(Device &d, const Sequence &s, bool allocation, std::uint32_t nth,
                                            const std::vector<VcamTraceEntry> &clean, std::int64_t held)
    {
        if (s.kind != Kind::Other) {
            if (s.kind == Kind::Close) {
                auto ready = prepare(d, s);
                if (!ready)
                    return ready;
            }
            vcam_trace_clear(d.cam);
        }
        if (allocation) {
            hooks::failAllocation(nth);
        } else {
            const VcamCall call = static_cast<VcamCall>(clean[nth - 1].call);
            std::uint32_t ofKind = 0;
            for (std::uint32_t i = 0; i < nth; ++i)
                ofKind += clean[i].call == call;
            vcam_fail_calls(d.cam, call, ofKind, 1, kInjected);
        }
        std::int32_t err = 0;
        const std::int32_t ok = s.run(d, &err);
        hooks::failAllocation(0);
        vcam_clear_faults(d.cam);
        // A failure the sequence ignores leaves it successful, and err as
        // the lower layers left it; any other failure is reported.
        if (ok != 1 && !kFailureCodes.count(err))
            return testing::AssertionFailure() << "result " << ok << ", error " << err;
        if (ok == 1 && err != QUORIN_SUCCESS && err != 0 && !kFailureCodes.count(err))
            return testing::AssertionFailure() << "success with error " << err;
        switch (s.kind) {
        case Kind::Open:
            if (ok != 1)
                return quorin::g_state.devices[0].inUse == 0 && hooks::blocksHeld() == held
                           ? testing::AssertionSuccess()
                           : testing::AssertionFailure() << "a failed open took a slot or memory";
            return closeAndCheck(d, held);
        case Kind::Close:
            if (ok != 1)
                return testing::AssertionFailure() << "the close failed with " << err;
            return closeAndCheck(d, held, true);
        case Kind::Other:
            err = 0;
            if (s.run(d, &err) != 1)
                return testing::AssertionFailure() << "not usable after the fault: error " << err;
            return testing::AssertionSuccess();
        }
        return testing::AssertionFailure();
    }
};

TEST_P(FaultSweep, EveryHostCallAndAllocationFailsInTurn)
{
    const auto [model, type] = GetParam();
    for (const Sequence &s : kSequences) {
        VcamConfig cfg;
        vcam_default_config(&cfg, model, type);
        VirtualCamera cam(cfg);
        Device d{cam.get(), 0};
        const std::int64_t held = hooks::blocksHeld();
        if (s.kind != Kind::Open) {
            ASSERT_TRUE(prepare(d, s)) << s.name;
        }

        // The unfaulted run gives the calls and allocations to fail.
        vcam_trace_clear(d.cam);
        hooks::failAllocation(0);
        std::int32_t err = 0;
        ASSERT_EQ(s.run(d, &err), 1) << s.name << ": error " << err;
        const std::vector<VcamTraceEntry> clean = traceOf(d.cam);
        const std::uint32_t allocations = hooks::allocations();
        if (s.kind != Kind::Other) {
            ASSERT_TRUE(closeAndCheck(d, held, s.kind == Kind::Close)) << s.name;
        }

        for (std::uint32_t n = 1; n <= clean.size(); ++n)
            ASSERT_TRUE(faulted(d, s, false, n, clean, held))
                << s.name << " on model " << model << ", link type " << type << ", host call " << n << " ("
                << kCallNames[clean[n - 1].call] << ") failed";
        for (std::uint32_t n = 1; n <= allocations; ++n)
            ASSERT_TRUE(faulted(d, s, true, n, clean, held))
                << s.name << " on model " << model << ", link type " << type << ", allocation " << n << " failed";
        if (s.kind == Kind::Other) {
            ASSERT_TRUE(closeAndCheck(d, held)) << s.name;
        }
        // The slot opens cleanly again after the sweep.
        ASSERT_TRUE(prepare(d, s)) << s.name << " after the sweep";
        ASSERT_TRUE(closeAndCheck(d, held)) << s.name;
    }
}

INSTANTIATE_TEST_SUITE_P(ModelsAndLinkTypes, FaultSweep,
                         ::testing::Combine(::testing::Values(VCAM_K5, VCAM_K5C), ::testing::ValuesIn(kLinkTypes)));

} // namespace
