#include "camera_model.h"

#include "frame_headers.h"
#include "scene.h"

#include <algorithm>
#include <cstring>
#include <ctime>

namespace vcam {

std::vector<std::uint8_t> packTenBit(const std::uint16_t *values, std::size_t count)
{
    std::vector<std::uint8_t> out(count / 4 * 5);
    std::uint8_t *o = out.data();
    for (std::size_t i = 0; i + 4 <= count; i += 4, o += 5) {
        std::uint64_t group = 0;
        for (int k = 0; k < 4; ++k)
            group |= std::uint64_t(values[i + k] & 0x3FF) << (10 * k);
        for (int b = 0; b < 5; ++b)
            o[b] = std::uint8_t(group >> (8 * b));
    }
    return out;
}

namespace {

// The host's clock as the camera's time code: day of the year and time of day.
ClockTime wallClock(std::chrono::system_clock::time_point at)
{
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(at.time_since_epoch()).count();
    const std::time_t seconds = static_cast<std::time_t>(us / 1000000);
    std::tm local{};
#ifdef _WIN32
    localtime_s(&local, &seconds);
#else
    localtime_r(&seconds, &local);
#endif
    return {static_cast<std::uint32_t>(local.tm_yday + 1), static_cast<std::uint32_t>(local.tm_hour),
            static_cast<std::uint32_t>(local.tm_min), static_cast<std::uint32_t>(std::min(local.tm_sec, 59)),
            static_cast<std::uint32_t>(us % 1000000)};
}

// When the recording began: day 200, 23:59:58.5, so that it runs past midnight.
constexpr ClockTime kRecordingStart{200, 23, 59, 58, 500000};

// The settings a camera keeps, as (set command, get command, defaults):
// the get command answers with the two parameters the set command last
// carried. Frame rate, shutter, trigger, channels, LUT mode, sync source,
// exposure enable and the numbered modes.
const CameraModel::Register kRegisters[] = {
    {118, 22, 1000, 0},    // frame rate
    {117, 21, 1000, 0},    // shutter denominator (the column is added on reading)
    {121, 25, 0, 0},       // trigger code and parameter
    {136, 41, 1, 0},       // trigger count
    {125, 29, 0, 1u << 24}, // channel number in the top byte of the second value
    {126, 30, 0, 1},       // channel count
    {129, 33, 0, 0},       // look-up-table preset 0..5
    {127, 31, 2, 0},       // sync source (5: external)
    {98, 76, 1, 0},        // exposure switch, as the camera numbers it
    {133, 71, 0, 0},
    {137, 42, 0, 0},
    {145, 55, 0, 0},
    {143, 53, 0, 0},
    {158, 66, 0, 0},       // signed offset: magnitude, sign flag
    {134, 68, 0, 0},
    {159, 67, 0, 0},
    {142, 52, 0, 0},
    {128, 32, 0, 0},
};

} // namespace

CameraModel::Register *CameraModel::registerFor(std::uint16_t code, bool set)
{
    for (Register &r : registers_)
        if ((set ? r.setCode : r.getCode) == code)
            return &r;
    return nullptr;
}

// The shutter column follows the picture width: 1024 is column 0, each
// 128 pixels less one column more.
std::uint32_t CameraModel::shutterColumn() const
{
    const std::uint32_t w = resolution_ >> 16;
    return w >= 1024 || w == 0 ? 0 : (1024 - w) / 128;
}

std::uint32_t CameraModel::framePeriodClocks() const
{
    const std::uint32_t rate = registers_[0].p1;
    return rate == 0 ? 0 : 63000000u / rate;
}

// How many frames of the present size the camera's memory holds.
std::uint32_t CameraModel::memoryFrames() const
{
    const std::uint64_t bytes = std::uint64_t(resolution_ >> 16) * (resolution_ & 0xFFFF) * 10 / 8;
    return bytes == 0 ? 0 : static_cast<std::uint32_t>((std::uint64_t(4) << 30) / bytes);
}

namespace {

// The frame-time model: ticks one frame of the picture size takes.
std::uint32_t frameTicks(std::uint32_t resolution)
{
    const double w = resolution >> 16, h = resolution & 0xFFFF;
    return static_cast<std::uint32_t>((w * 0.03125 + 7.0) * h * 0.5 + 150.0);
}

} // namespace

bool CameraModel::timingAllows(std::uint32_t rate, std::uint32_t resolution) const
{
    if (!config_.frameTimeLimits)
        return true;
    const bool external = registers_[7].p1 == 5;
    const std::uint64_t clock = external ? config_.extClockHz : 63000000u;
    const std::uint64_t margin = external ? config_.modeWord79 : 5u;
    return rate >= 1 && std::uint64_t{rate} * (frameTicks(resolution) + margin) <= clock;
}

CameraModel::CameraModel(const VcamConfig &config, std::uint32_t linkType) : config_(config), linkType_(linkType)
{
    registers_.assign(std::begin(kRegisters), std::end(kRegisters));
    std::memcpy(modeTable_, config.modeTable, sizeof modeTable_);
    if (config.defects != nullptr)
        defects_.assign(config.defects, config.defects + config.defectCount);
    config_.defects = nullptr;
    config_.defectCount = static_cast<std::uint32_t>(defects_.size());
}

std::uint32_t CameraModel::readStatus()
{
    std::uint32_t word = statusWord_;
    if (settleLeft_ > 0 && --settleLeft_ == 0)
        statusWord_ = 0; // the recording has been written away
    return word;
}

bool CameraModel::takesData(std::uint16_t code)
{
    return code == 187; // look-up table upload
}

// Entering a recording state arms the camera; a second recording command
// (161 after 160) keeps the recording it waits for or makes.
void CameraModel::enterRecordingState()
{
    if (state_ == State::Waiting || state_ == State::Recording)
        return;
    state_ = State::Waiting;
    enteredAt_ = Clock::now();
    recorded_ = 0;
}

// Stopped from outside: a recording keeps the frames it has.
void CameraModel::leaveRecordingState()
{
    advanceRecording();
    if (state_ == State::Recording)
        memory_.length = std::max(recorded_, 1u);
    if (state_ != State::Idle)
        state_ = State::Ended;
}

std::uint32_t CameraModel::recordingLength() const
{
    const std::uint32_t code = registers_[2].p1 & 0xFF000000u, memory = std::max(memoryFrames(), 1u);
    std::uint32_t n = memory;
    if (code == 0x03000000u)
        n = registers_[2].p2 & 0xFFFFFFu;
    else if (code == 0x06000000u || code == 0x07000000u)
        n = std::max(registers_[3].p1, 1u) * std::max((registers_[2].p1 >> 8) & 0xFFu, 1u);
    return std::clamp(n, 1u, memory);
}

void CameraModel::startRecording(Clock::time_point at)
{
    state_ = State::Recording;
    triggeredAt_ = at;
    recorded_ = 0;
    const auto wall = std::chrono::system_clock::now() -
                      std::chrono::duration_cast<std::chrono::system_clock::duration>(Clock::now() - at);
    memory_.made = true;
    memory_.start = wallClock(wall);
    memory_.rate = std::max(registers_[0].p1, 1u);
    memory_.resolution = resolution_;
    memory_.length = recordingLength();
    memory_.trigger = registers_[2].p1 & 0xFF000000u;
    memory_.offset = registers_[2].p2 & 0xFFFFFFu;
    memory_.segmentLength = std::max(registers_[3].p1, 1u);
}

// Time passes between commands: the trigger of its own, frames recorded,
// and the end of a recording, which the camera then writes away as after
// command 162.
void CameraModel::advanceRecording()
{
    const Clock::time_point now = Clock::now();
    const auto delay = std::chrono::milliseconds(config_.triggerDelayMs);
    if (state_ == State::Waiting && config_.triggerDelayMs != 0 && now - enteredAt_ >= delay)
        startRecording(enteredAt_ + delay);
    if (state_ != State::Recording)
        return;
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(now - triggeredAt_).count();
    recorded_ = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(memory_.length, static_cast<std::uint64_t>(us) * memory_.rate / 1000000));
    if (recorded_ < memory_.length)
        return;
    state_ = State::Ended;
    statusWord_ = config_.settlePolls == 0 ? 0 : 0x00000001u;
    settleLeft_ = config_.settlePolls;
}

bool CameraModel::trigger()
{
    advanceRecording();
    if (state_ != State::Waiting)
        return false;
    startRecording(Clock::now());
    return true;
}

int CameraModel::recording(std::uint32_t &recorded, std::uint32_t &length)
{
    advanceRecording();
    recorded = state_ == State::Idle || state_ == State::Waiting ? 0 : recorded_;
    length = state_ == State::Idle || state_ == State::Waiting ? recordingLength() : memory_.length;
    return static_cast<int>(state_);
}

Answer CameraModel::command(std::uint16_t code, std::uint32_t p1, std::uint32_t p2)
{
    Answer a;
    advanceRecording();
    switch (code) {
    case 16: // identification: model code; sensor kind flag << 8 | colour flag
        a.value1 = config_.modelCode;
        a.value2 = (config_.sensorKind == 3 ? 1u << 8 : 0u) | (config_.model == VCAM_K5C ? 1u : 0u);
        break;
    case 17: // firmware
        a.value2 = config_.firmwareVersion;
        break;
    case 18: // status word
        a.value1 = readStatus();
        break;
    case 70: // table of modes, entry p1 (1..20), pair p2 (0..2)
        if (p1 >= 1 && p1 <= 20 && p2 <= 2) {
            a.value1 = modeTable_[p1 - 1][2 * p2];
            a.value2 = modeTable_[p1 - 1][2 * p2 + 1];
        }
        break;
    case 132: // store one word of a preset: p1 = entry << 16 | word
        if ((p1 >> 16) >= 1 && (p1 >> 16) <= 20 && (p1 & 0xFFFF) < 6)
            modeTable_[(p1 >> 16) - 1][p1 & 0xFFFF] = p2;
        break;
    case 130: // recall a preset: its frame rate and picture size
        if (p1 >= 1 && p1 <= 20) {
            registers_[0].p1 = modeTable_[p1 - 1][0];
            const std::uint32_t size = modeTable_[p1 - 1][2];
            if ((size >> 16) >= 1 && (size >> 16) <= kSensorWidth && (size & 0xFFFF) >= 1 &&
                (size & 0xFFFF) <= kSensorHeight) {
                resolution_ = size;
                frames_.clear();
            }
        }
        break;
    case 131: // delete a preset (its external-sync word stays)
        if (p1 >= 1 && p1 <= 20)
            for (int k = 0; k < 5; ++k)
                modeTable_[p1 - 1][k] = 0;
        break;
    case 19: // picture size; in playback the recording's
        a.value1 = inPlayback() ? playbackResolution() : resolution_;
        break;
    case 22: // frame rate; in playback the recording's
        a.value1 = inPlayback() && memory_.made ? memory_.rate : registers_[0].p1;
        break;
    case 118:
        if (!timingAllows(p1, resolution_))
            a.refused = true;
        else
            registers_[0].p1 = p1;
        break;
    case 20: // colour temperature: preset (5100, 3100) or user (1, 2), and the gains
        a.value1 = colourTemperature_;
        a.value2 = colourGains_;
        break;
    case 116:
        if (p1 == 5100 || p1 == 3100) {
            colourTemperature_ = p1;
            colourGains_ = p1 == 5100 ? (16u << 16 | 16u << 8 | 16u) : (22u << 16 | 16u << 8 | 11u);
        } else {
            colourTemperature_ = p1 & 0xFFFF;
            if (p1 < 0x10000)
                colourGains_ = p2 & 0xFFFFFF;
        }
        break;
    case 21: // shutter: denominator and the column of the present width
        a.value1 = registers_[1].p1;
        a.value2 = shutterColumn();
        break;
    case 72: // frame period in clocks, plus 64
        a.value1 = framePeriodClocks() + 64;
        break;
    case 44: // frames the memory holds
        a.value1 = memoryFrames();
        break;
    case 80: // external clock
        a.value1 = config_.extClockHz;
        break;
    case 69:
        a.value1 = config_.mode69;
        a.value2 = config_.value69;
        break;
    case 73: // where the picture sits on the sensor: first column << 16 | first row
        a.value1 = areaOrigin(inPlayback() ? playbackResolution() : resolution_);
        break;
    case 78:
        a.value1 = 0;
        break;
    case 45:
    case 46:
    case 47:
        a.value1 = code == 47 ? 0 : 1;
        break;
    case 28: // interface registers 0xF0.., 0xF1.., 0xF2..
        if ((p1 >> 24) >= 0xF0 && (p1 >> 24) <= 0xF2)
            a.value2 = interfaceRegisters_[(p1 >> 24) - 0xF0];
        break;
    case 124:
        if ((p1 >> 24) >= 0xF0 && (p1 >> 24) <= 0xF2)
            interfaceRegisters_[(p1 >> 24) - 0xF0] = p2;
        break;
    case 36: // camera entry p1 (1..10): a value, flags in the low bits, a class from bit 20
        if (p1 >= 1 && p1 <= 10) {
            a.value1 = config_.cameraEntries[p1 - 1][0];
            a.value2 = config_.cameraEntries[p1 - 1][1];
        }
        break;
    case 97: // start-up values are written, and answered with the universal code
    case 98:
    case 99:
        a.universalReply = true;
        if (code == 98)
            registerFor(98, true)->p1 = p1;
        break;
    case 74: // colour matrix row p1 as magnitudes: columns 0 and 1 in value1, column 2 in value2
        if (p1 <= 2) {
            const std::uint16_t *m = config_.colourMatrix[p1];
            a.value1 = std::uint32_t(m[0]) << 16 | m[1];
            a.value2 = m[2];
        }
        break;
    case 75:
        a.value1 = config_.extraWords[p2 == 0 ? 0 : 2];
        a.value2 = config_.extraWords[p2 == 0 ? 1 : 3];
        break;
    case 77:
        a.value1 = config_.extraWords[4];
        break;
    case 79:
        a.value1 = config_.modeWord79;
        break;
    case 115: { // picture size, width << 16 | height; p2 flags a size outside the standard list
        const std::uint32_t w = p1 >> 16, h = p1 & 0xFFFF;
        if (!timingAllows(registers_[0].p1, p1))
            a.refused = true;
        else if (w >= 1 && w <= kSensorWidth && h >= 1 && h <= kSensorHeight && resolution_ != p1) {
            resolution_ = p1;
            frames_.clear();
        }
        break;
    }
    case 114: // live, or playback with 0x04000000 in the top byte; status bits below
        leaveRecordingState();
        statusWord_ = ((p1 & 0xFF000000u) == 0x04000000u ? 0x04000000u : 0) | (p1 & 0x00FF0000u);
        settleLeft_ = 0;
        break;
    case 160: // into the first recording state, or out of it again
        if ((statusWord_ & 0xFF000000u) == 0x01000000u) {
            leaveRecordingState();
            statusWord_ &= 0x00FF0000u;
        } else {
            statusWord_ = 0x01000000u;
            enterRecordingState();
        }
        break;
    case 161:
        statusWord_ = statusWord_ == 0x01000000u ? 0x02000000u : 0x03000000u;
        enterRecordingState();
        break;
    case 162: // stop recording: busy for a few status reads, then live
        leaveRecordingState();
        statusWord_ = 0x00000001u;
        settleLeft_ = config_.settlePolls;
        if (settleLeft_ == 0)
            statusWord_ = 0;
        break;
    case 178: // memory image, or (p2 bit 17) the first frame of a header read; puts the camera in playback
        statusWord_ = 0x04000000u | (statusWord_ & 0x00FF0000u);
        settleLeft_ = 0;
        if (p2 & 0x00020000u) {
            const std::uint32_t segment = (p2 >> 20) & 0xF;
            headerFrame_ = memory_.made ? recordedIndex(p1, segment)
                                        : std::uint64_t(segment > 0 ? segment - 1 : 0) * 1000000 + (p1 - 1);
            break;
        }
        return imageFrame(recordedTime(p1, p2), playbackResolution());
    case 184: // p1 frame headers from the selected frame on
        return frameHeaders(p1);
    case 183: // live image when p2 asks for one; p2 = 1 returns to live view
        if (p2 & 0x00010000u)
            return imageFrame(liveTick_++ % kLiveCycle, resolution_);
        if (p2 == 1)
            statusWord_ &= 0x00FF0000u;
        break;
    case 43:
        a.value1 = config_.cameraNumber;
        break;
    case 54:
        a.value1 = config_.powerMode;
        break;
    case 145: // on link type 3, parameters 2 and 3 are taken without an answer
        a.replies = !(linkType_ == 3 && (p1 == 2 || p1 == 3));
        registerFor(145, true)->p1 = p1;
        break;
    case 157: // on link type 3 the camera restarts its interface and does not answer
        a.replies = linkType_ != 3;
        break;
    case 185:
        return calibrationImage(p1);
    case 187: // look-up table upload announced by a plain frame (link type 3)
        a.blocksExpected = p1 == 1 ? 3 : 1;
        blocksReceived_ = 0;
        break;
    default:
        if (Register *r = registerFor(code, true)) {
            r->p1 = p1;
            r->p2 = p2;
        } else if (Register *g = registerFor(code, false)) {
            a.value1 = g->p1;
            a.value2 = g->p2;
        }
        break;
    }
    return a;
}

Answer CameraModel::dataCommand(std::uint16_t, const std::uint8_t *payload, std::size_t length)
{
    lutUpload_.assign(payload, payload + length);
    return {};
}

void CameraModel::block(const std::uint8_t *data, std::size_t length)
{
    if (blocksReceived_ == 0)
        lutUpload_.clear();
    lutUpload_.insert(lutUpload_.end(), data, data + length);
    blocksReceived_ += 1;
}

std::uint32_t CameraModel::areaOrigin(std::uint32_t resolution) const
{
    const std::uint32_t w = resolution >> 16, h = resolution & 0xFFFF;
    const std::uint32_t x0 = ((kSensorWidth - std::min(w, kSensorWidth)) / 2) & ~1u;
    const std::uint32_t y0 = ((kSensorHeight - std::min(h, kSensorHeight)) / 2) & ~1u;
    return x0 << 16 | y0;
}

// Recorded frames are numbered from 1 in each segment; the recording is
// config_.recordFrames long and repeats beyond that.
std::uint32_t CameraModel::recordedTime(std::uint32_t frame, std::uint32_t p2) const
{
    const std::uint32_t segment = (p2 >> 20) & 0xF;
    const std::uint32_t length = config_.recordFrames == 0 ? 1 : config_.recordFrames;
    if (memory_.made)
        return kLiveCycle + static_cast<std::uint32_t>(recordedIndex(frame, segment) % length);
    return kLiveCycle + (segment * 1000 + frame - 1) % length;
}

// Where camera frame `frame` (its place in the segment's ring, from 1) of
// segment `segment` (from 1; 0 when not segmented) lies in the recording,
// from 0: the inverse of the numbering the recording was made with.
std::uint64_t CameraModel::recordedIndex(std::uint32_t frame, std::uint32_t segment) const
{
    const std::uint32_t k = memory_.segmentLength, p = std::max(frame, 1u);
    std::uint32_t r = p;
    if (memory_.trigger == 0x06000000u) {
        const std::uint32_t h = k >> 1, odd = k & 1;
        r = p > h + odd ? p - h - odd : p + h;
    } else if (memory_.trigger == 0x07000000u) {
        const std::uint32_t s = memory_.offset % k;
        r = p > s ? p - s : p + k - s;
    } else {
        return p - 1;
    }
    return std::uint64_t(segment > 0 ? segment - 1 : 0) * k + (r - 1);
}

void CameraModel::ensureCalibration()
{
    if (!darkValues_.empty())
        return;
    darkValues_.resize(kSensorWidth * kSensorHeight);
    gainCodes_.resize(kSensorWidth * kSensorHeight);
    for (std::uint32_t y = 0; y < kSensorHeight; ++y)
        for (std::uint32_t x = 0; x < kSensorWidth; ++x) {
            darkValues_[y * kSensorWidth + x] = std::uint16_t(2 + (x * 7 + y * 13) % 5); // fixed-pattern offset
            gainCodes_[y * kSensorWidth + x] = std::uint16_t(247 + (x * 3 + y * 5) % 5);  // x4 = 988..1004
        }
}

Answer CameraModel::imageFrame(std::uint32_t time, std::uint32_t resolution)
{
    Answer a;
    a.imageData = true;
    const std::uint64_t key = std::uint64_t{resolution} << 32 | time;
    auto it = frames_.find(key);
    if (it != frames_.end()) {
        a.bulk = it->second;
        return a;
    }
    ensureCalibration();
    const std::uint32_t origin = areaOrigin(resolution);
    const SensorModel sensor{config_.model == VCAM_K5C, &darkValues_, &gainCodes_, &defects_};
    std::vector<std::uint16_t> values =
        renderRaw(sensor, origin >> 16, origin & 0xFFFF, resolution >> 16, resolution & 0xFFFF, time);
    values.resize((values.size() + 3) & ~std::size_t{3}); // whole groups of four
    a.bulk = std::make_shared<const std::vector<std::uint8_t>>(packTenBit(values.data(), values.size()));
    if (frames_.size() >= 4 * (kLiveCycle + std::max(config_.recordFrames, 1u)))
        frames_.clear(); // frames of earlier picture sizes
    frames_[key] = a.bulk;
    return a;
}

Answer CameraModel::frameHeaders(std::uint32_t count)
{
    Answer a;
    if (count == 0 || count > 4096)
        return a;
    auto bytes = std::make_shared<std::vector<std::uint8_t>>(std::size_t{count} * 400);
    auto *words = reinterpret_cast<std::uint32_t *>(bytes->data());
    const std::uint32_t rate = memory_.made ? memory_.rate : registers_[0].p1;
    const ClockTime &start = memory_.made ? memory_.start : kRecordingStart;
    for (std::uint32_t k = 0; k < count; ++k)
        writeHeader(words + std::size_t{k} * 100, headerFrame_ + k, rate, start);
    a.bulk = bytes;
    return a;
}

Answer CameraModel::calibrationImage(std::uint32_t which)
{
    Answer a;
    if (which > 1) {
        a.value1 = 0xFFFFFFFFu; // no such image; nothing follows
        return a;
    }
    if (!calibration_[which]) {
        ensureCalibration();
        std::vector<std::uint16_t> values = which == 0 ? darkValues_ : gainCodes_;
        if (which == 1)
            for (std::uint32_t d : defects_) {
                std::uint32_t x = d >> 16, y = d & 0xFFFF;
                if (x < kSensorWidth && y < kSensorHeight)
                    values[y * kSensorWidth + x] |= 512; // flagged as defective
            }
        calibration_[which] = std::make_shared<const std::vector<std::uint8_t>>(packTenBit(values.data(), values.size()));
    }
    a.bulk = calibration_[which];
    return a;
}

} // namespace vcam
