#include "frame_headers.h"

namespace vcam {
namespace {

std::uint32_t reverseBits(std::uint32_t v)
{
    std::uint32_t r = 0;
    for (int i = 0; i < 32; ++i)
        r |= ((v >> i) & 1u) << (31 - i);
    return r;
}

// A value in tenths as the channel words carry it: 10-bit two's complement
// magnitude at shift, its sign bit, scale bits 0 (tenths).
std::uint32_t field(std::int32_t tenths, int shift, int signBit)
{
    const std::uint32_t ten = static_cast<std::uint32_t>(tenths) & 0x3FF;
    return ten << shift | (tenths < 0 ? 1u << signBit : 0u);
}

ClockTime oneSecondEarlier(ClockTime t)
{
    if (t.second-- > 0)
        return t;
    t.second = 59;
    if (t.minute-- > 0)
        return t;
    t.minute = 59;
    if (t.hour-- > 0)
        return t;
    t.hour = 23;
    t.day = t.day > 1 ? t.day - 1 : 366;
    return t;
}

} // namespace

ClockTime advance(const ClockTime &start, std::uint64_t microseconds)
{
    std::uint64_t us = start.microsecond + microseconds;
    std::uint64_t seconds = start.second + us / 1000000;
    ClockTime t{};
    t.microsecond = static_cast<std::uint32_t>(us % 1000000);
    std::uint64_t minutes = start.minute + seconds / 60;
    t.second = static_cast<std::uint32_t>(seconds % 60);
    std::uint64_t hours = start.hour + minutes / 60;
    t.minute = static_cast<std::uint32_t>(minutes % 60);
    const std::uint64_t days = start.day + hours / 24;
    t.hour = static_cast<std::uint32_t>(hours % 24);
    t.day = static_cast<std::uint32_t>(days > 366 ? days - 366 : days);
    return t;
}

std::int32_t channelTenths(std::uint64_t index, int channel, int value)
{
    const std::int32_t base = (channel + 1) * 10 * (value + 1);
    const std::int32_t wave = static_cast<std::int32_t>(index % 21) - 10;
    return (channel % 2 == 0 ? base : -base) + wave; // within the 10-bit range
}

void writeHeader(std::uint32_t *w, std::uint64_t index, std::uint32_t frameRate, const ClockTime &start)
{
    for (int i = 0; i < 100; ++i)
        w[i] = static_cast<std::uint32_t>(index * 100 + i); // words the library does not read
    // Channel words at 10j carry status and values A and B, sent
    // bit-reversed; the words at 10j + 5 (values C and D) carry the time code.
    for (int j = 0; j < 10; ++j) {
        const std::uint32_t status = static_cast<std::uint32_t>(j + index) & 63;
        const std::uint32_t a = status | field(channelTenths(index, j, 0), 6, 16) | field(channelTenths(index, j, 1), 19, 29);
        w[10 * j] = reverseBits(a);
    }
    // The camera's clock fields stand one second behind the time they mean
    // (the reader adds the second back).
    const ClockTime t = oneSecondEarlier(advance(start, index * 1000000 / (frameRate == 0 ? 1 : frameRate)));
    const std::uint32_t encodedSecond = t.second;
    const std::uint32_t dayTens = t.day / 10, hourHalf = t.hour / 2;
    const std::uint32_t minuteUnits = t.minute % 10, extra = minuteUnits >= 8 ? 1 : 0;
    const std::uint32_t ms = t.microsecond / 1000, us = t.microsecond % 1000;
    w[5] = ((dayTens >> 1) % 5) | ((dayTens >> 1) / 5) << 3 | 1u << 5; // time code valid
    w[15] = (t.day % 10) | (dayTens & 1) << 4;
    w[25] = (hourHalf % 5) | (hourHalf / 5) << 3;
    w[35] = extra | (t.minute / 10) << 1 | (t.hour & 1) << 4;
    w[45] = ((encodedSecond / 10) >> 1) | (minuteUnits - 8 * extra) << 2;
    w[55] = (encodedSecond % 10) | ((encodedSecond / 10) & 1) << 4;
    w[65] = ms / 32;
    w[75] = ms % 32;
    w[85] = us / 32;
    w[95] = us % 32;
}

} // namespace vcam
