// The camera start-up sequence, run once by DEV_OpenDevice.
#pragma once

#include <cstdint>

namespace quorin {

// Prepares the opened slot deviceNo: buffers, record defaults and, with the
// camera's answers, its identity and calibration. Returns 1 or 0; err is
// what the host sees as the open's status.
std::uint32_t runStartup(std::uint32_t deviceNo, std::int32_t *err);

// Reads the five start-up values of commands 75 and 77 (extra1..extra5);
// stops at the first failure.
std::uint32_t readStartupValues(std::uint32_t deviceNo, std::int32_t *err);

} // namespace quorin
