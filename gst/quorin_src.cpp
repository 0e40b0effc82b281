// The GObject side of quorinsrc: properties, caps and the base class's
// steps. The camera itself is a CameraStream, alive from start to stop
// (READY -> PAUSED -> READY); every refusal and failure is an error
// message on the bus that names the library's ErrorCode in words.
#include "quorin_src.h"

#include "camera_stream.h"

#include <gst/video/video.h>

#include <string>
#include <utility>

using quorin::gst::CameraStream;
using quorin::gst::Source;
using quorin::gst::StreamError;
using quorin::gst::StreamProperties;

GST_DEBUG_CATEGORY_STATIC(quorin_src_debug);
#define GST_CAT_DEFAULT quorin_src_debug

namespace {

constexpr const char kTemplateCaps[] = "video/x-raw, format = (string) { GRAY8, GRAY16_LE, BGR, RGB, RGBA64_LE }, "
                                       "width = (int) [ 1, 1024 ], height = (int) [ 1, 1024 ], "
                                       "framerate = (fraction) [ 0/1, MAX ], pixel-aspect-ratio = (fraction) 1/1";

enum Property {
    PROP_0,
    PROP_CAMERA,
    PROP_LINK,
    PROP_FIRMWARE,
    PROP_CAMERA_NUMBER,
    PROP_HOST_ARG,
    PROP_SETTINGS,
    PROP_BITS,
    PROP_SOURCE,
    PROP_FRAMES,
};

// Defaults shown by gst-inspect; the optional ones are left to the camera
// options' own defaults unless set, so that the element refuses what the
// tool refuses (a camera number for a driver camera, say).
constexpr guint kDefaultLink = 3, kDefaultFirmware = 120, kDefaultCameraNumber = 1, kDefaultBits = 8;
constexpr const char kDefaultCamera[] = "virtual:k5c";

GType sourceType()
{
    static GType type = 0;
    static const GEnumValue values[] = {
        {static_cast<gint>(Source::Live), "Live frames, stamped with the pipeline's running time", "live"},
        {static_cast<gint>(Source::Recording),
         "Frames recorded in the camera's memory, stamped from the camera's time codes", "recording"},
        {0, nullptr, nullptr},
    };
    if (g_once_init_enter(&type))
        g_once_init_leave(&type, g_enum_register_static("QuorinSrcSource", values));
    return type;
}

} // namespace

struct _QuorinSrc {
    GstPushSrc parent;
    StreamProperties *properties; // guarded by the object lock
    CameraStream *stream;         // from start to stop; the pointer guarded by the object lock
};

G_DEFINE_TYPE(QuorinSrc, quorin_src, GST_TYPE_PUSH_SRC)

namespace {

void postError(QuorinSrc *self, const StreamError &e)
{
    GST_DEBUG_OBJECT(self, "%s", e.what());
    switch (e.kind) {
    case StreamError::Kind::Settings:
        GST_ELEMENT_ERROR(self, RESOURCE, SETTINGS, ("%s", e.what()), (nullptr));
        break;
    case StreamError::Kind::Open:
        GST_ELEMENT_ERROR(self, RESOURCE, OPEN_READ, ("%s", e.what()), (nullptr));
        break;
    case StreamError::Kind::Negotiation:
        GST_ELEMENT_ERROR(self, CORE, NEGOTIATION, ("%s", e.what()), (nullptr));
        break;
    case StreamError::Kind::Read:
        GST_ELEMENT_ERROR(self, RESOURCE, READ, ("%s", e.what()), (nullptr));
        break;
    }
}

std::string capsText(GstCaps *caps)
{
    gchar *text = gst_caps_to_string(caps);
    std::string s = text;
    g_free(text);
    return s;
}

// What the camera gives against what the element's peer accepts.
StreamError refusedCaps(GstBaseSrc *base, GstCaps *mine)
{
    GstCaps *accepted = gst_pad_peer_query_caps(GST_BASE_SRC_PAD(base), nullptr);
    StreamError e(StreamError::Kind::Negotiation, "the camera gives " + capsText(mine) +
                                                      ", which the pipeline does not accept (it accepts " +
                                                      capsText(accepted) + ")");
    gst_caps_unref(accepted);
    return e;
}

gboolean start(GstBaseSrc *base)
{
    QuorinSrc *self = QUORIN_SRC(base);
    GST_OBJECT_LOCK(self);
    const StreamProperties properties = *self->properties;
    GST_OBJECT_UNLOCK(self);
    try {
        auto stream = std::make_unique<CameraStream>(properties);
        // Formats the pipeline cannot take are refused here, before the
        // camera leaves live mode for a recording.
        GstCaps *mine = stream->caps();
        GstCaps *peer = gst_pad_peer_query_caps(GST_BASE_SRC_PAD(base), mine);
        const bool accepted = !gst_caps_is_empty(peer);
        gst_caps_unref(peer);
        if (!accepted) {
            StreamError e = refusedCaps(base, mine);
            gst_caps_unref(mine);
            throw e;
        }
        gst_caps_unref(mine);
        if (!stream->live())
            stream->enterPlayback();
        GST_OBJECT_LOCK(self);
        self->stream = stream.release();
        GST_OBJECT_UNLOCK(self);
        return TRUE;
    } catch (const StreamError &e) {
        postError(self, e);
        return FALSE;
    }
}

gboolean stop(GstBaseSrc *base)
{
    QuorinSrc *self = QUORIN_SRC(base);
    GST_OBJECT_LOCK(self);
    CameraStream *stream = std::exchange(self->stream, nullptr);
    GST_OBJECT_UNLOCK(self);
    if (stream == nullptr)
        return TRUE;
    // A camera that cannot be closed cleanly is still released; the
    // pipeline hears of it and stops all the same.
    try {
        stream->close();
    } catch (const StreamError &e) {
        GST_ELEMENT_WARNING(self, RESOURCE, CLOSE, ("%s", e.what()), (nullptr));
    }
    delete stream;
    return TRUE;
}

GstCaps *getCaps(GstBaseSrc *base, GstCaps *filter)
{
    QuorinSrc *self = QUORIN_SRC(base);
    GST_OBJECT_LOCK(self);
    GstCaps *caps = self->stream != nullptr ? self->stream->caps() : nullptr;
    GST_OBJECT_UNLOCK(self);
    if (caps == nullptr)
        caps = gst_pad_get_pad_template_caps(GST_BASE_SRC_PAD(base));
    if (filter != nullptr) {
        GstCaps *both = gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(caps);
        caps = both;
    }
    return caps;
}

gboolean setCaps(GstBaseSrc *base, GstCaps *caps)
{
    QuorinSrc *self = QUORIN_SRC(base);
    GstVideoInfo info;
    return self->stream != nullptr && gst_video_info_from_caps(&info, caps) && self->stream->setFormat(info);
}

gboolean negotiate(GstBaseSrc *base)
{
    if (GST_BASE_SRC_CLASS(quorin_src_parent_class)->negotiate(base))
        return TRUE;
    QuorinSrc *self = QUORIN_SRC(base);
    GstCaps *mine = self->stream->caps();
    postError(self, refusedCaps(base, mine));
    gst_caps_unref(mine);
    return FALSE;
}

// A live frame is at least one frame period old when it arrives.
gboolean query(GstBaseSrc *base, GstQuery *query)
{
    QuorinSrc *self = QUORIN_SRC(base);
    if (GST_QUERY_TYPE(query) == GST_QUERY_LATENCY) {
        GST_OBJECT_LOCK(self);
        const bool live = self->stream != nullptr && self->stream->live();
        const GstClockTime period = live ? self->stream->framePeriod() : GST_CLOCK_TIME_NONE;
        GST_OBJECT_UNLOCK(self);
        if (live) {
            gst_query_set_latency(query, TRUE, GST_CLOCK_TIME_IS_VALID(period) ? period : 0, GST_CLOCK_TIME_NONE);
            return TRUE;
        }
    }
    return GST_BASE_SRC_CLASS(quorin_src_parent_class)->query(base, query);
}

GstFlowReturn create(GstPushSrc *push, GstBuffer **out)
{
    QuorinSrc *self = QUORIN_SRC(push);
    try {
        GstBuffer *buffer = self->stream->nextFrame();
        if (buffer == nullptr)
            return GST_FLOW_EOS;
        if (self->stream->live()) {
            // The running time at which the frame reached the host.
            GstClock *clock = gst_element_get_clock(GST_ELEMENT(self));
            if (clock != nullptr) {
                const GstClockTimeDiff running =
                    GST_CLOCK_DIFF(gst_element_get_base_time(GST_ELEMENT(self)), gst_clock_get_time(clock));
                GST_BUFFER_PTS(buffer) = running > 0 ? static_cast<GstClockTime>(running) : 0;
                gst_object_unref(clock);
            }
        }
        *out = buffer;
        return GST_FLOW_OK;
    } catch (const StreamError &e) {
        postError(self, e);
        return GST_FLOW_ERROR;
    }
}

void setProperty(GObject *object, guint id, const GValue *value, GParamSpec *pspec)
{
    QuorinSrc *self = QUORIN_SRC(object);
    GST_OBJECT_LOCK(self);
    StreamProperties &p = *self->properties;
    switch (id) {
    case PROP_CAMERA:
        p.camera.choice = g_value_get_string(value) != nullptr ? g_value_get_string(value) : "";
        break;
    case PROP_LINK:
        p.camera.link = g_value_get_uint(value);
        break;
    case PROP_FIRMWARE:
        p.camera.firmware = g_value_get_uint(value);
        break;
    case PROP_CAMERA_NUMBER:
        p.camera.cameraNumber = g_value_get_uint(value);
        break;
    case PROP_HOST_ARG:
        p.camera.hostArg = g_value_get_uint(value);
        break;
    case PROP_SETTINGS:
        p.settings = g_value_get_string(value) != nullptr ? g_value_get_string(value) : "";
        break;
    case PROP_BITS:
        p.bits = g_value_get_uint(value);
        break;
    case PROP_SOURCE:
        p.source = static_cast<Source>(g_value_get_enum(value));
        break;
    case PROP_FRAMES:
        p.frames = g_value_get_string(value) != nullptr ? g_value_get_string(value) : "";
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
        break;
    }
    const bool live = p.source == Source::Live;
    GST_OBJECT_UNLOCK(self);
    // Live frames do not preroll; a recording does, like a file.
    gst_base_src_set_live(GST_BASE_SRC(self), live);
}

void getProperty(GObject *object, guint id, GValue *value, GParamSpec *pspec)
{
    QuorinSrc *self = QUORIN_SRC(object);
    GST_OBJECT_LOCK(self);
    const StreamProperties &p = *self->properties;
    switch (id) {
    case PROP_CAMERA:
        g_value_set_string(value, p.camera.choice.c_str());
        break;
    case PROP_LINK:
        g_value_set_uint(value, p.camera.link);
        break;
    case PROP_FIRMWARE:
        g_value_set_uint(value, p.camera.firmware.value_or(kDefaultFirmware));
        break;
    case PROP_CAMERA_NUMBER:
        g_value_set_uint(value, p.camera.cameraNumber.value_or(kDefaultCameraNumber));
        break;
    case PROP_HOST_ARG:
        g_value_set_uint(value, p.camera.hostArg.value_or(0));
        break;
    case PROP_SETTINGS:
        g_value_set_string(value, p.settings.c_str());
        break;
    case PROP_BITS:
        g_value_set_uint(value, p.bits);
        break;
    case PROP_SOURCE:
        g_value_set_enum(value, static_cast<gint>(p.source));
        break;
    case PROP_FRAMES:
        g_value_set_string(value, p.frames.c_str());
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
        break;
    }
    GST_OBJECT_UNLOCK(self);
}

void finalize(GObject *object)
{
    QuorinSrc *self = QUORIN_SRC(object);
    delete self->stream;
    delete self->properties;
    G_OBJECT_CLASS(quorin_src_parent_class)->finalize(object);
}

constexpr GParamFlags kFlags =
    static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY);

void installString(GObjectClass *c, Property id, const char *name, const char *blurb, const char *fallback)
{
    g_object_class_install_property(c, id, g_param_spec_string(name, name, blurb, fallback, kFlags));
}

void installNumber(GObjectClass *c, Property id, const char *name, const char *blurb, guint fallback)
{
    g_object_class_install_property(c, id, g_param_spec_uint(name, name, blurb, 0, G_MAXUINT, fallback, kFlags));
}

} // namespace

static void quorin_src_class_init(QuorinSrcClass *klass)
{
    GObjectClass *object = G_OBJECT_CLASS(klass);
    object->set_property = setProperty;
    object->get_property = getProperty;
    object->finalize = finalize;

    installString(object, PROP_CAMERA, "camera",
                  "The camera: virtual:k5c or virtual:k5 (a virtual camera in this process), or driver:PATH (a "
                  "host link driver, a shared library exporting quorin_interface())",
                  kDefaultCamera);
    installNumber(object, PROP_LINK, "link", "Link type of a virtual camera: 2, 3, 4 or 7", kDefaultLink);
    installNumber(object, PROP_FIRMWARE, "firmware", "Firmware revision of a virtual camera", kDefaultFirmware);
    installNumber(object, PROP_CAMERA_NUMBER, "camera-number",
                  "Number of a virtual camera (the library keeps some settings per camera number)",
                  kDefaultCameraNumber);
    installNumber(object, PROP_HOST_ARG, "host-arg", "Host argument handed to the Open of a driver camera", 0);
    installString(object, PROP_SETTINGS, "settings",
                  "Settings made right after the camera is opened: NAME=VALUE pairs separated by blanks or ';', "
                  "with the names and notations of quorin --set, e.g. \"resolution=512x256 frame-rate=2000\"",
                  "");
    g_object_class_install_property(
        object, PROP_BITS,
        g_param_spec_uint("bits", "bits",
                          "Bits per sample: 8, or 16 for the camera's 10-bit values scaled to the 16-bit range "
                          "(GRAY16_LE on the K5 and for a raw mosaic, RGBA64_LE on the K5C)",
                          0, 64, kDefaultBits, kFlags));
    g_object_class_install_property(
        object, PROP_SOURCE,
        g_param_spec_enum("source", "source", "Live frames, or the frames recorded in the camera's memory",
                          sourceType(), static_cast<gint>(Source::Live), kFlags));
    installString(object, PROP_FRAMES, "frames",
                  "Recorded frames to give (source=recording): FIRST-LAST or FRAME, counted from 1; empty for "
                  "the whole recording. Buffer offsets are the frame numbers",
                  "");

    GstElementClass *element = GST_ELEMENT_CLASS(klass);
    gst_element_class_set_static_metadata(
        element, "QUORIN camera source", "Source/Video/Hardware",
        "Live or recorded frames of an ORBILUX-VELTA K5 (grey) or K5C (colour) camera through the QUORIN library",
        "QUORIN");
    gst_element_class_add_pad_template(
        element, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, gst_caps_from_string(kTemplateCaps)));

    GstBaseSrcClass *base = GST_BASE_SRC_CLASS(klass);
    base->start = start;
    base->stop = stop;
    base->get_caps = getCaps;
    base->set_caps = setCaps;
    base->negotiate = negotiate;
    base->query = query;
    GST_PUSH_SRC_CLASS(klass)->create = create;

    gst_type_mark_as_plugin_api(sourceType(), static_cast<GstPluginAPIFlags>(0));
    GST_DEBUG_CATEGORY_INIT(quorin_src_debug, "quorinsrc", 0, "QUORIN camera source");
}

static void quorin_src_init(QuorinSrc *self)
{
    self->properties = new StreamProperties;
    self->properties->camera.choice = kDefaultCamera;
    self->properties->camera.link = kDefaultLink;
    self->stream = nullptr;
    gst_base_src_set_live(GST_BASE_SRC(self), TRUE);
    gst_base_src_set_format(GST_BASE_SRC(self), GST_FORMAT_TIME);
}

gboolean quorin_src_register(GstPlugin *plugin)
{
    return gst_element_register(plugin, "quorinsrc", GST_RANK_NONE, QUORIN_TYPE_SRC);
}

gboolean quorin_src_register_static(void)
{
    return gst_plugin_register_static(GST_VERSION_MAJOR, GST_VERSION_MINOR, "quorin", QUORIN_PLUGIN_DESCRIPTION,
                                      quorin_src_register, QUORIN_VERSION, "Proprietary", "quorin", "QUORIN",
                                      "QUORIN");
}
