// Capability and list values as people read and write them: picture sizes
// as WxH, rates in fps, shutter speeds as 1/N s, switches as on/off, the
// look-up modes and colour temperatures by name. Each capability and list
// of names.h says which of these formats its values take.
#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quorin::cli {

enum class Format {
    Plain,             // a number
    PlainPair,         // two numbers (value and value2), for ids read by number
    Hex,               // a bit field, shown in hexadecimal
    Fps,               // frames per second
    Size,              // width << 16 | height, shown WxH
    SizePair,          // width in value, height in value2, shown WxH
    Position,          // column << 16 | row, shown as (x, y)
    Shutter,           // a shutter speed given as the denominator N of 1/N s
    Microseconds,
    Nanoseconds,
    OnOff,             // 0 or 1
    CameraMode,        // 0 live, 1 playback, 2/4/8 recording states
    Trigger,           // trigger code, value2 its parameter
    TriggerCounts,     // trigger count, value2 the ratio
    ColourTemperature, // 1 5100 K, 2 3100 K, 3/4 user gains
    LutMode,           // 1..5 presets, 11 user
    PixelGain,         // 0 off, 1 camera table, 2 file table, 3 fixed; set 6 save, 7 load
    SignedOffset,      // sign-magnitude (bit 31 = negative)
};

struct Value {
    std::uint32_t value = 0;
    std::uint32_t value2 = 0;
};

// Shows a value (and value2 for the formats that carry one) with its unit.
std::string formatValue(Format format, std::uint32_t value, std::uint32_t value2 = 0);

// Reads a value written in the format's own notation (a plain number is
// accepted wherever the format has names). Throws UsageError naming what
// was expected.
Value parseValue(Format format, std::string_view text);

// A number in decimal or 0x hexadecimal that fits 32 bits; nothing else
// in the text.
std::optional<std::uint32_t> parseNumber(std::string_view text);

// "WxH" with both sides 1..1024 (the sensor's size); packed width << 16 | height.
std::optional<std::uint32_t> parseSize(std::string_view text);

// A frame range "FIRST-LAST" or one frame "FRAME", counted from 1. Throws
// UsageError.
void parseFrameRange(const std::string &text, std::uint32_t &first, std::uint32_t &last);

// A defect-pixel list: "x y" lines (also "x,y"); blank lines and text after
// '#' are skipped. Every position must lie on the 1024 x 1024 sensor, and
// there must be 1 to 1024 of them. name says where the text came from, in
// messages. Returns (x << 16) | y per line; throws UsageError.
std::vector<std::uint32_t> parseDefectList(std::istream &in, const std::string &name);

// What a format expects, for messages and help: "WxH, e.g. 512x256".
std::string formatHint(Format format);

// Names of the enumerated formats' values (look-up modes, camera modes,
// trigger codes, ...).
struct NamedValue {
    const char *name;
    std::uint32_t value;
};
const NamedValue *findNamedValue(Format format, std::string_view name);
std::span<const NamedValue> namedValues(Format format);

} // namespace quorin::cli
