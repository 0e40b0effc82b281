// The capabilities and value lists by readable name: constant tables of
// (name, id, sub-index, format, direction, description). A name or a
// number resolves to an entry; ids the tables do not name are still
// reachable by number, shown as plain values.
#pragma once

#include "values.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace quorin::cli {

enum Access : unsigned {
    kGet = 1,
    kSet = 2,
    kGetSet = kGet | kSet,
    kDiffers = 4, // with kGetSet: reading answers something else than the setting written
};

struct CapabilityName {
    const char *name;
    std::uint32_t id;
    std::uint32_t subIndex;
    Format format;
    unsigned access;
    const char *description;
};

struct ListName {
    const char *name;
    std::uint32_t id;
    std::uint32_t subIndex;
    Format format; // of each entry
    const char *description;
};

std::span<const CapabilityName> capabilityNames();
std::span<const ListName> listNames();

// Largest capability and list ids the library knows.
constexpr std::uint32_t kMaxCapabilityId = 162;
constexpr std::uint32_t kMaxListId = 41;

// A name of the table, or a number 0..kMaxCapabilityId (the table's entry
// when it names that id, else a plain entry "capability N"). Throws
// UsageError for anything else, or when the entry cannot be used in the
// direction asked for.
CapabilityName resolveCapability(std::string_view nameOrNumber, Access direction);
ListName resolveList(std::string_view nameOrNumber);

// The names, one per line with id and description, for --help texts.
std::string capabilityTable();
std::string listTable();

} // namespace quorin::cli
