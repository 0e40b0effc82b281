// quorin download: recorded frames from the camera's memory to numbered
// files with a CSV of their time stamps, to one HDF5 file or to one
// multi-page BigTIFF file. The camera goes to playback for the transfers
// and back to live mode at the end, also after a failure or an interrupt.
// Transfers and writing overlap; every file is readable at every moment.
#include "commands.h"

#include "cli_error.h"
#include "frame_pipeline.h"
#include "interrupt.h"
#include "progress.h"
#include "recording_files.h"
#include "values.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <vector>

namespace quorin::cli {
namespace {

// The time-stamp record of one frame (DEV_GetData QUORIN_DATA_TIME_STAMPS).
constexpr std::size_t kStampBytes = 20;
// Frames per time-stamp request.
constexpr std::uint32_t kStampsPerRequest = 2048;

using Clock = std::chrono::steady_clock;

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

const char *formatName(const OutputPattern &p)
{
    return p.format == ImageFormat::Hdf5 ? "hdf5" : p.format == ImageFormat::Png ? "png" : isOneFile(p) ? "tiff-pages" : "tiff";
}

// The stamps of every frame of the range, with the seconds since the first.
std::vector<FrameStamp> readStamps(CameraSession &camera, std::uint32_t first, std::uint32_t last)
{
    std::vector<unsigned char> records(std::size_t{kStampsPerRequest} * kStampBytes);
    std::vector<FrameStamp> stamps;
    for (std::uint32_t from = first; from <= last && from != 0; from += kStampsPerRequest) {
        const std::uint32_t count = std::min(kStampsPerRequest, last - from + 1);
        std::uint32_t written = 0;
        std::int32_t err = 0;
        CameraSession::check(
            DEV_GetData(camera.device(), 0, QUORIN_DATA_TIME_STAMPS, from, count, records.data(), &written, &err), err,
            "read the time stamps of frames " + std::to_string(from) + "-" + std::to_string(from + count - 1));
        for (std::uint32_t k = 0; k < count; ++k)
            stamps.push_back(decodeStamp(from + k, records.data() + std::size_t{k} * kStampBytes));
    }
    for (FrameStamp &s : stamps)
        s.seconds = static_cast<double>(stampMicroseconds(s) - stampMicroseconds(stamps.front())) * 1e-6;
    return stamps;
}

// The settings a file keeps beside the frames. A setting the camera does
// not report is left out.
std::vector<RecordedSetting> recordingSettings(CameraSession &camera, const DownloadOptions &o, std::uint32_t rate)
{
    std::vector<RecordedSetting> out = {{"model", camera.modelName(), 0, true},
                                {"software", "quorin " QUORIN_VERSION_STRING, 0, true},
                                {"frame_rate", "", rate, false},
                                {"first_frame", "", o.first, false},
                                {"last_frame", "", o.last, false},
                                {"bits", "", o.output.bits, false}};
    const std::pair<const char *, std::uint32_t> reads[] = {
        {"firmware", QUORIN_CAP_FIRMWARE},     {"camera_number", QUORIN_CAP_CAMERA_NUMBER},
        {"shutter", QUORIN_CAP_SHUTTER},       {"exposure_ns", QUORIN_CAP_EXPOSURE_NS},
        {"lut_mode", QUORIN_CAP_LUT_MODE},     {"trigger_mode", QUORIN_CAP_TRIGGER_MODE},
        {"channel", QUORIN_CAP_CHANNEL_NUMBER}, {"frame_count", QUORIN_CAP_FRAME_COUNT},
    };
    for (const auto &[name, id] : reads) {
        std::uint32_t value = 0, value2 = 0;
        std::int32_t err = 0;
        if (camera.tryGet(id, 0, value, value2, err) && err == QUORIN_SUCCESS) {
            out.push_back({name, "", value, false});
            if (id == QUORIN_CAP_TRIGGER_MODE)
                out.push_back({"trigger_parameter", "", value2, false});
        }
    }
    return out;
}

struct Outcome {
    std::uint64_t done = 0;
    double seconds = 0, transferSeconds = 0;
    std::string where, shape;
};

// The transfers of one download; runs in playback.
Outcome transferFrames(CameraSession &camera, const DownloadOptions &o)
{
    const std::uint32_t dev = camera.device();
    // The settings of recorded frames: channel, picture size and area,
    // recording rate (the time stamps need it) and trigger numbering.
    camera.get(QUORIN_CAP_CHANNEL_NUMBER, "the playback channel");
    ImageShape shape = readImageShape(camera);
    const std::uint32_t rate = camera.get(QUORIN_CAP_FRAME_RATE, "the recording rate");
    camera.get(QUORIN_CAP_FRAME_COUNT, "the frame count");
    std::uint32_t unused = 0;
    camera.get(QUORIN_CAP_TRIGGER_MODE, "the recording's trigger mode", 0, &unused);
    RedFirst redFirst(camera, shape);

    const std::vector<FrameStamp> stamps = readStamps(camera, o.first, o.last);
    const std::uint32_t bits = static_cast<std::uint32_t>(o.output.bits);
    RecordingLayout layout{shape.width, shape.height, shape.channels, bits, o.last - o.first + 1, {}};
    Outcome out;
    out.shape = shape.describe(bits);
    Clock::duration transferTime{};
    auto transfer = [&](std::uint32_t n, unsigned char *into) {
        std::int32_t err = 0;
        const Clock::time_point t0 = Clock::now();
        CameraSession::check(DEV_TransferMemImage(dev, 0, n, static_cast<std::int32_t>(bits), into, &err), err,
                             "transfer recorded frame " + std::to_string(n));
        transferTime += Clock::now() - t0;
    };

    const Clock::time_point start = Clock::now();
    if (o.transferOnly) { // the library's own pace, for comparison
        std::vector<unsigned char> image(layout.frameBytes());
        for (std::uint32_t n = o.first; n <= o.last && !interruptRequested(); ++n, ++out.done)
            transfer(n, image.data());
        out.where = "nowhere (--transfer-only)";
    } else {
        layout.settings = recordingSettings(camera, o, rate);
        std::unique_ptr<FrameSink> sink = openSink({o.pattern, o.csv, o.overwrite}, layout);
        out.where = sink->describe();
        Progress progress(layout.frames);
        const bool plain = isOneFile(o.pattern);
        FramePipeline pipeline(*sink, layout.frameBytes(), [&](const FrameStamp &s) {
            if (!o.json) // the report is the only output then
                progress.step("frame " + std::to_string(s.frame) + " -> " +
                              (plain ? out.where : o.pattern.path(s.frame)));
        });
        std::string failure;
        try {
            for (std::uint32_t n = o.first; n <= o.last && !interruptRequested(); ++n) {
                unsigned char *buffer = pipeline.next();
                transfer(n, buffer);
                pipeline.submit(stamps[n - o.first]);
            }
        } catch (const CliError &e) {
            failure = e.what(); // the frames in hand are still written
        }
        out.done = pipeline.finish();
        progress.finish();
        sink->close(out.done);
        if (!failure.empty())
            throw CliError(failure);
    }
    out.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    out.transferSeconds = std::chrono::duration<double>(transferTime).count();
    return out;
}

void report(const DownloadOptions &o, const Outcome &r)
{
    const double fps = r.seconds > 0 ? r.done / r.seconds : 0.0;
    const double transferFps = r.transferSeconds > 0 ? r.done / r.transferSeconds : 0.0;
    if (o.json) {
        std::printf("{\"frames\": %llu, \"image\": %s, \"format\": %s, \"output\": %s, \"seconds\": %.6f, "
                    "\"frames_per_second\": %.2f, \"transfer_seconds\": %.6f, \"transfer_frames_per_second\": %.2f}\n",
                    static_cast<unsigned long long>(r.done), jsonText(r.shape).c_str(),
                    jsonText(o.transferOnly ? "none" : formatName(o.pattern)).c_str(), jsonText(r.where).c_str(),
                    r.seconds, fps, r.transferSeconds, transferFps);
        return;
    }
    std::printf("downloaded %llu %s %s to %s at %.1f frames per second (transfers alone %.1f)\n",
                static_cast<unsigned long long>(r.done), r.shape.c_str(), r.done == 1 ? "frame" : "frames",
                r.where.c_str(), fps, transferFps);
    if (!o.transferOnly && !isOneFile(o.pattern) && r.done > 0)
        std::printf("time stamps: %s\n", o.csv.c_str());
}

} // namespace

void addDownloadOptions(CLI::App &cmd, DownloadOptions &o)
{
    addImageOutputOptions(cmd, o.output, "frame_%06d.png");
    cmd.get_option("--format")->check(CLI::IsMember({"png", "tiff", "tif", "hdf5"}, CLI::ignore_case));
    cmd.add_option("--csv", o.csv, "Time-stamp CSV of numbered files (default: timestamps.csv beside the images)");
    cmd.add_flag("--overwrite", o.overwrite, "Replace output files that exist (refused otherwise)");
    cmd.add_flag("--transfer-only", o.transferOnly,
                 "Transfer the frames and write nothing: the library's own pace, to compare with");
    cmd.add_flag("--json", o.json, "Report the download as one line of JSON");
}

void checkDownload(DownloadOptions &o)
{
    parseRange(o.frames, o.first, o.last);
    const std::uint32_t count = o.last - o.first + 1;
    if (o.transferOnly)
        return;
    o.pattern = checkOutputPattern(o.output.pattern, o.output.format, count, true);
    if (isOneFile(o.pattern)) {
        if (!o.csv.empty())
            throw UsageError("--csv goes with numbered files: " + o.pattern.path(0) + " holds the time stamps");
        checkNewFile(o.pattern.path(0), o.overwrite);
    } else {
        if (o.csv.empty())
            o.csv = (std::filesystem::path(o.pattern.folder) / "timestamps.csv").string();
        checkOutputFile(o.csv, "time-stamp CSV");
        checkNewFile(o.csv, o.overwrite);
        for (std::uint32_t n = o.first; n <= o.last; ++n)
            checkNewFile(o.pattern.path(n), o.overwrite);
    }
    // Folders only once every check has passed.
    createFolder(o.pattern.folder);
    if (!o.csv.empty())
        createFolder(folderOf(o.csv));
}

void precheckDownload(CameraSession &camera, const DownloadOptions &o)
{
    // The recording's length is known only to the camera: check the range
    // before anything changes.
    const std::uint32_t recorded = camera.get(QUORIN_CAP_FRAME_COUNT, "the frame count");
    const std::uint32_t total = o.last - o.first + 1;
    if (o.last > recorded)
        throw UsageError((total == 1 ? "frame " + o.frames + " lies" : "frames " + o.frames + " lie") +
                         " outside the recording (frames 1-" + std::to_string(recorded) + ")");
    if (!o.transferOnly) {
        // Estimated from the live picture; the recording's may differ.
        const ImageShape live = readImageShape(camera);
        checkRoom(o.pattern.folder, std::uint64_t{total} * live.samples() * (o.output.bits / 8) + (1 << 20),
                  counted(total, "frame"));
    }
}

int runDownload(CameraSession &camera, const DownloadOptions &o)
{
    precheckDownload(camera, o);
    const std::uint32_t total = o.last - o.first + 1;
    if (interruptRequested()) {
        std::fprintf(stderr, "quorin: interrupted before the download began; the camera was not changed\n");
        return kExitInterrupted;
    }
    camera.set(QUORIN_CAP_CAMERA_MODE, 1, "playback mode");
    Outcome outcome;
    thenLive(camera, [&] { outcome = transferFrames(camera, o); });
    if (interruptRequested()) {
        if (outcome.done == 0)
            std::fprintf(stderr, "quorin: interrupted before the first frame; the camera is back in live mode\n");
        else
            std::fprintf(stderr, "quorin: interrupted after %llu of %u frames; the camera is back in live mode\n",
                         static_cast<unsigned long long>(outcome.done), total);
        if (outcome.done == 0)
            return kExitInterrupted;
    }
    report(o, outcome);
    return interruptRequested() ? kExitInterrupted : kExitOk;
}

Command addDownloadCommand(CLI::App &parent)
{
    auto o = std::make_shared<DownloadOptions>();
    Command c;
    c.app = parent.add_subcommand("download",
                                  "Download recorded frames to numbered files, one HDF5 file or one multi-page TIFF");
    c.app->add_option("-f,--frames", o->frames, "Recorded frames FIRST-LAST (or one FRAME), counted from 1")
        ->required();
    addDownloadOptions(*c.app, *o);
    c.app->footer(
        "Outputs: a name with a number field (%06d) writes numbered PNG or TIFF files and a time-stamp\n"
        "CSV (frame,file,day,hour,minute,second,microsecond,time_code,time,seconds); a .h5 name writes\n"
        "one HDF5 file, a .tif name without a number field one multi-page BigTIFF file, both with the\n"
        "time stamps inside. Every file grows frame by frame and is readable at every moment. Files that\n"
        "exist are refused unless --overwrite. A progress bar is drawn when stderr is a terminal, a line\n"
        "per frame otherwise. On Ctrl-C the frames in hand are written and the camera goes back to live.\n"
        "\nExamples:\n  quorin download --frames 1-100 -o rec/frame_%06d.png\n"
        "  quorin download --frames 1-3276 -o rec.h5\n"
        "  quorin download --frames 10-20 --bits 16 -o rec/f%04d.tiff --csv rec/stamps.csv");
    c.check = [o] { checkDownload(*o); };
    c.run = [o](CameraSession &camera) { return runDownload(camera, *o); };
    return c;
}

} // namespace quorin::cli
