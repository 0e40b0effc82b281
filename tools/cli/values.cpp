// Formatting and parsing of capability values by format.
#include "values.h"

#include "cli_error.h"
#include "quorin/quorin.h"

#include <charconv>
#include <cstdio>
#include <sstream>
#include <span>

namespace quorin::cli {
namespace {

constexpr std::uint32_t kSensorSide = 1024;

// Named values of the enumerated formats. The look-up modes are the five
// preset curves and the user's own settings.
constexpr NamedValue kLutModes[] = {
    {"normal", 1}, {"gamma-0.7", 2}, {"gain-2", 3}, {"gain-4", 4}, {"negative", 5}, {"user", 11},
};
constexpr NamedValue kColourTemperatures[] = {
    {"5100K", 1}, {"3100K", 2}, {"user-1", 3}, {"user-2", 4},
};
// The recording states are named after how the camera reaches them (see
// docs/cli.md): 2 by command 160, 4 by command 161 from 2, 8 by command
// 161 from any other state. 16 and 32 are only ever read.
constexpr NamedValue kCameraModes[] = {
    {"live", 0},          {"playback", 1},       {"ready", 2},         {"ready-record", 4}, {"record", 8},
    {"recording-2", 2},   {"recording-4", 4},    {"recording-8", 8},   {"recording-16", 16}, {"recording-32", 32},
};
// The host trigger codes, named after what the camera family says of their
// parameter and their frame numbering (see docs/cli.md).
constexpr NamedValue kTriggers[] = {
    {"memory", 0},
    {"camera", 0x01000000u},
    {"single", 0x02000000u},
    {"segments", 0x03000000u},
    {"frames", 0x04000000u},
    {"segments-sync", 0x05000000u},
    {"segments-centre", 0x06000000u},
    {"segments-offset", 0x07000000u},
    {"code-8-1", 0x08000001u},
    {"code-8-2", 0x08000002u},
    {"code-8-3", 0x08000003u},
};
constexpr NamedValue kPixelGainModes[] = {
    {"off", 0}, {"camera", 1}, {"file", 2}, {"fixed", 3}, {"save", 6}, {"load", 7},
};
constexpr NamedValue kOnOff[] = {
    {"off", 0}, {"on", 1}, {"no", 0}, {"yes", 1}, {"false", 0}, {"true", 1},
};

std::span<const NamedValue> namesOf(Format format)
{
    switch (format) {
    case Format::LutMode:
        return kLutModes;
    case Format::ColourTemperature:
        return kColourTemperatures;
    case Format::CameraMode:
        return kCameraModes;
    case Format::PixelGain:
        return kPixelGainModes;
    case Format::OnOff:
        return kOnOff;
    case Format::Trigger:
        return kTriggers;
    default:
        return {};
    }
}

const char *nameOf(Format format, std::uint32_t value)
{
    for (const NamedValue &n : namesOf(format))
        if (n.value == value)
            return n.name;
    return nullptr;
}

// snprintf into a string, for short texts of numbers.
template <typename... Args>
std::string printed(const char *format, Args... args)
{
    char text[64];
    std::snprintf(text, sizeof text, format, args...);
    return text;
}

std::string hex(std::uint32_t v)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", v);
    return text;
}

std::string size(std::uint32_t w, std::uint32_t h)
{
    return std::to_string(w) + "x" + std::to_string(h);
}

// Splits "a,b" at the first comma; second is empty without one.
std::pair<std::string_view, std::string_view> splitPair(std::string_view text)
{
    std::size_t comma = text.find(',');
    if (comma == std::string_view::npos)
        return {text, {}};
    return {text.substr(0, comma), text.substr(comma + 1)};
}

std::string_view withoutSuffix(std::string_view text, std::string_view suffix)
{
    if (text.size() > suffix.size() && text.substr(text.size() - suffix.size()) == suffix)
        return text.substr(0, text.size() - suffix.size());
    return text;
}

[[noreturn]] void refuse(Format format, std::string_view text)
{
    throw UsageError("invalid value '" + std::string(text) + "': expected " + formatHint(format));
}

} // namespace

std::optional<std::uint32_t> parseNumber(std::string_view text)
{
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        text.remove_prefix(2);
        base = 16;
    }
    std::uint32_t v = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v, base);
    if (text.empty() || ec != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return v;
}

std::optional<std::uint32_t> parseSize(std::string_view text)
{
    std::size_t x = text.find_first_of("xX");
    if (x == std::string_view::npos)
        return std::nullopt;
    std::string_view ws = text.substr(0, x), hs = text.substr(x + 1);
    // Plain decimal sides only: "0x10x16" is not a size.
    for (std::string_view side : {ws, hs})
        if (side.empty() || side.find_first_not_of("0123456789") != std::string_view::npos)
            return std::nullopt;
    auto w = parseNumber(ws), h = parseNumber(hs);
    if (!w || !h || *w == 0 || *h == 0 || *w > kSensorSide || *h > kSensorSide)
        return std::nullopt;
    return *w << 16 | *h;
}

std::span<const NamedValue> namedValues(Format format)
{
    return namesOf(format);
}

const NamedValue *findNamedValue(Format format, std::string_view name)
{
    for (const NamedValue &n : namesOf(format))
        if (name == n.name)
            return &n;
    return nullptr;
}

std::string formatHint(Format format)
{
    switch (format) {
    case Format::Size:
    case Format::SizePair:
        return "a size WxH of at most 1024x1024, e.g. 512x256";
    case Format::Position:
        return "a position x,y";
    case Format::Fps:
        return "frames per second, e.g. 2000";
    case Format::Shutter:
        return "a shutter speed N or 1/N (seconds), e.g. 1/4000";
    case Format::Trigger:
        return "a trigger name or code with an optional parameter, e.g. frames,500 or 0x04000000,500";
    case Format::TriggerCounts:
        return "a trigger count and ratio, e.g. 100,2";
    case Format::SignedOffset:
        return "a signed number, e.g. -5";
    case Format::PlainPair:
        return "a number with an optional second value, e.g. 5 or 5,1";
    case Format::LutMode:
    case Format::ColourTemperature:
    case Format::CameraMode:
    case Format::PixelGain:
    case Format::OnOff: {
        std::string names;
        for (const NamedValue &n : namesOf(format))
            names += (names.empty() ? "" : ", ") + std::string(n.name);
        return "one of " + names + " (or its number)";
    }
    default:
        return "a number";
    }
}

std::string formatValue(Format format, std::uint32_t value, std::uint32_t value2)
{
    switch (format) {
    case Format::Plain:
        return std::to_string(value);
    case Format::PlainPair:
        return std::to_string(value) + " (value2 " + std::to_string(value2) + ")";
    case Format::Hex:
        return hex(value);
    case Format::Fps:
        return std::to_string(value) + " fps";
    case Format::Size:
        return size(value >> 16, value & 0xFFFF);
    case Format::SizePair:
        return size(value, value2);
    case Format::Position:
        return printed("(%u, %u)", value >> 16, value & 0xFFFF);
    case Format::Shutter:
        return value == 0 ? std::string("0 (exposure control off)") : printed("1/%u s", value);
    case Format::Microseconds:
        return std::to_string(value) + " \xC2\xB5s";
    case Format::Nanoseconds:
        return std::to_string(value) + " ns";
    case Format::Trigger:
        if (const char *name = nameOf(format, value))
            return hex(value) + " (" + name + "), parameter " + std::to_string(value2);
        return hex(value) + ", parameter " + std::to_string(value2);
    case Format::TriggerCounts:
        return printed("count %u, ratio %u", value, value2);
    case Format::SignedOffset:
        return printed(value & 0x80000000u ? "-%u" : "%u", value & 0x7FFFFFFFu);
    case Format::OnOff:
        return value == 0 ? "off" : value == 1 ? "on" : std::to_string(value);
    case Format::LutMode:
    case Format::ColourTemperature:
    case Format::CameraMode:
    case Format::PixelGain:
        if (const char *name = nameOf(format, value))
            return std::string(name) + " (" + std::to_string(value) + ")";
        return std::to_string(value);
    }
    return std::to_string(value);
}

Value parseValue(Format format, std::string_view text)
{
    switch (format) {
    case Format::Size:
    case Format::SizePair:
        if (auto s = parseSize(text))
            return format == Format::Size ? Value{*s, 0} : Value{*s >> 16, *s & 0xFFFF};
        refuse(format, text);
    case Format::Position: {
        auto [xs, ys] = splitPair(text);
        auto x = parseNumber(xs), y = parseNumber(ys);
        if (!x || !y || *x > 0xFFFF || *y > 0xFFFF)
            refuse(format, text);
        return {*x << 16 | *y, 0};
    }
    case Format::Fps:
        if (auto v = parseNumber(withoutSuffix(withoutSuffix(text, "fps"), " ")))
            return {*v, 0};
        refuse(format, text);
    case Format::Shutter: {
        std::string_view t = withoutSuffix(withoutSuffix(text, "s"), " ");
        if (t.substr(0, 2) == "1/")
            t.remove_prefix(2);
        if (auto v = parseNumber(t))
            return {*v, 0};
        refuse(format, text);
    }
    case Format::Microseconds:
    case Format::Nanoseconds:
        if (auto v = parseNumber(withoutSuffix(withoutSuffix(withoutSuffix(text, "\xC2\xB5s"), "us"), "ns")))
            return {*v, 0};
        refuse(format, text);
    case Format::Trigger:
    case Format::TriggerCounts:
    case Format::PlainPair: {
        auto [a, b] = splitPair(text);
        const NamedValue *named = findNamedValue(format, a);
        auto v = named != nullptr ? std::optional<std::uint32_t>(named->value) : parseNumber(a);
        auto v2 = b.empty() ? std::optional<std::uint32_t>(format == Format::TriggerCounts ? 1 : 0) : parseNumber(b);
        if (!v || !v2 || (b.empty() && text.find(',') != std::string_view::npos))
            refuse(format, text);
        return {*v, *v2};
    }
    case Format::SignedOffset: {
        bool negative = !text.empty() && text[0] == '-';
        auto v = parseNumber(negative ? text.substr(1) : text);
        if (!v || *v > 0x7FFFFFFFu)
            refuse(format, text);
        return {*v | (negative ? 0x80000000u : 0u), 0};
    }
    case Format::OnOff:
    case Format::LutMode:
    case Format::ColourTemperature:
    case Format::CameraMode:
    case Format::PixelGain:
        if (const NamedValue *n = findNamedValue(format, text))
            return {n->value, 0};
        // A number must be one of the named values too.
        if (auto v = parseNumber(text); v && nameOf(format, *v) != nullptr)
            return {*v, 0};
        refuse(format, text);
    case Format::Plain:
    case Format::Hex:
        if (auto v = parseNumber(text))
            return {*v, 0};
        refuse(format, text);
    }
    refuse(format, text);
}

void parseFrameRange(const std::string &text, std::uint32_t &first, std::uint32_t &last)
{
    const std::size_t dash = text.find('-');
    auto a = parseNumber(text.substr(0, dash));
    auto b = dash == std::string::npos ? a : parseNumber(text.substr(dash + 1));
    if (!a || !b || *a == 0 || *b < *a)
        throw UsageError("invalid frame range '" + text + "': expected FIRST-LAST or FRAME, counted from 1");
    first = *a;
    last = *b;
}

std::vector<std::uint32_t> parseDefectList(std::istream &in, const std::string &name)
{
    std::vector<std::uint32_t> entries;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        line = line.substr(0, line.find('#'));
        for (char &ch : line)
            if (ch == ',' || ch == '\t' || ch == '\r')
                ch = ' ';
        std::istringstream fields(line);
        std::string xs, ys, extra;
        if (!(fields >> xs))
            continue;
        fields >> ys >> extra;
        auto x = parseNumber(xs), y = parseNumber(ys);
        if (!x || !y || !extra.empty())
            throw UsageError(name + ":" + std::to_string(number) + ": expected 'x y', found '" + line + "'");
        if (*x >= kSensorSide || *y >= kSensorSide)
            throw UsageError(name + ":" + std::to_string(number) + ": (" + xs + ", " + ys +
                             ") lies outside the 1024x1024 sensor");
        entries.push_back(*x << 16 | *y);
    }
    // An empty list would clear the camera's: that takes --clear.
    if (entries.empty())
        throw UsageError(name + ": no defect pixels in the file (use --clear to remove them all)");
    if (entries.size() > QUORIN_MAX_LIST_ENTRIES)
        throw UsageError(name + ": " + std::to_string(entries.size()) + " defect pixels; the camera takes at most " +
                         std::to_string(QUORIN_MAX_LIST_ENTRIES));
    return entries;
}

} // namespace quorin::cli
