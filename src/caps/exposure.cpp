// The exposure-time algorithm of capabilities 5 and 127.
#include "caps/caps_common.h"
#include "caps/shutter_tables.h"
#include "data/lut.h"

#include <algorithm>
#include <cmath>

namespace quorin {

std::uint32_t exposureTime(std::uint32_t deviceNo, std::uint32_t s, std::int64_t *v, std::int32_t *err)
{
    DeviceRecord &rec = device(deviceNo);
    const ChannelSettings &cs = channelRow(rec, s);
    *v = 0;
    if (cs.exposureEnabled == 0)
        return 1; // err stays as the caller preset it
    CommandReply shutter{}, period{};
    if (!cameraCommand(deviceNo, 21, 0, s << 24, &shutter, err))
        return 0;
    const std::uint32_t d = shutter.value1;
    const std::uint32_t k = shutter.value2 & 0xFF;
    if (s == 0)
        rec.shutterColumn = k;
    if (!cameraCommand(deviceNo, 72, d, shutter.value2, &period, err))
        return 0;
    const double frame = (static_cast<double>(period.value1) - 64.0) / kCameraClockHz;
    if (d == cs.frameRate) {
        *v = truncateToInt64(std::floor(frame * 1e10));
    } else if (k < kShutterColumns) { // a column beyond the table finds no row
        for (int i = 0; i < kShutterRows; ++i)
            if (kShutterDenominators[i][k] == d) {
                const double exposure = (kShutterClocks[i][k] + (i < 39 ? 136.0 : 0.0)) / kCameraClockHz;
                *v = truncateToInt64(std::floor(std::min(exposure, frame) * 1e10));
                break;
            }
    }
    if (*v == 0) {
        // Fallback in microseconds, although the callers scale it as 1e-10 s.
        if (!cameraCommand(deviceNo, 72, d, shutter.value2, &period, err))
            return 0;
        *v = truncateToInt64((static_cast<double>(period.value1) - 64.0) / kCameraClockHz * 1000000.0);
    }
    *err = QUORIN_SUCCESS;
    return 1;
}

} // namespace quorin
