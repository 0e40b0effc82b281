#include "camera_model.h"

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

CameraModel::CameraModel(const VcamConfig &config, std::uint32_t linkType) : config_(config), linkType_(linkType)
{
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

Answer CameraModel::command(std::uint16_t code, std::uint32_t p1, std::uint32_t p2)
{
    Answer a;
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
            a.value1 = config_.modeTable[p1 - 1][2 * p2];
            a.value2 = config_.modeTable[p1 - 1][2 * p2 + 1];
        }
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
        if (w >= 1 && w <= kSensorWidth && h >= 1 && h <= kSensorHeight && resolution_ != p1) {
            resolution_ = p1;
            frame_.reset();
        }
        break;
    }
    case 114: // live, or playback with 0x04000000 in the top byte
        statusWord_ = (p1 & 0xFF000000u) == 0x04000000u ? 0x04000000u : 0;
        settleLeft_ = 0;
        break;
    case 160:
        statusWord_ = 0x01000000u;
        break;
    case 161:
        statusWord_ = statusWord_ == 0x01000000u ? 0x02000000u : 0x03000000u;
        break;
    case 162: // stop recording: busy for a few status reads, then live
        statusWord_ = 0x00000001u;
        settleLeft_ = config_.settlePolls;
        if (settleLeft_ == 0)
            statusWord_ = 0;
        break;
    case 178: // memory image
        return imageFrame();
    case 183: // live image when p2 asks for one
        if (p2 & 0x00010000u)
            return imageFrame();
        break;
    case 43:
        a.value1 = config_.cameraNumber;
        break;
    case 54:
        a.value1 = config_.powerMode;
        break;
    case 145: // on link type 3, parameters 2 and 3 are taken without an answer
        a.replies = !(linkType_ == 3 && (p1 == 2 || p1 == 3));
        break;
    case 157: // on link type 3 the camera restarts its interface and does not answer
        a.replies = linkType_ != 3;
        break;
    case 185:
        return calibrationImage(p1);
    case 187: // look-up table upload announced by a plain frame (link type 3)
        a.blocksExpected = p1 == 1 ? 3 : 1;
        break;
    default:
        (void)p2;
        break;
    }
    return a;
}

Answer CameraModel::dataCommand(std::uint16_t, const std::uint8_t *, std::size_t)
{
    return {};
}

void CameraModel::block(const std::uint8_t *, std::size_t)
{
}

Answer CameraModel::imageFrame()
{
    Answer a;
    if (!frame_) {
        const std::uint32_t w = resolution_ >> 16, h = resolution_ & 0xFFFF;
        std::vector<std::uint16_t> values(std::size_t(w) * h);
        for (std::uint32_t y = 0; y < h; ++y)
            for (std::uint32_t x = 0; x < w; ++x)
                values[std::size_t(y) * w + x] = std::uint16_t((x + y) & 0x3FF);
        frame_ = std::make_shared<const std::vector<std::uint8_t>>(packTenBit(values.data(), values.size()));
    }
    a.bulk = frame_;
    a.imageData = true;
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
        std::vector<std::uint16_t> values(kSensorWidth * kSensorHeight);
        for (std::uint32_t y = 0; y < kSensorHeight; ++y)
            for (std::uint32_t x = 0; x < kSensorWidth; ++x) {
                std::uint16_t v;
                if (which == 0) // dark frame: a few counts of fixed-pattern offset
                    v = std::uint16_t(2 + (x * 7 + y * 13) % 5);
                else // per-pixel gain codes around 249 (x4 = 996)
                    v = std::uint16_t(247 + (x * 3 + y * 5) % 5);
                values[y * kSensorWidth + x] = v;
            }
        if (which == 1)
            for (std::uint32_t d : defects_) {
                std::uint32_t x = d >> 16, y = d & 0xFFFF;
                if (x < kSensorWidth && y < kSensorHeight)
                    values[y * kSensorWidth + x] |= 512;
            }
        calibration_[which] = std::make_shared<const std::vector<std::uint8_t>>(packTenBit(values.data(), values.size()));
    }
    a.bulk = calibration_[which];
    return a;
}

} // namespace vcam
