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

void applySettings(CameraSession &camera, const std::vector<Setting> &settings)
{
    for (const Setting &s : settings)
        camera.set(s.capability.id, s.value.value, s.capability.name, s.capability.subIndex, s.value.value2);
}

} // namespace quorin::cli
