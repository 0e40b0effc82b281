// The capability and list name tables, and their lookup.
#include "names.h"

#include "cli_error.h"
#include "quorin/quorin.h"

#include <cstdio>

namespace quorin::cli {
namespace {

constexpr CapabilityName kCapabilities[] = {
    {"camera-mode", QUORIN_CAP_CAMERA_MODE, 0, Format::CameraMode, kGetSet, "live, playback or a recording state"},
    {"frame-rate", QUORIN_CAP_FRAME_RATE, 0, Format::Fps, kGetSet, "frames per second"},
    {"resolution", QUORIN_CAP_RESOLUTION, 0, Format::Size, kGetSet, "picture size WxH"},
    {"shutter", QUORIN_CAP_SHUTTER, 0, Format::Shutter, kGetSet, "shutter speed 1/N s"},
    {"exposure", QUORIN_CAP_EXPOSURE_US, 0, Format::Microseconds, kGet, "exposure time"},
    {"exposure-ns", QUORIN_CAP_EXPOSURE_NS, 0, Format::Nanoseconds, kGet, "exposure time in nanoseconds"},
    {"trigger-mode", QUORIN_CAP_TRIGGER_MODE, 0, Format::Trigger, kGetSet, "trigger code and its parameter"},
    {"trigger-counts", QUORIN_CAP_TRIGGER_COUNTS, 0, Format::TriggerCounts, kGetSet, "trigger count and ratio"},
    {"colour-temperature", QUORIN_CAP_COLOUR_TEMPERATURE, 0, Format::ColourTemperature, kGetSet,
     "colour balance preset (K5C)"},
    {"colour-model", QUORIN_CAP_COLOUR_MODEL, 0, Format::OnOff, kGet, "on for the colour camera"},
    {"camera-number", QUORIN_CAP_CAMERA_NUMBER, 0, Format::Plain, kGet, "the camera's number"},
    {"lut-mode", QUORIN_CAP_LUT_MODE, 0, Format::LutMode, kGetSet, "look-up table preset or user"},
    {"signed-offset", QUORIN_CAP_SIGNED_OFFSET, 0, Format::SignedOffset, kGetSet, "signed offset"},
    {"firmware", QUORIN_CAP_FIRMWARE, 0, Format::Plain, kGet, "firmware revision"},
    {"sensor-kind", QUORIN_CAP_SENSOR_KIND, 0, Format::Plain, kGetSet | kDiffers,
     "get: sensor kind 2 or 3; set: command 112 value 2 or 3"},
    {"channel", QUORIN_CAP_CHANNEL_NUMBER, 0, Format::Plain, kGetSet, "channel number"},
    {"channel-count", QUORIN_CAP_CHANNEL_COUNT, 0, Format::Plain, kGetSet, "number of channels"},
    {"pixel-gain", QUORIN_CAP_PIXEL_GAIN, 0, Format::PixelGain, kGetSet,
     "pixel-gain source; set save/load for the pixel-gain file"},
    {"frame-count", QUORIN_CAP_FRAME_COUNT, 0, Format::Plain, kGet, "frames the camera's memory holds"},
    {"sync-source", QUORIN_CAP_SYNC_SOURCE, 1, Format::Plain, kGetSet, "sync source 1..5; --sub 2: mode 6..11"},
    {"exposure-control", QUORIN_CAP_EXPOSURE_ENABLE, 0, Format::OnOff, kGetSet, "exposure control switch"},
    {"image-output", QUORIN_CAP_IMAGE_OUTPUT, 0, Format::Hex, kGetSet,
     "demosaic << 16 | raw Bayer << 8 | output shift"},
    {"sensor-size", QUORIN_CAP_SENSOR_SIZE, 0, Format::Size, kGet, "sensor size"},
    {"area-origin", QUORIN_CAP_VALUE_73, 0, Format::Position, kGet, "first column and row of the picture"},
    {"max-frame-rate", QUORIN_CAP_MAX_FRAME_RATE, 0, Format::Fps, kGet,
     "largest frame rate for the frame-time model size"},
    {"max-picture", QUORIN_CAP_MAX_PICTURE, 0, Format::SizePair, kGet,
     "largest picture for the frame-time model rate"},
    {"defect-correction", QUORIN_CAP_DEFECT_CORRECT, 0, Format::OnOff, kGetSet, "defective-pixel correction"},
    {"colour-gain-r", QUORIN_CAP_USER_GAIN_R, 0, Format::Plain, kGetSet, "colour gain R, 16 = 1.0 (K5C)"},
    {"colour-gain-g", QUORIN_CAP_USER_GAIN_G, 0, Format::Plain, kGetSet, "colour gain G, 16 = 1.0 (K5C)"},
    {"colour-gain-b", QUORIN_CAP_USER_GAIN_B, 0, Format::Plain, kGetSet, "colour gain B, 16 = 1.0 (K5C)"},
    {"live-cache", QUORIN_CAP_KEEP_LIVE_CACHE, 0, Format::OnOff, kGetSet, "keep 16-bit copies of 8-bit live frames"},
    {"soft-colour", QUORIN_CAP_SOFT_COLOUR, 0, Format::OnOff, kGetSet, "colour balance from the soft gains (K5C)"},
    {"external-sync", QUORIN_CAP_EXTERNAL_SYNC, 0, Format::OnOff, kGetSet, "external sync"},
    {"column-correction", QUORIN_CAP_COLUMN_CORRECT, 0, Format::OnOff, kGetSet,
     "column crosstalk correction (firmware below 114)"},
    {"soft-gain-r", QUORIN_CAP_SOFT_GAIN_R, 0, Format::Plain, kGetSet, "soft colour gain R, 16 = 1.0 (K5C)"},
    {"soft-gain-g", QUORIN_CAP_SOFT_GAIN_G, 0, Format::Plain, kGetSet, "soft colour gain G, 16 = 1.0 (K5C)"},
    {"soft-gain-b", QUORIN_CAP_SOFT_GAIN_B, 0, Format::Plain, kGetSet, "soft colour gain B, 16 = 1.0 (K5C)"},
    // The camera family's other capabilities, named after what they carry.
    {"supported", QUORIN_CAP_SUPPORTED, 0, Format::Plain, kGet, "always 1"},
    {"mode-133", QUORIN_CAP_MODE_133, 0, Format::Plain, kGetSet, "mode 1..4 (commands 71 / 133)"},
    {"flag-137-bit0", QUORIN_CAP_FLAG_137_BIT0, 0, Format::OnOff, kGetSet, "flag 0 of command 137"},
    {"flag-137-bit1", QUORIN_CAP_FLAG_137_BIT1, 0, Format::OnOff, kGetSet, "flag 1 of command 137"},
    {"action-145", QUORIN_CAP_ACTION_145, 0, Format::Plain, kGetSet | kDiffers,
     "get: mode 1..4 of command 55; set: action 1..5 of command 145"},
    {"mode-143", QUORIN_CAP_MODE_143, 0, Format::Plain, kGetSet, "mode 1..4 (commands 53 / 143)"},
    {"flag-134", QUORIN_CAP_FLAG_134, 0, Format::OnOff, kGetSet | kDiffers,
     "get: command 68 flag; set: command 134 flag"},
    {"flag-159", QUORIN_CAP_FLAG_159, 0, Format::OnOff, kGetSet | kDiffers,
     "get: command 67 flag; set: command 159 flag"},
    {"status-bit16", QUORIN_CAP_STATUS_BIT16, 0, Format::OnOff, kGetSet, "status bit 16"},
    {"constant-64", QUORIN_CAP_CONSTANT_64, 0, Format::PlainPair, kGet, "64, value2 0"},
    {"pair-128", QUORIN_CAP_PAIR_128, 1, Format::Plain, kGetSet, "codes of command 128 (--sub 1 or 2)"},
    {"constant-2", QUORIN_CAP_CONSTANT_2, 0, Format::PlainPair, kGet, "2, value2 2"},
    {"frame-count-channels", QUORIN_CAP_FRAME_COUNT_CHANNELS, 0, Format::Plain, kGet,
     "frame count of the first channel"},
    {"frame-count-2", QUORIN_CAP_FRAME_COUNT_2, 0, Format::Plain, kGet, "as frame-count"},
    {"values-45-46", QUORIN_CAP_VALUES_45_46, 0, Format::PlainPair, kGet, "command 45 value, command 46 value less 1"},
    {"colour-matrix-row1", QUORIN_CAP_COLOUR_MATRIX_ROW1, 0, Format::PlainPair, kGet,
     "sign-magnitude a << 16 | b, value2 c (K5C)"},
    {"colour-matrix-row2", QUORIN_CAP_COLOUR_MATRIX_ROW2, 0, Format::PlainPair, kGet, "row 2 (K5C)"},
    {"colour-matrix-row3", QUORIN_CAP_COLOUR_MATRIX_ROW3, 0, Format::PlainPair, kGet, "row 3 (K5C)"},
    {"mode-69", QUORIN_CAP_MODE_69, 0, Format::Plain, kGet, "command 69 mode 0..2"},
    {"preset-frame-rate", QUORIN_CAP_PRESET_FRAME_RATE, 1, Format::Fps, kGetSet | kDiffers,
     "get: frame rate of preset --sub N; set: frame-time model frame rate"},
    {"preset-resolution", QUORIN_CAP_PRESET_RESOLUTION, 1, Format::Size, kGetSet | kDiffers,
     "get: size of preset --sub N; set: frame-time model size"},
    {"preset-value-52", QUORIN_CAP_PRESET_VALUE_52, 1, Format::Plain, kGetSet | kDiffers,
     "get: value 52 of preset --sub N; set: input of the next preset store"},
    {"preset-store", QUORIN_CAP_PRESET_STORE, 0, Format::Plain, kSet, "store the present inputs as preset N"},
    {"preset-recall", QUORIN_CAP_PRESET_RECALL, 0, Format::Plain, kGetSet | kDiffers,
     "get: command 69 second value; set: recall preset N"},
    {"preset-delete", QUORIN_CAP_PRESET_DELETE, 0, Format::Plain, kSet, "delete preset N"},
    {"max-width", QUORIN_CAP_MAX_WIDTH, 0, Format::Plain, kGet, "largest width for the model frame rate"},
    {"max-height", QUORIN_CAP_MAX_HEIGHT, 0, Format::Plain, kGet, "largest height for the model frame rate"},
    {"startup-value-1", QUORIN_CAP_STARTUP_VALUE_1, 0, Format::Plain, kGetSet, "start-up value 1"},
    {"startup-value-2", QUORIN_CAP_STARTUP_VALUE_1 + 1, 0, Format::Plain, kGetSet, "start-up value 2"},
    {"startup-value-3", QUORIN_CAP_STARTUP_VALUE_1 + 2, 0, Format::Plain, kGetSet, "start-up value 3"},
    {"startup-value-4", QUORIN_CAP_STARTUP_VALUE_1 + 3, 0, Format::Plain, kGetSet, "start-up value 4"},
    {"startup-value-5", QUORIN_CAP_STARTUP_VALUE_5, 0, Format::Plain, kGetSet, "start-up value 5"},
    {"send-startup-values", QUORIN_CAP_SEND_STARTUP_VALUES, 0, Format::Plain, kSet,
     "send start-up values 1..5 to the camera"},
    {"constant-10", QUORIN_CAP_CONSTANT_10, 0, Format::Plain, kGet, "10"},
    {"upload-lut", QUORIN_CAP_UPLOAD_LUT, 0, Format::Plain, kSet, "11 uploads the user look-up table"},
    {"bit-depth", QUORIN_CAP_BIT_DEPTH, 0, Format::PlainPair, kGet, "by --sub 0..3"},
    {"colour-matrix-set", QUORIN_CAP_COLOUR_MATRIX_SET, 0, Format::Plain, kGetSet | kDiffers,
     "get: 2 camera / 0 default coefficients; set: non-zero selects the camera's (K5C)"},
    {"supported-80", QUORIN_CAP_SUPPORTED_80, 0, Format::Plain, kGet, "always 1"},
    {"constant-3000", QUORIN_CAP_CONSTANT_3000, 0, Format::Plain, kGet, "3000"},
    {"value-47", QUORIN_CAP_VALUE_47, 0, Format::Plain, kGet, "command 47 value, limited"},
    {"constant-16-63", QUORIN_CAP_CONSTANT_16_63, 0, Format::PlainPair, kGet, "16, value2 63"},
    {"level-range", QUORIN_CAP_LEVEL_RANGE, 0, Format::PlainPair, kGet, "by --sub 0..3"},
    {"command-157", QUORIN_CAP_COMMAND_157, 0, Format::Plain, kSet, "send command 157"},
    {"supported-96", QUORIN_CAP_SUPPORTED_96, 0, Format::Plain, kGet, "always 1"},
    {"interface-register", QUORIN_CAP_INTERFACE_REGISTER, 0, Format::Hex, kGetSet,
     "link type 2 interface register, --sub 0..2"},
    {"preset-ext-sync", QUORIN_CAP_PRESET_EXT_SYNC, 1, Format::OnOff, kGet, "external-sync flag of preset --sub N"},
    {"value-78", QUORIN_CAP_VALUE_78, 0, Format::Plain, kGet, "command 78 value"},
    {"kept-120", QUORIN_CAP_KEPT_120, 0, Format::Plain, kGetSet, "kept colour setting (K5C)"},
    {"kernel-variant", QUORIN_CAP_KERNEL_VARIANT, 0, Format::Hex, kSet, "image-pipeline option word"},
    {"refresh-startup", QUORIN_CAP_REFRESH_STARTUP, 0, Format::Plain, kGet, "re-read start-up values 1..5"},
};

constexpr ListName kLists[] = {
    {"frame-rates", QUORIN_LIST_FRAME_RATES, 0, Format::Fps, "frame rates offered now"},
    {"picture-sizes", QUORIN_LIST_PICTURE_SIZES, 0, Format::Size, "sizes allowed at the present frame rate"},
    {"shutter-speeds", QUORIN_LIST_SHUTTER_SPEEDS, 0, Format::Shutter, "shutter speeds, the frame rate first"},
    {"exposure-times", QUORIN_LIST_EXPOSURE_TIMES_US, 0, Format::Microseconds, "exposure times"},
    {"exposure-times-ns", QUORIN_LIST_EXPOSURE_TIMES_NS, 0, Format::Nanoseconds, "exposure times in nanoseconds"},
    {"trigger-modes", QUORIN_LIST_TRIGGER_MODES, 0, Format::Hex, "trigger codes"},
    {"sync-sources", QUORIN_LIST_SYNC_SOURCES, 1, Format::Plain, "sync sources"},
    {"colour-temperatures", QUORIN_LIST_COLOUR_TEMPERATURES, 0, Format::ColourTemperature, "colour temperatures"},
    {"lut-modes", QUORIN_LIST_LUT_MODES, 0, Format::LutMode, "look-up table modes"},
    {"ext-sync-frame-rates", QUORIN_LIST_EXT_SYNC_FRAME_RATES, 0, Format::Fps,
     "frame rates of the external-sync model"},
    {"fine-frame-rates", QUORIN_LIST_FINE_FRAME_RATES, 0, Format::Fps, "fine frame rates for the present width"},
    {"fine-exposure-times", QUORIN_LIST_FINE_EXPOSURE_US, 0, Format::Microseconds, "fine exposure times"},
    {"fine-exposure-times-ns", QUORIN_LIST_FINE_EXPOSURE_NS, 0, Format::Nanoseconds,
     "fine exposure times in nanoseconds"},
    {"defects", QUORIN_LIST_DEFECTS, 0, Format::Position, "defect pixels (x, y)"},
    {"free-lut-r", QUORIN_LIST_FREE_LUT_R, 0, Format::Plain, "free curve R"},
    {"free-lut-g", QUORIN_LIST_FREE_LUT_G, 0, Format::Plain, "free curve G"},
    {"free-lut-b", QUORIN_LIST_FREE_LUT_B, 0, Format::Plain, "free curve B"},
    {"camera-entries", QUORIN_LIST_CAMERA_ENTRIES, 0, Format::Hex, "the camera entries present"},
    {"output-lut-r", QUORIN_LIST_OUTPUT_LUT_R, 0, Format::Plain, "output table R"},
    {"output-lut-g", QUORIN_LIST_OUTPUT_LUT_G, 0, Format::Plain, "output table G"},
    {"output-lut-b", QUORIN_LIST_OUTPUT_LUT_B, 0, Format::Plain, "output table B"},
    {"pixel-gain-values", QUORIN_LIST_PIXEL_GAIN_VALUES, 0, Format::PixelGain, "pixel-gain settings"},
    // The camera family's other lists, named after what they carry.
    {"pair-128-codes", QUORIN_LIST_PAIR_128_CODES, 1, Format::Plain, "codes of pair-128 --sub 1 or 2"},
    {"modes-143", QUORIN_LIST_MODES_143, 0, Format::Plain, "modes of mode-143 allowed now"},
    {"values-112", QUORIN_LIST_VALUES_112, 0, Format::Plain, "values of sensor-kind"},
    {"modes-133", QUORIN_LIST_MODES_133, 0, Format::Plain, "modes of mode-133"},
    {"actions-145", QUORIN_LIST_ACTIONS_145, 0, Format::Plain, "actions of action-145"},
    {"single-value", QUORIN_LIST_SINGLE_VALUE, 0, Format::Plain, "1"},
    {"stored-entries", QUORIN_LIST_STORED_ENTRIES, 0, Format::Hex, "the ten values kept by camera-entries"},
    {"two-values", QUORIN_LIST_TWO_VALUES, 0, Format::Plain, "0, 2"},
};

// The header's constant names in kebab case, where the tables use a
// shorter one: both are accepted, as the Python binding accepts them.
struct Alias {
    const char *headerName, *name;
};

constexpr Alias kAliases[] = {
    {"exposure-us", "exposure"},
    {"channel-number", "channel"},
    {"exposure-enable", "exposure-control"},
    {"value-73", "area-origin"},
    {"defect-correct", "defect-correction"},
    {"user-gain-r", "colour-gain-r"},
    {"user-gain-g", "colour-gain-g"},
    {"user-gain-b", "colour-gain-b"},
    {"keep-live-cache", "live-cache"},
    {"column-correct", "column-correction"},
    {"exposure-times-us", "exposure-times"},
    {"fine-exposure-us", "fine-exposure-times"},
    {"fine-exposure-ns", "fine-exposure-times-ns"},
};

template <typename Entry>
const Entry *findByName(std::span<const Entry> table, std::string_view name)
{
    for (const Alias &a : kAliases)
        if (name == a.headerName)
            name = a.name;
    for (const Entry &e : table)
        if (name == e.name)
            return &e;
    return nullptr;
}

template <typename Entry>
const Entry *findById(std::span<const Entry> table, std::uint32_t id)
{
    for (const Entry &e : table)
        if (e.id == id)
            return &e;
    return nullptr;
}

} // namespace

std::span<const CapabilityName> capabilityNames()
{
    return kCapabilities;
}

std::span<const ListName> listNames()
{
    return kLists;
}

CapabilityName resolveCapability(std::string_view nameOrNumber, Access direction)
{
    const CapabilityName *entry = findByName(capabilityNames(), nameOrNumber);
    if (entry == nullptr) {
        auto id = parseNumber(nameOrNumber);
        if (!id || *id > kMaxCapabilityId)
            throw UsageError("unknown capability '" + std::string(nameOrNumber) +
                             "' (see 'quorin get --help' for the names, or give a number 0.." +
                             std::to_string(kMaxCapabilityId) + ")");
        entry = findById(capabilityNames(), *id);
        if (entry == nullptr)
            return {"capability", *id, 0, Format::PlainPair, kGetSet, ""};
    }
    if ((entry->access & direction) == 0)
        throw UsageError(std::string("capability '") + entry->name + "' can only be " +
                         (direction == kSet ? "read" : "set"));
    return *entry;
}

ListName resolveList(std::string_view nameOrNumber)
{
    if (const ListName *entry = findByName(listNames(), nameOrNumber))
        return *entry;
    auto id = parseNumber(nameOrNumber);
    if (!id || *id > kMaxListId)
        throw UsageError("unknown list '" + std::string(nameOrNumber) +
                         "' (see 'quorin list --help' for the names, or give a number 0.." +
                         std::to_string(kMaxListId) + ")");
    if (const ListName *entry = findById(listNames(), *id))
        return *entry;
    return {"list", *id, 0, Format::Plain, ""};
}

namespace {

template <typename Entry>
std::string table(std::span<const Entry> entries)
{
    std::string out;
    char line[160];
    for (const Entry &e : entries) {
        std::snprintf(line, sizeof line, "  %-22s %3u  %s\n", e.name, e.id, e.description);
        out += line;
    }
    return out;
}

} // namespace

std::string capabilityTable()
{
    return table(capabilityNames());
}

std::string listTable()
{
    return table(listNames());
}

} // namespace quorin::cli
