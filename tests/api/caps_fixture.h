// Fixture for capability tests through the shipped library: virtual
// cameras opened on demand, and short forms of the three capability calls.
#pragma once

#include "quorin/quorin.h"
#include "support/temp_env.h"
#include "vcam/vcam.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

struct CapResult {
    int32_t ok;
    uint32_t value;
    uint32_t value2;
    int32_t err;
};

class CapsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        int32_t err = 0;
        DEV_Init(&err);
    }
    void TearDown() override
    {
        int32_t err = 0;
        for (uint32_t d = 0; d < QUORIN_MAX_DEVICES; ++d)
            DEV_CloseDevice(d, &err);
        DEV_Exit(&err);
    }

    VcamConfig config(uint32_t model = VCAM_K5C, uint32_t type = 7)
    {
        VcamConfig cfg;
        vcam_default_config(&cfg, model, type);
        return cfg;
    }
    // Opens a camera and makes it the current one.
    uint32_t open(const VcamConfig &cfg)
    {
        cams_.push_back(std::make_unique<testing_support::VirtualCamera>(cfg));
        dev_ = testing_support::openCamera(*cams_.back());
        return dev_;
    }
    uint32_t open(uint32_t model = VCAM_K5C, uint32_t type = 7) { return open(config(model, type)); }
    VcamCamera *camera() { return cams_.back()->get(); }

    CapResult get(uint32_t id, uint32_t sub = 0, uint32_t value = 0xDEADBEEF)
    {
        CapResult r{0, value, 0xDEADBEEF, 0};
        r.ok = DEV_GetDeviceCaps(dev_, 0, id, sub, &r.value, &r.value2, &r.err);
        return r;
    }
    CapResult set(uint32_t id, uint32_t value, uint32_t value2 = 0, uint32_t sub = 0)
    {
        CapResult r{0, value, value2, 0};
        r.ok = DEV_SetDeviceCaps(dev_, 0, id, sub, value, value2, &r.err);
        return r;
    }
    struct ListResult {
        int32_t ok;
        std::vector<uint32_t> entries;
        int32_t err;
    };
    ListResult list(uint32_t id, uint32_t sub = 0)
    {
        std::vector<uint32_t> buf(QUORIN_MAX_LIST_ENTRIES, 0xDEADBEEF);
        uint32_t count = 0xDEADBEEF;
        ListResult r{0, {}, 0};
        r.ok = DEV_GetList(dev_, 0, id, sub, buf.data(), &count, &r.err);
        if (count <= buf.size())
            r.entries.assign(buf.begin(), buf.begin() + count);
        return r;
    }
    // Commands the camera decoded since the last call.
    std::vector<CameraCommand> sent()
    {
        std::vector<CameraCommand> out(vcam_commands(camera(), nullptr, 0));
        vcam_commands(camera(), out.data(), out.size());
        vcam_trace_clear(camera());
        return out;
    }

    uint32_t dev_ = 0;
    std::vector<std::unique_ptr<testing_support::VirtualCamera>> cams_;
    testing_support::TempHome home_;
};

inline constexpr uint32_t packed(uint32_t w, uint32_t h)
{
    return w << 16 | h;
}
