// The thread team of the pixel passes, and the bands of rows that passes
// hand out to it.
#pragma once

#ifdef _OPENMP
#include <omp.h>
#endif

#include <algorithm>
#include <cstdint>

namespace quorin::image {

using std::uint32_t;

// Bands of rows for passes whose rows take unequal time (the fall-backs of
// pass 4 depend on the scene): each thread takes the next band when done
// with its own, and the bands shrink towards the end, so that the threads
// finish together.
struct Bands {
    static constexpr uint32_t kMinRows = 16;
    static constexpr uint32_t kMax = 128; // more than 1024 rows ever need
    uint32_t count = 0;
    uint32_t start[kMax + 1] = {};
    Bands(uint32_t rows, uint32_t threads)
    {
        uint32_t y = 0;
        while (y < rows && count < kMax - 1) {
            const uint32_t size = threads <= 1 ? rows : std::max(kMinRows, (rows - y) / (2 * threads));
            start[count++] = y;
            y += std::min(size, rows - y);
        }
        if (y < rows)
            start[count++] = y;
        start[count] = rows;
    }
};

// The size of the team a parallel region starts, and the calling thread's
// number in its team.
#ifdef _OPENMP
inline uint32_t teamSize()
{
    return static_cast<uint32_t>(omp_get_max_threads());
}
inline uint32_t threadNumber()
{
    return static_cast<uint32_t>(omp_get_thread_num());
}
#else
inline uint32_t teamSize()
{
    return 1;
}
inline uint32_t threadNumber()
{
    return 0;
}
#endif

} // namespace quorin::image
