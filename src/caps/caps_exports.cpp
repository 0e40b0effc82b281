// Capability exports.
#include "device/export_guard.h"

using namespace quorin;

extern "C" int32_t DEV_GetDeviceCaps(uint32_t, uint64_t, uint32_t, uint32_t, uint32_t *, uint32_t *, int32_t *err)
{
    return unsupportedExport(err);
}

extern "C" int32_t DEV_GetDeviceName(uint32_t, uint32_t, char *, int32_t *err)
{
    return unsupportedExport(err);
}

extern "C" int32_t DEV_SetDeviceCaps(uint32_t, uint64_t, uint32_t, uint32_t, uint32_t, uint32_t, int32_t *err)
{
    return unsupportedExport(err);
}

extern "C" int32_t DEV_GetList(uint32_t, uint64_t, uint32_t, uint32_t, uint32_t *, uint32_t *, int32_t *err)
{
    return unsupportedExport(err);
}
