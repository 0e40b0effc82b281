// quorin grab: live frames to numbered PNG or TIFF files, with the rate the
// camera delivered them at.
#include "commands.h"

#include "cli_error.h"
#include "image_files.h"
#include "interrupt.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <vector>

namespace quorin::cli {
namespace {

struct GrabOptions {
    std::uint32_t count = 1;
    ImageOutputOptions output;
    OutputPattern pattern;
};

using Clock = std::chrono::steady_clock;

} // namespace

Command addGrabCommand(CLI::App &parent)
{
    auto o = std::make_shared<GrabOptions>();
    Command c;
    c.app = parent.add_subcommand("grab", "Grab live frames to numbered PNG or TIFF files");
    c.app->add_option("-n,--count", o->count, "Number of frames")
        ->check(CLI::Range(1u, 1000000u))
        ->capture_default_str();
    addImageOutputOptions(*c.app, o->output, "live_%04d.png");
    c.app->footer("Files are numbered from 1. The K5C gives RGB files (grey with raw Bayer output), the K5 grey\n"
                  "files; 16-bit files hold the 10-bit values scaled to the 16-bit range.\n"
                  "\nExamples:\n  quorin grab -n 10 -o frames/live_%04d.png\n"
                  "  quorin grab -n 100 --bits 16 -o frames/live_%04d.tiff --set resolution=512x256");
    c.check = [o] {
        o->pattern = checkOutputPattern(o->output.pattern, o->output.format, o->count);
        createFolder(o->pattern.folder);
    };
    c.run = [o](CameraSession &camera) {
        ImageShape shape = readImageShape(camera);
        RedFirst redFirst(camera, shape);
        const std::uint32_t bits = static_cast<std::uint32_t>(o->output.bits);
        std::vector<unsigned char> image(shape.samples() * (bits / 8));
        Clock::duration transferTime{};
        const Clock::time_point start = Clock::now();
        std::uint32_t done = 0;
        for (std::uint32_t n = 1; n <= o->count && !interruptRequested(); ++n) {
            std::int32_t err = 0;
            const Clock::time_point t0 = Clock::now();
            CameraSession::check(
                DEV_TransferLiveImage(camera.device(), 0, static_cast<std::int32_t>(bits), image.data(), &err), err,
                "transfer live frame " + std::to_string(n));
            transferTime += Clock::now() - t0;
            writeImage(o->pattern.path(n), o->pattern.format,
                       {image.data(), shape.width, shape.height, shape.channels, bits, shape.blueFirst, 10});
            ++done;
        }
        const double transfers = std::chrono::duration<double>(transferTime).count();
        const double total = std::chrono::duration<double>(Clock::now() - start).count();
        std::printf("grabbed %u %s %s to %s: %.1f frames per second (%.1f with the files)\n", done,
                    shape.describe(bits).c_str(), done == 1 ? "frame" : "frames", o->pattern.folder.c_str(),
                    transfers > 0 ? done / transfers : 0.0, total > 0 ? done / total : 0.0);
        if (interruptRequested()) {
            std::fprintf(stderr, "quorin: interrupted after %u of %u frames\n", done, o->count);
            return kExitInterrupted;
        }
        return kExitOk;
    };
    return c;
}

} // namespace quorin::cli
