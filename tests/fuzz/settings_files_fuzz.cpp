// Fuzz target: the registry file, the pixel-gain file and the free-curve
// file, read by the code the library reads them with at open. The first
// byte chooses the file; the rest is its content.
#include "fuzz_input.h"

#include "data/registry_settings.h"
#include "data/settings_files.h"
#include "device/device_table.h"
#include "platform/registry_file.h"

#include <cstdio>
#include <string>
#include <unistd.h>

namespace {

std::string g_registryFile, g_gainFile, g_curveFile;
constexpr std::uint32_t kDevice = 0;

void writeFile(const std::string &path, const std::uint8_t *data, std::size_t size)
{
    std::FILE *f = std::fopen(path.c_str(), "wb");
    if (f == nullptr || std::fwrite(data, 1, size, f) != size || std::fclose(f) != 0)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    char folder[] = "/tmp/quorin-fuzz-XXXXXX";
    if (mkdtemp(folder) == nullptr)
        std::abort();
    const std::string base = folder;
    setenv("XDG_CONFIG_HOME", base.c_str(), 1);
    setenv("XDG_DATA_HOME", base.c_str(), 1);
    const std::string settings = quorin::settingsFolder();
    if (!quorin::platform::makeDirectories(base + "/kavrion") || !quorin::platform::makeDirectories(settings))
        std::abort();
    g_registryFile = base + "/kavrion/registry.reg";
    g_gainFile = settings + "PixelGainData_VELTA_003_1.gdf";
    g_curveFile = settings + "FreeLUTData_VELTA_0003.pal";
    std::int32_t err = 0;
    DEV_Init(&err);
    auto &rec = quorin::g_state.devices[kDevice];
    rec.inUse = 1;
    rec.cameraNumber = 3;
    if (!quorin::allocateDeviceBuffers(kDevice))
        std::abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::uint8_t which = data[0] % 3;
    ++data;
    --size;
    std::int32_t err = 0;
    switch (which) {
    case 0: {
        writeFile(g_registryFile, data, size);
        quorin::loadSettings(kDevice);
        // What was read is written back as it was read.
        bool wellFormed = false;
        const std::string_view text(reinterpret_cast<const char *>(data), size);
        const auto doc = quorin::platform::RegistryDocument::parse(text, &wellFormed);
        const std::string again = doc.serialise();
        if (wellFormed && quorin::platform::RegistryDocument::parse(again).serialise() != again)
            std::abort();
        break;
    }
    case 1:
        writeFile(g_gainFile, data, size);
        quorin::loadPixelGain(kDevice, &err);
        break;
    default:
        writeFile(g_curveFile, data, size);
        quorin::loadFreeLut(kDevice);
        break;
    }
    return 0;
}
