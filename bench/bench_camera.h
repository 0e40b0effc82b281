// What the benchmarks share: a virtual camera opened and set up as a
// configuration of the table says, read to the point a host would be at,
// and one transfer of it.
#pragma once

#include "quorin/quorin.h"
#include "vcam/vcam.h"

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

constexpr std::uint32_t kLinkType = 4;

// How a configuration takes its frames.
enum class Source { Live, Memory, Split };

struct Setting {
    std::uint32_t id, value;
};

// One row of the table: a model, a depth, where the frames come from and
// the capabilities set after open.
struct Config {
    std::string name;
    std::uint32_t model;
    int bits;
    Source source;
    std::vector<Setting> settings;
    std::uint32_t firmware = 120; // column correction needs one below 114
};

// A K5C or K5 with the settings a camera has after open.
Config afterOpen(std::uint32_t model);

// One opened virtual camera with 1024 defect pixels, set up as the
// configuration says and read to the point a host would be at. The library
// is initialised once, for every camera the benchmarks open.
struct OpenCamera {
    VcamCamera *cam = nullptr;
    std::uint32_t dev = 0;
    std::vector<std::uint32_t> defects;
    bool ok = true;
    bool warmed = false; // the virtual camera has rendered its frames

    explicit OpenCamera(const Config &c, std::uint32_t hostArg = 0);
    ~OpenCamera();
    OpenCamera(const OpenCamera &) = delete;
};

bool transferOnce(const Config &c, std::uint32_t dev, std::uint32_t frame, std::uint8_t *dest);

// A destination of 6 MiB on a 64-byte boundary, as the README asks of hosts.
struct Destination {
    std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(6 * 1024 * 1024 + 64);
    std::uint8_t *data() { return bytes.data() + (64 - reinterpret_cast<std::uintptr_t>(bytes.data()) % 64) % 64; }
};

} // namespace bench
