// ErrorCode numbers in words, for the tool's messages.
#pragma once

#include <cstdint>
#include <string>

namespace quorin::cli {

// The words for one ErrorCode: the library's own codes, the virtual
// camera's link codes, or "link driver error" for any other host code.
std::string errorWords(std::int32_t code);

// "error 5 (argument out of range)".
std::string describeError(std::int32_t code);

} // namespace quorin::cli
