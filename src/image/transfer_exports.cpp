// Image transfer exports.
#include "device/export_guard.h"

using namespace quorin;

extern "C" int32_t DEV_TransferLiveImage(uint32_t, uint64_t, int32_t, void *, int32_t *err)
{
    return unsupportedExport(err);
}

extern "C" int32_t DEV_TransferMemImage(uint32_t, uint64_t, uint32_t, int32_t, void *, int32_t *err)
{
    return unsupportedExport(err);
}

extern "C" int32_t DEV_TransferMemImageStart(uint32_t, uint64_t, uint32_t, uint64_t, uint64_t, int32_t *err)
{
    return unsupportedExport(err);
}

extern "C" int32_t DEV_TransferMemImageEnd(uint32_t, uint64_t, int32_t, void *, int32_t *err)
{
    return unsupportedExport(err);
}

extern "C" int32_t DEV_TransferLiveImageCache(uint32_t, uint64_t, uint8_t *, uint32_t *err)
{
    return unsupportedExport(reinterpret_cast<int32_t *>(err));
}
