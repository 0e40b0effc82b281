#include "camera_stream.h"

#include "cli_error.h"
#include "values.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace quorin::gst {
namespace {

using cli::CameraSession;
using Kind = StreamError::Kind;

// The time-stamp record of one frame (DEV_GetData QUORIN_DATA_TIME_STAMPS):
// day u32, hour, minute, second u8, a spare byte, microsecond u32.
constexpr std::size_t kStampBytes = 20;
// A step between two time codes longer than this many frame periods is a
// gap in the recording.
constexpr std::uint64_t kGapPeriods = 2;
// 16-bit output holds the camera's 10-bit values scaled to the 16-bit
// range, as the tool's 16-bit files do.
constexpr unsigned kScale16 = 6;

// "NAME=VALUE NAME=VALUE" or "NAME=VALUE;NAME=VALUE" as single settings.
std::vector<std::string> splitSettings(const std::string &text)
{
    std::vector<std::string> parts;
    std::string part;
    for (char c : text + ' ') {
        if (c == ';' || c == ' ' || c == '\t' || c == '\n') {
            if (!part.empty())
                parts.push_back(std::move(part));
            part.clear();
        } else {
            part += c;
        }
    }
    return parts;
}

// The range of the frames property: "FIRST-LAST" or "FRAME", counted from
// 1; empty asks for the whole recording (last 0 until the camera says).
void parseFrames(const std::string &text, std::uint32_t &first, std::uint32_t &last)
{
    first = 1;
    last = 0;
    if (text.empty())
        return;
    const std::size_t dash = text.find('-');
    const auto from = cli::parseNumber(text.substr(0, dash));
    const auto to = dash == std::string::npos ? from : cli::parseNumber(text.substr(dash + 1));
    if (!from || !to || *from == 0 || *to < *from)
        throw cli::UsageError("invalid frames '" + text + "': expected FIRST-LAST or FRAME, counted from 1");
    first = *from;
    last = *to;
}

// Runs one step of the stream, turning the session's errors into a
// StreamError of the given kind.
template <typename Step>
auto as(Kind kind, Step &&step)
{
    try {
        return step();
    } catch (const cli::CliError &e) {
        throw StreamError(kind, e.what());
    }
}

std::uint32_t readU32(const std::uint8_t *p)
{
    std::uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

} // namespace

struct CameraStream::Recording {
    std::uint32_t first = 1, last = 0, next = 1;
    bool playback = false;
    bool stamped = false;           // a frame has been stamped
    std::uint64_t previousMicros = 0; // the camera's clock at the frame before
    GstClockTime previousPts = 0;
};

GstCaps *cameraClockCaps()
{
    static GstCaps *caps = gst_caps_new_empty_simple("timestamp/x-quorin-camera-clock");
    return caps;
}

CameraStream::CameraStream(const StreamProperties &p) : bits_(p.bits)
{
    // Everything the properties say is checked before a camera is opened.
    const auto [choice, settings] = as(Kind::Settings, [&] {
        if (p.bits != 8 && p.bits != 16)
            throw cli::UsageError("bits must be 8 or 16, not " + std::to_string(p.bits));
        return std::make_pair(cli::checkCameraOptions(p.camera),
                              cli::checkSettings(splitSettings(p.settings), "settings"));
    });
    if (p.source == Source::Recording) {
        recording_ = std::make_unique<Recording>();
        as(Kind::Settings, [&] { parseFrames(p.frames, recording_->first, recording_->last); });
    } else if (!p.frames.empty()) {
        throw StreamError(Kind::Settings, "frames apply to source=recording only");
    }

    camera_ = as(Kind::Open, [&] { return std::make_unique<CameraSession>(choice); });
    as(Kind::Settings, [&] { cli::applySettings(*camera_, settings); });
    as(Kind::Open, [&] {
        shape_ = cli::readImageShape(*camera_);
        rate_ = camera_->get(QUORIN_CAP_FRAME_RATE, "the frame rate");
    });
    if (recording_) {
        // The recording's length is known only to the camera: the range is
        // checked before the camera leaves live mode.
        const std::uint32_t recorded = as(Kind::Open, [&] { return camera_->get(QUORIN_CAP_FRAME_COUNT, "the frame count"); });
        Recording &r = *recording_;
        if (recorded == 0)
            throw StreamError(Kind::Settings, "the camera holds no recording");
        if (r.last == 0)
            r.last = recorded;
        if (r.last > recorded)
            throw StreamError(Kind::Settings, "frames " + p.frames + " lie outside the recording (frames 1-" +
                                                  std::to_string(recorded) + ")");
        r.next = r.first;
    }
}

CameraStream::~CameraStream()
{
    if (recording_ && recording_->playback) {
        std::int32_t err = 0;
        DEV_SetDeviceCaps(camera_->device(), 0, QUORIN_CAP_CAMERA_MODE, 0, 0, 0, &err);
    }
}

void CameraStream::close()
{
    as(Kind::Open, [&] {
        if (recording_ && recording_->playback) {
            recording_->playback = false;
            camera_->set(QUORIN_CAP_CAMERA_MODE, 0, "live mode");
        }
        camera_->close();
    });
}

void CameraStream::enterPlayback()
{
    as(Kind::Open, [&] {
        camera_->set(QUORIN_CAP_CAMERA_MODE, 1, "playback mode");
        recording_->playback = true;
        // The settings of recorded frames, which the transfers and the time
        // stamps use: channel, picture size and area, recording rate and
        // trigger numbering.
        camera_->get(QUORIN_CAP_CHANNEL_NUMBER, "the playback channel");
        shape_ = cli::readImageShape(*camera_);
        rate_ = camera_->get(QUORIN_CAP_FRAME_RATE, "the recording rate");
        std::uint32_t parameter = 0;
        camera_->get(QUORIN_CAP_TRIGGER_MODE, "the recording's trigger mode", 0, &parameter);
    });
}

std::vector<GstVideoFormat> CameraStream::formats() const
{
    if (shape_.channels == 1)
        return {bits_ == 16 ? GST_VIDEO_FORMAT_GRAY16_LE : GST_VIDEO_FORMAT_GRAY8};
    if (bits_ == 16)
        return {GST_VIDEO_FORMAT_RGBA64_LE};
    // The order the library writes comes first: it needs no conversion.
    if (shape_.blueFirst)
        return {GST_VIDEO_FORMAT_BGR, GST_VIDEO_FORMAT_RGB};
    return {GST_VIDEO_FORMAT_RGB, GST_VIDEO_FORMAT_BGR};
}

GstCaps *CameraStream::caps() const
{
    const bool known = live() || recording_->playback;
    GstCaps *caps = gst_caps_new_empty();
    for (GstVideoFormat format : formats()) {
        GstStructure *s = gst_structure_new("video/x-raw", "format", G_TYPE_STRING, gst_video_format_to_string(format),
                                            "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, nullptr);
        if (known)
            gst_structure_set(s, "width", G_TYPE_INT, static_cast<int>(shape_.width), "height", G_TYPE_INT,
                              static_cast<int>(shape_.height), "framerate", GST_TYPE_FRACTION,
                              static_cast<int>(rate_), 1, nullptr);
        else
            gst_structure_set(s, "width", GST_TYPE_INT_RANGE, 1, 1024, "height", GST_TYPE_INT_RANGE, 1, 1024,
                              "framerate", GST_TYPE_FRACTION_RANGE, 0, 1, G_MAXINT, 1, nullptr);
        gst_caps_append_structure(caps, s);
    }
    return caps;
}

GstClockTime CameraStream::framePeriod() const
{
    return rate_ == 0 ? GST_CLOCK_TIME_NONE : GST_SECOND / rate_;
}

bool CameraStream::setFormat(const GstVideoInfo &info)
{
    const GstVideoFormat format = GST_VIDEO_INFO_FORMAT(&info);
    const std::vector<GstVideoFormat> offered = formats();
    if (std::find(offered.begin(), offered.end(), format) == offered.end() ||
        GST_VIDEO_INFO_WIDTH(&info) != static_cast<int>(shape_.width) ||
        GST_VIDEO_INFO_HEIGHT(&info) != static_cast<int>(shape_.height))
        return false;
    info_ = info;
    if (format == GST_VIDEO_FORMAT_RGBA64_LE)
        conversion_ = Conversion::ToRgba64;
    else if (bits_ == 16)
        conversion_ = Conversion::Scale16;
    else if (format != offered.front())
        conversion_ = Conversion::SwapRedBlue;
    else
        conversion_ = Conversion::Copy;
    return true;
}

void CameraStream::transfer(std::uint8_t *frame, std::uint32_t number)
{
    std::int32_t err = 0;
    const auto bits = static_cast<std::int32_t>(bits_);
    if (live())
        CameraSession::check(DEV_TransferLiveImage(camera_->device(), 0, bits, frame, &err), err,
                             "transfer live frame " + std::to_string(liveFrames_ + 1));
    else
        CameraSession::check(DEV_TransferMemImage(camera_->device(), 0, number, bits, frame, &err), err,
                             "transfer recorded frame " + std::to_string(number));
}

void CameraStream::convertRow(const std::uint8_t *from, std::uint8_t *to) const
{
    const std::uint32_t w = shape_.width;
    const auto *in16 = reinterpret_cast<const std::uint16_t *>(from);
    auto *out16 = reinterpret_cast<std::uint16_t *>(to);
    switch (conversion_) {
    case Conversion::Copy:
        if (from != to)
            std::memmove(to, from, std::size_t{w} * shape_.channels);
        break;
    case Conversion::SwapRedBlue:
        for (std::uint32_t x = 0; x < w; ++x) {
            const std::uint8_t first = from[3 * x], second = from[3 * x + 1], third = from[3 * x + 2];
            to[3 * x] = third;
            to[3 * x + 1] = second;
            to[3 * x + 2] = first;
        }
        break;
    case Conversion::Scale16:
        for (std::uint32_t i = 0; i < w * shape_.channels; ++i)
            out16[i] = static_cast<std::uint16_t>(in16[i] << kScale16);
        break;
    case Conversion::ToRgba64: {
        const int red = shape_.blueFirst ? 2 : 0, blue = 2 - red;
        for (std::uint32_t x = 0; x < w; ++x) {
            out16[4 * x] = static_cast<std::uint16_t>(in16[3 * x + red] << kScale16);
            out16[4 * x + 1] = static_cast<std::uint16_t>(in16[3 * x + 1] << kScale16);
            out16[4 * x + 2] = static_cast<std::uint16_t>(in16[3 * x + blue] << kScale16);
            out16[4 * x + 3] = 0xFFFF;
        }
        break;
    }
    }
}

// Recorded frames are stamped from the camera's own time codes, relative to
// the first frame of the range, so that they play at the recording's rate
// and a gap in the recording stays a gap. A time code earlier than the one
// before it (a clock that was reset) continues one frame period on.
void CameraStream::stampRecorded(GstBuffer *buffer, std::uint32_t number)
{
    std::uint8_t stamp[kStampBytes] = {};
    std::uint32_t written = 0;
    std::int32_t err = 0;
    as(Kind::Read, [&] {
        CameraSession::check(
            DEV_GetData(camera_->device(), 0, QUORIN_DATA_TIME_STAMPS, number, 1, stamp, &written, &err), err,
            "read the time code of recorded frame " + std::to_string(number));
    });
    const std::uint64_t micros =
        (((std::uint64_t{readU32(stamp)} * 24 + stamp[4]) * 60 + stamp[5]) * 60 + stamp[6]) * 1000000 +
        readU32(stamp + 8);
    Recording &r = *recording_;
    const GstClockTime period = framePeriod();
    GstClockTime pts = 0;
    bool discont = !r.stamped;
    if (r.stamped && micros >= r.previousMicros) {
        pts = r.previousPts + (micros - r.previousMicros) * GST_USECOND;
        discont = (micros - r.previousMicros) * GST_USECOND > kGapPeriods * period;
    } else if (r.stamped) {
        pts = r.previousPts + period;
        discont = true;
    }
    r.stamped = true;
    r.previousMicros = micros;
    r.previousPts = pts;
    GST_BUFFER_PTS(buffer) = pts;
    GST_BUFFER_DURATION(buffer) = period;
    GST_BUFFER_OFFSET(buffer) = number;
    GST_BUFFER_OFFSET_END(buffer) = number + 1;
    if (discont)
        GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    gst_buffer_add_reference_timestamp_meta(buffer, cameraClockCaps(), micros * GST_USECOND, GST_CLOCK_TIME_NONE);
}

GstBuffer *CameraStream::nextFrame()
{
    if (recording_ && recording_->next > recording_->last)
        return nullptr;
    const std::uint32_t number = recording_ ? recording_->next : 0;
    const std::size_t librarySample = bytesPerSample();
    const std::size_t libraryRow = std::size_t{shape_.width} * shape_.channels * librarySample;
    const std::size_t stride = static_cast<std::size_t>(GST_VIDEO_INFO_PLANE_STRIDE(&info_, 0));
    // The library writes packed rows; it writes straight into the buffer
    // when the buffer's rows are packed rows of the same pixels.
    const bool inPlace = conversion_ != Conversion::ToRgba64 && stride == libraryRow;

    GstBuffer *buffer = gst_buffer_new_allocate(nullptr, GST_VIDEO_INFO_SIZE(&info_), nullptr);
    GstMapInfo map;
    if (buffer == nullptr || !gst_buffer_map(buffer, &map, GST_MAP_WRITE)) {
        if (buffer != nullptr)
            gst_buffer_unref(buffer);
        throw StreamError(Kind::Read, "could not allocate a buffer of " +
                                          std::to_string(GST_VIDEO_INFO_SIZE(&info_)) + " bytes");
    }
    try {
        if (recording_)
            stampRecorded(buffer, number);
        if (!inPlace)
            scratch_.resize(libraryRow * shape_.height);
        std::uint8_t *frame = inPlace ? map.data : scratch_.data();
        as(Kind::Read, [&] { transfer(frame, number); });
        // Rows padded to GStreamer's stride get a zero padding rather than
        // whatever the memory held.
        const std::size_t row = std::size_t{shape_.width} * GST_VIDEO_INFO_COMP_PSTRIDE(&info_, 0);
        for (std::uint32_t y = 0; y < shape_.height && (conversion_ != Conversion::Copy || !inPlace); ++y) {
            convertRow(frame + y * libraryRow, map.data + y * stride);
            std::memset(map.data + y * stride + row, 0, stride - row);
        }
    } catch (...) {
        gst_buffer_unmap(buffer, &map);
        gst_buffer_unref(buffer);
        throw;
    }
    gst_buffer_unmap(buffer, &map);
    if (recording_) {
        recording_->next += 1;
    } else {
        if (liveFrames_ == 0)
            GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
        GST_BUFFER_OFFSET(buffer) = liveFrames_;
        GST_BUFFER_OFFSET_END(buffer) = liveFrames_ + 1;
        liveFrames_ += 1;
    }
    return buffer;
}

} // namespace quorin::gst
