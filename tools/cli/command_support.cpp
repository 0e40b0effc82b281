// Helpers shared by the image commands.
#include "commands.h"

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
        const bool rawBayer = ((output >> 8) & 0xFF) != 0;
        shape.channels = rawBayer ? 1 : 3;
        shape.blueFirst = !rawBayer && ((output >> 16) & 0xFF) == 1;
    }
    return shape;
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
