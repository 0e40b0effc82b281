// quorin info: what the camera is and how it is set.
#include "commands.h"

#include "values.h"

#include <cstdio>
#include <memory>

namespace quorin::cli {

Command addInfoCommand(CLI::App &parent)
{
    auto json = std::make_shared<bool>(false);
    Command c;
    c.app = parent.add_subcommand("info", "Show the camera's model, firmware, number and main settings");
    c.app->add_flag("--json", *json, "One JSON object, values as plain numbers");
    c.app->footer("Examples:\n  quorin info --camera virtual:k5\n  quorin info --json");
    c.check = [] {};
    c.run = [json](CameraSession &camera) {
        // One line per item; each read names itself if it fails.
        const std::string model = camera.modelName();
        const std::uint32_t firmware = camera.get(QUORIN_CAP_FIRMWARE, "the firmware");
        const std::uint32_t number = camera.get(QUORIN_CAP_CAMERA_NUMBER, "the camera number");
        const std::uint32_t rate = camera.get(QUORIN_CAP_FRAME_RATE, "the frame rate");
        const std::uint32_t size = camera.get(QUORIN_CAP_RESOLUTION, "the resolution");
        const std::uint32_t shutter = camera.get(QUORIN_CAP_SHUTTER, "the shutter speed");
        std::uint32_t triggerParam = 0;
        const std::uint32_t trigger = camera.get(QUORIN_CAP_TRIGGER_MODE, "the trigger mode", 0, &triggerParam);
        const std::uint32_t lut = camera.get(QUORIN_CAP_LUT_MODE, "the LUT mode");
        const std::size_t defects = camera.list(QUORIN_LIST_DEFECTS, "of defect pixels").size();

        if (*json) {
            std::printf("{\"model\": %s, \"firmware\": %u, \"camera_number\": %u, \"frame_rate\": %u, "
                        "\"width\": %u, \"height\": %u, \"shutter\": %u, \"trigger_mode\": %u, "
                        "\"trigger_parameter\": %u, \"lut_mode\": %u, \"defect_pixels\": %zu}\n",
                        jsonText(model).c_str(), firmware, number, rate, size >> 16, size & 0xFFFF, shutter, trigger,
                        triggerParam, lut, defects);
            return 0;
        }
        std::printf("model:         %s\n", model.c_str());
        std::printf("firmware:      %u\n", firmware);
        std::printf("camera number: %u\n", number);
        std::printf("frame rate:    %s\n", formatValue(Format::Fps, rate).c_str());
        std::printf("resolution:    %s\n", formatValue(Format::Size, size).c_str());
        std::printf("shutter:       %s\n", formatValue(Format::Shutter, shutter).c_str());
        std::printf("trigger mode:  %s\n", formatValue(Format::Trigger, trigger, triggerParam).c_str());
        std::printf("LUT mode:      %s\n", formatValue(Format::LutMode, lut).c_str());
        std::printf("defect pixels: %zu\n", defects);
        return 0;
    };
    return c;
}

} // namespace quorin::cli
