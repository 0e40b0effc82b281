// Unloading the shared library closes every camera still open.
#include "quorin/quorin.h"
#include "support/temp_env.h"
#include "vcam/vcam.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

using testing_support::VirtualCamera;

namespace {

template <typename F> F symbol(void *lib, const char *name)
{
    return reinterpret_cast<F>(dlsym(lib, name));
}

} // namespace

TEST(Unload, UnloadingClosesOpenCameras)
{
    testing_support::TempHome home;
    VirtualCamera k5(VCAM_K5, 2), k5c(VCAM_K5C, 3);
    void *lib = dlopen(QUORIN_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    auto init = symbol<decltype(&DEV_Init)>(lib, "DEV_Init");
    auto open = symbol<decltype(&DEV_OpenDevice)>(lib, "DEV_OpenDevice");
    ASSERT_NE(init, nullptr);
    ASSERT_NE(open, nullptr);
    std::int32_t err = 0;
    init(&err);
    std::uint32_t a = 0, b = 0;
    ASSERT_EQ(open(2, k5.table(), k5.hostArg(), &a, &err), 1);
    ASSERT_EQ(open(3, k5c.table(), k5c.hostArg(), &b, &err), 1);
    vcam_trace_clear(k5.get());
    vcam_trace_clear(k5c.get());

    ASSERT_EQ(dlclose(lib), 0);

    for (VcamCamera *cam : {k5.get(), k5c.get()}) {
        EXPECT_EQ(vcam_call_count(cam, VCAM_CALL_CLOSE), 1u);
        CameraCommand cmds[4];
        ASSERT_EQ(vcam_commands(cam, cmds, 4), 1u);
        EXPECT_EQ(cmds[0].code, 144);
    }
}
