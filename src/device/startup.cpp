#include "device/startup.h"

#include "device/device_table.h"
#include "quorin/quorin.h"

namespace quorin {

std::uint32_t runStartup(std::uint32_t deviceNo, std::int32_t *err)
{
    allocateDeviceBuffers(deviceNo);

    DeviceRecord &rec = device(deviceNo);
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

    rec.kernelVariant = 0x80000000u;
    *err = QUORIN_SUCCESS;
    return 1;
}

} // namespace quorin
