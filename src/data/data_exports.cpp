// Device data and written-list exports.
#include "device/export_guard.h"

using namespace quorin;

extern "C" uint32_t DEV_GetData(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, void *, uint32_t *, int32_t *err)
{
    return static_cast<uint32_t>(unsupportedExport(err));
}

extern "C" uint32_t DEV_SetData(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, void *, uint64_t, int32_t *err)
{
    return static_cast<uint32_t>(unsupportedExport(err));
}

extern "C" uint32_t DEV_SetList(uint32_t, uint64_t, uint32_t, uint64_t, uint32_t *, uint32_t, uint32_t *,
                                int32_t *err)
{
    return static_cast<uint32_t>(unsupportedExport(err));
}
