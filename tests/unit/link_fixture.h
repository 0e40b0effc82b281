// Fixture for tests of the command link: the library initialised with a
// clean interface registry, and every device closed again afterwards.
#pragma once

#include "device/device_table.h"
#include "quorin/quorin.h"
#include "support/scripted_link.h"
#include "support/temp_env.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

class LinkTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::memset(quorin::g_state.interfaces, 0, sizeof quorin::g_state.interfaces);
        std::int32_t err = 0;
        DEV_Init(&err);
    }
    void TearDown() override
    {
        std::int32_t err = 0;
        for (std::uint32_t d = 0; d < QUORIN_MAX_DEVICES; ++d)
            DEV_CloseDevice(d, &err);
        DEV_Exit(&err);
    }

    // Opens a device through a link table; returns its number.
    std::uint32_t open(const InterfaceTable &table, std::uint32_t hostArg = 5)
    {
        std::uint32_t deviceNo = 99;
        std::int32_t err = 0;
        EXPECT_EQ(DEV_OpenDevice(table.type, &table, hostArg, &deviceNo, &err), 1);
        // What the test looks at starts after the camera's start-up.
        if (auto *link = testing_support::ScriptedLink::active)
            link->clearRecord();
        return deviceNo;
    }

    testing_support::TempHome home_;
};

// Reply frame bytes as a camera sends them for a link type.
inline std::vector<std::uint8_t> replyFrame(std::uint32_t type, std::uint16_t code, std::uint32_t v1,
                                            std::uint32_t v2)
{
    if (type == 2)
        return {std::uint8_t(code >> 8), std::uint8_t(code), 0, 0, std::uint8_t(v1 >> 8), std::uint8_t(v1),
                std::uint8_t(v1 >> 24), std::uint8_t(v1 >> 16), std::uint8_t(v2 >> 8), std::uint8_t(v2),
                std::uint8_t(v2 >> 24), std::uint8_t(v2 >> 16)};
    return {std::uint8_t(code >> 8), std::uint8_t(code),   std::uint8_t(v1 >> 24), std::uint8_t(v1 >> 16),
            std::uint8_t(v1 >> 8),   std::uint8_t(v1),     std::uint8_t(v2 >> 24), std::uint8_t(v2 >> 16),
            std::uint8_t(v2 >> 8),   std::uint8_t(v2)};
}
