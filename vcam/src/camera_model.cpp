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
        a.value1 = statusWord_;
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
        calibration_[which] = std::make_shared<const std::vector<std::uint8_t>>(packTenBit(values.data(), values.size()));
    }
    a.bulk = calibration_[which];
    return a;
}

} // namespace vcam
