#include "data/frame_data.h"

#include "device/device_table.h"
#include "link/block_transfer.h"
#include "link/transaction.h"
#include "platform/platform.h"

#include <cstring>

namespace quorin {
namespace {

constexpr std::uint32_t kHeaderWords = 100;
constexpr std::uint32_t kHeaderBytes = kHeaderWords * 4;
constexpr std::uint32_t kMaxFrames = 2048;
constexpr std::size_t kTimeRecord = 20;
constexpr std::size_t kChannelRecord = 332;

std::uint32_t reverseBits(std::uint32_t v)
{
    std::uint32_t r = 0;
    for (int i = 0; i < 32; ++i)
        r |= ((v >> i) & 1u) << (31 - i);
    return r;
}

// A 10-bit magnitude, taken as a negative 10-bit number when its sign bit
// is set, and scaled by its two scale bits (0: tenths, 1: hundredths).
double channelValue(std::uint32_t word, int shift, int signBit, int scaleShift)
{
    std::int32_t v = static_cast<std::int32_t>((word >> shift) & 0x3FF);
    if ((word >> signBit) & 1)
        v -= 1024;
    switch ((word >> scaleShift) & 3) {
    case 0:
        return v / 10.0;
    case 1:
        return v / 100.0;
    default:
        return v;
    }
}

void writeTime(std::uint8_t *out, const FrameTime &t)
{
    const auto day = static_cast<std::uint32_t>(t.day);
    const auto us = static_cast<std::uint32_t>(t.microsecond);
    std::memcpy(out, &day, 4);
    out[4] = static_cast<std::uint8_t>(t.hour);
    out[5] = static_cast<std::uint8_t>(t.minute);
    out[6] = static_cast<std::uint8_t>(t.second);
    std::memcpy(out + 8, &us, 4);
    out[12] = t.flag; // bytes 7 and 13..19 stay as the caller had them
}

void writeChannels(std::uint8_t *out, std::uint32_t *words)
{
    std::uint8_t status[10];
    double values[4][10];
    decodeChannels(words, status, values);
    std::memcpy(out, status, 10); // bytes 10 and 11 stay as they were
    std::memcpy(out + 12, values, sizeof values);
}

// The camera's frame for host frame f, in the numbering of the memory row.
CameraCommand selectFrame(const DeviceRecord &rec, std::uint32_t f)
{
    const ChannelSettings &row = rec.channelSettings[1];
    const std::uint32_t selector = rec.channelNumber << 24;
    const std::uint32_t n = row.triggerCount;
    if ((row.triggerMode != 0x07000000 && row.triggerMode != 0x06000000) || n == 0)
        return CameraCommand{178, f, selector | 0x20000};
    const std::uint32_t q = (f - 1) / n, r = f - n * q;
    std::uint32_t p1;
    if (row.triggerMode == 0x07000000) {
        std::uint32_t s = row.triggerFrames;
        if (r > n - s)
            s = s - n;
        p1 = r + s;
    } else {
        const std::uint32_t h = n >> 1;
        p1 = r <= h ? r + h + (n & 1) : r - h;
    }
    const std::uint32_t segment = (q < row.triggerRatio ? q : 0) + 1;
    return CameraCommand{178, p1, selector | segment << 20 | 0x20000};
}

} // namespace

FrameTime decodeTime(const std::uint32_t *w)
{
    FrameTime t{};
    t.day = static_cast<std::int32_t>((w[15] & 15) +
                                      10 * (((w[15] >> 4) & 1) + 2 * (5 * ((w[5] >> 3) & 3) + (w[5] & 7))));
    t.hour = static_cast<std::int32_t>(2 * (5 * ((w[25] >> 3) & 3) + (w[25] & 7)) + ((w[35] & 16) ? 1 : 0));
    t.minute = static_cast<std::int32_t>(10 * ((w[35] >> 1) & 7) + ((w[45] >> 2) & 7) + 8 * (w[35] & 1));
    t.second = static_cast<std::int32_t>(10 * (2 * (w[45] & 3) + ((w[55] >> 4) & 1)) + (w[55] & 15) + 1);
    t.microsecond = static_cast<std::int32_t>(1000 * (32 * (w[65] & 31) + (w[75] & 31)) + 32 * (w[85] & 31) +
                                              (w[95] & 31));
    t.flag = static_cast<std::uint8_t>((w[5] >> 5) & 1);
    return t;
}

void applyOffset(FrameTime &t, std::int64_t offset)
{
    if (offset == 0) {
        if (t.second >= 60) {
            t.second = 0;
            t.minute += 1;
        }
        if (t.minute >= 60) {
            t.minute = 0;
            t.hour += 1;
        }
        if (t.hour >= 24) {
            t.hour = 0;
            t.day += 1;
        }
        if (t.day > 366)
            t.day = 0;
        return;
    }
    const std::int64_t u = t.microsecond + offset;
    if (u < 0) {
        // Borrow down the fields; no carry check follows.
        t.microsecond = static_cast<std::int32_t>(u + 1000000);
        t.second -= 1;
        if (t.second < 0) {
            t.second = 59;
            t.minute -= 1;
            if (t.minute < 0) {
                t.minute = 59;
                t.hour -= 1;
                if (t.hour < 0) {
                    t.hour = 23;
                    t.day -= 1;
                    if (t.day < 0)
                        t.day = 365;
                }
            }
        }
        return;
    }
    if (u > 999999) {
        t.second += 1;
        t.microsecond = static_cast<std::int32_t>(u - 1000000);
    } else {
        t.microsecond = static_cast<std::int32_t>(u);
    }
    if (t.second > 59) {
        t.second -= 60;
        t.minute += 1;
    }
    if (t.minute > 59) {
        t.minute -= 60;
        t.hour += 1;
    }
    if (t.hour > 23) {
        t.hour -= 24;
        t.day += 1;
    }
    if (t.day > 366)
        t.day -= 366;
}

void decodeChannels(std::uint32_t *w, std::uint8_t status[10], double values[4][10])
{
    for (int j = 0; j < 10; ++j) {
        w[10 * j] = reverseBits(w[10 * j]);
        w[10 * j + 5] = reverseBits(w[10 * j + 5]);
        const std::uint32_t a = w[10 * j], b = w[10 * j + 5];
        status[j] = static_cast<std::uint8_t>(a & 63);
        values[2][j] = channelValue(a, 6, 16, 17);  // A
        values[3][j] = channelValue(a, 19, 29, 30); // B
        values[0][j] = channelValue(b, 0, 10, 11);  // C
        values[1][j] = channelValue(b, 13, 23, 24); // D
    }
}

std::uint32_t readFrameData(std::uint32_t deviceNo, std::uint32_t dataId, std::uint32_t first, std::uint32_t count,
                            void *buffer, std::int32_t *err)
{
    DeviceRecord &rec = device(deviceNo);
    const ChannelSettings &row = rec.channelSettings[1];
    const bool time = dataId == 0 || dataId == 2, channels = dataId == 1 || dataId == 2;
    if (count < 1 || count > kMaxFrames || buffer == nullptr) {
        *err = QUORIN_ERR_OUT_OF_RANGE;
        return 0;
    }
    if (time && row.frameRate == 0) {
        *err = QUORIN_ERR_NO_DATA;
        return 0;
    }
    if (rec.operatingStatus != kPlaybackStatus) {
        *err = QUORIN_ERR_NOT_PLAYBACK;
        return 0;
    }
    const CameraCommand select = selectFrame(rec, first);
    CommandReply reply{};
    if (!link::sendCommand(deviceNo, &select, &reply, err))
        return 0;
    const std::uint32_t type = deviceInterface(deviceNo).type;
    const std::uint32_t n = type == 2 && count <= 10 ? 11 : count;
    const CameraCommand headers{184, n, 0};
    if (!link::sendCommand(deviceNo, &headers, &reply, err))
        return 0;
    if (type == 3 && channels)
        platform::sleepMs(n / 2 + 33);
    auto *words = reinterpret_cast<std::uint32_t *>(g_state.buffers.rawFrameBuffer[deviceNo]);
    if (!link::receiveBlock(deviceNo, n * kHeaderBytes, reinterpret_cast<std::uint8_t *>(words), err))
        return 0;

    std::int64_t offset = 0;
    if (time) {
        offset = rec.timeStampOffset;
        const std::uint32_t fw = rec.firmwareVersion;
        if ((fw >= 108 && fw <= 116) || (fw >= 200 && fw <= 299))
            offset += 1000000 / row.frameRate;
    }
    const std::size_t stride = dataId == 0 ? kTimeRecord : dataId == 1 ? kChannelRecord : kTimeRecord + kChannelRecord;
    auto *out = static_cast<std::uint8_t *>(buffer);
    for (std::uint32_t k = 0; k < count; ++k) {
        std::uint32_t *w = words + std::size_t{k} * kHeaderWords;
        std::uint8_t *record = out + k * stride;
        if (time) {
            FrameTime t = decodeTime(w);
            applyOffset(t, offset);
            writeTime(record, t);
        }
        if (channels)
            writeChannels(record + (time ? kTimeRecord : 0), w);
    }
    *err = QUORIN_SUCCESS;
    return 1;
}

} // namespace quorin
