// The Linux registry file on disk: where it is, what it holds, and that a
// damaged file never stops the registry from working.
#include "platform/platform.h"

#include "support/temp_env.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace quorin::platform;
using testing_support::readFile;

class RegistryFileOnDisk : public ::testing::Test {
protected:
    std::string file() const { return home_.path() + "/config/kavrion/registry.reg"; }
    void write(const std::string &text)
    {
        std::filesystem::create_directories(home_.path() + "/config/kavrion");
        std::ofstream(file(), std::ios::binary) << text;
    }
    testing_support::TempHome home_;
};

TEST_F(RegistryFileOnDisk, CameraKeyIsWrittenInTheWineDialectAndNoTemporaryIsLeft)
{
    RegistryKey key = nullptr;
    ASSERT_TRUE(registryCreateKey("SOFTWARE\\KAVRION\\QUORIN\\CAM3\n", &key));
    std::uint32_t v = 10;
    ASSERT_TRUE(registrySetValue(key, "PixelGain", kRegDword, reinterpret_cast<std::uint8_t *>(&v), 4));
    registryCloseKey(key);
    std::string text = readFile(file());
    EXPECT_NE(text.find("[SOFTWARE\\\\KAVRION\\\\QUORIN\\\\CAM3\\n]\n\"PixelGain\"=dword:0000000a\n"),
              std::string::npos)
        << text;
    int entries = 0;
    for (auto &e : std::filesystem::directory_iterator(home_.path() + "/config/kavrion")) {
        (void)e;
        ++entries;
    }
    EXPECT_EQ(entries, 1);
}

TEST_F(RegistryFileOnDisk, KeysWrittenLaterKeepEarlierOnes)
{
    RegistryKey a = nullptr, b = nullptr;
    std::uint32_t v = 1;
    ASSERT_TRUE(registryCreateKey("A", &a));
    ASSERT_TRUE(registryCreateKey("B", &b));
    registrySetValue(a, "V", kRegDword, reinterpret_cast<std::uint8_t *>(&v), 4);
    registrySetValue(b, "V", kRegDword, reinterpret_cast<std::uint8_t *>(&v), 4);
    registryCloseKey(a);
    registryCloseKey(b);
    EXPECT_TRUE(registryOpenKey("A", &a));
    registryCloseKey(a);
}

TEST_F(RegistryFileOnDisk, CorruptFileReadsAsEmptyAndIsReplacedOnWrite)
{
    write("WINE REGISTRY Version 2\n[CAM\n\"x\"=dword:zz\n");
    RegistryKey key = nullptr;
    EXPECT_FALSE(registryOpenKey("CAM", &key));
    ASSERT_TRUE(registryCreateKey("CAM", &key));
    std::uint32_t v = 3, size = 4, got = 0;
    EXPECT_FALSE(registryQueryValue(key, "x", nullptr, reinterpret_cast<std::uint8_t *>(&got), &size));
    registrySetValue(key, "x", kRegDword, reinterpret_cast<std::uint8_t *>(&v), 4);
    registryCloseKey(key);
    ASSERT_TRUE(registryOpenKey("CAM", &key));
    size = 4;
    EXPECT_TRUE(registryQueryValue(key, "x", nullptr, reinterpret_cast<std::uint8_t *>(&got), &size));
    EXPECT_EQ(got, 3u);
    registryCloseKey(key);
}

TEST_F(RegistryFileOnDisk, UnwritableFolderLosesTheWriteButNotTheProcess)
{
    write("");
    std::filesystem::permissions(home_.path() + "/config/kavrion", std::filesystem::perms::owner_read |
                                                                       std::filesystem::perms::owner_exec);
    RegistryKey key = nullptr;
    ASSERT_TRUE(registryCreateKey("CAM", &key));
    std::uint32_t v = 3;
    registrySetValue(key, "x", kRegDword, reinterpret_cast<std::uint8_t *>(&v), 4);
    registryCloseKey(key);
    std::filesystem::permissions(home_.path() + "/config/kavrion", std::filesystem::perms::owner_all);
    if (readFile(file()).empty()) { // root ignores the permission bits
        EXPECT_FALSE(registryOpenKey("CAM", &key));
    }
}
