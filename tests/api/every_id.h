// Fixture of the tests over every id: cameras as they come up on link
// type 7, and kKept for a word a call leaves as it was.
#pragma once

#include "caps_fixture.h"

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

inline constexpr uint32_t kKept = 0xDEADBEEF;

// The cameras keep camera number 1. On Windows its settings outlive the
// test in the registry and the settings folder: each test starts and ends
// without the folder (as the unit tests of the files do; a pixel-gain save
// creates it, and later closes would keep their curves in it) and leaves
// the stored settings at their defaults.
class EveryId : public CapsTest {
protected:
    void SetUp() override
    {
        CapsTest::SetUp();
        removeSettingsFolder();
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
        removeSettingsFolder();
    }
    static void removeSettingsFolder()
    {
#ifdef _WIN32
        if (const char *base = std::getenv("LOCALAPPDATA")) {
            std::error_code error;
            std::filesystem::remove_all(std::string(base) + "\\Kavrion\\QELMAR", error);
            if (error)
                ADD_FAILURE() << "the settings folder could not be removed: " << error.message();
        }
#endif
    }
};
