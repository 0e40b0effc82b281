// Fuzz target: the tool's parsers of capability values in every format,
// of frame ranges and of defect-list files. A parser either returns a value
// or refuses the text with UsageError; anything else is a finding.
#include "cli_error.h"
#include "values.h"

#include <cstdint>
#include <sstream>
#include <string>

using namespace quorin::cli;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::uint8_t which = data[0];
    const std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    try {
        switch (which % 3) {
        case 0: {
            const auto format = static_cast<Format>((which / 3) % (static_cast<int>(Format::SignedOffset) + 1));
            const Value v = parseValue(format, text);
            formatValue(format, v.value, v.value2);
            break;
        }
        case 1: {
            std::uint32_t first = 0, last = 0;
            parseFrameRange(text, first, last);
            if (first == 0 || last < first)
                std::abort();
            break;
        }
        default: {
            std::istringstream in(text);
            for (std::uint32_t entry : parseDefectList(in, "fuzz"))
                if ((entry >> 16) >= 1024 || (entry & 0xFFFF) >= 1024)
                    std::abort();
            break;
        }
        }
    } catch (const UsageError &) {
    }
    return 0;
}
