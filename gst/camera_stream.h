// One camera as quorinsrc streams it: the element's properties checked and
// applied through the tool's camera session, the caps the camera can give,
// and its frames with offsets and time stamps.
#pragma once

#include "camera_session.h"
#include "commands.h"
#include "settings.h"

#include <gst/gst.h>
#include <gst/video/video.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace quorin::gst {

enum class Source { Live = 0, Recording = 1 };

// The element's properties as set; nothing here has been checked yet.
struct StreamProperties {
    cli::CameraOptions camera;
    std::string settings; // NAME=VALUE pairs, separated by blanks or ';'
    std::uint32_t bits = 8;
    Source source = Source::Live;
    std::string frames; // FIRST-LAST, FRAME, or empty for the whole recording
};

// A refusal or failure, with what it concerns (the GStreamer error domain).
class StreamError : public std::runtime_error {
public:
    enum class Kind { Settings, Open, Negotiation, Read };
    StreamError(Kind kind, const std::string &message) : std::runtime_error(message), kind(kind) {}
    Kind kind;
};

class CameraStream {
public:
    // Checks the properties (no camera is touched while one is bad), opens
    // the camera, makes the settings and, for a recording, checks the frame
    // range against it. Nothing changes the camera's mode yet.
    explicit CameraStream(const StreamProperties &properties);
    // Returns the camera to live mode and closes it, silently.
    ~CameraStream();
    CameraStream(const CameraStream &) = delete;
    CameraStream &operator=(const CameraStream &) = delete;

    bool live() const { return recording_ == nullptr; }
    // The camera's caps, its formats in order of preference. A recording's
    // picture size and rate are known only in playback: until then they
    // are left open.
    GstCaps *caps() const;
    // The frame period of the camera's rate (live) or the recording's.
    GstClockTime framePeriod() const;
    // Puts the camera in playback and reads the recording's settings.
    void enterPlayback();
    // The format downstream chose from caps(); false when it is none of them.
    bool setFormat(const GstVideoInfo &info);
    // The next frame, or nullptr after the last frame of the range. Live
    // frames get their offset (counted from 0); the element stamps them.
    GstBuffer *nextFrame();
    // Returns the camera to live mode and closes it.
    void close();

private:
    struct Recording;
    enum class Conversion { Copy, SwapRedBlue, Scale16, ToRgba64 };

    std::uint32_t bytesPerSample() const { return bits_ / 8; }
    std::vector<GstVideoFormat> formats() const;
    void transfer(std::uint8_t *frame, std::uint32_t number);
    void convertRow(const std::uint8_t *from, std::uint8_t *to) const;
    void stampRecorded(GstBuffer *buffer, std::uint32_t number);

    std::unique_ptr<cli::CameraSession> camera_;
    std::uint32_t bits_ = 8;
    cli::ImageShape shape_;
    std::uint32_t rate_ = 0; // frames per second
    std::unique_ptr<Recording> recording_;
    GstVideoInfo info_{};
    Conversion conversion_ = Conversion::Copy;
    std::vector<std::uint8_t> scratch_;
    std::uint64_t liveFrames_ = 0;
};

// Registered caps of the reference time stamps recorded frames carry: the
// camera's own clock, in nanoseconds since day 0 of its year.
GstCaps *cameraClockCaps();

} // namespace quorin::gst
