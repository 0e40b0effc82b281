#include "bench_camera.h"

#include <random>

namespace bench {

Config afterOpen(std::uint32_t model)
{
    return {model == VCAM_K5C ? "K5C" : "K5", model, 8, Source::Live, {}};
}

OpenCamera::OpenCamera(const Config &c, std::uint32_t hostArg)
{
    std::int32_t err = 0;
    static const bool initialised = DEV_Init(&err) != 0;
    ok = initialised;
    VcamConfig cfg;
    vcam_default_config(&cfg, c.model, kLinkType);
    cfg.firmwareVersion = c.firmware;
    cfg.hostArg = hostArg;
    std::mt19937 rng(5);
    for (int k = 0; k < 1024; ++k)
        defects.push_back((rng() % 1024) << 16 | (rng() % 1024));
    cfg.defects = defects.data();
    cfg.defectCount = 1024;
    cam = vcam_create(&cfg);
    ok = ok && cam != nullptr && DEV_OpenDevice(kLinkType, vcam_interface(cam), vcam_host_arg(cam), &dev, &err) != 0;
    for (const Setting &s : c.settings)
        ok = ok && DEV_SetDeviceCaps(dev, 0, s.id, 0, s.value, 0, &err) != 0;
    std::uint32_t v = 0, v2 = 0;
    if (c.source != Source::Live) {
        ok = ok && DEV_SetDeviceCaps(dev, 0, QUORIN_CAP_CAMERA_MODE, 0, 1, 0, &err) != 0;
        ok = ok && DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_CHANNEL_NUMBER, 0, &v, &v2, &err) != 0;
    }
    ok = ok && DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_RESOLUTION, 0, &v, &v2, &err) != 0;
    ok = ok && DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_VALUE_73, 0, &v, &v2, &err) != 0;
}

OpenCamera::~OpenCamera()
{
    std::int32_t err = 0;
    DEV_CloseDevice(dev, &err);
    vcam_destroy(cam);
}

bool transferOnce(const Config &c, std::uint32_t dev, std::uint32_t frame, std::uint8_t *dest)
{
    std::int32_t err = 0;
    switch (c.source) {
    case Source::Live:
        return DEV_TransferLiveImage(dev, 0, c.bits, dest, &err) != 0;
    case Source::Memory:
        return DEV_TransferMemImage(dev, 0, frame, c.bits, dest, &err) != 0;
    case Source::Split:
        return DEV_TransferMemImageStart(dev, 0, frame, 0, 0, &err) != 0 &&
               DEV_TransferMemImageEnd(dev, 0, c.bits, dest, &err) != 0;
    }
    return false;
}

} // namespace bench
