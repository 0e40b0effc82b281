// A K5 and a K5C on two host threads, each changing random valid settings
// between live transfers at 8 and 16 bits, for QUORIN_SOAK_SECONDS (30 s in
// the test command, less under the sanitizers; scripts/soak.sh runs 10
// minutes). Every call must succeed, no transfer may write past the
// picture, and the process may not grow.
#include "caps_fixture.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <thread>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace {

// The settings a host changes between transfers: each row takes its value
// from a list the camera offers, or from a fixed choice.
struct Change {
    uint32_t capability;
    int32_t list;              // list id to draw from, or -1
    std::vector<uint32_t> any; // else one of these
    bool colourOnly;
};

const Change kChanges[] = {
    {QUORIN_CAP_FRAME_RATE, QUORIN_LIST_FRAME_RATES, {}, false},
    {QUORIN_CAP_RESOLUTION, QUORIN_LIST_PICTURE_SIZES, {}, false},
    {QUORIN_CAP_SHUTTER, QUORIN_LIST_SHUTTER_SPEEDS, {}, false},
    {QUORIN_CAP_LUT_MODE, QUORIN_LIST_LUT_MODES, {}, false},
    {QUORIN_CAP_MODE_133, QUORIN_LIST_MODES_133, {}, false},
    {QUORIN_CAP_COLOUR_TEMPERATURE, QUORIN_LIST_COLOUR_TEMPERATURES, {}, true},
    {QUORIN_CAP_PIXEL_GAIN, -1, {0, 1, 2, 3}, false},
    {QUORIN_CAP_DEFECT_CORRECT, -1, {0, 1}, false},
    {QUORIN_CAP_KEEP_LIVE_CACHE, -1, {0, 1}, false},
    {QUORIN_CAP_SOFT_COLOUR, -1, {0, 1}, true},
    {QUORIN_CAP_IMAGE_OUTPUT, -1, {0x010000, 0x010001, 0x010002, 0x000002}, true},
    {QUORIN_CAP_IMAGE_OUTPUT, -1, {0, 1, 2}, false},
};

constexpr size_t kGuard = 256;

double soakSeconds()
{
    if (const char *s = std::getenv("QUORIN_SOAK_SECONDS"))
        return std::atof(s);
    return QUORIN_SOAK_DEFAULT_SECONDS;
}

// Bytes the C heap has handed out and not had back (glibc), 0 elsewhere.
size_t heapInUse()
{
#ifdef __GLIBC__
    const struct mallinfo2 m = mallinfo2();
    return m.uordblks + m.hblkhd;
#else
    return 0;
#endif
}

// Resident memory in bytes (Linux), 0 elsewhere and under the sanitizers,
// whose quarantine of freed blocks grows the process by design (their own
// leak check runs at exit instead).
size_t residentBytes()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return 0;
#else
    std::ifstream statm("/proc/self/statm");
    size_t pages = 0, resident = 0;
    if (!(statm >> pages >> resident))
        return 0;
    return resident * 4096;
#endif
}

struct Outcome {
    std::string failure; // the first failure, empty when none
    long transfers = 0, changes = 0;
};

void soak(uint32_t dev, VcamCamera *cam, bool colour, unsigned seed, std::chrono::steady_clock::time_point end,
          Outcome &out)
{
    std::mt19937 random(seed);
    std::vector<uint32_t> entries(1024);
    // One buffer for the largest picture, as a host keeps it.
    std::vector<uint8_t> image(size_t{1024} * 1024 * 3 * 2 + kGuard);
    auto fail = [&](const std::string &what, int32_t err) {
        if (out.failure.empty())
            out.failure = what + " (error " + std::to_string(err) + ")";
    };
    while (out.failure.empty() && std::chrono::steady_clock::now() < end) {
        // One to three changes, then a transfer.
        for (int n = std::uniform_int_distribution<int>(1, 3)(random); n > 0; --n) {
            const Change &c = kChanges[std::uniform_int_distribution<size_t>(0, std::size(kChanges) - 1)(random)];
            if (c.colourOnly && !colour)
                continue;
            uint32_t value = 0, count = 0;
            int32_t err = 0;
            if (c.list >= 0) {
                if (!DEV_GetList(dev, 0, static_cast<uint32_t>(c.list), 0, entries.data(), &count, &err) ||
                    count == 0) {
                    fail("list " + std::to_string(c.list), err);
                    break;
                }
                value = entries[std::uniform_int_distribution<uint32_t>(0, count - 1)(random)];
            } else {
                value = c.any[std::uniform_int_distribution<size_t>(0, c.any.size() - 1)(random)];
            }
            if (!DEV_SetDeviceCaps(dev, 0, c.capability, 0, value, 0, &err))
                fail("set " + std::to_string(c.capability) + " to " + std::to_string(value), err);
            ++out.changes;
        }
        uint32_t size = 0, output = 0, v2 = 0;
        int32_t err = 0;
        if (!DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_RESOLUTION, 0, &size, &v2, &err) ||
            !DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_IMAGE_OUTPUT, 0, &output, &v2, &err)) {
            fail("reading the picture's size", err);
            break;
        }
        const int32_t bits = std::uniform_int_distribution<int>(0, 1)(random) ? 16 : 8;
        const size_t planes = colour && ((output >> 8) & 0xFF) == 0 ? 3 : 1;
        const size_t bytes = size_t{size >> 16} * (size & 0xFFFF) * planes * (bits / 8);
        std::memset(image.data() + bytes, 0xA5, kGuard);
        if (!DEV_TransferLiveImage(dev, 0, bits, image.data(), &err) || err != QUORIN_SUCCESS) {
            fail("live transfer at " + std::to_string(bits) + " bits", err);
            break;
        }
        for (size_t i = bytes; i < bytes + kGuard; ++i)
            if (image[i] != 0xA5) {
                fail("the transfer wrote past the picture of " + std::to_string(bytes) + " bytes", err);
                break;
            }
        ++out.transfers;
        vcam_trace_clear(cam); // the virtual camera's record of the link calls is the test's, not the library's
    }
}

} // namespace

class Soak : public CapsTest {};

TEST_F(Soak, TwoCamerasOnTwoThreads)
{
    const double seconds = soakSeconds();
    // Camera numbers of their own: on Windows the settings they save at
    // close go to the one registry that the other tests read.
    VcamConfig k5 = config(VCAM_K5, 7), k5c = config(VCAM_K5C, 7);
    k5.cameraNumber = 901;
    k5c.cameraNumber = 902;
    const uint32_t devs[2] = {open(k5), open(k5c)};
    // Every buffer at its largest first (the library commits its buffers
    // whole, but the system lends the pages as they are first touched).
    for (const uint32_t dev : devs) {
        std::vector<uint8_t> image(size_t{1024} * 1024 * 3 * 2);
        int32_t err = 0;
        EXPECT_EQ(DEV_SetDeviceCaps(dev, 0, QUORIN_CAP_RESOLUTION, 0, 1024u << 16 | 1024u, 0, &err), 1);
        EXPECT_EQ(DEV_SetDeviceCaps(dev, 0, QUORIN_CAP_KEEP_LIVE_CACHE, 0, 1, 0, &err), 1);
        for (const int32_t bits : {8, 16})
            EXPECT_EQ(DEV_TransferLiveImage(dev, 0, bits, image.data(), &err), 1);
        uint32_t uerr = 0;
        EXPECT_EQ(DEV_TransferLiveImageCache(dev, 0, image.data(), &uerr), 1);
    }
    // A tenth of the time settles the heap and the thread team; from there
    // on neither the heap nor the process may grow.
    const auto start = std::chrono::steady_clock::now();
    const auto end = start + std::chrono::milliseconds(static_cast<long>(seconds * 1000));
    Outcome outcomes[2];
    std::thread first(soak, devs[0], cams_[0]->get(), false, 1u, end, std::ref(outcomes[0]));
    std::thread second(soak, devs[1], cams_[1]->get(), true, 2u, end, std::ref(outcomes[1]));
    std::this_thread::sleep_until(start + std::chrono::milliseconds(static_cast<long>(seconds * 100)));
    const size_t heapBefore = heapInUse(), before = residentBytes();
    first.join();
    second.join();
    const size_t heapAfter = heapInUse(), after = residentBytes();
    for (const Outcome &o : outcomes) {
        EXPECT_EQ(o.failure, "");
        EXPECT_GT(o.transfers, 0);
        EXPECT_GT(o.changes, 0);
    }
    std::printf("soak: %.0f s, %ld and %ld transfers, %ld and %ld changes; heap in use %zu -> %zu KiB, "
                "resident %zu -> %zu KiB\n",
                seconds, outcomes[0].transfers, outcomes[1].transfers, outcomes[0].changes, outcomes[1].changes,
                heapBefore / 1024, heapAfter / 1024, before / 1024, after / 1024);
    // The heap holds the threads' two pictures at most; the process may
    // vary by what the heap keeps of freed blocks, not by a leak's pace.
    if (heapBefore != 0) {
        EXPECT_LT(heapAfter, heapBefore + (size_t{4} << 20)) << "the heap grew";
    }
    if (before != 0) {
        EXPECT_LT(after, before + (size_t{64} << 20)) << "the process grew";
    }
}
