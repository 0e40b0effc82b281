// quorin view: the live picture in a window, with the rate it is shown at.
// The GStreamer element quorinsrc opens the camera of the camera options
// and makes the --set settings; a video sink draws the frames.
#include "commands.h"

#include "cli_error.h"
#include "interrupt.h"
#include "quorin_src.h"

#include <gst/base/gstbasesink.h>
#include <gst/gst.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>

namespace quorin::cli {
namespace {

struct ViewOptions {
    std::uint32_t count = 0;
    std::string sink = "autovideosink sync=false";
};

using Clock = std::chrono::steady_clock;
// How often the rate on the picture is brought up to date.
constexpr std::chrono::milliseconds kRateInterval{500};

GstPadProbeReturn countFrame(GstPad *, GstPadProbeInfo *, gpointer frames)
{
    static_cast<std::atomic<std::uint64_t> *>(frames)->fetch_add(1, std::memory_order_relaxed);
    return GST_PAD_PROBE_OK;
}

// Hands the camera options to the element as properties: only those given,
// so that it applies the tool's own defaults and refusals.
void configureSource(GstElement *source, const CameraOptions &camera, const std::vector<std::string> &settings,
                     std::uint32_t count)
{
    std::string joined;
    for (const std::string &s : settings)
        joined += s + ";";
    g_object_set(source, "camera", camera.choice.c_str(), "link", camera.link, "settings", joined.c_str(),
                 "num-buffers", count == 0 ? -1 : static_cast<gint>(count), nullptr);
    if (camera.firmware)
        g_object_set(source, "firmware", *camera.firmware, nullptr);
    if (camera.cameraNumber)
        g_object_set(source, "camera-number", *camera.cameraNumber, nullptr);
    if (camera.hostArg)
        g_object_set(source, "host-arg", *camera.hostArg, nullptr);
}

// "512x256  611.3 fps shown (camera 1000 fps)" from the negotiated caps.
std::string rateText(GstElement *source, double shown)
{
    GstPad *pad = gst_element_get_static_pad(source, "src");
    GstCaps *caps = gst_pad_get_current_caps(pad);
    gst_object_unref(pad);
    if (caps == nullptr)
        return "";
    const GstStructure *s = gst_caps_get_structure(caps, 0);
    int width = 0, height = 0, rate = 0, denominator = 1;
    gst_structure_get_int(s, "width", &width);
    gst_structure_get_int(s, "height", &height);
    gst_structure_get_fraction(s, "framerate", &rate, &denominator);
    gst_caps_unref(caps);
    char text[128];
    std::snprintf(text, sizeof text, "%dx%d  %.1f fps shown (camera %d fps)", width, height, shown,
                  rate / (denominator > 0 ? denominator : 1));
    return text;
}

// The text of an error message; closing the window is the viewer's way to
// end, not a failure.
bool windowClosed(GstMessage *message, std::string &text)
{
    GError *error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    text = error != nullptr ? error->message : "unknown error";
    const bool closed = error != nullptr && g_error_matches(error, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NOT_FOUND) &&
                        GST_IS_BASE_SINK(GST_MESSAGE_SRC(message));
    g_clear_error(&error);
    return closed;
}

int runView(const CameraOptions &camera, const std::vector<std::string> &settings, const ViewOptions &o)
{
    gst_init(nullptr, nullptr);
    if (!quorin_src_register_static())
        throw CliError("could not register the quorinsrc element with GStreamer");
    const std::string description = "quorinsrc name=camera ! videoconvert ! textoverlay name=rate font-desc=Sans valignment=bottom "
                                     "halignment=left shaded-background=true ! videoconvert ! " +
                                     o.sink;
    GError *error = nullptr;
    std::unique_ptr<GstElement, decltype(&gst_object_unref)> pipeline(gst_parse_launch(description.c_str(), &error),
                                                                      gst_object_unref);
    if (error != nullptr) {
        const std::string why = error->message;
        g_clear_error(&error);
        throw UsageError("could not build the view with the sink '" + o.sink + "': " + why);
    }
    GstElement *source = gst_bin_get_by_name(GST_BIN(pipeline.get()), "camera");
    GstElement *overlay = gst_bin_get_by_name(GST_BIN(pipeline.get()), "rate");
    configureSource(source, camera, settings, o.count);
    std::atomic<std::uint64_t> frames{0};
    GstPad *pad = gst_element_get_static_pad(source, "src");
    gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, countFrame, &frames, nullptr);
    gst_object_unref(pad);

    InterruptGuard guard;
    GstBus *bus = gst_element_get_bus(pipeline.get());
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    const Clock::time_point start = Clock::now();
    Clock::time_point last = start;
    std::uint64_t lastFrames = 0;
    int status = kExitOk;
    std::string failure;
    for (;;) {
        GstMessage *message = gst_bus_timed_pop_filtered(bus, 100 * GST_MSECOND,
                                                         static_cast<GstMessageType>(GST_MESSAGE_ERROR | GST_MESSAGE_EOS));
        if (message != nullptr) {
            std::string text;
            if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR && !windowClosed(message, text))
                failure = text;
            gst_message_unref(message);
            break;
        }
        if (interruptRequested()) {
            status = kExitInterrupted;
            break;
        }
        const Clock::time_point now = Clock::now();
        if (now - last >= kRateInterval) {
            const std::uint64_t n = frames.load(std::memory_order_relaxed);
            const double seconds = std::chrono::duration<double>(now - last).count();
            g_object_set(overlay, "text", rateText(source, (n - lastFrames) / seconds).c_str(), nullptr);
            last = now;
            lastFrames = n;
        }
    }
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
    gst_object_unref(bus);
    gst_object_unref(overlay);
    gst_object_unref(source);
    if (!failure.empty())
        throw CliError(failure);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const std::uint64_t shown = frames.load();
    std::printf("viewed %llu frames: %.1f frames per second\n", static_cast<unsigned long long>(shown),
                seconds > 0 ? shown / seconds : 0.0);
    return status;
}

} // namespace

Command addViewCommand(CLI::App &parent, const CameraOptions &camera, const std::vector<std::string> &settings)
{
    auto o = std::make_shared<ViewOptions>();
    Command c;
    c.app = parent.add_subcommand("view", "Show the live picture in a window, with the frame rate");
    c.app->add_option("-n,--count", o->count, "Stop after this many frames (0: until the window is closed)")
        ->capture_default_str();
    c.app->add_option("--sink", o->sink, "The GStreamer video sink that draws the window")->capture_default_str();
    c.app->footer("The window shows the picture size and the rate the frames are shown at; close it or press\n"
                  "Ctrl-C to end. The camera is opened by the GStreamer element quorinsrc (docs/gstreamer.md).\n"
                  "\nExamples:\n  quorin view\n  quorin --camera virtual:k5 view --set resolution=512x256\n"
                  "  quorin view --sink \"ximagesink display=:1\"");
    c.check = [] {};
    c.runOwnCamera = [o, &camera, &settings] { return runView(camera, settings, *o); };
    return c;
}

} // namespace quorin::cli
