#include "data/registry_settings.h"

#include "data/lut.h"
#include "device/device_table.h"
#include "platform/platform.h"

#include <cstddef>
#include <cstdio>

namespace quorin {
namespace {

constexpr const char *kParentKey = "SOFTWARE\\KAVRION\\QUORIN";

// Which of the three size variables of the load chain a value uses.
enum SizeGroup { kWord, kDouble, kFlag };

struct StoredValue {
    const char *name;
    std::uint32_t type;
    SizeGroup group;
    std::size_t offset; // of the field in DeviceRecord
};

constexpr std::size_t kLut = offsetof(DeviceRecord, userLut);
constexpr std::size_t kBrightness = kLut + offsetof(LutSettings, brightness);
constexpr std::size_t kContrast = kLut + offsetof(LutSettings, contrast);
constexpr std::size_t kGain = kLut + offsetof(LutSettings, gain);
constexpr std::size_t kGamma = kLut + offsetof(LutSettings, gamma);
constexpr std::size_t kPosiNega = kLut + offsetof(LutSettings, posiNega);
constexpr std::size_t kSoft = offsetof(DeviceRecord, softColorTemp);

using platform::kRegBinary;
using platform::kRegDword;

// The 20 values in the order they are written and read.
constexpr StoredValue kValues[20] = {
    {"LUTUser1BrightnessR", kRegDword, kWord, kBrightness},
    {"LUTUser1BrightnessG", kRegDword, kWord, kBrightness + 4},
    {"LUTUser1BrightnessB", kRegDword, kWord, kBrightness + 8},
    {"LUTUser1ContrastR", kRegDword, kWord, kContrast},
    {"LUTUser1ContrastG", kRegDword, kWord, kContrast + 4},
    {"LUTUser1ContrastB", kRegDword, kWord, kContrast + 8},
    {"LUTUser1GainR", kRegBinary, kDouble, kGain},
    {"LUTUser1GainG", kRegBinary, kDouble, kGain + 8},
    {"LUTUser1GainB", kRegBinary, kDouble, kGain + 16},
    {"LUTUser1GammaR", kRegBinary, kDouble, kGamma},
    {"LUTUser1GammaG", kRegBinary, kDouble, kGamma + 8},
    {"LUTUser1GammaB", kRegBinary, kDouble, kGamma + 16},
    {"LUTUser1PosiNegaR", kRegBinary, kFlag, kPosiNega},
    {"LUTUser1PosiNegaG", kRegBinary, kFlag, kPosiNega + 1},
    {"LUTUser1PosiNegaB", kRegBinary, kFlag, kPosiNega + 2},
    {"LUTUser1FreeMode", kRegBinary, kFlag, kLut + offsetof(LutSettings, freeMode)},
    {"PixelGain", kRegDword, kWord, offsetof(DeviceRecord, pixelGainMode)},
    {"SoftColorTempR", kRegDword, kWord, kSoft},
    {"SoftColorTempG", kRegDword, kWord, kSoft + 4},
    {"SoftColorTempB", kRegDword, kWord, kSoft + 8},
};

constexpr std::uint32_t kGroupSize[3] = {4, 8, 1};

std::uint8_t *field(DeviceRecord &rec, const StoredValue &v)
{
    return reinterpret_cast<std::uint8_t *>(&rec) + v.offset;
}

// "CAM%d\n" below the parent key; the line feed is part of the name.
void cameraKeyPath(const DeviceRecord &rec, char (&path)[64])
{
    std::snprintf(path, sizeof path, "%s\\CAM%d\n", kParentKey, static_cast<int>(rec.cameraNumber));
}

} // namespace

std::uint32_t loadSettings(std::uint32_t deviceNo)
{
    DeviceRecord &rec = device(deviceNo);
    platform::RegistryKey parent = nullptr, key = nullptr;
    if (!platform::registryOpenKey(kParentKey, &parent))
        return 0;
    char path[64];
    cameraKeyPath(rec, path);
    if (!platform::registryOpenKey(path, &key)) {
        platform::registryCloseKey(parent);
        return 0;
    }
    // One size variable per group for the whole chain: a value stored
    // shorter than expected lowers the limit for the rest of its group.
    std::uint32_t sizes[3] = {kGroupSize[0], kGroupSize[1], kGroupSize[2]};
    bool all = true;
    for (const StoredValue &v : kValues)
        if (!platform::registryQueryValue(key, v.name, nullptr, field(rec, v), &sizes[v.group])) {
            all = false;
            break;
        }
    platform::registryCloseKey(key);
    platform::registryCloseKey(parent);
    return all ? 1 : 0;
}

bool saveSettings(std::uint32_t deviceNo)
{
    DeviceRecord &rec = device(deviceNo);
    char path[64];
    cameraKeyPath(rec, path);
    platform::RegistryKey key = nullptr;
    if (!platform::registryCreateKey(path, &key))
        return false;
    bool all = true;
    for (const StoredValue &v : kValues)
        all = platform::registrySetValue(key, v.name, v.type, field(rec, v), kGroupSize[v.group]) && all;
    return platform::registryCloseKey(key) && all;
}

void applyDefaultSettings(DeviceRecord &rec)
{
    rec.userLut = identityLutSettings();
    rec.pixelGainMode = 1;
    for (auto &g : rec.softColorTemp)
        g = 16;
}

} // namespace quorin
