// Per-frame data of a recording: time stamps and channel records decoded
// from the 400-byte frame headers the camera keeps, and the one-pixel probe.
#pragma once

#include <cstdint>

namespace quorin {

// Data ids 0 (time stamps), 1 (channel records), 2 (both): count records
// from frame first into buffer (20, 332 or 352 bytes each).
std::uint32_t readFrameData(std::uint32_t deviceNo, std::uint32_t dataId, std::uint32_t first, std::uint32_t count,
                            void *buffer, std::int32_t *err);

// Decoding of one header (100 words), exposed for tests.
struct FrameTime {
    std::int32_t day, hour, minute, second, microsecond;
    std::uint8_t flag;
};
FrameTime decodeTime(const std::uint32_t *words);
// Applies the time-stamp offset (microseconds) with the camera family's
// carries and borrows.
void applyOffset(FrameTime &t, std::int64_t offset);
// Channel j's four values and status from a header whose channel words are
// reversed in place; values in C, D, A, B order.
void decodeChannels(std::uint32_t *words, std::uint8_t status[10], double values[4][10]);

} // namespace quorin
