// Checks shared by the exports.
#pragma once

#include "device/device_table.h"
#include "quorin/quorin.h"

#include <cstdint>

namespace quorin {

// Whether the library is initialised; writes 2 to err when it is not.
inline bool requireInitialised(std::int32_t *err)
{
    if (g_state.initialised)
        return true;
    *err = QUORIN_ERR_NOT_INITIALISED;
    return false;
}

// Whether deviceNo names one of the 64 slots; writes 103 to err when it
// does not.
inline bool requireDeviceNumber(std::uint32_t deviceNo, std::int32_t *err)
{
    if (deviceNo < kMaxDevices)
        return true;
    *err = QUORIN_ERR_NOT_OPEN;
    return false;
}

// Whether deviceNo names an open slot with its buffers; writes 103 to err
// when it does not.
inline bool requireUsableDevice(std::uint32_t deviceNo, std::int32_t *err)
{
    if (deviceUsable(deviceNo))
        return true;
    *err = QUORIN_ERR_NOT_OPEN;
    return false;
}

// The common answer of an export whose function this build does not offer:
// 2 before DEV_Init, else 21.
inline std::int32_t unsupportedExport(std::int32_t *err)
{
    std::int32_t scratch = 0;
    if (err == nullptr)
        err = &scratch;
    if (requireInitialised(err))
        *err = QUORIN_ERR_NOT_SUPPORTED;
    return 0;
}

} // namespace quorin
