// Opening and closing one camera chosen with --camera:
//   virtual:k5c, virtual:k5   a virtual camera created in this process
//   driver:/path/libfoo.so    a host link driver: a shared library that
//                             exports extern "C" const InterfaceTable
//                             *quorin_interface(void)
// and the capability, list and data calls of the library, each raising a
// CliError that names the ErrorCode in words when the library refuses.
#pragma once

#include "quorin/quorin.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct VcamCamera;

namespace quorin::cli {

// The camera options of the command line, as given.
struct CameraOptions {
    std::string choice;            // empty: QUORIN_CAMERA, else virtual:k5c
    std::uint32_t link = 7;
    std::optional<std::uint32_t> firmware;
    std::optional<std::uint32_t> cameraNumber;
    std::optional<std::uint32_t> hostArg;
};

// A checked camera choice.
struct CameraChoice {
    enum class Kind { Virtual, Driver } kind = Kind::Virtual;
    bool colour = true;            // virtual camera model
    std::uint32_t link = 7;        // virtual camera link type
    std::uint32_t firmware = 120;  // virtual camera firmware
    std::uint32_t cameraNumber = 1; // virtual camera number
    std::string driverPath;        // driver shared library
    std::uint32_t hostArg = 0;     // host argument for the driver's Open
};

// Checks the options without touching any camera or driver; throws
// UsageError (an unknown kind, a link type the virtual camera does not
// offer, options that do not fit the kind, a missing driver file).
CameraChoice checkCameraOptions(const CameraOptions &options);

// The link types the virtual camera is offered on. Its default, 7, is a
// plain send and receive link, as the Python binding's virtual cameras.
inline constexpr std::uint32_t kVirtualLinks[] = {2, 3, 4, 7};

// The environment variable that names the camera when --camera does not.
inline constexpr char kCameraVariable[] = "QUORIN_CAMERA";

class CameraSession {
public:
    // Initialises the library and opens the camera; throws CliError.
    explicit CameraSession(const CameraChoice &choice);
    // Closes whatever is still open, silently.
    ~CameraSession();
    CameraSession(const CameraSession &) = delete;
    CameraSession &operator=(const CameraSession &) = delete;

    // Closes the camera and the library; throws CliError when the close fails.
    void close();

    std::uint32_t device() const { return device_; }
    // The virtual camera behind the device, or null for a driver's camera.
    VcamCamera *virtualCamera() const { return virtual_; }
    std::string modelName();
    bool isColour();

    // Capability calls. what names the setting in the message of a failure.
    std::uint32_t get(std::uint32_t id, const std::string &what, std::uint32_t subIndex = 0,
                      std::uint32_t *value2 = nullptr);
    void set(std::uint32_t id, std::uint32_t value, const std::string &what, std::uint32_t subIndex = 0,
             std::uint32_t value2 = 0);
    // The same for a setting that is an action: a failure says "could not
    // <action>".
    void act(std::uint32_t id, std::uint32_t value, const std::string &action, std::uint32_t subIndex = 0,
             std::uint32_t value2 = 0);
    // The same read without the error: false and err when it fails.
    bool tryGet(std::uint32_t id, std::uint32_t subIndex, std::uint32_t &value, std::uint32_t &value2,
                std::int32_t &err);
    std::vector<std::uint32_t> list(std::uint32_t id, const std::string &what, std::uint32_t subIndex = 0);

    // Raises a CliError "could not <what>: error N (words)" unless ok. The
    // status word is taken by reference, so that it is read after the call
    // that writes it in check(DEV_...(..., &err), err, ...).
    static void check(std::int32_t ok, const std::int32_t &err, const std::string &what);

private:
    void release() noexcept;
    void releaseLocked() noexcept; // with the library's lock held
    void readKeptSettings() noexcept;

    void *driver_ = nullptr;      // dlopen handle of a link driver
    VcamCamera *virtual_ = nullptr;
    bool initialised_ = false;
    bool open_ = false;
    std::uint32_t device_ = 0;
};

} // namespace quorin::cli
