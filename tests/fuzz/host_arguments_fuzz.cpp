// Fuzz target: every export with ids, sub-indices, values, sizes and null
// pointers from the fuzzer's bytes, on a device opened on a virtual camera
// whose model and link type the first byte chooses.
#include "fuzz_input.h"

#include "vcam/vcam.h"

namespace {

constexpr std::uint32_t kLinkTypes[] = {2, 3, 4, 5};

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    startQuietLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static VcamCamera *cameras[2][4];
    FuzzInput in{data, size};
    const std::uint8_t choice = in.byte();
    VcamCamera *&cam = cameras[choice >> 2 & 1][choice & 3];
    if (cam == nullptr) {
        VcamConfig cfg;
        vcam_default_config(&cfg, choice >> 2 & 1, kLinkTypes[choice & 3]);
        cam = vcam_create(&cfg);
    }
    vcam_trace_clear(cam); // the camera records every call: one input's worth at a time
    const InterfaceTable *t = vcam_interface(cam);
    std::uint32_t dev = 0;
    std::int32_t err = 0;
    if (DEV_OpenDevice(t->type, t, vcam_host_arg(cam), &dev, &err) != 1 || err != QUORIN_SUCCESS)
        std::abort(); // the virtual camera always opens
    // A small picture keeps runs short; the input may set any other.
    DEV_SetDeviceCaps(dev, 0, QUORIN_CAP_RESOLUTION, 0, 64u << 16 | 32, 0, &err);
    runExports(in, dev, kOperationsPerRun);
    closeAll();
    return 0;
}
