#include "settings.h"

#include "cli_error.h"

namespace quorin::cli {

std::vector<Setting> checkSettings(const std::vector<std::string> &texts, const std::string &option)
{
    std::vector<Setting> settings;
    for (const std::string &t : texts) {
        const std::size_t eq = t.find('=');
        if (eq == std::string::npos)
            throw UsageError(option + " takes NAME=VALUE, not '" + t + "'");
        CapabilityName cap = resolveCapability(t.substr(0, eq), kSet);
        settings.push_back({cap, parseValue(cap.format, t.substr(eq + 1))});
    }
    return settings;
}

void setExplained(CameraSession &camera, std::uint32_t id, std::uint32_t value, const std::string &what,
                  std::uint32_t subIndex, std::uint32_t value2)
{
    try {
        camera.set(id, value, what, subIndex, value2);
    } catch (const CliError &e) {
        if (id != QUORIN_CAP_FRAME_RATE && id != QUORIN_CAP_RESOLUTION)
            throw;
        // The library's frame-time model: the largest rate for a size.
        const std::uint32_t size = id == QUORIN_CAP_RESOLUTION ? value : camera.get(QUORIN_CAP_RESOLUTION, "the resolution");
        const std::uint32_t rate = id == QUORIN_CAP_FRAME_RATE ? value : camera.get(QUORIN_CAP_FRAME_RATE, "the frame rate");
        std::uint32_t largest = 0, unused = 0;
        std::int32_t err = 0;
        if (DEV_SetDeviceCaps(camera.device(), 0, QUORIN_CAP_PRESET_RESOLUTION, 0, size, 0, &err) == 0 ||
            !camera.tryGet(QUORIN_CAP_MAX_FRAME_RATE, 0, largest, unused, err) || rate <= largest)
            throw;
        throw CliError(std::string(e.what()) + ": " + std::to_string(rate) + " fps at " + formatValue(Format::Size, size) +
                       " is more than the frame time allows (at most " + std::to_string(largest) + " fps at that size)");
    }
}

void applySettings(CameraSession &camera, const std::vector<Setting> &settings)
{
    for (const Setting &s : settings)
        setExplained(camera, s.capability.id, s.value.value, s.capability.name, s.capability.subIndex, s.value.value2);
}

} // namespace quorin::cli
