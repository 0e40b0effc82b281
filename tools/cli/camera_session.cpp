// A camera opened through the library for the length of one command.
#include "camera_session.h"

#include "cli_error.h"
#include "error_words.h"
#include "vcam/vcam.h"

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <mutex>
#include <unistd.h>

namespace quorin::cli {
namespace {

constexpr const char kVirtualPrefix[] = "virtual:";
constexpr const char kDriverPrefix[] = "driver:";
// The function a link driver exports.
constexpr const char kDriverEntry[] = "quorin_interface";
using DriverEntry = const InterfaceTable *(*)();

// Several sessions may live in one process (a GStreamer pipeline with two
// cameras). DEV_Init clears every open device and DEV_Exit ends them all,
// so the library is initialised by the first session and ended by the
// last; cameras are opened and closed one at a time, as it requires.
std::mutex g_libraryMutex;
unsigned g_librarySessions = 0;

bool startsWith(const std::string &s, const char *prefix)
{
    return s.rfind(prefix, 0) == 0;
}

} // namespace

CameraChoice checkCameraOptions(const CameraOptions &options)
{
    CameraChoice choice;
    const char *fromEnvironment = std::getenv(kCameraVariable);
    const bool useEnvironment = options.choice.empty() && fromEnvironment != nullptr && *fromEnvironment != '\0';
    const std::string s = useEnvironment ? fromEnvironment : options.choice.empty() ? "virtual:k5c" : options.choice;
    const std::string from = useEnvironment ? std::string(" (from ") + kCameraVariable + ")" : "";
    if (startsWith(s, kVirtualPrefix)) {
        std::string model = s.substr(sizeof kVirtualPrefix - 1);
        if (model != "k5" && model != "k5c")
            throw UsageError("unknown virtual camera '" + model + "' in --camera" + from +
                             " (use virtual:k5c or virtual:k5)");
        if (options.hostArg)
            throw UsageError("--host-arg applies to driver: cameras only");
        if (std::find(std::begin(kVirtualLinks), std::end(kVirtualLinks), options.link) == std::end(kVirtualLinks))
            throw UsageError("the virtual camera offers link types 2, 3, 4 and 7, not " + std::to_string(options.link));
        choice.kind = CameraChoice::Kind::Virtual;
        choice.colour = model == "k5c";
        choice.link = options.link;
        choice.firmware = options.firmware.value_or(120);
        choice.cameraNumber = options.cameraNumber.value_or(1);
        return choice;
    }
    if (startsWith(s, kDriverPrefix)) {
        choice.kind = CameraChoice::Kind::Driver;
        choice.driverPath = s.substr(sizeof kDriverPrefix - 1);
        if (choice.driverPath.empty())
            throw UsageError("--camera driver: needs the path of the driver library");
        if (options.firmware || options.cameraNumber)
            throw UsageError("--firmware and --camera-number apply to virtual: cameras only");
        if (access(choice.driverPath.c_str(), R_OK) != 0)
            throw UsageError("link driver '" + choice.driverPath + "'" + from + " not found or not readable");
        choice.hostArg = options.hostArg.value_or(0);
        return choice;
    }
    throw UsageError("unknown camera '" + s + "' in --camera" + from + " (use virtual:k5c, virtual:k5 or driver:PATH)");
}

CameraSession::CameraSession(const CameraChoice &choice)
{
    std::lock_guard<std::mutex> lock(g_libraryMutex);
    std::int32_t err = 0;
    if (g_librarySessions++ == 0)
        DEV_Init(&err);
    initialised_ = true;

    const InterfaceTable *table = nullptr;
    std::uint32_t hostArg = choice.hostArg;
    if (choice.kind == CameraChoice::Kind::Virtual) {
        VcamConfig cfg;
        vcam_default_config(&cfg, choice.colour ? VCAM_K5C : VCAM_K5, choice.link);
        cfg.firmwareVersion = choice.firmware;
        cfg.cameraNumber = choice.cameraNumber;
        // The tool's virtual camera behaves as a camera does: it takes only
        // frame rates and sizes its frame time allows.
        cfg.frameTimeLimits = 1;
        virtual_ = vcam_create(&cfg);
        if (virtual_ == nullptr) {
            releaseLocked();
            throw CliError("could not create the virtual camera");
        }
        table = vcam_interface(virtual_);
        hostArg = vcam_host_arg(virtual_);
    } else {
        driver_ = dlopen(choice.driverPath.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (driver_ == nullptr) {
            std::string why = dlerror();
            releaseLocked();
            throw CliError("could not load link driver: " + why);
        }
        auto entry = reinterpret_cast<DriverEntry>(dlsym(driver_, kDriverEntry));
        if (entry == nullptr) {
            releaseLocked();
            throw CliError("link driver '" + choice.driverPath + "' does not export " + kDriverEntry + "()");
        }
        table = entry();
        if (table == nullptr) {
            releaseLocked();
            throw CliError("link driver '" + choice.driverPath + "' returned no interface table");
        }
    }

    std::uint32_t device = QUORIN_MAX_DEVICES;
    std::int32_t ok = DEV_OpenDevice(table->type, table, hostArg, &device, &err);
    if (!ok) {
        releaseLocked();
        throw CliError("could not open the camera: " + describeError(err));
    }
    device_ = device;
    open_ = true;
    // The open succeeds even when the camera's start-up failed; such a
    // camera is not usable.
    if (err != QUORIN_SUCCESS) {
        releaseLocked();
        throw CliError("the camera did not start: " + describeError(err));
    }
    readKeptSettings();
}

// The library keeps several settings as the host last read them: the
// exposure switch (which the shutter and exposure reads depend on), the
// trigger fields, the look-up mode and the channel. Reading them once
// makes them current, as a host does after opening; ids a camera does not
// support simply fail here.
void CameraSession::readKeptSettings() noexcept
{
    static constexpr std::uint32_t kKeptIds[] = {
        QUORIN_CAP_CAMERA_MODE,   QUORIN_CAP_FRAME_RATE, QUORIN_CAP_RESOLUTION,     QUORIN_CAP_EXPOSURE_ENABLE,
        QUORIN_CAP_SHUTTER,       QUORIN_CAP_FRAME_COUNT, QUORIN_CAP_TRIGGER_MODE,  QUORIN_CAP_LUT_MODE,
        QUORIN_CAP_CHANNEL_COUNT, QUORIN_CAP_CHANNEL_NUMBER,
    };
    for (std::uint32_t id : kKeptIds) {
        std::uint32_t value = 0, value2 = 0;
        std::int32_t err = 0;
        tryGet(id, 0, value, value2, err);
    }
}

CameraSession::~CameraSession()
{
    release();
}

void CameraSession::release() noexcept
{
    std::lock_guard<std::mutex> lock(g_libraryMutex);
    releaseLocked();
}

void CameraSession::releaseLocked() noexcept
{
    std::int32_t err = 0;
    if (open_)
        DEV_CloseDevice(device_, &err);
    open_ = false;
    if (initialised_ && --g_librarySessions == 0)
        DEV_Exit(&err);
    initialised_ = false;
    if (virtual_ != nullptr)
        vcam_destroy(virtual_);
    virtual_ = nullptr;
    // A driver stays loaded: it may keep threads or state that outlive the
    // close, and the process ends soon after.
}

void CameraSession::close()
{
    std::lock_guard<std::mutex> lock(g_libraryMutex);
    std::int32_t err = 0;
    if (open_) {
        open_ = false;
        std::int32_t ok = DEV_CloseDevice(device_, &err);
        if (!ok) {
            releaseLocked();
            throw CliError("could not close the camera: " + describeError(err));
        }
        if (err == QUORIN_ERR_GAIN_FILE_WRITE) {
            releaseLocked();
            throw CliError("the camera's settings could not be saved (is the configuration folder writable?): " +
                           describeError(err));
        }
    }
    releaseLocked();
}

void CameraSession::check(std::int32_t ok, const std::int32_t &err, const std::string &what)
{
    if (!ok)
        throw CliError("could not " + what + ": " + describeError(err));
}

std::string CameraSession::modelName()
{
    char name[256] = {};
    std::int32_t err = 0;
    check(DEV_GetDeviceName(device_, 0, name, &err), err, "read the model name");
    return name;
}

bool CameraSession::isColour()
{
    return get(QUORIN_CAP_COLOUR_MODEL, "read the camera model") != 0;
}

bool CameraSession::tryGet(std::uint32_t id, std::uint32_t subIndex, std::uint32_t &value, std::uint32_t &value2,
                           std::int32_t &err)
{
    // Id 39 writes an element per channel (up to 64) at value and a
    // 512-byte block at value2: every read gets room for both.
    std::uint32_t values[64] = {};
    std::uint32_t block[512 / sizeof(std::uint32_t)] = {};
    const std::int32_t ok = DEV_GetDeviceCaps(device_, 0, id, subIndex, values, block, &err);
    value = values[0];
    value2 = block[0];
    return ok != 0;
}

std::uint32_t CameraSession::get(std::uint32_t id, const std::string &what, std::uint32_t subIndex,
                                 std::uint32_t *value2)
{
    std::uint32_t value = 0, second = 0;
    std::int32_t err = 0;
    check(tryGet(id, subIndex, value, second, err), err, "read " + what);
    if (value2 != nullptr)
        *value2 = second;
    return value;
}

void CameraSession::set(std::uint32_t id, std::uint32_t value, const std::string &what, std::uint32_t subIndex,
                        std::uint32_t value2)
{
    act(id, value, "set " + what, subIndex, value2);
}

void CameraSession::act(std::uint32_t id, std::uint32_t value, const std::string &action, std::uint32_t subIndex,
                        std::uint32_t value2)
{
    std::int32_t err = 0;
    check(DEV_SetDeviceCaps(device_, 0, id, subIndex, value, value2, &err), err, action);
}

std::vector<std::uint32_t> CameraSession::list(std::uint32_t id, const std::string &what, std::uint32_t subIndex)
{
    std::vector<std::uint32_t> entries(QUORIN_MAX_LIST_ENTRIES);
    std::uint32_t count = 0;
    std::int32_t err = 0;
    check(DEV_GetList(device_, 0, id, subIndex, entries.data(), &count, &err), err, "read the list " + what);
    entries.resize(std::min<std::uint32_t>(count, QUORIN_MAX_LIST_ENTRIES));
    return entries;
}

} // namespace quorin::cli
