#include "device/startup.h"

#include "caps/caps_common.h"
#include "caps/operating_mode.h"
#include "data/lut.h"
#include "data/registry_settings.h"
#include "data/settings_files.h"
#include "device/device_table.h"
#include "image/unpack.h"
#include "link/block_transfer.h"
#include "link/transaction.h"
#include "platform/platform.h"
#include "quorin/quorin.h"

#include <cstdlib>
#include <cstring>

namespace quorin {
namespace {

constexpr std::uint32_t kSensorValues = 0x100000;          // 1024 x 1024
constexpr std::uint32_t kCalibrationBytes = kSensorValues * 5 / 4;
constexpr std::uint32_t kSensorSide = 1024;
constexpr std::uint32_t kFullSensor = 0x04000400;           // 1024 << 16 | 1024
constexpr std::uint32_t kCalibrationPauseMs = 300;
constexpr std::uint16_t kDefectFlag = 512;
constexpr std::uint16_t kNeutralGain = 997;


// Reads calibration image `which` (0 dark frame, 1 gain and defect image)
// into the raw frame buffer.
std::uint32_t readCalibrationImage(std::uint32_t deviceNo, std::uint32_t which, std::int32_t *err)
{
    std::uint8_t *raw = g_state.buffers.rawFrameBuffer[deviceNo];
    CameraCommand c{185, which, 1};
    CommandReply reply{};
    if (device(deviceNo).interfaceCode == 4)
        return link::transactData(deviceNo, &c, &reply, static_cast<std::int32_t>(kCalibrationBytes), raw, err);
    if (!link::sendCommand(deviceNo, &c, &reply, err))
        return 0;
    platform::sleepMs(kCalibrationPauseMs);
    return link::receiveBlock(deviceNo, kCalibrationBytes, raw, err);
}

// Playback and straight back to live, as link type 4 needs after a
// calibration read; the results do not matter.
void cyclePlayback(std::uint32_t deviceNo, std::int32_t *err)
{
    setOperatingMode(deviceNo, kHostPlayback, err);
    setOperatingMode(deviceNo, kHostLive, err);
}

void extractDefects(DeviceRecord &rec, std::uint16_t *image)
{
    rec.defectCount = 0;
    std::memset(rec.defectList, 0, sizeof rec.defectList);
    for (std::uint32_t row = 0; row < kSensorSide; ++row)
        for (std::uint32_t col = 0; col < kSensorSide; ++col) {
            std::uint16_t &v = image[row * kSensorSide + col];
            if ((v & kDefectFlag) && rec.defectCount < kMaxDefects) {
                rec.defectList[rec.defectCount++] = col << 16 | row;
                v = static_cast<std::uint16_t>(v & ~kDefectFlag);
            }
        }
    rec.defectCorrect = rec.defectCount > 0;
}

void identityMatrix(std::int32_t (&m)[9][2], int which)
{
    for (int e = 0; e < 9; ++e)
        m[e][which] = (e % 4 == 0) ? 256 : 0;
}

// The camera sends magnitudes; the diagonal is positive, the rest negative.
std::uint32_t readColourMatrix(std::uint32_t deviceNo, std::int32_t *err)
{
    DeviceRecord &rec = device(deviceNo);
    auto fail = [&] {
        identityMatrix(rec.colourMatrix, 1);
        rec.colourMatrixSelect = 0;
        return 0u;
    };
    if (!rec.isColour)
        return fail();
    identityMatrix(rec.colourMatrix, 0);
    for (std::uint32_t row = 0; row < 3; ++row) {
        CommandReply reply{};
        if (!cameraCommand(deviceNo, 74, row, 0, &reply, err))
            return fail();
        const std::int32_t mags[3] = {static_cast<std::int32_t>(reply.value1 >> 16),
                                      static_cast<std::int32_t>(reply.value1 & 0xFFFF),
                                      static_cast<std::int32_t>(reply.value2 & 0xFFFF)};
        for (std::uint32_t col = 0; col < 3; ++col)
            rec.colourMatrix[row * 3 + col][1] = col == row ? mags[col] : -mags[col];
    }
    rec.colourMatrixSelect = 1;
    return 1;
}

void readModeTableEntry(std::uint32_t deviceNo, std::uint32_t i, std::int32_t *err)
{
    DeviceRecord &rec = device(deviceNo);
    ModeTableEntry &e = rec.modeTable[i];
    e = ModeTableEntry{};
    CommandReply reply{};
    if (!cameraCommand(deviceNo, 70, i, 0, &reply, err))
        return;
    e.modeA1 = reply.value1;
    e.modeA2 = reply.value2;
    if (!cameraCommand(deviceNo, 70, i, 1, &reply, err))
        return;
    e.modeB1 = reply.value1;
    e.modeB2 = reply.value2;
    if (!cameraCommand(deviceNo, 70, i, 2, &reply, err))
        return;
    e.modeC1 = reply.value1;
    e.modeC2 = hasExternalSyncFirmware(rec.firmwareVersion) ? reply.value2 : 0;
}


void readModeWord79(std::uint32_t deviceNo, std::int32_t *err)
{
    DeviceRecord &rec = device(deviceNo);
    if (!hasExternalSyncFirmware(rec.firmwareVersion)) {
        *err = QUORIN_ERR_NOT_SUPPORTED;
        return;
    }
    CommandReply reply{};
    if (cameraCommand(deviceNo, 79, 0, 0, &reply, err))
        rec.modeWord79 = reply.value1;
}

} // namespace

std::uint32_t readStartupValues(std::uint32_t deviceNo, std::int32_t *err)
{
    DeviceRecord &rec = device(deviceNo);
    CommandReply reply{};
    if (!cameraCommand(deviceNo, 75, 0, 0, &reply, err))
        return 0;
    rec.extra[0] = reply.value1;
    rec.extra[1] = reply.value2;
    if (!cameraCommand(deviceNo, 75, 0, 1, &reply, err))
        return 0;
    rec.extra[2] = reply.value1;
    rec.extra[3] = reply.value2;
    if (!cameraCommand(deviceNo, 77, 0, 0, &reply, err))
        return 0;
    rec.extra[4] = reply.value1;
    return 1;
}

std::uint32_t runStartup(std::uint32_t deviceNo, std::int32_t *err)
{
    // 1. Buffers; a slot without all of them is left unusable (103 later).
    if (!allocateDeviceBuffers(deviceNo)) {
        releaseDeviceBuffers(deviceNo);
        *err = QUORIN_ERR_NO_MEMORY;
        return 0;
    }
    DeviceRecord &rec = device(deviceNo);
    auto &buffers = g_state.buffers;

    // 2. Record defaults.
    rec.partition = 1;
    rec.darkSubtract = 1;
    rec.rawBayerOutput = 0;
    rec.outputShift = 2;
    rec.demosaicMethod = 1;
    rec.keepLiveCache = 0;
    rec.colourMode = 2;
    for (auto &g : rec.geometry) {
        g.edgeEnhancement = 0;
        g.extraWord = 0;
    }
    rec.modeSetterWord = 0;
    rec.channelNumber = 1; // the playback selector until the host reads the camera's

    // 3-4. Identity and firmware.
    CommandReply reply{};
    if (!cameraCommand(deviceNo, 16, 0, 0, &reply, err))
        return 0;
    rec.cameraModel = reply.value1;
    const std::uint32_t kind = (reply.value2 >> 8) & 0xFF;
    if (kind == 0)
        rec.sensorKind = 2;
    else if (kind == 1)
        rec.sensorKind = 3;
    rec.isColour = reply.value2 & 0xFF;
    *err = QUORIN_SUCCESS;
    if (!cameraCommand(deviceNo, 17, 0, 0, &reply, err))
        return 0;
    rec.firmwareVersion = reply.value2;
    *err = QUORIN_SUCCESS;
    rec.statusBits = 0;

    // 5-8. Live mode, power mode, command 144, camera number.
    if (!setOperatingMode(deviceNo, kHostLive, err))
        return 0;
    if (!cameraCommand(deviceNo, 54, 0, 0, &reply, err))
        return 0;
    rec.powerMode = reply.value1;
    if (!cameraCommand(deviceNo, 144, 0, 0, &reply, err))
        return 0;
    if (rec.interfaceCode == 2) {
        rec.cameraNumber = rec.hostDeviceArg & 0xFF;
    } else {
        if (!cameraCommand(deviceNo, 43, 0, 0, &reply, err))
            return 0;
        rec.cameraNumber = reply.value1;
    }

    // 9. Stored user settings.
    if (!loadSettings(deviceNo))
        applyDefaultSettings(rec);

    // 10. Calibration image A: the dark frame.
    if (!readCalibrationImage(deviceNo, 0, err))
        return 0;
    unpackTenBit(buffers.rawFrameBuffer[deviceNo], kSensorValues / 4, buffers.darkFrame[deviceNo]);
    if (rec.interfaceCode == 4 && rec.channelSettings[0].resolution != 0)
        cyclePlayback(deviceNo, err);

    // 11. Calibration image B: defects and the camera's gain table.
    if (!readCalibrationImage(deviceNo, 1, err))
        return 0;
    auto *image = static_cast<std::uint16_t *>(platform::blockAlloc(kSensorValues * sizeof(std::uint16_t)));
    if (image == nullptr) {
        *err = QUORIN_ERR_NO_MEMORY;
        return 0;
    }
    unpackTenBit(buffers.rawFrameBuffer[deviceNo], kSensorValues / 4, image);
    extractDefects(rec, image);
    std::uint16_t *gainA = buffers.gainTableA[deviceNo];
    for (std::uint32_t i = 0; i < kSensorValues; ++i)
        gainA[i] = static_cast<std::uint16_t>((image[i] & 511) * 4);
    platform::blockFree(image);
    if (rec.interfaceCode == 4) {
        if (rec.channelSettings[0].resolution == 0)
            rec.channelSettings[0].resolution = kFullSensor;
        cyclePlayback(deviceNo, err);
    }

    // 12. The pixel-gain file, or the neutral gain everywhere.
    std::int32_t fileErr = 0;
    if (!loadPixelGain(deviceNo, &fileErr)) {
        std::uint16_t *gainB = buffers.gainTableB[deviceNo];
        for (std::uint32_t i = 0; i < kSensorValues; ++i)
            gainB[i] = kNeutralGain;
    }

    // 13-18. The rest; failures here do not end the open.
    rec.columnCorrect = rec.firmwareVersion >= 114 ? 0 : 1;
    readColourMatrix(deviceNo, err);
    for (std::uint32_t i = 1; i <= 20; ++i)
        readModeTableEntry(deviceNo, i, err);
    readStartupValues(deviceNo, err);
    readModeWord79(deviceNo, err);
    loadFreeLut(deviceNo);

    // Neutral colour gains and ready look-up tables for both rows, so that
    // the first picture is not black before the host has read the LUT mode
    // or the colour temperature (a monochrome camera never reports gains).
    for (std::uint32_t row = 0; row < 2; ++row) {
        ChannelSettings &cs = rec.channelSettings[row];
        cs.colourGainR = cs.colourGainG = cs.colourGainB = 16;
        generateLut(deviceNo, row, cs.lutMode <= 5 ? cs.lutMode : 0);
    }

    // 19.
    rec.kernelVariant = 0x80000000u;
    *err = QUORIN_SUCCESS;
    return 1;
}

} // namespace quorin
