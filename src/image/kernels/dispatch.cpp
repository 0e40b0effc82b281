// The one dispatch point of the pixel kernels: the processor's features
// are read here once, QUORIN_SIMD may lower the level, and every kernel
// choice (QUORIN_KERNEL's pick(), avx2Active() and its kind) follows the
// level set here.
#include "image/kernels/simd.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace quorin::image::simd {
namespace {

bool processorHasVbmi()
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512vbmi");
}

Level detect()
{
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl"))
        return Level::Avx512;
    if (__builtin_cpu_supports("avx2"))
        return Level::Avx2;
    return Level::Sse2;
}

Level fromEnvironment(Level best)
{
    const char *v = std::getenv("QUORIN_SIMD");
    if (v == nullptr)
        return best;
    for (Level l : {Level::Scalar, Level::Sse2, Level::Avx2, Level::Avx512})
        if (std::strcmp(v, name(l)) == 0)
            return l < best ? l : best;
    return best;
}

std::atomic<int> &current()
{
    static std::atomic<int> level{static_cast<int>(fromEnvironment(detect()))};
    return level;
}

} // namespace

const char *name(Level level)
{
    switch (level) {
    case Level::Scalar:
        return "scalar";
    case Level::Sse2:
        return "sse2";
    case Level::Avx2:
        return "avx2";
    default:
        return "avx512";
    }
}

Level supported()
{
    static const Level best = detect();
    return best;
}

Level active()
{
    return static_cast<Level>(current().load(std::memory_order_relaxed));
}

Level setActive(Level level)
{
    const Level set = level < supported() ? level : supported();
    current().store(static_cast<int>(set), std::memory_order_relaxed);
    return set;
}

} // namespace quorin::image::simd

namespace quorin::image::vec {

bool sse2Active()
{
    return simd::active() == simd::Level::Sse2;
}

bool avx2Active()
{
    return simd::active() >= simd::Level::Avx2;
}

bool avx512Active()
{
    return simd::active() == simd::Level::Avx512;
}

bool vbmiActive()
{
    static const bool vbmi = simd::processorHasVbmi();
    return vbmi && simd::active() == simd::Level::Avx512;
}

} // namespace quorin::image::vec
