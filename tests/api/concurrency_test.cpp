// Cameras transferring at the same time from several host threads. The
// library keeps every buffer per device and shares only its thread team,
// so each camera's pictures must be the same as when it transfers alone
// (and the ThreadSanitizer build must find no race). Two threads on one
// camera break the host's rule to serialise the calls for a camera: that
// camera's pictures are undefined, but the other cameras' stay exact and
// nothing is touched outside the library's own buffers (the sanitizer
// build checks the latter).
#include "caps_fixture.h"

#include <thread>

#if defined(__SANITIZE_THREAD__)
#define QUORIN_UNDER_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QUORIN_UNDER_TSAN 1
#endif
#endif

namespace {

// The cameras every case draws from.
constexpr uint32_t kModels[] = {VCAM_K5C, VCAM_K5, VCAM_K5C, VCAM_K5};

struct Transfers {
    size_t camera; // into kModels
    uint32_t bits;
};

struct Case {
    const char *name;
    std::vector<Transfers> cameras;
    int threadsOnFirst; // host threads transferring on the first camera
};

const Case kCases[] = {
    {"two cameras, one thread each", {{0, 8}, {1, 8}}, 1},
    {"four cameras, one thread each", {{0, 8}, {1, 16}, {2, 16}, {3, 8}}, 1},
    {"two threads on one camera beside two cameras", {{0, 8}, {2, 16}, {1, 8}}, 2},
};

constexpr int kFrames = 16; // the virtual camera's live scene repeats every 16 frames

} // namespace

TEST_F(CapsTest, CamerasTransferFromSeveralThreads)
{
    std::vector<uint32_t> opened;
    for (const uint32_t model : kModels) {
        opened.push_back(open(model, 2));
        uint32_t v = 0, v2 = 0;
        int32_t err = 0;
        ASSERT_EQ(DEV_GetDeviceCaps(opened.back(), 0, QUORIN_CAP_RESOLUTION, 0, &v, &v2, &err), 1);
        ASSERT_EQ(DEV_GetDeviceCaps(opened.back(), 0, QUORIN_CAP_VALUE_73, 0, &v, &v2, &err), 1);
    }
    for (const Case &c : kCases) {
        SCOPED_TRACE(c.name);
#ifdef QUORIN_UNDER_TSAN
        if (c.threadsOnFirst > 1)
            continue; // a race by the host's own doing, which the sanitizer rightly reports
#endif
        std::vector<uint32_t> devs;
        std::vector<size_t> bytes;
        for (const Transfers &t : c.cameras) {
            devs.push_back(opened[t.camera]);
            bytes.push_back(size_t{1024} * 1024 * (kModels[t.camera] == VCAM_K5C ? 3 : 1) * (t.bits / 8));
        }
        const size_t n = devs.size();
        std::vector<std::vector<std::vector<uint8_t>>> alone(n);
        for (size_t k = 0; k < n; ++k)
            for (int i = 0; i < kFrames; ++i) {
                std::vector<uint8_t> image(bytes[k]);
                int32_t err = 0;
                ASSERT_EQ(DEV_TransferLiveImage(devs[k], 0, c.cameras[k].bits, image.data(), &err), 1);
                alone[k].push_back(std::move(image));
            }

        std::vector<int> same(n, 1);
        auto run = [&](size_t k) {
            std::vector<uint8_t> image(bytes[k]);
            for (int i = 0; i < kFrames; ++i) {
                int32_t err = 0;
                if (!DEV_TransferLiveImage(devs[k], 0, c.cameras[k].bits, image.data(), &err) ||
                    image != alone[k][i])
                    same[k] = 0;
            }
        };
        std::vector<std::thread> hosts;
        for (int t = 1; t < c.threadsOnFirst; ++t)
            hosts.emplace_back([&] {
                std::vector<uint8_t> image(bytes[0]);
                for (int i = 0; i < kFrames; ++i) {
                    int32_t err = 0;
                    DEV_TransferLiveImage(devs[0], 0, c.cameras[0].bits, image.data(), &err);
                }
            });
        for (size_t k = 0; k < n; ++k)
            hosts.emplace_back(run, k);
        for (std::thread &t : hosts)
            t.join();
        for (size_t k = c.threadsOnFirst > 1 ? 1 : 0; k < n; ++k)
            EXPECT_TRUE(same[k]) << "camera " << k;
    }
}
