// Run-time choice of the instruction set for the pixel kernels: the one
// place that reads the processor's features (dispatch.cpp).
//
// A portable kernel is written once and compiled four times: without
// vectorisation (scalar), for the x86-64 baseline (SSE2), for AVX2 and for
// AVX-512 (QUORIN_KERNEL below); the kernels written with intrinsics exist
// for one level each (vector_kernels.h) and run where avx2Active() and its
// kind say so. The level is chosen once from the processor's features.
// The environment variable QUORIN_SIMD (scalar, sse2, avx2, avx512) can
// lower it, and tests set it directly to compare every level with the
// reference stages.
#pragma once

namespace quorin::image::simd {

enum class Level { Scalar = 0, Sse2 = 1, Avx2 = 2, Avx512 = 3 };

// The highest level this processor runs.
Level supported();
// The level kernels use now.
Level active();
// Sets the level (capped at what the processor supports); returns the one set.
Level setActive(Level level);
const char *name(Level level);

} // namespace quorin::image::simd

namespace quorin::image::vec {

// The active level is SSE2 exactly (the levels above have kernels of
// their own).
bool sse2Active();
// The active level runs the AVX2 kernels.
bool avx2Active();
// The active level is AVX-512.
bool avx512Active();
// The active level is AVX-512 and the processor has VBMI.
bool vbmiActive();

} // namespace quorin::image::vec

#define QUORIN_ALWAYS_INLINE __attribute__((always_inline))

// The scalar build of a portable kernel is kept from vectorising. Clang
// (the fuzz build) has no per-function switch for it: there the scalar
// build is simply the baseline one.
#ifdef __clang__
#define QUORIN_NO_VECTORISE
#else
#define QUORIN_NO_VECTORISE __attribute__((optimize("no-tree-vectorize", "no-tree-slp-vectorize")))
#endif

// name::pick() of a kernel struct: the build for the active level.
#define QUORIN_KERNEL_PICK                                                                                             \
    static auto pick()                                                                                                 \
    {                                                                                                                  \
        switch (::quorin::image::simd::active()) {                                                                     \
        case ::quorin::image::simd::Level::Scalar:                                                                     \
            return &scalar;                                                                                            \
        case ::quorin::image::simd::Level::Avx2:                                                                       \
            return &avx2;                                                                                              \
        case ::quorin::image::simd::Level::Avx512:                                                                     \
            return &avx512;                                                                                            \
        default:                                                                                                       \
            return &sse2;                                                                                              \
        }                                                                                                              \
    }

// Defines struct `name` with the kernel compiled four ways and
// name::pick(), the build for the active level.
#define QUORIN_KERNEL(name, params, ...)                                                                               \
    struct name {                                                                                                      \
        QUORIN_NO_VECTORISE static void scalar params                                                              \
        {                                                                                                              \
            __VA_ARGS__                                                                                                \
        }                                                                                                              \
        static void sse2 params { __VA_ARGS__ }                                                                        \
        __attribute__((target("avx2"))) static void avx2 params { __VA_ARGS__ }                                       \
        __attribute__((target("avx512f,avx512bw,avx512vl"))) static void avx512 params { __VA_ARGS__ }                \
        QUORIN_KERNEL_PICK                                                                                             \
    }
