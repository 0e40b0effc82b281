// The five transfer exports: guards, the frame request and read per link
// type, the recorded-frame numbering, and the hand-over to the pipeline.
#include "device/export_guard.h"
#include "image/frame.h"
#include "image/pipeline.h"
#include "link/block_transfer.h"
#include "link/transaction.h"

#include <cstring>

namespace quorin::image {
namespace {

constexpr std::uint32_t kImageRequestFlag = 0x00010000;

bool requireLive(const DeviceRecord &rec, std::int32_t *err)
{
    if (rec.operatingStatus != kPlaybackStatus)
        return true;
    *err = QUORIN_ERR_PLAYBACK;
    return false;
}

bool requirePlayback(const DeviceRecord &rec, std::int32_t *err)
{
    if (rec.operatingStatus == kPlaybackStatus)
        return true;
    *err = QUORIN_ERR_NOT_PLAYBACK;
    return false;
}

Area areaOf(const ChannelSettings &row)
{
    return Area{row.resolution >> 16, row.resolution & 0xFFFF, row.value73High, row.value73Low};
}

// The area must lie on the 1024 x 1024 sensor (every buffer and table has
// that size), and the eight-lane kernels need a width that is a multiple
// of 8. Anything else is refused with 11 before the camera is asked.
bool requireArea(const DeviceRecord &rec, const Area &a, std::int32_t *err)
{
    bool fits = a.w >= 1 && a.h >= 1 && a.w <= kSensorSide && a.h <= kSensorSide && a.x0 + a.w <= kSensorSide &&
                a.y0 + a.h <= kSensorSide;
    if (fits && kernelFor(rec.kernelVariant) == Kernel::Vector && a.w % 8 != 0)
        fits = false;
    if (!fits)
        *err = QUORIN_ERR_NOT_ALLOWED;
    return fits;
}

std::uint32_t packedBytes(const Area &a)
{
    return (a.w * a.h * 10) >> 3;
}

Frame frameFor(std::uint32_t deviceNo, bool memory)
{
    DeviceRecord &rec = device(deviceNo);
    const DeviceBuffers &b = g_state.buffers;
    const ChannelSettings &row = rec.channelSettings[memory ? 1 : 0];
    const int r = memory ? 1 : 0;
    Frame f{};
    f.area = areaOf(row);
    f.memory = memory;
    f.raw = b.rawFrameBuffer[deviceNo];
    f.work = b.workImage[deviceNo];
    f.rgb = b.rgbImage[deviceNo];
    f.previous = b.previousFrame[deviceNo];
    f.cache = b.outputCache[deviceNo];
    f.dark = b.darkFrame[deviceNo];
    f.gainA = b.gainTableA[deviceNo];
    f.gainB = b.gainTableB[deviceNo];
    for (int ch = 0; ch < 3; ++ch) {
        f.lut[ch] = b.outputLut[r][ch][deviceNo];
        f.bilinearLut[ch] = b.outputLut[r][ch][deviceNo];
    }
    f.colour = rec.isColour != 0;
    f.darkSubtract = rec.darkSubtract != 0;
    f.columnCorrect = rec.columnCorrect != 0;
    f.pixelGainMode = rec.pixelGainMode;
    f.defectCorrect = rec.defectCorrect != 0;
    f.defectCount = rec.defectCount < kMaxDefects ? rec.defectCount : kMaxDefects;
    f.defects = rec.defectList;
    f.defectIndex = b.defectIndex[deviceNo];
    f.rawBayerOutput = rec.rawBayerOutput != 0;
    f.outputShift = rec.outputShift;
    f.demosaicMethod = rec.demosaicMethod;
    f.keepLiveCache = rec.keepLiveCache != 0;
    f.colourMode = rec.colourMode;
    if (rec.softColourSwitch) {
        for (int ch = 0; ch < 3; ++ch)
            f.balanceGains[ch] = rec.softColorTemp[ch];
    } else {
        f.balanceGains[0] = row.colourGainR;
        f.balanceGains[1] = row.colourGainG;
        f.balanceGains[2] = row.colourGainB;
    }
    f.matrixOn = rec.colourMatrixSelect != 0;
    for (int i = 0; i < 9; ++i)
        f.matrix[i] = rec.colourMatrix[i][1];
    f.kernelVariant = rec.kernelVariant;
    f.mode71 = row.mode71;
    return f;
}

std::uint32_t sendImageCommand(std::uint32_t deviceNo, const CameraCommand &command, std::int32_t *err)
{
    CommandReply reply{};
    return link::sendCommand(deviceNo, &command, &reply, err);
}

// Announces an armed bulk read of bytes to a type-3 camera.
std::uint32_t armAndAnnounce(std::uint32_t deviceNo, std::uint32_t bytes, std::int32_t *err)
{
    const InterfaceTable &entry = deviceInterface(deviceNo);
    std::uint32_t a = 0, b = 0;
    if (entry.type == 3 && entry.armTransfer != nullptr) // its result does not matter
        entry.armTransfer(device(deviceNo).linkHandle, g_state.buffers.rawFrameBuffer[deviceNo], bytes, &a, &b, err);
    return sendImageCommand(deviceNo, CameraCommand{188, a << 16 | b, bytes}, err);
}

// Asks for one frame and reads it into the raw frame buffer.
std::uint32_t readFrame(std::uint32_t deviceNo, const CameraCommand &command, std::uint32_t bytes, std::int32_t *err)
{
    const DeviceRecord &rec = device(deviceNo);
    std::uint8_t *raw = g_state.buffers.rawFrameBuffer[deviceNo];
    if (rec.interfaceCode == 3)
        return armAndAnnounce(deviceNo, bytes, err) && sendImageCommand(deviceNo, command, err) &&
               link::completeTransfer(deviceNo, err);
    if (rec.interfaceCode == 4) {
        CommandReply reply{};
        return link::transactData(deviceNo, &command, &reply, static_cast<std::int32_t>(bytes), raw, err);
    }
    return sendImageCommand(deviceNo, command, err) && link::receiveBlock(deviceNo, bytes, raw, err);
}

// The camera's frame and segment for host frame number n (counted from 1).
bool memoryRequest(const DeviceRecord &rec, std::uint32_t n, CameraCommand *command, std::int32_t *err)
{
    const ChannelSettings &row = rec.channelSettings[1];
    const std::uint32_t partition = rec.partition << 24;
    command->code = 178;
    if (row.triggerMode != 0x06000000 && row.triggerMode != 0x07000000) {
        command->p1 = n;
        command->p2 = partition | kImageRequestFlag;
        return true;
    }
    const std::uint32_t k = row.triggerCount;
    if (k == 0) { // no frames per segment: no numbering exists
        *err = QUORIN_ERR_NOT_ALLOWED;
        return false;
    }
    const std::uint32_t q = (n - 1) / k;
    const std::uint32_t r = n - k * q;
    const std::uint32_t segment = (q < row.triggerRatio ? q : 0) + 1;
    if (row.triggerMode == 0x07000000) {
        std::uint32_t s = row.triggerFrames;
        if (r > k - s)
            s = s - k;
        command->p1 = r + s;
    } else {
        const std::uint32_t h = k >> 1;
        command->p1 = r > h ? r - h : r + h + (k & 1);
    }
    command->p2 = partition | segment << 20 | kImageRequestFlag;
    return true;
}

// The checks every frame export makes after its own guards.
bool prepare(std::uint32_t deviceNo, bool memory, Area *area, std::int32_t *err)
{
    if (!requireUsableDevice(deviceNo, err))
        return false;
    const DeviceRecord &rec = device(deviceNo);
    *area = areaOf(rec.channelSettings[memory ? 1 : 0]);
    return requireArea(rec, *area, err);
}

// Runs the pipeline on the frame in the raw buffer; success leaves the
// error word as the link left it.
std::uint32_t finish(std::uint32_t deviceNo, bool memory, std::int32_t bitDepth, void *dest, std::int32_t *)
{
    const Frame f = frameFor(deviceNo, memory);
    LastImage &last = device(deviceNo).lastImage;
    last.layout = image::process(f, bitDepth == 16, dest);
    last.blueFirst = f.demosaicMethod == 1 ? 1 : 0;
    last.pixels = static_cast<std::uint32_t>(f.area.pixels());
    last.width = f.area.w;
    last.memory = memory ? 1 : 0;
    last.matrixOn = f.matrixOn ? 1 : 0;
    for (int i = 0; i < 9; ++i)
        last.matrix[i] = f.matrix[i];
    return 1;
}

} // namespace
} // namespace quorin::image

using namespace quorin;
using namespace quorin::image;

namespace quorin::image {
namespace {

// The checks every frame export makes, in order: initialised, a device
// number, the camera's mode (live for live frames, playback for recorded
// ones), an open slot, an area on the sensor and, when the export writes
// pixels, a destination. Fills the area.
bool admit(std::uint32_t deviceNo, bool memory, const void *dest, bool needsDest, Area *area, std::int32_t *err)
{
    if (!requireInitialised(err) || !requireDeviceNumber(deviceNo, err))
        return false;
    const DeviceRecord &rec = device(deviceNo);
    if (!(memory ? requirePlayback(rec, err) : requireLive(rec, err)) || !prepare(deviceNo, memory, area, err))
        return false;
    if (needsDest && dest == nullptr) {
        *err = QUORIN_ERR_OUT_OF_RANGE;
        return false;
    }
    return true;
}

} // namespace
} // namespace quorin::image

extern "C" int32_t DEV_TransferLiveImage(uint32_t deviceNo, uint64_t, int32_t bitDepth, void *dest, int32_t *err)
{
    std::int32_t scratch = 0;
    if (err == nullptr)
        err = &scratch;
    Area area{};
    if (!admit(deviceNo, false, dest, true, &area, err) ||
        !readFrame(deviceNo, CameraCommand{183, 0, kImageRequestFlag}, packedBytes(area), err))
        return 0;
    return static_cast<int32_t>(finish(deviceNo, false, bitDepth, dest, err));
}

extern "C" int32_t DEV_TransferMemImage(uint32_t deviceNo, uint64_t, uint32_t frameNumber, int32_t bitDepth,
                                        void *dest, int32_t *err)
{
    std::int32_t scratch = 0;
    if (err == nullptr)
        err = &scratch;
    Area area{};
    CameraCommand command{};
    if (!admit(deviceNo, true, dest, true, &area, err) ||
        !memoryRequest(device(deviceNo), frameNumber, &command, err) ||
        !readFrame(deviceNo, command, packedBytes(area), err))
        return 0;
    return static_cast<int32_t>(finish(deviceNo, true, bitDepth, dest, err));
}

extern "C" int32_t DEV_TransferMemImageStart(uint32_t deviceNo, uint64_t, uint32_t frameNumber, uint64_t, uint64_t,
                                             int32_t *err)
{
    std::int32_t scratch = 0;
    if (err == nullptr)
        err = &scratch;
    Area area{};
    CameraCommand command{};
    if (!admit(deviceNo, true, nullptr, false, &area, err) ||
        !memoryRequest(device(deviceNo), frameNumber, &command, err))
        return 0;
    if (deviceInterface(deviceNo).type == 3 && !armAndAnnounce(deviceNo, (area.w * area.h * 5 * 2) >> 3, err))
        return 0;
    return static_cast<int32_t>(sendImageCommand(deviceNo, command, err));
}

extern "C" int32_t DEV_TransferMemImageEnd(uint32_t deviceNo, uint64_t, int32_t bitDepth, void *dest, int32_t *err)
{
    std::int32_t scratch = 0;
    if (err == nullptr)
        err = &scratch;
    Area area{};
    if (!admit(deviceNo, true, dest, true, &area, err))
        return 0;
    const DeviceRecord &rec = device(deviceNo);
    if (rec.interfaceCode == 3) {
        const InterfaceTable &entry = deviceInterface(deviceNo);
        if (entry.type != 3 || entry.awaitTransfer == nullptr)
            return 0;
        if (!entry.awaitTransfer(rec.linkHandle, err))
            return 0;
    } else if (!link::receiveBlock(deviceNo, packedBytes(area), g_state.buffers.rawFrameBuffer[deviceNo], err)) {
        return 0;
    }
    return static_cast<int32_t>(finish(deviceNo, true, bitDepth, dest, err));
}

extern "C" int32_t DEV_TransferLiveImageCache(uint32_t deviceNo, uint64_t, uint8_t *dest, uint32_t *errOut)
{
    std::int32_t scratch = 0;
    std::int32_t *err = errOut != nullptr ? reinterpret_cast<std::int32_t *>(errOut) : &scratch;
    if (!requireInitialised(err) || !requireDeviceNumber(deviceNo, err))
        return 0;
    const DeviceRecord &rec = device(deviceNo);
    if (!requireLive(rec, err))
        return 0;
    if (rec.keepLiveCache == 0) {
        *err = QUORIN_ERR_NOT_ALLOWED;
        return 0;
    }
    Area area{};
    if (!requireUsableDevice(deviceNo, err))
        return 0;
    area = areaOf(rec.channelSettings[0]);
    if (area.w > kSensorSide || area.h > kSensorSide) {
        *err = QUORIN_ERR_NOT_ALLOWED;
        return 0;
    }
    if (dest == nullptr) {
        *err = QUORIN_ERR_OUT_OF_RANGE;
        return 0;
    }
    std::memcpy(dest, g_state.buffers.outputCache[deviceNo], area.pixels() * (rec.isColour ? 6 : 2));
    return 1; // the error word stays as it was: no lower layer ran
}
