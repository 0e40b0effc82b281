// The 400-byte headers the camera keeps with every recorded frame: its time
// code (day of year down to microseconds) and ten channel words.
#pragma once

#include <cstdint>
#include <vector>

namespace vcam {

struct ClockTime {
    std::uint32_t day, hour, minute, second, microsecond;
};

// Header of recorded frame number `index` (from 0) of a recording that
// started at `start` (its second 1 or more) and runs at `frameRate` frames
// per second.
void writeHeader(std::uint32_t *words, std::uint64_t index, std::uint32_t frameRate, const ClockTime &start);

// The camera's time after `microseconds` from start.
ClockTime advance(const ClockTime &start, std::uint64_t microseconds);

// Value A (0) or B (1) of channel j in frame `index`, in tenths.
std::int32_t channelTenths(std::uint64_t index, int channel, int value);

} // namespace vcam
