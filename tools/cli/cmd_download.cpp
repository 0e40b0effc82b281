// quorin download: recorded frames from the camera's memory to numbered
// files, with a CSV of their time stamps. The camera goes to playback for
// the transfers and back to live mode at the end, also after a failure or
// an interrupt; files are only ever complete.
#include "commands.h"

#include "cli_error.h"
#include "image_files.h"
#include "interrupt.h"
#include "progress.h"
#include "values.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

namespace quorin::cli {
namespace {

// The time-stamp record of one frame (DEV_GetData QUORIN_DATA_TIME_STAMPS).
constexpr std::size_t kStampBytes = 20;
// Frames per time-stamp request.
constexpr std::uint32_t kStampsPerRequest = 2048;

struct DownloadOptions {
    std::string frames;
    std::string csv;
    ImageOutputOptions output;
    std::uint32_t first = 0, last = 0;
    OutputPattern pattern;
};

// "A-B" or "A", frames counted from 1.
void parseRange(const std::string &text, std::uint32_t &first, std::uint32_t &last)
{
    const std::size_t dash = text.find('-');
    auto a = parseNumber(text.substr(0, dash));
    auto b = dash == std::string::npos ? a : parseNumber(text.substr(dash + 1));
    if (!a || !b || *a == 0 || *b < *a)
        throw UsageError("invalid frame range '" + text + "': expected FIRST-LAST or FRAME, counted from 1");
    first = *a;
    last = *b;
}

struct Stamp {
    std::uint32_t day, microsecond;
    std::uint8_t hour, minute, second, timeCode;
};

Stamp decodeStamp(const unsigned char *r)
{
    Stamp s{};
    std::memcpy(&s.day, r, 4);
    s.hour = r[4];
    s.minute = r[5];
    s.second = r[6];
    std::memcpy(&s.microsecond, r + 8, 4);
    s.timeCode = r[12];
    return s;
}

// A file name as a CSV field: quoted when it holds a comma or a quote.
std::string csvField(const std::string &text)
{
    if (text.find_first_of(",\"\n") == std::string::npos)
        return text;
    std::string quoted = "\"";
    for (char c : text)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

std::string csvLine(std::uint32_t frame, const std::string &file, const Stamp &s)
{
    char text[96];
    std::snprintf(text, sizeof text, ",%u,%u,%u,%u,%u,%u,%02u:%02u:%02u.%06u\n", s.day, s.hour, s.minute, s.second,
                  s.microsecond, s.timeCode, s.hour, s.minute, s.second, s.microsecond);
    return std::to_string(frame) + "," + csvField(file) + text;
}

// The transfers of one download; runs in playback.
int transferFrames(CameraSession &camera, const DownloadOptions &o, std::string &csv, std::uint32_t &done)
{
    const std::uint32_t dev = camera.device();
    // The settings of recorded frames: channel, picture size and area,
    // recording rate (the time stamps need it) and trigger numbering.
    camera.get(QUORIN_CAP_CHANNEL_NUMBER, "the playback channel");
    const ImageShape shape = readImageShape(camera);
    camera.get(QUORIN_CAP_FRAME_RATE, "the recording rate");
    camera.get(QUORIN_CAP_FRAME_COUNT, "the frame count");
    std::uint32_t unused = 0;
    camera.get(QUORIN_CAP_TRIGGER_MODE, "the recording's trigger mode", 0, &unused);

    const std::uint32_t total = o.last - o.first + 1;
    std::vector<unsigned char> stamps(std::size_t{total} * kStampBytes);
    for (std::uint32_t from = o.first; from <= o.last; from += kStampsPerRequest) {
        const std::uint32_t count = std::min(kStampsPerRequest, o.last - from + 1);
        std::uint32_t written = 0;
        std::int32_t err = 0;
        CameraSession::check(DEV_GetData(dev, 0, QUORIN_DATA_TIME_STAMPS, from, count,
                                         stamps.data() + std::size_t{from - o.first} * kStampBytes, &written, &err),
                             err, "read the time stamps of frames " + std::to_string(from) + "..");
    }

    const std::uint32_t bits = static_cast<std::uint32_t>(o.output.bits);
    std::vector<unsigned char> image(shape.samples() * (bits / 8));
    Progress progress(total);
    for (std::uint32_t n = o.first; n <= o.last && !interruptRequested(); ++n) {
        std::int32_t err = 0;
        CameraSession::check(DEV_TransferMemImage(dev, 0, n, static_cast<std::int32_t>(bits), image.data(), &err), err,
                             "transfer recorded frame " + std::to_string(n));
        const std::string path = o.pattern.path(n);
        writeImage(path, o.pattern.format,
                   {image.data(), shape.width, shape.height, shape.channels, bits, shape.blueFirst, 10});
        csv += csvLine(n, std::filesystem::path(path).filename().string(),
                       decodeStamp(stamps.data() + std::size_t{n - o.first} * kStampBytes));
        ++done;
        progress.step("frame " + std::to_string(n) + " -> " + path);
    }
    progress.finish();
    const double seconds = progress.elapsedSeconds();
    std::printf("downloaded %u %s frames to %s at %.1f frames per second\n", done, shape.describe(bits).c_str(),
                o.pattern.folder.c_str(), seconds > 0 ? done / seconds : 0.0);
    return interruptRequested() ? kExitInterrupted : kExitOk;
}

} // namespace

Command addDownloadCommand(CLI::App &parent)
{
    auto o = std::make_shared<DownloadOptions>();
    Command c;
    c.app = parent.add_subcommand("download", "Download recorded frames to numbered files and a time-stamp CSV");
    c.app->add_option("-f,--frames", o->frames, "Recorded frames FIRST-LAST (or one FRAME), counted from 1")
        ->required();
    addImageOutputOptions(*c.app, o->output, "frame_%06d.png");
    c.app->add_option("--csv", o->csv, "Time-stamp CSV (default: timestamps.csv beside the images)");
    c.app->footer(
        "Files are numbered with the recorded frame number. The CSV has one line per file written:\n"
        "frame,file,day,hour,minute,second,microsecond,time_code,time. A progress bar is drawn when\n"
        "stderr is a terminal, a line per frame otherwise. On Ctrl-C the frame in hand is finished, the\n"
        "camera goes back to live mode and the CSV lists the frames written.\n"
        "\nExamples:\n  quorin download --frames 1-100 -o rec/frame_%06d.png\n"
        "  quorin download --frames 10-20 --bits 16 -o rec/f%04d.tiff --csv rec/stamps.csv");
    c.check = [o] {
        parseRange(o->frames, o->first, o->last);
        o->pattern = checkOutputPattern(o->output.pattern, o->output.format, o->last - o->first + 1);
        if (o->csv.empty())
            o->csv = (std::filesystem::path(o->pattern.folder) / "timestamps.csv").string();
        checkOutputFile(o->csv, "time-stamp CSV");
    };
    c.run = [o](CameraSession &camera) {
        // The recording's length is known only to the camera: check the
        // range before anything changes.
        const std::uint32_t recorded = camera.get(QUORIN_CAP_FRAME_COUNT, "the frame count");
        if (o->last > recorded)
            throw UsageError("frames " + o->frames + " lie outside the recording (frames 1-" + std::to_string(recorded) +
                             ")");
        InterruptGuard guard;
        camera.set(QUORIN_CAP_CAMERA_MODE, 1, "playback mode");
        std::string csv = "frame,file,day,hour,minute,second,microsecond,time_code,time\n";
        std::uint32_t done = 0;
        int status = kExitFailure;
        std::string failure;
        try {
            status = transferFrames(camera, *o, csv, done);
        } catch (const CliError &e) {
            failure = e.what();
        }
        // Back to live mode whatever happened, then the stamps of the files
        // that were written.
        std::int32_t err = 0;
        const bool live = DEV_SetDeviceCaps(camera.device(), 0, QUORIN_CAP_CAMERA_MODE, 0, 0, 0, &err) != 0;
        if (done > 0)
            writeTextFile(o->csv, csv);
        if (!failure.empty())
            throw CliError(failure + (live ? "" : "; the camera did not return to live mode"));
        if (!live)
            CameraSession::check(0, err, "return the camera to live mode");
        if (status == kExitInterrupted)
            std::fprintf(stderr, "quorin: interrupted after %u of %u frames; the camera is back in live mode\n", done,
                         o->last - o->first + 1);
        if (done > 0)
            std::printf("time stamps: %s\n", o->csv.c_str());
        return status;
    };
    return c;
}

} // namespace quorin::cli
