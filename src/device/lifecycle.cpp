// The lifecycle exports, the interface registry and the unload hook.
#include "caps/operating_mode.h"
#include "data/registry_settings.h"
#include "data/settings_files.h"
#include "device/device_table.h"
#include "image/schedule/team.h"
#include "device/startup.h"
#include "link/transaction.h"
#include "quorin/quorin.h"

#include <cstring>

namespace quorin {
namespace {

void setPresetLuts()
{
    struct Preset {
        double gain;
        double gamma;
        std::uint8_t posiNega;
    };
    // LUT modes 1..5: neutral, gamma 0.7, gain 2, gain 4, negative.
    constexpr Preset kPresets[5] = {{1.0, 1.0, 0}, {1.0, 0.7, 0}, {2.0, 1.0, 0}, {4.0, 1.0, 0}, {1.0, 1.0, 1}};
    for (int i = 0; i < 5; ++i) {
        LutSettings &p = g_state.presets[i];
        p = LutSettings{};
        for (int ch = 0; ch < 3; ++ch) {
            p.gain[ch] = kPresets[i].gain;
            p.gamma[ch] = kPresets[i].gamma;
            p.posiNega[ch] = kPresets[i].posiNega;
        }
    }
}

// The entry for interfaceCode: the first whose type matches, else the
// lowest free one, else -1.
int findInterfaceEntry(std::uint32_t interfaceCode)
{
    for (std::uint32_t i = 0; i < kMaxInterfaces; ++i)
        if (g_state.interfaces[i].type == interfaceCode)
            return static_cast<int>(i);
    for (std::uint32_t i = 0; i < kMaxInterfaces; ++i)
        if (g_state.interfaces[i].inUseWord == 0)
            return static_cast<int>(i);
    return -1;
}

} // namespace

void onProcessDetach(bool threadsGone)
{
    for (std::uint32_t d = 0; d < kMaxDevices; ++d) {
        std::int32_t scratch = 0;
        DEV_CloseDevice(d, &scratch);
    }
    destroyLibraryHeap();
    if (!threadsGone) // else the team's helpers ended with the process, whatever they held
        image::team::stopAtUnload();
    g_state.initialised = 0;
}

} // namespace quorin

using namespace quorin;

extern "C" int32_t DEV_Init(int32_t *err)
{
    std::memset(g_state.devices, 0, sizeof g_state.devices);
    std::memset(&g_state.buffers, 0, sizeof g_state.buffers);
    setPresetLuts();
    for (auto &gain : g_state.userGains)
        gain = 16;
    g_state.libraryHeap = platform::heapCreate(0x1E0000);
    g_state.heapAlive = g_state.libraryHeap != nullptr;
    if (err != nullptr)
        *err = QUORIN_SUCCESS;
    g_state.initialised = 1;
    return 1;
}

extern "C" int32_t DEV_Exit(int32_t *err)
{
    destroyLibraryHeap();
    image::team::stop();
    if (err != nullptr)
        *err = QUORIN_SUCCESS;
    g_state.initialised = 0;
    return 1;
}

extern "C" int32_t DEV_OpenDevice(uint32_t interfaceCode, const InterfaceTable *table, uint32_t hostDeviceArg,
                                  uint32_t *outDeviceNo, int32_t *err)
{
    std::int32_t scratch = 0;
    if (err == nullptr)
        err = &scratch;
    if (!g_state.initialised) {
        *err = QUORIN_ERR_NOT_INITIALISED;
        return 0;
    }
    if (outDeviceNo == nullptr) {
        *err = QUORIN_ERR_OUT_OF_RANGE;
        return 0;
    }
    int index = findInterfaceEntry(interfaceCode);
    if (index < 0) {
        *err = QUORIN_ERR_NO_FREE_ENTRY;
        return 0;
    }
    InterfaceTable &entry = g_state.interfaces[index];
    if (entry.inUseWord == 0) {
        if (table == nullptr) {
            *err = QUORIN_ERR_OUT_OF_RANGE;
            return 0;
        }
        std::memcpy(&entry, table, sizeof entry);
    }
    if (entry.Open == nullptr) {
        *err = QUORIN_ERR_NOT_SUPPORTED;
        return 0;
    }
    std::uint32_t handle = 0;
    if (!entry.Open(hostDeviceArg, &handle, err))
        return 0;

    for (std::uint32_t d = 0; d < kMaxDevices; ++d)
        if (g_state.devices[d].inUse == 0) {
            *outDeviceNo = d;
            break;
        }
    const std::uint32_t deviceNo = *outDeviceNo;
    if (deviceNo >= kMaxDevices) {
        // The link stays open and the entry filled: the host's Open is not undone.
        *err = QUORIN_ERR_NO_FREE_ENTRY;
        return 0;
    }

    DeviceRecord &rec = g_state.devices[deviceNo];
    rec.inUse = 1;
    rec.interfaceIndex = static_cast<std::uint32_t>(index);
    rec.linkHandle = handle;
    rec.hostDeviceArg = hostDeviceArg;
    rec.interfaceCode = interfaceCode;

    runStartup(deviceNo, err); // an open succeeds even when start-up fails

    // The host's starting count may be anything: count with wrap-around.
    entry.refCount = static_cast<std::int32_t>(static_cast<std::uint32_t>(entry.refCount) + 1u);
    g_state.openCount = static_cast<std::int32_t>(static_cast<std::uint32_t>(g_state.openCount) + 1u);
    return 1;
}

extern "C" int32_t DEV_CloseDevice(uint32_t deviceNo, int32_t *err)
{
    std::int32_t scratch = 0;
    if (err == nullptr)
        err = &scratch;
    if (!g_state.initialised) {
        *err = QUORIN_ERR_NOT_INITIALISED;
        return 0;
    }
    *err = QUORIN_SUCCESS;
    if (deviceNo >= kMaxDevices || g_state.devices[deviceNo].inUse == 0) {
        *err = QUORIN_ERR_NOT_OPEN;
        return 0;
    }
    DeviceRecord &rec = g_state.devices[deviceNo];
    const std::uint32_t index = rec.interfaceIndex;

    if (rec.operatingStatus == kPlaybackStatus)
        setOperatingMode(deviceNo, kHostLive, err);

    CameraCommand powerDown{144, rec.powerMode == 1 ? 1u : 0u, 0};
    CommandReply reply{};
    link::sendCommand(deviceNo, &powerDown, &reply, err);

    bool saved = saveFreeLut(deviceNo);
    releaseDeviceBuffers(deviceNo);
    saved = saveSettings(deviceNo) && saved;

    InterfaceTable &entry = g_state.interfaces[index];
    if (entry.Close != nullptr)
        entry.Close(rec.linkHandle, err);
    // The slot is freed all the same; a setting that could not be stored is
    // reported unless the link already reported a failure of its own.
    if (!saved && *err == QUORIN_SUCCESS)
        *err = QUORIN_ERR_GAIN_FILE_WRITE;

    std::memset(&rec, 0, sizeof rec);
    entry.refCount = static_cast<std::int32_t>(static_cast<std::uint32_t>(entry.refCount) - 1u);
    if (entry.refCount < 1)
        std::memset(&entry, 0, sizeof entry);
    g_state.openCount = static_cast<std::int32_t>(static_cast<std::uint32_t>(g_state.openCount) - 1u);
    return 1;
}
