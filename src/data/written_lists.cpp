// DEV_SetList: the defect list, sorted, de-duplicated, kept and sent to the
// camera entry by entry, and the three free look-up curves.
#include "data/lut.h"
#include "device/export_guard.h"
#include "link/transaction.h"

#include <cstring>

namespace quorin {
namespace {

constexpr std::uint32_t kDefectList = 18;
constexpr std::uint32_t kFreeLutR = 20;
constexpr std::uint32_t kFreeLutB = 22;
constexpr std::uint32_t kEmpty = 0xFFFFFFFFu;

// Sort key: row first, then column.
std::uint32_t rowFirst(std::uint32_t entry)
{
    return (entry & 0xFFFF) << 16 | entry >> 16;
}

std::uint32_t sendDefect(std::uint32_t deviceNo, std::uint32_t p1, std::uint32_t p2, std::int32_t *err)
{
    CameraCommand command{141, p1, p2};
    CommandReply reply{};
    return link::sendCommand(deviceNo, &command, &reply, err);
}

std::uint32_t setDefects(std::uint32_t deviceNo, std::uint32_t *list, std::uint32_t count, std::uint32_t *outCount,
                         std::int32_t *err)
{
    DeviceRecord &rec = device(deviceNo);
    if (count == 0) {
        *outCount = 0;
        if (!sendDefect(deviceNo, 0, 0, err))
            return 0;
        rec.defectCorrect = 0;
        rec.defectCount = 0;
        return 1;
    }
    // Selection sort into the host's list, the earlier of equal keys first.
    std::uint32_t work[kMaxDefects];
    const std::uint32_t m = count;
    std::memcpy(work, list, m * sizeof(std::uint32_t));
    for (std::uint32_t i = 0; i < m; ++i) {
        std::uint32_t best = 0;
        for (std::uint32_t k = 1; k < m; ++k)
            if (rowFirst(work[k]) < rowFirst(work[best]))
                best = k;
        list[i] = work[best];
        work[best] = kEmpty;
    }
    // The host's list becomes the distinct entries followed by all-ones fill.
    std::memcpy(work, list, m * sizeof(std::uint32_t));
    std::memset(list, 0xFF, kMaxDefects * sizeof(std::uint32_t));
    std::uint32_t distinct = 0;
    for (std::uint32_t k = 0; k < m; ++k)
        if (distinct == 0 || work[k] != list[distinct - 1])
            list[distinct++] = work[k];
    for (std::uint32_t i = 0; i < distinct; ++i) {
        rec.defectList[i] = list[i];
        if (!sendDefect(deviceNo, (i + 1) | distinct << 16, list[i], err))
            return 0;
    }
    rec.defectCount = distinct;
    rec.defectCorrect = 1;
    *outCount = distinct;
    return 1;
}

std::uint32_t setFreeCurve(std::uint32_t deviceNo, std::uint32_t listId, const std::uint32_t *list,
                           std::uint32_t *outCount, std::int32_t *err)
{
    *outCount = kLutEntries;
    DeviceRecord &rec = device(deviceNo);
    if (rec.channelSettings[0].lutMode != kUserPreset) {
        *err = QUORIN_ERR_OUT_OF_RANGE; // curves are taken only while the user LUT is active
        return 0;
    }
    std::uint16_t *curve = g_state.buffers.freeLut[listId - kFreeLutR][deviceNo];
    for (std::size_t i = 0; i < kLutEntries; ++i)
        curve[i] = static_cast<std::uint16_t>(list[i]);
    rec.userLut.freeMode = 1;
    generateLut(deviceNo, 0, rec.channelSettings[0].lutMode);
    *err = QUORIN_SUCCESS;
    return 1;
}

} // namespace
} // namespace quorin

using namespace quorin;

extern "C" uint32_t DEV_SetList(uint32_t deviceNo, uint64_t, uint32_t listId, uint64_t, uint32_t *list, uint32_t count,
                                uint32_t *outCount, int32_t *err)
{
    std::int32_t scratch = 0;
    std::uint32_t scratchCount = 0;
    if (err == nullptr)
        err = &scratch;
    if (outCount == nullptr)
        outCount = &scratchCount;
    if (!requireInitialised(err))
        return 0;
    if (listId != kDefectList && (listId < kFreeLutR || listId > kFreeLutB)) {
        *err = QUORIN_ERR_NOT_SUPPORTED;
        return 0;
    }
    if (!requireUsableDevice(deviceNo, err))
        return 0;
    // A list must be there to read; a defect list holds at most 1024 entries.
    if ((list == nullptr && (listId != kDefectList || count != 0)) || (listId == kDefectList && count > kMaxDefects)) {
        *err = QUORIN_ERR_OUT_OF_RANGE;
        return 0;
    }
    if (listId == kDefectList)
        return setDefects(deviceNo, list, count, outCount, err);
    return setFreeCurve(deviceNo, listId, list, outCount, err);
}
