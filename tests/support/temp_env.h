// Test helpers: a private folder for the registry file and settings files,
// and the library brought up and torn down around each test.
#pragma once

#include "quorin/quorin.h"
#include "vcam/vcam.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace testing_support {

// Points XDG_CONFIG_HOME and XDG_DATA_HOME at a fresh folder for the life
// of the object (Linux); on Windows the folder is only created.
class TempHome {
public:
    TempHome();
    ~TempHome();
    const std::string &path() const { return path_; }

private:
    std::string path_;
    std::string oldConfig_, oldData_;
    bool hadConfig_ = false, hadData_ = false;
};

std::string readFile(const std::string &path);
bool fileExists(const std::string &path);

// A virtual camera destroyed with the object.
class VirtualCamera {
public:
    VirtualCamera(std::uint32_t model, std::uint32_t linkType);
    explicit VirtualCamera(const VcamConfig &config);
    ~VirtualCamera();
    VcamCamera *get() const { return cam_; }
    const InterfaceTable *table() const { return vcam_interface(cam_); }
    std::uint32_t hostArg() const { return vcam_host_arg(cam_); }
    std::uint32_t calls(VcamCall call) const { return vcam_call_count(cam_, call); }

private:
    VcamCamera *cam_;
};

// Opens cam through the library; returns the device number (fails the test
// on error).
inline std::uint32_t openCamera(const VirtualCamera &cam, std::int32_t *errOut = nullptr)
{
    std::uint32_t deviceNo = 0xFFFFFFFFu;
    std::int32_t err = 0;
    EXPECT_EQ(DEV_OpenDevice(cam.table()->type, cam.table(), cam.hostArg(), &deviceNo, &err), 1);
    if (errOut != nullptr)
        *errOut = err;
    return deviceNo;
}

} // namespace testing_support
