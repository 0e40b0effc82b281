// quorin flatfield: grab 16-bit frames of an evenly lit scene, let the
// library compute the pixel-gain table from their mean, save it in the
// camera's pixel-gain file and select it.
#include "commands.h"

#include "cli_error.h"
#include "image_files.h"
#include "values.h"

#include <cstdio>
#include <memory>
#include <vector>

namespace quorin::cli {
namespace {

constexpr std::uint32_t kTableSide = 1024;
constexpr std::size_t kTableBytes = std::size_t{kTableSide} * kTableSide * 2;
// Pixel-gain settings (QUORIN_CAP_PIXEL_GAIN).
constexpr std::uint32_t kGainOff = 0;
constexpr std::uint32_t kGainFileTable = 2;
constexpr std::uint32_t kGainSaveFile = 6;
// The library's neutral gain.
constexpr std::uint16_t kNeutralGain = 997;
// The largest camera number a pixel-gain file can be named for.
constexpr std::uint32_t kLargestFileNumber = 999;

struct FlatfieldOptions {
    std::uint32_t average = 4;
    std::string table;
    std::string tableFormat;
    bool noSave = false;
    bool noApply = false;
    OutputPattern tablePattern;
};

// Grabs count 16-bit frames and returns their mean, pixel by pixel.
std::vector<std::uint16_t> meanFrame(CameraSession &camera, std::size_t pixels, std::uint32_t count)
{
    std::vector<std::uint16_t> frame(pixels);
    std::vector<std::uint32_t> sum(pixels);
    for (std::uint32_t i = 0; i < count; ++i) {
        std::int32_t err = 0;
        CameraSession::check(DEV_TransferLiveImage(camera.device(), 0, 16, frame.data(), &err), err,
                             "grab flat frame " + std::to_string(i + 1));
        for (std::size_t p = 0; p < pixels; ++p)
            sum[p] += frame[p];
    }
    for (std::size_t p = 0; p < pixels; ++p)
        frame[p] = static_cast<std::uint16_t>((sum[p] + count / 2) / count);
    return frame;
}

} // namespace

Command addFlatfieldCommand(CLI::App &parent)
{
    auto o = std::make_shared<FlatfieldOptions>();
    Command c;
    c.app = parent.add_subcommand("flatfield", "Compute, save and select the pixel-gain table from a flat frame");
    c.app->add_option("--average", o->average, "Frames averaged into the flat frame")
        ->check(CLI::Range(1u, 256u))
        ->capture_default_str();
    c.app->add_option("--table", o->table, "Also write the 1024x1024 gain table as a 16-bit PNG or TIFF file");
    c.app->add_flag("--no-save", o->noSave, "Do not write the pixel-gain file");
    c.app->add_flag("--no-apply", o->noApply, "Keep the present pixel-gain setting instead of selecting the new table");
    c.app->footer(
        "Point the camera at an evenly lit surface first. The frame is grabbed without pixel gain (the\n"
        "K5C as its raw colour mosaic); the library computes the gains (997 = 1.0) and keeps them in\n"
        "its pixel-gain file, PixelGainData_VELTA_NNN_1.gdf for camera number NNN in the folder\n"
        "$XDG_DATA_HOME/Kavrion/QELMAR (default ~/.local/share/Kavrion/QELMAR), read at every open.\n"
        "\nExamples:\n  quorin flatfield\n  quorin flatfield --average 16 --table gains.tiff");
    c.check = [o] {
        if (!o->table.empty()) {
            o->tablePattern = checkOutputPattern(o->table, "", 1);
            createFolder(o->tablePattern.folder);
        }
    };
    c.run = [o](CameraSession &camera) {
        const std::uint32_t dev = camera.device();
        const bool colour = camera.isColour();
        const std::uint32_t number = camera.get(QUORIN_CAP_CAMERA_NUMBER, "the camera number");
        // The file is named after the camera number in three digits.
        if (!o->noSave && number > kLargestFileNumber)
            throw UsageError("camera number " + std::to_string(number) + " has no pixel-gain file (the library names "
                             "them for numbers up to 999); use --no-save");
        const std::uint32_t gainMode = camera.get(QUORIN_CAP_PIXEL_GAIN, "the pixel-gain setting");
        std::uint32_t output = 0;
        if (colour) {
            // The colour table is computed from the mosaic: raw Bayer output.
            output = camera.get(QUORIN_CAP_IMAGE_OUTPUT, "the image output options");
            camera.set(QUORIN_CAP_IMAGE_OUTPUT, output | 1u << 8, "raw Bayer output");
        }
        camera.set(QUORIN_CAP_PIXEL_GAIN, kGainOff, "the pixel gain off");
        std::vector<std::uint16_t> flat;
        std::string failure;
        try {
            const ImageShape shape = readImageShape(camera);
            flat = meanFrame(camera, std::size_t{shape.width} * shape.height, o->average);
        } catch (const CliError &e) {
            failure = e.what();
        }
        // The settings the grab changed go back as they were.
        std::int32_t err = 0;
        DEV_SetDeviceCaps(dev, 0, QUORIN_CAP_PIXEL_GAIN, 0, gainMode, 0, &err);
        if (colour)
            DEV_SetDeviceCaps(dev, 0, QUORIN_CAP_IMAGE_OUTPUT, 0, output, 0, &err);
        if (!failure.empty())
            throw CliError(failure);

        CameraSession::check(DEV_SetData(dev, 0, QUORIN_DATA_FLAT_FIELD, 0, 0, flat.data(), 0, &err), err,
                             "compute the pixel-gain table");
        std::vector<std::uint16_t> table(kTableBytes / 2);
        std::uint32_t size = 0;
        CameraSession::check(DEV_GetData(dev, 0, QUORIN_DATA_GAIN_TABLES, 2, 0, table.data(), &size, &err), err,
                             "read the pixel-gain table");
        std::uint16_t lo = 0xFFFF, hi = 0;
        std::size_t changed = 0;
        for (std::uint16_t g : table) {
            lo = std::min(lo, g);
            hi = std::max(hi, g);
            changed += g != kNeutralGain;
        }
        std::printf("pixel-gain table: gains %u..%u (997 = 1.0), %zu of %zu entries corrected\n", lo, hi, changed,
                    table.size());
        if (!o->noSave) {
            camera.act(QUORIN_CAP_PIXEL_GAIN, kGainSaveFile, "save the pixel-gain file");
            std::printf("saved the pixel-gain file of camera %u\n", number);
        }
        if (!o->noApply) {
            camera.set(QUORIN_CAP_PIXEL_GAIN, kGainFileTable, "pixel-gain file");
            // The library keeps the choice per camera number: say so, and how to go back.
            const std::string was = formatValue(Format::PixelGain, gainMode);
            std::printf("pixel gain: the new table is selected, for this and every later run of camera %u (it was "
                        "%s; undo with: quorin set pixel-gain %s)\n",
                        number, was.c_str(), was.substr(0, was.find(' ')).c_str());
        }
        if (!o->table.empty()) {
            // The raw gains, as they are: no scaling to the 16-bit range.
            writeImage(o->tablePattern.path(0), o->tablePattern.format,
                       {table.data(), kTableSide, kTableSide, 1, 16, false, 16});
            std::printf("gain table image: %s\n", o->tablePattern.path(0).c_str());
        }
        return 0;
    };
    return c;
}

} // namespace quorin::cli
