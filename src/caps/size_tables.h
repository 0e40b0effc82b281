// Picture sizes and frame rates of the camera family: the 23 standard
// sizes, the sizes each frame rate allows, the four frame-rate tables chosen
// by firmware and sensor kind, and the external-sync frame-rate lists.
#pragma once

#include <cstdint>
#include <span>

namespace quorin {

// A picture size packed as the camera takes it: width << 16 | height.
constexpr std::uint32_t P(std::uint32_t width, std::uint32_t height)
{
    return width << 16 | height;
}

constexpr std::uint32_t kStandardSizes[23] = {P(1024, 1024), P(1024, 512), P(1024, 256), P(1024, 128), P(640, 480), P(512, 1024), P(512, 512), P(512, 384), P(512, 256), P(512, 128), P(512, 64), P(320, 240), P(256, 512), P(256, 256), P(256, 128), P(256, 64), P(256, 32), P(128, 256), P(128, 128), P(128, 64), P(128, 48), P(128, 32), P(128, 16)};

constexpr std::uint32_t kSizesAt5000[] = {P(512, 1024), P(512, 512), P(512, 384), P(512, 256), P(512, 128), P(512, 64), P(320, 240), P(256, 512), P(256, 256), P(256, 128), P(256, 64), P(256, 32), P(128, 256), P(128, 128), P(128, 64), P(128, 48), P(128, 32), P(128, 16)};
constexpr std::uint32_t kSizesAt6000[] = {P(1024, 512), P(1024, 256), P(1024, 128), P(640, 480), P(512, 512), P(512, 384), P(512, 256), P(512, 128), P(512, 64), P(320, 240), P(256, 512), P(256, 256), P(256, 128), P(256, 64), P(256, 32), P(128, 256), P(128, 128), P(128, 64), P(128, 48), P(128, 32), P(128, 16)};
constexpr std::uint32_t kSizesAt9000[] = {P(640, 480), P(512, 384), P(512, 256), P(512, 128), P(512, 64), P(320, 240), P(256, 256), P(256, 128), P(256, 64), P(256, 32), P(128, 256), P(128, 128), P(128, 64), P(128, 48), P(128, 32), P(128, 16)};
constexpr std::uint32_t kSizesAt10000[] = {P(512, 512), P(512, 384), P(512, 256), P(512, 128), P(512, 64), P(320, 240), P(256, 512), P(256, 256), P(256, 128), P(256, 64), P(256, 32), P(128, 256), P(128, 128), P(128, 64), P(128, 48), P(128, 32), P(128, 16)};
constexpr std::uint32_t kSizesAt12000[] = {P(512, 384), P(512, 256), P(512, 128), P(512, 64), P(320, 240), P(256, 256), P(256, 128), P(256, 64), P(256, 32), P(128, 256), P(128, 128), P(128, 64), P(128, 48), P(128, 32), P(128, 16)};
constexpr std::uint32_t kSizesAt15000[] = {P(256, 512), P(256, 256), P(256, 128), P(256, 64), P(256, 32), P(128, 256), P(128, 128), P(128, 64), P(128, 48), P(128, 32), P(128, 16)};
constexpr std::uint32_t kSizesAt20000[] = {P(512, 256), P(512, 128), P(512, 64), P(320, 240), P(256, 256), P(256, 128), P(256, 64), P(256, 32), P(128, 256), P(128, 128), P(128, 64), P(128, 48), P(128, 32), P(128, 16)};
constexpr std::uint32_t kSizesAt28000_30000[] = {P(256, 256), P(256, 128), P(256, 64), P(256, 32), P(128, 256), P(128, 128), P(128, 64), P(128, 48), P(128, 32), P(128, 16)};
constexpr std::uint32_t kSizesAt36000[] = {P(512, 128), P(512, 64), P(256, 128), P(256, 64), P(256, 32), P(128, 128), P(128, 64), P(128, 48), P(128, 32), P(128, 16)};
constexpr std::uint32_t kSizesAt50000[] = {P(256, 128), P(256, 64), P(256, 32), P(128, 128), P(128, 64), P(128, 48), P(128, 32), P(128, 16)};
constexpr std::uint32_t kSizesAt60000[] = {P(128, 128), P(128, 64), P(128, 48), P(128, 32), P(128, 16)};
constexpr std::uint32_t kSizesAt75000[] = {P(256, 64), P(256, 32), P(128, 32), P(128, 16)};
constexpr std::uint32_t kSizesAt100000[] = {P(256, 32), P(128, 32), P(128, 16)};
constexpr std::uint32_t kSizesAt125000_150000[] = {P(128, 48), P(128, 32), P(128, 16)};
constexpr std::uint32_t kSizesAt180000[] = {P(128, 32), P(128, 16)};
constexpr std::uint32_t kSizesAt210000_250000[] = {P(128, 16)};

// One row of a frame-rate table: the rate and the sizes it allows.
struct FrameRateRow {
    std::uint32_t frameRate;
    std::span<const std::uint32_t> sizes;
};

// Every row a table can hold, in ascending order.
constexpr FrameRateRow kFrameRateRows[] = {
    {50, kStandardSizes},
    {60, kStandardSizes},
    {125, kStandardSizes},
    {250, kStandardSizes},
    {500, kStandardSizes},
    {1000, kStandardSizes},
    {1500, kStandardSizes},
    {3000, kStandardSizes},
    {5000, kSizesAt5000},
    {6000, kSizesAt6000},
    {9000, kSizesAt9000},
    {10000, kSizesAt10000},
    {12000, kSizesAt12000},
    {15000, kSizesAt15000},
    {20000, kSizesAt20000},
    {28000, kSizesAt28000_30000},
    {30000, kSizesAt28000_30000},
    {36000, kSizesAt36000},
    {50000, kSizesAt50000},
    {60000, kSizesAt60000},
    {75000, kSizesAt75000},
    {100000, kSizesAt100000},
    {125000, kSizesAt125000_150000},
    {150000, kSizesAt125000_150000},
    {180000, kSizesAt180000},
    {210000, kSizesAt210000_250000},
    {250000, kSizesAt210000_250000},
};

// Rows of the four tables (indexes into kFrameRateRows): firmware below 108
// or from 108 on, sensor kind 3 (adds 50 per second) or not. Firmware from
// 108 on adds 1000 per second.
constexpr std::uint8_t kRowsOldFirmware[] = {1, 2, 3, 4, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26};
constexpr std::uint8_t kRowsOldFirmwareKind3[] = {0, 1, 2, 3, 4, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26};
constexpr std::uint8_t kRowsNewFirmwareKind3[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26};
constexpr std::uint8_t kRowsNewFirmware[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26};

// The frame-rate table of a camera.
constexpr std::span<const std::uint8_t> frameRateTable(std::uint32_t firmwareVersion, std::uint32_t sensorKind)
{
    if (firmwareVersion < 108)
        return sensorKind == 3 ? std::span<const std::uint8_t>(kRowsOldFirmwareKind3)
                               : std::span<const std::uint8_t>(kRowsOldFirmware);
    return sensorKind == 3 ? std::span<const std::uint8_t>(kRowsNewFirmwareKind3)
                           : std::span<const std::uint8_t>(kRowsNewFirmware);
}

// External-sync frame-rate lists: internal clock, and with external sync.
// Sensor kind 3 offers 50 per second as well (the first entry).
constexpr std::uint32_t kExtSyncRatesInternal[] = {50, 60, 125, 250, 500, 600, 700, 800, 900, 1000, 1200, 1400, 1500, 1800, 2000, 2100, 2400, 2500, 2800, 3000, 3500, 3600, 4000, 4200, 4500, 5000, 5600, 6000, 6300, 7000, 7200, 7500, 8400, 9000, 10000, 12000, 12500, 14000, 15000, 16800, 17500, 18000, 20000, 21000, 22500, 25000, 28000, 30000, 31500, 35000, 36000, 37500, 42000, 45000, 50000, 52500, 60000, 62500, 63000, 70000, 75000, 84000, 87500, 90000, 100000, 105000, 112500, 125000, 140000, 150000, 180000, 210000, 250000};
constexpr std::uint32_t kExtSyncRatesExternal[] = {50, 60, 125, 250, 500, 600, 700, 800, 900, 1000, 1200, 1400, 1500, 1800, 2000, 2100, 2400, 2500, 2800, 3000, 3500, 3600, 4000, 4200, 4500, 5000, 5600, 6000};
static_assert(sizeof kExtSyncRatesInternal / 4 == 73 && sizeof kExtSyncRatesExternal / 4 == 28);

} // namespace quorin
