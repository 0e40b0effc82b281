// What the virtual camera does with each command: its state and answers.
#pragma once

#include "frame_headers.h"
#include "vcam/vcam.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace vcam {

using Bulk = std::shared_ptr<const std::vector<std::uint8_t>>;

// The camera's answer to one command.
struct Answer {
    bool replies = true; // false: the camera sends no reply frame
    std::uint32_t value1 = 0;
    std::uint32_t value2 = 0;
    Bulk bulk;                         // data sent after the reply
    bool imageData = false;            // bulk travels the image channel
    bool universalReply = false;       // answered with the universal code 177
    std::uint32_t blocksExpected = 0; // 1024-byte blocks the camera then waits for
    bool refused = false;              // a setting the camera does not take: reply code 0
};

// Sensor geometry.
constexpr std::uint32_t kSensorWidth = 1024;
constexpr std::uint32_t kSensorHeight = 1024;
// A calibration image: the whole sensor packed four values to five bytes.
constexpr std::size_t kCalibrationBytes = kSensorWidth * kSensorHeight * 5 / 4;
// Live frames repeat after this many.
constexpr std::uint32_t kLiveCycle = 16;


// Packs 10-bit values four to five bytes, least significant bits first;
// count must be a multiple of four.
std::vector<std::uint8_t> packTenBit(const std::uint16_t *values, std::size_t count);

class CameraModel {
public:
    CameraModel(const VcamConfig &config, std::uint32_t linkType);

    // A command frame.
    Answer command(std::uint16_t code, std::uint32_t p1, std::uint32_t p2);
    // A command head followed by a payload (commands that take data).
    Answer dataCommand(std::uint16_t code, const std::uint8_t *payload, std::size_t length);
    // A data block the camera was waiting for.
    void block(const std::uint8_t *data, std::size_t length);
    // Whether a frame with this code carries a payload instead of parameters.
    static bool takesData(std::uint16_t code);

    const VcamConfig &config() const { return config_; }

    std::uint32_t statusWord() const { return statusWord_; }

    // The trigger input; true when a waiting camera started to record.
    bool trigger();
    // The recording's state (vcam_recording) and its frame counts.
    int recording(std::uint32_t &recorded, std::uint32_t &length);
    std::uint32_t resolution() const { return resolution_; }
    // Look-up table data received (command 187), last upload first byte on.
    const std::vector<std::uint8_t> &lutUpload() const { return lutUpload_; }

    // A setting the camera keeps: written by one command, read by another.
    struct Register {
        std::uint16_t setCode;
        std::uint16_t getCode;
        std::uint32_t p1, p2; // as last written (initially the camera's defaults)
    };

private:
    using Clock = std::chrono::steady_clock;
    enum class State { Idle, Waiting, Recording, Ended };

    // What the memory holds: the factory recording until the first one made.
    struct Memory {
        bool made = false;
        ClockTime start{};
        std::uint32_t rate = 0, resolution = 0, length = 0;
        std::uint32_t trigger = 0, offset = 0, segmentLength = 1; // the numbering it was made with
    };

    Answer calibrationImage(std::uint32_t which);
    Answer imageFrame(std::uint32_t time, std::uint32_t resolution);
    Answer frameHeaders(std::uint32_t count);
    void ensureCalibration();
    std::uint32_t areaOrigin(std::uint32_t resolution) const;
    std::uint32_t recordedTime(std::uint32_t frame, std::uint32_t p2) const;
    std::uint64_t recordedIndex(std::uint32_t frame, std::uint32_t segment) const;
    bool inPlayback() const { return (statusWord_ & 0xFF000000u) == 0x04000000u; }
    std::uint32_t playbackResolution() const { return memory_.made ? memory_.resolution : resolution_; }
    bool timingAllows(std::uint32_t rate, std::uint32_t resolution) const;
    void enterRecordingState();
    void leaveRecordingState();
    void startRecording(Clock::time_point at);
    void advanceRecording();
    std::uint32_t recordingLength() const;
    std::uint32_t readStatus();
    Register *registerFor(std::uint16_t code, bool set);
    std::uint32_t shutterColumn() const;
    std::uint32_t framePeriodClocks() const;
    std::uint32_t memoryFrames() const;

    VcamConfig config_;
    std::vector<std::uint32_t> defects_;
    std::uint32_t linkType_;
    std::uint32_t statusWord_ = 0; // top byte: 0 live, 1-3 recording states, 4 playback
    std::uint32_t settleLeft_ = 0;
    std::uint32_t resolution_ = 0x04000400;
    Bulk calibration_[2];
    // Frames rendered so far, by picture size << 32 | time: live frames
    // cycle through kLiveCycle times, recorded ones follow them.
    std::map<std::uint64_t, Bulk> frames_;
    std::uint32_t liveTick_ = 0;
    std::uint64_t headerFrame_ = 0; // recorded frame the next header read starts at
    std::vector<std::uint16_t> darkValues_, gainCodes_;
    std::vector<Register> registers_;
    std::uint32_t modeTable_[20][6];
    std::uint32_t colourTemperature_ = 5100;
    std::uint32_t colourGains_ = 16u << 16 | 16u << 8 | 16u;
    std::uint32_t interfaceRegisters_[3] = {0x11, 0x22, 0x33};
    std::vector<std::uint8_t> lutUpload_;
    std::uint32_t blocksReceived_ = 0;
    State state_ = State::Idle;
    Clock::time_point enteredAt_, triggeredAt_;
    std::uint32_t recorded_ = 0;
    Memory memory_;
};

} // namespace vcam
