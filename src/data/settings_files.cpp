#include "data/settings_files.h"

#include "device/device_table.h"
#include "platform/platform.h"

#include <cstdio>
#include <memory>

namespace quorin {
namespace {

constexpr std::size_t kGainEntries = 1024 * 1024;
// The pixel-gain name holds at most three digits of the camera number.
constexpr std::uint32_t kMaxGainFileCamera = 999;

struct FileCloser {
    void operator()(std::FILE *f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

std::string gainFilePath(const std::string &folder, std::uint32_t cameraNumber)
{
    char name[30];
    std::snprintf(name, sizeof name, "PixelGainData_VELTA_%03d_1.gdf", static_cast<int>(cameraNumber));
    return folder + name;
}

std::string freeLutPath(const std::string &folder, std::uint32_t cameraNumber)
{
    char name[256];
    std::snprintf(name, sizeof name, "FreeLUTData_VELTA_%04d.pal", static_cast<int>(cameraNumber));
    return folder + name;
}

bool freeLutsAllocated(std::uint32_t deviceNo)
{
    auto &b = g_state.buffers;
    return b.freeLut[0][deviceNo] && b.freeLut[1][deviceNo] && b.freeLut[2][deviceNo];
}

} // namespace

std::string settingsFolder()
{
    std::string base = platform::localAppDataFolder();
    if (base.empty())
        return {};
    const char sep = platform::pathSeparator();
    return base + sep + "Kavrion" + sep + "QELMAR" + sep;
}

std::uint32_t loadPixelGain(std::uint32_t deviceNo, std::int32_t *err)
{
    const DeviceRecord &rec = device(deviceNo);
    std::uint16_t *table = g_state.buffers.gainTableB[deviceNo];
    std::string folder = settingsFolder();
    if ((!folder.empty() && !platform::isDirectory(folder)) || rec.cameraNumber > kMaxGainFileCamera ||
        table == nullptr) {
        *err = QUORIN_ERR_GAIN_FILE_READ;
        return 0;
    }
    File f(std::fopen(gainFilePath(folder, rec.cameraNumber).c_str(), "rb"));
    std::size_t read = f ? std::fread(table, 2, kGainEntries, f.get()) : 0;
    if (read != kGainEntries) {
        *err = QUORIN_ERR_GAIN_FILE_READ;
        return 0;
    }
    *err = QUORIN_SUCCESS;
    return 1;
}

std::uint32_t savePixelGain(std::uint32_t deviceNo, std::int32_t *err)
{
    const DeviceRecord &rec = device(deviceNo);
    const std::uint16_t *table = g_state.buffers.gainTableB[deviceNo];
    std::string folder = settingsFolder();
    if (!folder.empty() && !platform::isDirectory(folder))
        platform::makeDirectories(folder);
    if (rec.cameraNumber > kMaxGainFileCamera || table == nullptr ||
        !platform::replaceFile(gainFilePath(folder, rec.cameraNumber), table, kGainEntries * 2)) {
        *err = QUORIN_ERR_GAIN_FILE_WRITE;
        return 0;
    }
    *err = QUORIN_SUCCESS;
    return 1;
}

void loadFreeLut(std::uint32_t deviceNo)
{
    std::string folder = settingsFolder();
    if (folder.empty() || !platform::isDirectory(folder) || !freeLutsAllocated(deviceNo))
        return;
    File f(std::fopen(freeLutPath(folder, device(deviceNo).cameraNumber).c_str(), "rb"));
    if (!f)
        return;
    // Each curve is read only when the one before came in whole.
    for (int ch = 0; ch < 3; ++ch)
        if (std::fread(g_state.buffers.freeLut[ch][deviceNo], 2, kLutEntries, f.get()) != kLutEntries)
            return;
}

bool saveFreeLut(std::uint32_t deviceNo)
{
    if (!freeLutsAllocated(deviceNo))
        return true;
    std::uint16_t curves[3 * kLutEntries];
    bool identity = true;
    for (int ch = 0; ch < 3; ++ch)
        for (std::size_t i = 0; i < kLutEntries; ++i) {
            curves[ch * kLutEntries + i] = g_state.buffers.freeLut[ch][deviceNo][i];
            identity = identity && curves[ch * kLutEntries + i] == i;
        }
    // The curves are never the reason to create the folder; only curves
    // that would be lost without it make the save fail.
    std::string folder = settingsFolder();
    if (folder.empty() || !platform::isDirectory(folder))
        return identity;
    return platform::replaceFile(freeLutPath(folder, device(deviceNo).cameraNumber), curves, sizeof curves);
}

} // namespace quorin
