// Fixture of the tests over every id: cameras as they come up on link
// type 7, and kKept for a word a call leaves as it was.
#pragma once

#include "caps_fixture.h"

#include <cstdio>
#include <cstdlib>
#include <string>

inline constexpr uint32_t kKept = 0xDEADBEEF;

// The cameras keep camera number 1. On Windows its settings outlive the
// test in the registry and the settings folder: each test starts without
// the files and leaves the stored settings at their defaults.
class EveryId : public CapsTest {
protected:
    void SetUp() override
    {
        CapsTest::SetUp();
#ifdef _WIN32
        if (const char *base = std::getenv("LOCALAPPDATA"))
            for (const char *name : {"PixelGainData_VELTA_001_1.gdf", "FreeLUTData_VELTA_0001.pal"})
                std::remove((std::string(base) + "\\Kavrion\\QELMAR\\" + name).c_str());
#endif
    }
    void TearDown() override
    {
        uint8_t identity[76];
        uint32_t size = 0;
        int32_t err = 0;
        for (uint32_t d = 0; d < QUORIN_MAX_DEVICES; ++d)
            if (DEV_GetData(d, 0, QUORIN_DATA_LUT_SETTINGS, 1, 0, identity, &size, &err) == 1) {
                DEV_SetData(d, 0, QUORIN_DATA_LUT_SETTINGS, 11, 0, identity, 0, &err);
                DEV_SetDeviceCaps(d, 0, QUORIN_CAP_PIXEL_GAIN, 0, 1, 0, &err);
                for (uint32_t id : {QUORIN_CAP_SOFT_GAIN_R, QUORIN_CAP_SOFT_GAIN_G, QUORIN_CAP_SOFT_GAIN_B})
                    DEV_SetDeviceCaps(d, 0, id, 0, 16, 0, &err);
            }
        CapsTest::TearDown();
    }
};
