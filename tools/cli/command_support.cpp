// Helpers shared by the image commands.
#include "commands.h"

#include "cli_error.h"
#include "values.h"

#include <cstdio>

namespace quorin::cli {

std::string ImageShape::describe(std::uint32_t bits) const
{
    return std::to_string(width) + "x" + std::to_string(height) + " " +
           (channels == 3 ? "RGB" : "grey") + " " + std::to_string(bits) + "-bit";
}

ImageShape readImageShape(CameraSession &camera)
{
    ImageShape shape;
    const std::uint32_t size = camera.get(QUORIN_CAP_RESOLUTION, "the resolution");
    shape.width = size >> 16;
    shape.height = size & 0xFFFF;
    // Where the picture lies on the sensor: the transfers cut it out there.
    camera.get(QUORIN_CAP_VALUE_73, "the picture area");
    if (camera.isColour()) {
        // Image output: demosaic layout << 16 | raw Bayer << 8 | shift. The
        // first layout stores colour pixels blue first; a raw mosaic has one
        // value per pixel.
        const std::uint32_t output = camera.get(QUORIN_CAP_IMAGE_OUTPUT, "the image output options");
        shape.output = output;
        const bool rawBayer = ((output >> 8) & 0xFF) != 0;
        shape.channels = rawBayer ? 1 : 3;
        shape.blueFirst = !rawBayer && ((output >> 16) & 0xFF) == 1;
    }
    return shape;
}

RedFirst::RedFirst(CameraSession &camera, ImageShape &shape) : camera_(camera), restore_(shape.output)
{
    if (!shape.blueFirst)
        return;
    camera.set(QUORIN_CAP_IMAGE_OUTPUT, shape.output & ~0xFF0000u, "red-first colour output");
    changed_ = true;
    shape.blueFirst = false;
}

RedFirst::~RedFirst()
{
    std::int32_t err = 0;
    if (changed_) // the image output options have no camera command: this cannot fail for the link
        DEV_SetDeviceCaps(camera_.device(), 0, QUORIN_CAP_IMAGE_OUTPUT, 0, restore_, 0, &err);
}

std::string counted(std::uint64_t n, const std::string &singular, const std::string &plural)
{
    return std::to_string(n) + " " + (n == 1 ? singular : plural.empty() ? singular + "s" : plural);
}

void thenLive(CameraSession &camera, const std::function<void()> &body)
{
    std::string failure;
    try {
        body();
    } catch (const CliError &e) {
        failure = e.what();
    }
    std::int32_t err = 0;
    const bool live = DEV_SetDeviceCaps(camera.device(), 0, QUORIN_CAP_CAMERA_MODE, 0, 0, 0, &err) != 0;
    if (!failure.empty())
        throw CliError(failure + (live ? "" : "; the camera did not return to live mode"));
    if (!live)
        CameraSession::check(0, err, "return the camera to live mode");
}

std::string jsonText(const std::string &text)
{
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char e[8];
            std::snprintf(e, sizeof e, "\\u%04x", c);
            out += e;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

void addImageOutputOptions(CLI::App &cmd, ImageOutputOptions &options, const char *defaultPattern)
{
    options.pattern = defaultPattern;
    cmd.add_option("-o,--output", options.pattern,
                   "Numbered file names: one %d field (%04d pads to four digits); the extension .png, .tif "
                   "or .tiff chooses the format")
        ->capture_default_str();
    cmd.add_option("--format", options.format, "Image format whatever the extension: png or tiff")
        ->check(CLI::IsMember({"png", "tiff", "tif"}, CLI::ignore_case));
    cmd.add_option("--bits", options.bits, "Bits per sample: 8, or 16 for the camera's 10-bit values in 16-bit files")
        ->check(CLI::IsMember({8, 16}))
        ->capture_default_str();
}

} // namespace quorin::cli
