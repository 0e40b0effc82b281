// DEV_GetList: the values a setting may take right now, for the host's
// menus. Most lists are constant; frame rates, sizes and shutter speeds
// follow the camera's firmware, sensor kind and present settings.
#include "caps/caps_common.h"
#include "caps/fine_tables.h"
#include "caps/shutter_tables.h"
#include "caps/size_tables.h"
#include "data/lut.h"
#include "device/export_guard.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>

namespace quorin {
namespace {

constexpr std::uint32_t kMaxEntries = 1024;

// The host's array, written only within kMaxEntries.
class Entries {
public:
    explicit Entries(std::uint32_t *out) : out_(out) {}
    void add(std::uint32_t v)
    {
        if (count_ < kMaxEntries)
            out_[count_++] = v;
    }
    void add(std::initializer_list<std::uint32_t> values)
    {
        for (std::uint32_t v : values)
            add(v);
    }
    std::uint32_t count() const { return count_; }

private:
    std::uint32_t *out_;
    std::uint32_t count_ = 0;
};

struct Call {
    std::uint32_t deviceNo;
    std::uint32_t id;
    std::uint32_t sub;
    Entries &entries;
    std::uint32_t *count;
    std::int32_t *err;
    std::uint32_t s;
    DeviceRecord &rec;
};

std::uint32_t finish(Call &c)
{
    *c.count = c.entries.count();
    *c.err = QUORIN_SUCCESS;
    return 1;
}

std::uint32_t fail(Call &c, std::int32_t code)
{
    *c.count = 0;
    *c.err = code;
    return 0;
}

std::uint32_t constant(Call &c, std::initializer_list<std::uint32_t> values)
{
    c.entries.add(values);
    return finish(c);
}

bool externalSyncListsOff(const DeviceRecord &rec)
{
    return hasExternalSyncFirmware(rec.firmwareVersion) && rec.channelSettings[0].value78 != 0;
}

std::uint32_t frameRates(Call &c)
{
    const DeviceRecord &rec = c.rec;
    if (rec.mode69 == 2) {
        c.entries.add(rec.channelSettings[0].frameRate);
        return finish(c);
    }
    if (externalSyncListsOff(rec)) {
        c.entries.add(0);
        *c.count = 0;
        *c.err = QUORIN_SUCCESS;
        return 1;
    }
    for (std::uint8_t row : frameRateTable(rec.firmwareVersion, rec.sensorKind))
        c.entries.add(kFrameRateRows[row].frameRate);
    return finish(c);
}

// (W, H) first, then every standard size that differs from it and fits in it.
void sizesWithin(Call &c, std::uint32_t packed)
{
    const std::uint32_t w = packed >> 16, h = packed & 0xFFFF;
    c.entries.add(packed);
    for (std::uint32_t size : kStandardSizes)
        if (size != packed && (size >> 16) <= w && (size & 0xFFFF) <= h)
            c.entries.add(size);
}

std::uint32_t pictureSizes(Call &c)
{
    const DeviceRecord &rec = c.rec;
    const std::uint32_t frameRate = rec.channelSettings[0].frameRate;
    if (rec.mode69 == 0) {
        // The first row at or above the frame rate; past the last row, the last.
        auto table = frameRateTable(rec.firmwareVersion, rec.sensorKind);
        const FrameRateRow *chosen = &kFrameRateRows[table.back()];
        for (std::uint8_t row : table)
            if (kFrameRateRows[row].frameRate >= frameRate) {
                chosen = &kFrameRateRows[row];
                break;
            }
        for (std::uint32_t size : chosen->sizes)
            c.entries.add(size);
        return finish(c);
    }
    if (rec.mode69 == 2) {
        sizesWithin(c, frameRate == 1 ? rec.channelSettings[0].resolution : largestPicture(rec, frameRate));
        return finish(c);
    }
    if (externalSyncListsOff(rec))
        return finish(c);
    if (rec.value69 > 20) // the preset number names no entry of the table of modes
        return fail(c, QUORIN_ERR_OUT_OF_RANGE);
    sizesWithin(c, rec.modeTable[rec.value69].modeB1);
    return finish(c);
}

std::uint32_t shutterSpeeds(Call &c)
{
    const DeviceRecord &rec = c.rec;
    const std::uint32_t frameRate = rec.channelSettings[0].frameRate;
    const std::uint32_t k = rec.shutterColumn;
    c.entries.add(frameRate);
    if (k < kShutterColumns) // a column beyond the table lists nothing more
        for (int i = 0; i < kShutterRows; ++i)
            if (kShutterDenominators[i][k] > frameRate)
                c.entries.add(kShutterDenominators[i][k]);
    return finish(c);
}

// Exposure of one table cell in 1e-10 s, limited by the previous entry
// taken as it stands (which, being in 1e-10 s, never limits in practice).
std::uint32_t exposureEntry(std::uint32_t clocks, bool withOffset, double previous)
{
    const double e = (clocks + (withOffset ? 136.0 : 0.0)) / kCameraClockHz;
    return static_cast<std::uint32_t>(truncateToInt64(std::floor(std::min(e, previous) * 1e10)));
}

std::uint32_t scaled(std::uint32_t listId, std::uint32_t v)
{
    const bool microseconds = listId == 3 || listId == 16;
    return microseconds ? static_cast<std::uint32_t>((std::uint64_t{v} + 5000) / 10000)
                        : static_cast<std::uint32_t>((std::uint64_t{v} + 5) / 10);
}

bool framePeriod(Call &c, std::uint32_t *entry)
{
    CommandReply r{};
    if (!cameraCommand(c.deviceNo, 72, 0, 0, &r, c.err))
        return false;
    *entry = static_cast<std::uint32_t>(
        truncateToInt64(std::floor((static_cast<double>(r.value1) - 64.0) / kCameraClockHz * 1e10)));
    return true;
}

std::uint32_t exposureTimes(Call &c)
{
    const DeviceRecord &rec = c.rec;
    std::uint32_t first = 0;
    if (!framePeriod(c, &first))
        return fail(c, *c.err);
    std::uint32_t previous = first;
    c.entries.add(scaled(c.id, first));
    const std::uint32_t k = rec.shutterColumn;
    const std::uint32_t f = rec.channelSettings[0].frameRate;
    if (k < kShutterColumns)
        for (int i = 0; i < kShutterRows; ++i)
            if (kShutterDenominators[i][k] > f) {
                previous = exposureEntry(kShutterClocks[i][k], i < 39, previous);
                c.entries.add(scaled(c.id, previous));
            }
    return finish(c);
}

int fineColumn(std::uint32_t width)
{
    switch (width) {
    case 896:
        return 1;
    case 768:
        return 2;
    case 640:
        return 3;
    case 512:
        return 4;
    case 384:
        return 5;
    case 256:
        return 6;
    case 128:
        return 7;
    default:
        return 0;
    }
}

std::uint32_t fineFrameRates(Call &c)
{
    const int k = fineColumn(c.rec.channelSettings[0].resolution >> 16);
    const std::uint32_t f = c.rec.channelSettings[0].frameRate;
    for (int i = 0; i < kFineRows; ++i)
        if (kFineDenominators[i][k] >= f)
            c.entries.add(kFineDenominators[i][k]);
    return finish(c);
}

std::uint32_t fineExposureTimes(Call &c)
{
    const int k = fineColumn(c.rec.channelSettings[0].resolution >> 16);
    const std::uint32_t f = c.rec.channelSettings[0].frameRate;
    int i = 0;
    while (i < kFineRows && kFineDenominators[i][k] < f)
        ++i;
    if (i == kFineRows)
        i = 0;
    double previous = std::numeric_limits<double>::infinity();
    if (kFineDenominators[i][k] == f) {
        std::uint32_t first = 0;
        if (!framePeriod(c, &first))
            return fail(c, *c.err);
        c.entries.add(scaled(c.id, first));
        previous = first;
        ++i;
    }
    for (; i < kFineRows; ++i) {
        const std::uint32_t entry = exposureEntry(kFineClocks[i][k], i < 162, previous);
        c.entries.add(scaled(c.id, entry));
        previous = entry;
    }
    return finish(c);
}

std::uint32_t triggerModes(Call &c)
{
    const DeviceRecord &rec = c.rec;
    const bool external = rec.syncSourceRaw == 2 && rec.mode53 == 0 &&
                          (rec.firmwareVersion < 117 || rec.extSyncFlag == 0);
    c.entries.add({0, 0x01000000, 0x02000000, 0x04000000, 0x03000000});
    if (external)
        c.entries.add(0x05000000);
    return constant(c, {0x06000000, 0x07000000, 0x08000001, 0x08000002, 0x08000003});
}

std::uint32_t extSyncFrameRates(Call &c)
{
    const DeviceRecord &rec = c.rec;
    std::span<const std::uint32_t> list = rec.extSyncFlag ? std::span<const std::uint32_t>(kExtSyncRatesExternal)
                                                          : std::span<const std::uint32_t>(kExtSyncRatesInternal);
    if (rec.sensorKind != 3)
        list = list.subspan(1); // without 50 per second
    for (std::uint32_t rate : list)
        c.entries.add(rate);
    return finish(c);
}

// Look-up table contents: lists 20, 21, 22 give the free curves R, G, B;
// lists 25, 26, 27 the output tables R, G, B of the row the channel selects.
// A monochrome camera has one curve of each kind, its red one.
std::uint32_t lutContents(Call &c)
{
    const auto &b = g_state.buffers;
    const bool colour = c.rec.isColour != 0;
    int channel = 0;
    const std::uint16_t *table = nullptr;
    if (c.id >= 20 && c.id <= 22) {
        channel = colour ? static_cast<int>(c.id - 20) : 0;
        table = b.freeLut[channel][c.deviceNo];
    } else {
        channel = colour ? static_cast<int>(c.id - 25) : 0;
        table = b.outputLut[c.s == 0 ? 0 : 1][channel][c.deviceNo];
    }
    if (table == nullptr)
        return fail(c, QUORIN_ERR_NOT_OPEN);
    for (std::size_t i = 0; i < kLutEntries; ++i)
        c.entries.add(table[i]);
    return finish(c);
}

std::uint32_t cameraEntries(Call &c, std::uint32_t *out)
{
    std::uint32_t valid = 0;
    for (std::uint32_t n = 1; n <= 10; ++n) {
        CommandReply r{};
        if (!directCommand(c.deviceNo, CameraCommand{36, n, c.rec.channelNumber << 24}, 84, &r, c.err))
            return fail(c, *c.err);
        out[n - 1] = r.value1 | ((r.value2 & 0xF) == 1 ? 0x80000000u : 0u);
        g_state.cameraEntries[n - 1] = r.value2 >> 20;
        if (r.value1 != 0xFFFFFFFFu)
            ++valid;
    }
    *c.count = valid;
    *c.err = QUORIN_SUCCESS;
    return 1;
}

std::uint32_t run(Call &c, std::uint32_t *out)
{
    const DeviceRecord &rec = c.rec;
    switch (c.id) {
    case 0:
        return frameRates(c);
    case 1:
        return pictureSizes(c);
    case 2:
        return shutterSpeeds(c);
    case 3:
    case 40:
        return exposureTimes(c);
    case 4:
        return triggerModes(c);
    case 5:
    case 6:
    case 24:
    case 29:
    case 32:
    case 33:
    case 34:
    case 35:
    case 36:
    case 37:
    case 38:
    case 39:
        *c.err = QUORIN_SUCCESS;
        return 1;
    case 7:
        if (c.sub == 1) {
            if (rec.channelSettings[0].triggerMode == 0x05000000 && rec.firmwareVersion < 117)
                return constant(c, {1});
            return constant(c, {1, 2, 3, 4, 5});
        }
        if (c.sub == 2)
            return constant(c, {6, 7, 8, 9, 10, 11});
        return fail(c, QUORIN_ERR_OUT_OF_RANGE);
    case 8:
        if (c.sub == 1)
            return constant(c, {1, 2});
        if (c.sub == 2)
            return constant(c, {13, 14, 3, 4, 5, 6, 7, 8, 9, 10});
        return fail(c, QUORIN_ERR_OUT_OF_RANGE);
    case 9:
        return constant(c, {1, 2, 3, 4});
    case 10:
        return constant(c, {1, 2, 3, 4, 5, 11});
    case 11:
        return extSyncFrameRates(c);
    case 12: {
        const ChannelSettings &row = rec.channelSettings[0];
        if (row.triggerMode != 0x05000000 && row.exposureEnabled != 0 && row.shutterSpeed <= 100000)
            return constant(c, {1, 2, 3, 4});
        return constant(c, {1});
    }
    case 13:
        return constant(c, {2, 3});
    case 14:
    case 17:
        return constant(c, {1, 2, 3, 4});
    case 15:
        return fineFrameRates(c);
    case 16:
    case 41:
        return fineExposureTimes(c);
    case 18:
        for (std::uint32_t i = 0; i < rec.defectCount && i < kMaxDefects; ++i)
            c.entries.add(rec.defectList[i]);
        return finish(c);
    case 19:
        return constant(c, {1});
    case 20:
    case 21:
    case 22:
    case 25:
    case 26:
    case 27:
        return lutContents(c);
    case 23:
        return cameraEntries(c, out);
    case 28:
        return constant(c, {0, 1, 2, 3, 6, 7});
    case 30:
        for (std::uint32_t v : g_state.cameraEntries)
            c.entries.add(v);
        return finish(c);
    case 31:
        return constant(c, {0, 2});
    default:
        return fail(c, QUORIN_ERR_NOT_SUPPORTED);
    }
}

} // namespace
} // namespace quorin

using namespace quorin;

extern "C" int32_t DEV_GetList(uint32_t deviceNo, uint64_t, uint32_t listId, uint32_t subIndex, uint32_t *entries,
                               uint32_t *count, int32_t *err)
{
    std::int32_t scratchErr = 0;
    if (err == nullptr)
        err = &scratchErr;
    if (!requireInitialised(err) || !requireDeviceNumber(deviceNo, err))
        return 0;
    std::uint32_t scratchEntries[kMaxEntries];
    std::uint32_t scratchCount = 0;
    if (entries == nullptr)
        entries = scratchEntries;
    if (count == nullptr)
        count = &scratchCount;
    DeviceRecord &rec = device(deviceNo);
    Entries out(entries);
    Call call{deviceNo, listId, subIndex, out, count, err, channelSelector(rec), rec};
    return static_cast<int32_t>(run(call, entries));
}
