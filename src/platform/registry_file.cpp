#include "platform/registry_file.h"

#include "platform/platform.h"

#include <cstdio>
#include <optional>

namespace quorin::platform {
namespace {

constexpr std::string_view kHeader = "WINE REGISTRY Version 2";

bool sameName(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        unsigned char x = static_cast<unsigned char>(a[i]);
        unsigned char y = static_cast<unsigned char>(b[i]);
        if (x >= 'A' && x <= 'Z')
            x = static_cast<unsigned char>(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z')
            y = static_cast<unsigned char>(y - 'A' + 'a');
        if (x != y)
            return false;
    }
    return true;
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// C-style escapes for the control characters that have one; index by byte.
constexpr char kEscapeLetter[32] = {0,   0, 0, 0, 0, 0, 0, 'a', 'b', 't', 'n', 'v', 'f', 'r', 0, 0,
                                    0,   0, 0, 0, 0, 0, 0, 0,   0,   0,   0,   'e', 0,   0,   0, 0};

// Reads an escaped name from text at pos up to (not including) the
// unescaped terminator. Returns nullopt when the terminator never comes.
std::optional<std::string> readEscaped(std::string_view text, std::size_t &pos, char terminator)
{
    std::string out;
    while (pos < text.size()) {
        char c = text[pos++];
        if (c == terminator)
            return out;
        if (c != '\\') {
            out.push_back(c);
            continue;
        }
        if (pos >= text.size())
            return std::nullopt;
        char e = text[pos++];
        if (e == 'x') {
            unsigned value = 0;
            int digits = 0;
            while (digits < 4 && pos < text.size() && hexDigit(text[pos]) >= 0) {
                value = value * 16 + static_cast<unsigned>(hexDigit(text[pos++]));
                ++digits;
            }
            if (digits == 0 || value > 0xFF)
                return std::nullopt; // names are byte strings
            out.push_back(static_cast<char>(value));
            continue;
        }
        char decoded = e;
        for (int i = 0; i < 32; ++i)
            if (kEscapeLetter[i] != 0 && kEscapeLetter[i] == e)
                decoded = static_cast<char>(i);
        if (e == '0')
            decoded = '\0';
        out.push_back(decoded);
    }
    return std::nullopt;
}

// Parses "xx,xx,..." (already joined across continuation lines).
std::optional<std::vector<std::uint8_t>> parseHexBytes(std::string_view s)
{
    std::vector<std::uint8_t> bytes;
    std::size_t pos = 0;
    while (pos < s.size() && (s[pos] == ' ' || s[pos] == '\t'))
        ++pos;
    if (pos == s.size())
        return bytes;
    for (;;) {
        if (pos + 2 > s.size())
            return std::nullopt;
        int hi = hexDigit(s[pos]);
        int lo = hexDigit(s[pos + 1]);
        if (hi < 0 || lo < 0)
            return std::nullopt;
        bytes.push_back(static_cast<std::uint8_t>(hi * 16 + lo));
        pos += 2;
        while (pos < s.size() && (s[pos] == ' ' || s[pos] == '\t'))
            ++pos;
        if (pos == s.size())
            return bytes;
        if (s[pos] != ',')
            return std::nullopt;
        ++pos;
        while (pos < s.size() && (s[pos] == ' ' || s[pos] == '\t'))
            ++pos;
        if (pos == s.size())
            return bytes; // a trailing comma, as a wrapped line leaves it
    }
}

// The type number of "hex(N):" or "str(N):" (N in hex, after the four
// letters of the prefix); *colon is set to the position of the colon.
std::optional<std::uint32_t> typeSuffix(std::string_view rest, std::size_t *colon)
{
    std::size_t close = rest.find("):");
    if (close == std::string_view::npos || close == 4 || close > 12)
        return std::nullopt;
    std::uint32_t t = 0;
    for (std::size_t i = 4; i < close; ++i) {
        int d = hexDigit(rest[i]);
        if (d < 0)
            return std::nullopt;
        t = t * 16 + static_cast<std::uint32_t>(d);
    }
    *colon = close + 1;
    return t;
}

std::optional<RegistryValue> parseValue(std::string_view line)
{
    RegistryValue value;
    std::size_t pos = 0;
    if (line.substr(0, 2) == "@=") {
        pos = 2;
    } else {
        if (line.empty() || line[0] != '"')
            return std::nullopt;
        pos = 1;
        auto name = readEscaped(line, pos, '"');
        if (!name || pos >= line.size() || line[pos] != '=')
            return std::nullopt;
        value.name = std::move(*name);
        ++pos;
    }
    std::string_view rest = line.substr(pos);
    if (rest.substr(0, 6) == "dword:") {
        std::string_view digits = rest.substr(6);
        if (digits.empty() || digits.size() > 8)
            return std::nullopt;
        std::uint32_t v = 0;
        for (char c : digits) {
            int d = hexDigit(c);
            if (d < 0)
                return std::nullopt;
            v = v * 16 + static_cast<std::uint32_t>(d);
        }
        value.type = kRegDword;
        for (int i = 0; i < 4; ++i)
            value.data.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
        return value;
    }
    if (rest.substr(0, 4) == "hex:" || rest.substr(0, 4) == "hex(") {
        std::size_t colon = 3;
        value.type = kRegBinary;
        if (rest[3] != ':') {
            auto type = typeSuffix(rest, &colon);
            if (!type)
                return std::nullopt;
            value.type = *type;
        }
        auto bytes = parseHexBytes(rest.substr(colon + 1));
        if (!bytes)
            return std::nullopt;
        value.data = std::move(*bytes);
        return value;
    }
    std::uint32_t stringType = kRegString;
    if (rest.substr(0, 4) == "str(") {
        std::size_t colon = 0;
        auto type = typeSuffix(rest, &colon);
        if (!type)
            return std::nullopt;
        stringType = *type;
        rest = rest.substr(colon + 1);
    }
    if (!rest.empty() && rest[0] == '"') {
        std::size_t p = 1;
        auto text = readEscaped(rest, p, '"');
        if (!text || p != rest.size())
            return std::nullopt;
        value.type = stringType;
        value.data.assign(text->begin(), text->end());
        value.data.push_back(0);
        return value;
    }
    return std::nullopt;
}

std::string hexLine(const std::vector<std::uint8_t> &data)
{
    std::string out;
    char buf[4];
    for (std::size_t i = 0; i < data.size(); ++i) {
        std::snprintf(buf, sizeof buf, i ? ",%02x" : "%02x", data[i]);
        out += buf;
    }
    return out;
}

} // namespace

const RegistryValue *RegistryFileKey::find(std::string_view name) const
{
    for (const auto &v : values)
        if (sameName(v.name, name))
            return &v;
    return nullptr;
}

void RegistryFileKey::set(RegistryValue value)
{
    for (auto &v : values)
        if (sameName(v.name, value.name)) {
            v = std::move(value);
            return;
        }
    values.push_back(std::move(value));
}

const RegistryFileKey *RegistryDocument::find(std::string_view path) const
{
    for (const auto &k : keys_)
        if (sameName(k.path, path))
            return &k;
    return nullptr;
}

bool RegistryDocument::exists(std::string_view path) const
{
    for (const auto &k : keys_)
        if (sameName(k.path, path) ||
            (k.path.size() > path.size() && k.path[path.size()] == '\\' &&
             sameName(std::string_view(k.path).substr(0, path.size()), path)))
            return true;
    return false;
}

RegistryFileKey &RegistryDocument::findOrCreate(std::string_view path)
{
    for (auto &k : keys_)
        if (sameName(k.path, path))
            return k;
    keys_.push_back(RegistryFileKey{std::string(path), {}});
    return keys_.back();
}

RegistryDocument RegistryDocument::parse(std::string_view text, bool *wellFormed)
{
    if (text.empty()) {
        if (wellFormed != nullptr)
            *wellFormed = true;
        return {};
    }
    std::optional<RegistryDocument> doc = parseText(text);
    if (wellFormed != nullptr)
        *wellFormed = doc.has_value();
    return doc ? std::move(*doc) : RegistryDocument{};
}

std::optional<RegistryDocument> RegistryDocument::parseText(std::string_view text)
{
    RegistryDocument doc;
    if (text.empty() || text.back() != '\n')
        return std::nullopt; // empty or cut short
    std::size_t pos = 0;
    bool sawHeader = false;
    RegistryFileKey *current = nullptr;
    while (pos < text.size()) {
        std::size_t end = text.find('\n', pos);
        std::string logical(text.substr(pos, end - pos));
        pos = end + 1;
        // A value line ending in a backslash continues on the next line.
        while (!logical.empty() && logical.back() == '\\' && logical[0] != '[' && pos < text.size()) {
            logical.pop_back();
            std::size_t e2 = text.find('\n', pos);
            std::string_view next = text.substr(pos, e2 - pos);
            pos = e2 + 1;
            std::size_t skip = next.find_first_not_of(" \t");
            logical += next.substr(skip == std::string_view::npos ? next.size() : skip);
        }
        if (!logical.empty() && logical.back() == '\r')
            logical.pop_back();
        std::string_view line = logical;
        if (!sawHeader) {
            if (line != kHeader)
                return std::nullopt;
            sawHeader = true;
            continue;
        }
        if (line.empty() || line[0] == ';' || line[0] == '#')
            continue;
        if (line[0] == '[') {
            std::size_t p = 1;
            auto path = readEscaped(line, p, ']');
            if (!path)
                return std::nullopt;
            current = &doc.findOrCreate(*path);
            continue;
        }
        if (current == nullptr)
            return std::nullopt;
        auto value = parseValue(line);
        if (!value)
            return std::nullopt;
        current->set(std::move(*value));
    }
    if (!sawHeader)
        return std::nullopt;
    return doc;
}

std::string registryEscape(std::string_view raw, bool quoted)
{
    std::string out;
    char buf[8];
    for (char ch : raw) {
        auto c = static_cast<unsigned char>(ch);
        if (c == '\\' || (quoted && c == '"')) {
            out.push_back('\\');
            out.push_back(static_cast<char>(c));
        } else if (c < 32 && kEscapeLetter[c] != 0) {
            out.push_back('\\');
            out.push_back(kEscapeLetter[c]);
        } else if (c < 32 || c >= 127 || (!quoted && c == ']')) {
            std::snprintf(buf, sizeof buf, "\\x%04x", c);
            out += buf;
        } else {
            out.push_back(static_cast<char>(c));
        }
    }
    return out;
}

std::string RegistryDocument::serialise() const
{
    std::string out(kHeader);
    out += "\n;; All keys relative to \\\\User\\\\CurrentUser\n#arch=win64\n";
    char buf[32];
    for (const auto &key : keys_) {
        out += "\n[";
        out += registryEscape(key.path, false);
        out += "]\n";
        for (const auto &v : key.values) {
            if (v.name.empty()) {
                out += "@=";
            } else {
                out += '"';
                out += registryEscape(v.name, true);
                out += "\"=";
            }
            if (v.type == kRegDword && v.data.size() == 4) {
                std::uint32_t d = static_cast<std::uint32_t>(v.data[0]) | static_cast<std::uint32_t>(v.data[1]) << 8 |
                                  static_cast<std::uint32_t>(v.data[2]) << 16 |
                                  static_cast<std::uint32_t>(v.data[3]) << 24;
                std::snprintf(buf, sizeof buf, "dword:%08x", d);
                out += buf;
            } else if (v.type == kRegBinary) {
                out += "hex:";
                out += hexLine(v.data);
            } else {
                std::snprintf(buf, sizeof buf, "hex(%x):", v.type);
                out += buf;
                out += hexLine(v.data);
            }
            out += '\n';
        }
    }
    return out;
}

} // namespace quorin::platform
