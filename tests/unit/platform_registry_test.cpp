// The per-user registry through the platform layer: the registry file on
// Linux, the system registry on Windows (under Wine in the test run).
#include "platform/platform.h"

#include "support/temp_env.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

using namespace quorin::platform;

namespace {

// A key no other test or run uses.
std::string freshKey()
{
    std::random_device rd;
    return "SOFTWARE\\KAVRION\\QUORIN-TEST\\K" + std::to_string(rd()) + "\n";
}

} // namespace

class PlatformRegistry : public ::testing::Test {
protected:
    testing_support::TempHome home_;
};

TEST_F(PlatformRegistry, ValuesSurviveClosingAndReopening)
{
    const std::string path = freshKey();
    RegistryKey key = nullptr;
    EXPECT_FALSE(registryOpenKey(path.c_str(), &key)) << "the key does not exist yet";
    ASSERT_TRUE(registryCreateKey(path.c_str(), &key));
    std::uint32_t word = 0x01020304;
    const std::uint8_t blob[8] = {0, 0, 0, 0, 0, 0, 0xf0, 0x3f};
    ASSERT_TRUE(registrySetValue(key, "Word", kRegDword, reinterpret_cast<const std::uint8_t *>(&word), 4));
    ASSERT_TRUE(registrySetValue(key, "Blob", kRegBinary, blob, 8));
    registryCloseKey(key);

    ASSERT_TRUE(registryOpenKey(path.c_str(), &key));
    std::uint32_t type = 0, size = 4, got = 0;
    ASSERT_TRUE(registryQueryValue(key, "Word", &type, reinterpret_cast<std::uint8_t *>(&got), &size));
    EXPECT_EQ(got, word);
    EXPECT_EQ(type, kRegDword);
    std::uint8_t back[8] = {};
    size = 8;
    ASSERT_TRUE(registryQueryValue(key, "Blob", &type, back, &size));
    EXPECT_EQ(type, kRegBinary);
    EXPECT_EQ(back[7], 0x3f);
    registryCloseKey(key);
}

TEST_F(PlatformRegistry, QueryTooSmallFailsAndReportsTheStoredSize)
{
    const std::string path = freshKey();
    RegistryKey key = nullptr;
    ASSERT_TRUE(registryCreateKey(path.c_str(), &key));
    const std::uint8_t blob[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    ASSERT_TRUE(registrySetValue(key, "Blob", kRegBinary, blob, 8));
    registryCloseKey(key);

    ASSERT_TRUE(registryOpenKey(path.c_str(), &key));
    std::uint8_t small[4] = {9, 9, 9, 9};
    std::uint32_t size = 4;
    EXPECT_FALSE(registryQueryValue(key, "Blob", nullptr, small, &size));
    EXPECT_EQ(size, 8u);
    // A larger buffer succeeds and reports the stored size.
    std::uint8_t big[16] = {};
    size = 16;
    EXPECT_TRUE(registryQueryValue(key, "Blob", nullptr, big, &size));
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(big[7], 8);
    size = 0;
    EXPECT_FALSE(registryQueryValue(key, "Missing", nullptr, big, &size));
    registryCloseKey(key);
}
