// quorin record: choose the trigger and the recording state, arm the
// camera, wait until it has recorded (triggering a virtual camera), put it
// back in live mode and, when asked, download the recording at once.
#include "commands.h"

#include "cli_error.h"
#include "interrupt.h"
#include "values.h"
#include "vcam/vcam.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <thread>
#include <unistd.h>

namespace quorin::cli {
namespace {

using Clock = std::chrono::steady_clock;

// How often the camera's state is read while it records.
constexpr auto kPollInterval = std::chrono::milliseconds(20);

struct RecordOptions {
    std::string mode = "record";
    std::string trigger;
    std::optional<std::uint32_t> segmentLength, segments;
    double triggerAfter = 0;
    double timeout = 0;
    DownloadOptions download;
    Value parsedMode, parsedTrigger;
};

bool isRecordingState(std::uint32_t mode)
{
    return mode == 2 || mode == 4 || mode == 8;
}

// A line redrawn on a terminal, or a plain line a second otherwise.
class WaitReport {
public:
    WaitReport() : terminal_(isatty(STDERR_FILENO) != 0) {}
    void show(const std::string &text)
    {
        const Clock::time_point now = Clock::now();
        if (terminal_) {
            std::fprintf(stderr, "\r%s\x1b[K", text.c_str());
            std::fflush(stderr);
            drawn_ = true;
        } else if (now - last_ >= std::chrono::seconds(1)) {
            std::printf("%s\n", text.c_str());
            std::fflush(stdout);
            last_ = now;
        }
    }
    ~WaitReport()
    {
        if (drawn_)
            std::fputc('\n', stderr);
    }

private:
    bool terminal_;
    bool drawn_ = false;
    Clock::time_point last_{};
};

// Waits until the camera leaves its recording state by itself, the time
// limit passes or an interrupt comes. Returns how it ended.
enum class Ending { Recorded, TimedOut, Interrupted };

Ending awaitRecording(CameraSession &camera, const RecordOptions &o)
{
    VcamCamera *virtualCamera = camera.virtualCamera();
    const Clock::time_point start = Clock::now();
    bool triggered = virtualCamera == nullptr;
    WaitReport report;
    for (;;) {
        const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        if (interruptRequested())
            return Ending::Interrupted;
        if (o.timeout > 0 && elapsed >= o.timeout)
            return Ending::TimedOut;
        if (!triggered && elapsed >= o.triggerAfter) {
            vcam_trigger(virtualCamera);
            triggered = true;
        }
        const std::uint32_t mode = camera.get(QUORIN_CAP_CAMERA_MODE, "the camera mode");
        char text[160];
        if (virtualCamera != nullptr) {
            std::uint32_t recorded = 0, length = 0;
            const int state = vcam_recording(virtualCamera, &recorded, &length);
            const int filled = length ? static_cast<int>(30.0 * recorded / length) : 0;
            std::snprintf(text, sizeof text, "[%s%s] %u/%u frames recorded  %.1f s", std::string(filled, '#').c_str(),
                          std::string(30 - filled, '.').c_str(), recorded, length, elapsed);
            if (state == 3)
                return Ending::Recorded;
        } else {
            std::snprintf(text, sizeof text, "waiting for the camera to record: mode %u, %.1f s", mode, elapsed);
        }
        report.show(text);
        if (!isRecordingState(mode))
            return Ending::Recorded;
        std::this_thread::sleep_for(kPollInterval);
    }
}

} // namespace

Command addRecordCommand(CLI::App &parent)
{
    auto o = std::make_shared<RecordOptions>();
    Command c;
    c.app = parent.add_subcommand("record", "Arm a recording, wait until the camera has recorded, download at once");
    c.app->add_option("--mode", o->mode, "Recording state: ready (2), ready-record (4) or record (8)")
        ->capture_default_str();
    std::string triggers;
    for (const NamedValue &n : namedValues(Format::Trigger))
        triggers += (triggers.empty() ? "" : ", ") + std::string(n.name);
    c.app->add_option("--trigger", o->trigger,
                      "Trigger NAME[,PARAMETER] or CODE[,PARAMETER] (default: as the camera is set): " + triggers);
    c.app->add_option("--segment-length", o->segmentLength, "Frames per segment (trigger count) for the segmented codes")
        ->check(CLI::Range(1u, 0xFFFFFFFFu));
    c.app->add_option("--segments", o->segments, "Number of segments, 1..10 (trigger ratio)")->check(CLI::Range(1u, 10u));
    c.app->add_option("--trigger-after", o->triggerAfter,
                      "Virtual cameras: seconds after arming at which the tool triggers the camera")
        ->check(CLI::Range(0.0, 86400.0))
        ->capture_default_str();
    c.app->add_option("--timeout", o->timeout, "Seconds after which the tool stops the recording itself (0: never)")
        ->check(CLI::Range(0.0, 1e9));
    c.app->add_option("--download", o->download.frames, "Download these recorded frames (FIRST-LAST) afterwards");
    addDownloadOptions(*c.app, o->download);
    c.app->footer(
        "The trigger is set first (with --segment-length and --segments as the trigger counts), then\n"
        "the recording state; ready-record passes through ready, as the camera requires. The tool\n"
        "waits until the camera leaves the recording state by itself, draws its progress, and returns\n"
        "it to live mode, also on Ctrl-C or after --timeout. See docs/cli.md for what each state and\n"
        "trigger code does.\n"
        "\nExamples:\n  quorin record --trigger frames,500 --download 1-500 -o rec.h5\n"
        "  quorin --set resolution=512x256 --set frame-rate=20000 record --trigger segments-centre \\\n"
        "      --segment-length 200 --segments 4 --download 1-800 -o seg/f_%04d.tiff\n"
        "  quorin record --mode ready-record --trigger-after 2");
    c.check = [o] {
        o->parsedMode = parseValue(Format::CameraMode, o->mode);
        if (!isRecordingState(o->parsedMode.value))
            throw UsageError("--mode takes a recording state: ready (2), ready-record (4) or record (8), not '" +
                             o->mode + "'");
        if (!o->trigger.empty())
            o->parsedTrigger = parseValue(Format::Trigger, o->trigger);
        if (o->segmentLength.has_value() != o->segments.has_value())
            throw UsageError("--segment-length and --segments go together");
        if (!o->download.frames.empty())
            checkDownload(o->download);
    };
    c.run = [o](CameraSession &camera) {
        const bool download = !o->download.frames.empty();
        if (camera.virtualCamera() == nullptr && o->triggerAfter > 0)
            throw UsageError("--trigger-after triggers virtual cameras only; this camera's trigger comes from outside");
        if (download)
            precheckDownload(camera, o->download);
        if (o->segmentLength)
            camera.set(QUORIN_CAP_TRIGGER_COUNTS, *o->segmentLength, "trigger-counts", 0, *o->segments);
        if (!o->trigger.empty())
            camera.set(QUORIN_CAP_TRIGGER_MODE, o->parsedTrigger.value, "trigger-mode", 0, o->parsedTrigger.value2);
        std::uint32_t parameter = 0;
        const std::uint32_t trigger = camera.get(QUORIN_CAP_TRIGGER_MODE, "the trigger mode", 0, &parameter);
        const std::uint32_t rate = camera.get(QUORIN_CAP_FRAME_RATE, "the frame rate");
        if (interruptRequested())
            return kExitInterrupted;

        const std::uint32_t mode = o->parsedMode.value;
        if (mode == 4)
            camera.set(QUORIN_CAP_CAMERA_MODE, 2, "camera-mode ready");
        camera.set(QUORIN_CAP_CAMERA_MODE, mode, "camera-mode " + formatValue(Format::CameraMode, mode));
        std::printf("recording: %s at %u fps, trigger %s\n", formatValue(Format::CameraMode, mode).c_str(), rate,
                    formatValue(Format::Trigger, trigger, parameter).c_str());
        std::fflush(stdout);
        // Live mode whatever happened: a recording still running stops.
        Ending ending = Ending::Interrupted;
        thenLive(camera, [&] { ending = awaitRecording(camera, *o); });
        if (VcamCamera *v = camera.virtualCamera()) {
            std::uint32_t recorded = 0, length = 0;
            vcam_recording(v, &recorded, &length);
            std::printf("recorded %s at %u fps\n", counted(recorded, "frame").c_str(), rate);
        }
        if (ending == Ending::Interrupted) {
            std::fprintf(stderr, "quorin: interrupted while recording; the camera is back in live mode\n");
            return kExitInterrupted;
        }
        if (ending == Ending::TimedOut)
            std::printf("stopped the recording after %g s (--timeout)\n", o->timeout);
        std::printf("the camera is back in live mode\n");
        return download ? runDownload(camera, o->download) : kExitOk;
    };
    return c;
}

} // namespace quorin::cli
