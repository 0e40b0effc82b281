// The thread team of the pixel passes.
#pragma once

#ifdef _OPENMP
#include <omp.h>
#endif

#include <algorithm>
#include <cstdint>

namespace quorin::image {

using std::uint32_t;

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
