// The device table and the per-device buffers.
#include "device/device_table.h"

#include "image/stages/defect_sets.h"

#include <cstring>
#include <new>

namespace quorin {

LibraryState g_state;

bool deviceUsable(std::uint32_t deviceNo)
{
    return deviceNo < kMaxDevices && g_state.devices[deviceNo].inUse != 0 &&
           g_state.buffers.rawFrameBuffer[deviceNo] != nullptr;
}

namespace {

template <typename T> void commit(T *&slot, std::size_t bytes)
{
    if (slot == nullptr)
        slot = static_cast<T *>(platform::virtualCommit(bytes));
}

template <typename T> void commitZeroed(T *&slot, std::size_t bytes)
{
    if (slot == nullptr)
        slot = static_cast<T *>(platform::virtualCommit(bytes)); // fresh pages are zero
    else
        std::memset(slot, 0, bytes);
}

template <typename T> void release(T *&slot, std::size_t bytes)
{
    if (slot != nullptr) {
        platform::virtualRelease(slot, bytes);
        slot = nullptr;
    }
}

// Visits the fifteen heap tables of a slot in their fixed order: base and
// output tables of row 0 and row 1, then the free tables R, G, B.
template <typename F> void forEachLut(std::uint32_t deviceNo, F f)
{
    auto &b = g_state.buffers;
    for (int row = 0; row < 2; ++row)
        for (int ch = 0; ch < 3; ++ch) {
            f(b.baseLut[row][ch][deviceNo]);
            f(b.outputLut[row][ch][deviceNo]);
        }
    for (int ch = 0; ch < 3; ++ch)
        f(b.freeLut[ch][deviceNo]);
}

} // namespace

bool allocateDeviceBuffers(std::uint32_t deviceNo)
{
    auto &b = g_state.buffers;
    commit(b.rawFrameBuffer[deviceNo], kRawFrameBytes);
    commit(b.rgbImage[deviceNo], kRgbImageBytes);
    commit(b.previousFrame[deviceNo], kPlaneBytes);
    commitZeroed(b.workImage[deviceNo], kPlaneBytes);
    commitZeroed(b.darkFrame[deviceNo], kPlaneBytes);
    commitZeroed(b.gainTableA[deviceNo], kPlaneBytes);
    commitZeroed(b.gainTableB[deviceNo], kPlaneBytes);
    commitZeroed(b.outputCache[deviceNo], kOutputCacheBytes);
    commitZeroed(b.defectIndex[deviceNo], image::kDefectIndexBytes);
    if (b.defectIndex[deviceNo] != nullptr)
        b.defectIndex[deviceNo] = new (b.defectIndex[deviceNo]) image::DefectIndex{}; // nothing built yet
    forEachLut(deviceNo, [](std::uint16_t *&table) {
        if (table == nullptr)
            table = static_cast<std::uint16_t *>(platform::heapAllocZeroed(g_state.libraryHeap, kLutBytes));
    });
    for (int ch = 0; ch < 3; ++ch) {
        std::uint16_t *table = b.freeLut[ch][deviceNo];
        if (table != nullptr)
            for (std::size_t i = 0; i < kLutEntries; ++i)
                table[i] = static_cast<std::uint16_t>(i);
    }
    bool complete = b.rawFrameBuffer[deviceNo] && b.rgbImage[deviceNo] && b.previousFrame[deviceNo] &&
                    b.workImage[deviceNo] && b.darkFrame[deviceNo] && b.gainTableA[deviceNo] &&
                    b.gainTableB[deviceNo] && b.outputCache[deviceNo] && b.defectIndex[deviceNo];
    forEachLut(deviceNo, [&](std::uint16_t *&table) { complete = complete && table != nullptr; });
    return complete;
}

void releaseDeviceBuffers(std::uint32_t deviceNo)
{
    auto &b = g_state.buffers;
    release(b.rawFrameBuffer[deviceNo], kRawFrameBytes);
    release(b.rgbImage[deviceNo], kRgbImageBytes);
    release(b.previousFrame[deviceNo], kPlaneBytes);
    release(b.workImage[deviceNo], kPlaneBytes);
    release(b.darkFrame[deviceNo], kPlaneBytes);
    release(b.gainTableA[deviceNo], kPlaneBytes);
    release(b.gainTableB[deviceNo], kPlaneBytes);
    release(b.outputCache[deviceNo], kOutputCacheBytes);
    release(b.defectIndex[deviceNo], image::kDefectIndexBytes);
    forEachLut(deviceNo, [](std::uint16_t *&table) {
        if (table != nullptr) {
            platform::heapFree(g_state.libraryHeap, table);
            table = nullptr;
        }
    });
}

void destroyLibraryHeap()
{
    if (g_state.heapAlive)
        platform::heapDestroy(g_state.libraryHeap);
    g_state.heapAlive = false;
}

} // namespace quorin
