#include "image/kernels/output_table.h"

#include "image/frame.h"

#include <algorithm>

namespace quorin::image::vec {

OutputTable::OutputTable(const std::uint16_t *table, std::uint32_t outputShift)
{
    for (std::uint32_t i = 0; i < 1024; ++i) {
        bytes[i] = reduce8(table[i], outputShift);
        wide[i] = bytes[i];
    }
    for (int s = 0; s <= 10 && shift < 0; ++s) {
        std::uint32_t i = 0;
        while (i < 1024 && bytes[i] == std::min(i >> s, 255u))
            ++i;
        if (i == 1024)
            shift = s;
    }
}

} // namespace quorin::image::vec
