// Two cameras transferring at the same time from two host threads: the
// library keeps every buffer per device, so the pictures must be the same
// as when each camera transfers alone (and the thread sanitizer build must
// find no race).
#include "caps_fixture.h"

#include <thread>

TEST_F(CapsTest, TwoDevicesTransferFromTwoThreads)
{
    const uint32_t colour = open(VCAM_K5C, 7);
    const uint32_t mono = open(VCAM_K5, 2);
    for (uint32_t dev : {colour, mono}) {
        uint32_t v = 0, v2 = 0;
        int32_t err = 0;
        ASSERT_EQ(DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_RESOLUTION, 0, &v, &v2, &err), 1);
        ASSERT_EQ(DEV_GetDeviceCaps(dev, 0, QUORIN_CAP_VALUE_73, 0, &v, &v2, &err), 1);
    }
    const size_t colourBytes = 1024 * 1024 * 3, monoBytes = 1024 * 1024;
    // Alone first: the virtual camera's live scene repeats every 16 frames.
    std::vector<std::vector<uint8_t>> alone[2];
    for (int k = 0; k < 2; ++k)
        for (int i = 0; i < 16; ++i) {
            std::vector<uint8_t> image(k == 0 ? colourBytes : monoBytes);
            int32_t err = 0;
            ASSERT_EQ(DEV_TransferLiveImage(k == 0 ? colour : mono, 0, 8, image.data(), &err), 1);
            alone[k].push_back(std::move(image));
        }
    bool same[2] = {true, true};
    auto run = [&](int k) {
        const uint32_t dev = k == 0 ? colour : mono;
        std::vector<uint8_t> image(k == 0 ? colourBytes : monoBytes);
        for (int i = 0; i < 16; ++i) {
            int32_t err = 0;
            if (!DEV_TransferLiveImage(dev, 0, 8, image.data(), &err) || image != alone[k][i])
                same[k] = false;
        }
    };
    std::thread a(run, 0), b(run, 1);
    a.join();
    b.join();
    EXPECT_TRUE(same[0]) << "colour camera";
    EXPECT_TRUE(same[1]) << "monochrome camera";
}
