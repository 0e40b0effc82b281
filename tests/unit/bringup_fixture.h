// Fixture for bring-up tests: a private home for settings, the library
// initialised, and helpers to open virtual cameras and look at their records.
#pragma once

#include "link_fixture.h"
#include "vcam/vcam.h"

#include <memory>
#include <vector>

class BringUp : public LinkTest {
protected:
    VcamConfig config(std::uint32_t model, std::uint32_t type)
    {
        VcamConfig cfg;
        vcam_default_config(&cfg, model, type);
        return cfg;
    }
    // Opens a camera; the camera stays alive for the test.
    std::uint32_t openVirtual(const VcamConfig &cfg, std::int32_t *errOut = nullptr)
    {
        cams_.push_back(std::make_unique<testing_support::VirtualCamera>(cfg));
        auto &cam = *cams_.back();
        std::uint32_t dev = 99;
        std::int32_t err = 0;
        EXPECT_EQ(DEV_OpenDevice(cfg.linkType, cam.table(), cam.hostArg(), &dev, &err), 1);
        if (errOut != nullptr)
            *errOut = err;
        return dev;
    }
    VcamCamera *lastCamera() { return cams_.back()->get(); }
    std::vector<CameraCommand> commands(VcamCamera *cam)
    {
        std::vector<CameraCommand> out(vcam_commands(cam, nullptr, 0));
        vcam_commands(cam, out.data(), out.size());
        return out;
    }
    std::vector<std::uint16_t> codes(VcamCamera *cam)
    {
        std::vector<std::uint16_t> out;
        for (auto &c : commands(cam))
            out.push_back(c.code);
        return out;
    }
    void close(std::uint32_t dev)
    {
        std::int32_t err = 0;
        DEV_CloseDevice(dev, &err);
    }

    std::vector<std::unique_ptr<testing_support::VirtualCamera>> cams_;
};
