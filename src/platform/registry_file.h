// The registry file: the per-user registry of the Linux build, kept as one
// text file in the dialect Wine uses for its user.reg, so that the same
// settings read the same way under both systems.
//
//   WINE REGISTRY Version 2
//
//   [SOFTWARE\\KAVRION\\QUORIN\\CAM3\n]
//   "LUTUser1BrightnessR"=dword:00000000
//   "LUTUser1GainR"=hex:00,00,00,00,00,00,f0,3f
//
// Key paths and value names escape backslashes, quotes and control
// characters C-style; binary values of other types are written hex(N):.
// Strings ("text", or str(N):"text" as Wine writes expandable strings) are
// read as the bytes of the text and its terminator.
// Names match without regard to ASCII case, as the Windows registry does.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorin::platform {

struct RegistryValue {
    std::string name;
    std::uint32_t type = 0;
    std::vector<std::uint8_t> data;
};

struct RegistryFileKey {
    std::string path; // unescaped, components separated by single backslashes
    std::vector<RegistryValue> values;

    const RegistryValue *find(std::string_view name) const;
    // Adds the value or replaces the one of the same name.
    void set(RegistryValue value);
};

class RegistryDocument {
public:
    // Parses a whole file. Text that is not a complete, well-formed file
    // (no header, a malformed line, no final line feed) yields an empty
    // document.
    // *wellFormed (when given) tells a damaged file from an empty one.
    static RegistryDocument parse(std::string_view text, bool *wellFormed = nullptr);
    std::string serialise() const;

    const RegistryFileKey *find(std::string_view path) const;
    // Whether a key exists at path, stored itself or as the parent of a
    // stored key (as the registry keeps every level of a created path).
    bool exists(std::string_view path) const;
    RegistryFileKey &findOrCreate(std::string_view path);
    const std::vector<RegistryFileKey> &keys() const { return keys_; }

private:
    static std::optional<RegistryDocument> parseText(std::string_view text);

    std::vector<RegistryFileKey> keys_;
};

// Escapes a key path or value name for the file (backslash, quote when
// quoted, control and non-ASCII bytes).
std::string registryEscape(std::string_view raw, bool quoted);

} // namespace quorin::platform
