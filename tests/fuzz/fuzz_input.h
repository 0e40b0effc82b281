// What the fuzz targets share: reading numbers from the fuzzer's bytes, and
// running the exports on an open device with arguments taken from them.
#pragma once

#include "platform/test_hooks.h"
#include "quorin/quorin.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

// The fuzzer's bytes, read front to back; past the end every read is 0.
struct FuzzInput {
    const std::uint8_t *data;
    std::size_t size;

    bool empty() const { return size == 0; }
    std::uint8_t byte()
    {
        if (size == 0)
            return 0;
        --size;
        return *data++;
    }
    std::uint32_t word()
    {
        std::uint32_t w = 0;
        for (int i = 0; i < 4; ++i)
            w = w << 8 | byte();
        return w;
    }
    // Copies up to n bytes to out; returns how many there were.
    std::size_t fill(void *out, std::size_t n)
    {
        n = std::min(n, size);
        if (n != 0)
            std::memcpy(out, data, n);
        data += n;
        size -= n;
        return n;
    }
};

// Initialises the library with the pauses skipped and settings folders
// that cannot be created: every run starts from the defaults and leaves
// nothing behind.
inline void startQuietLibrary()
{
    setenv("XDG_CONFIG_HOME", "/proc/quorin-fuzz", 1);
    setenv("XDG_DATA_HOME", "/proc/quorin-fuzz", 1);
    quorin::platform::hooks::skipPauses(true);
    std::int32_t err = 0;
    DEV_Init(&err);
}

constexpr int kOperationsPerRun = 24;

// Numbers that mean something to some export, so that a byte can reach them.
inline std::uint32_t fuzzValue(FuzzInput &in)
{
    static constexpr std::uint32_t kKnown[] = {0,          1,          2,          3,         4,          5,
                                               6,          7,          11,         16,        64,         1000,
                                               0x00400020, 0x04000400, 0x02000100, 0x80000000, 0x03000000,
                                               0x04000000, 0x06000000, 0x07000000, 0xFFFFFFFF, 0x7FFFFFFF};
    const std::uint8_t how = in.byte();
    if (how < 0x80)
        return kKnown[how % (sizeof kKnown / sizeof kKnown[0])];
    return how < 0xC0 ? in.byte() : in.word();
}

// Buffers as large as any export writes or reads with in-contract sizes.
struct ExportBuffers {
    std::vector<std::uint8_t> image = std::vector<std::uint8_t>(1024 * 1024 * 6);
    std::vector<std::uint8_t> data = std::vector<std::uint8_t>(1024 * 1024 * 2);
    std::uint32_t list[QUORIN_MAX_LIST_ENTRIES] = {};
    std::uint32_t value[64] = {}, value2[128] = {}; // id 39 writes 64 elements and 512 bytes
    char name[256] = {};
};

// A pointer the export may write through, or now and then null.
template <typename T> T *orNull(FuzzInput &in, T *p)
{
    return (in.byte() & 15) == 15 ? nullptr : p;
}

// Runs up to count exports on device dev, each chosen with its arguments
// by the input, within the documented contract: buffers as large as the
// export writes, pointers that may be null where the export takes null.
inline void runExports(FuzzInput &in, std::uint32_t dev, int count)
{
    static ExportBuffers b;
    for (int i = 0; i < count && !in.empty(); ++i) {
        std::int32_t err = 0;
        std::uint32_t v = 0, n = 0;
        const std::uint8_t op = in.byte();
        const std::uint32_t id = (op & 0x80) ? in.word() : in.byte();
        const std::uint32_t sub = fuzzValue(in);
        switch (op % 14) {
        case 0:
            DEV_GetDeviceCaps(dev, 0, id, sub, orNull(in, b.value), orNull(in, b.value2), orNull(in, &err));
            break;
        case 1:
            v = fuzzValue(in);
            DEV_SetDeviceCaps(dev, 0, id, sub, v, fuzzValue(in), &err);
            break;
        case 2:
            DEV_GetDeviceName(dev, id & 3, orNull(in, b.name), &err);
            break;
        case 3:
            DEV_GetList(dev, 0, id, sub, orNull(in, b.list), orNull(in, &n), &err);
            break;
        case 4:
            DEV_GetData(dev, 0, id & 7, sub, fuzzValue(in), orNull(in, b.data.data()), orNull(in, &n), &err);
            break;
        case 5:
            in.fill(b.data.data(), in.byte() * 8u);
            DEV_SetData(dev, 0, id & 7, sub, fuzzValue(in), orNull(in, b.data.data()), 0, &err);
            break;
        case 6:
            in.fill(b.list, in.byte() * 4u);
            DEV_SetList(dev, 0, id & 31, 0, orNull(in, b.list), fuzzValue(in), orNull(in, &n), &err);
            break;
        case 7:
            DEV_TransferLiveImage(dev, 0, static_cast<std::int32_t>(sub), orNull(in, b.image.data()), &err);
            break;
        case 8:
            DEV_TransferMemImage(dev, 0, id, static_cast<std::int32_t>(sub), orNull(in, b.image.data()), &err);
            break;
        case 9:
            DEV_TransferMemImageStart(dev, 0, id, 0, 0, &err);
            break;
        case 10:
            DEV_TransferMemImageEnd(dev, 0, static_cast<std::int32_t>(sub), orNull(in, b.image.data()), &err);
            break;
        case 11:
            DEV_TransferLiveImageCache(dev, 0, orNull(in, b.image.data()), reinterpret_cast<std::uint32_t *>(&err));
            break;
        case 12: // the camera mode, which most exports depend on
            DEV_SetDeviceCaps(dev, 0, QUORIN_CAP_CAMERA_MODE, 0, id & 1, 0, &err);
            break;
        default: // a second open without a table (the entry of its code is used), or a close
            if (id & 1)
                DEV_OpenDevice(id >> 1 & 7, nullptr, sub, orNull(in, &n), &err);
            else
                DEV_CloseDevice(id >> 1 & 127, &err);
            break;
        }
    }
}

// Closes every slot the run left open.
inline void closeAll()
{
    std::int32_t err = 0;
    for (std::uint32_t d = 0; d < QUORIN_MAX_DEVICES; ++d)
        DEV_CloseDevice(d, &err);
}
