// Helpers of the portable kernels, which the compiler vectorises for the
// level each one is compiled for (see simd.h): branch-free selection in
// 32-bit values, and 16-bit lane vectors with their helper macros.
#pragma once

#include "image/frame.h"
#include "image/kernels/simd.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace quorin::image {

// Branch-free selection for the inner loops, which keeps them vectorisable:
// a mask is all ones for true, zero for false.
QUORIN_ALWAYS_INLINE inline int32_t maskOf(bool c)
{
    return -static_cast<int32_t>(c);
}

QUORIN_ALWAYS_INLINE inline int32_t choose(int32_t mask, int32_t ifSet, int32_t ifClear)
{
    return (ifSet & mask) | (ifClear & ~mask);
}

QUORIN_ALWAYS_INLINE inline int32_t magnitude(int32_t v)
{
    const int32_t sign = v >> 31;
    return (v ^ sign) - sign;
}

QUORIN_ALWAYS_INLINE inline int32_t clampValue(int32_t v)
{
    return std::min(std::max(v, 0), static_cast<int32_t>(kMaxValue));
}

// ---- 16-bit lanes ------------------------------------------------------------
//
// The inner loops of the planar passes, written once with the compiler's
// vector types: 16-bit lanes filling one register of the level (8 with
// SSE2, 16 with AVX2, 32 with AVX-512). They give the same results as the
// 32-bit loops whenever the inputs are below 1024 (every intermediate then
// stays within +-12288). The helpers are macros: the compiler lowers a
// function's vector operations for that function's own instruction set
// before inlining, so they must be expanded inside each kernel.

namespace lanes {
// One register of each level: SSE2 (also the scalar level, which never
// runs these kernels), AVX2, AVX-512.
typedef std::int16_t V8 __attribute__((vector_size(16)));
typedef std::int16_t V16 __attribute__((vector_size(32)));
typedef std::int16_t V32 __attribute__((vector_size(64)));
// 0 1 0 1 ... and 0 1 2 3 ..., loaded as far as a register reaches.
constexpr std::int16_t kAlternate[32] = {0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1,
                                         0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1};
constexpr std::int16_t kColumn[32] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15,
                                      16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31};
} // namespace lanes

} // namespace quorin::image

// Like QUORIN_KERNEL, with V the 16-bit lane vector of the level's register
// width and kLanes its number of lanes in the body: wider vectors would be
// split into single lanes.
#define QUORIN_LANES_KERNEL(name, params, ...)                                                                         \
    struct name {                                                                                                      \
        static void scalar params                                                                                      \
        {                                                                                                              \
            using V = ::quorin::image::lanes::V8;                                                                      \
            __VA_ARGS__                                                                                                \
        }                                                                                                              \
        static void sse2 params                                                                                        \
        {                                                                                                              \
            using V = ::quorin::image::lanes::V8;                                                                      \
            __VA_ARGS__                                                                                                \
        }                                                                                                              \
        __attribute__((target("avx2"))) static void avx2 params                                                        \
        {                                                                                                              \
            using V = ::quorin::image::lanes::V16;                                                                     \
            __VA_ARGS__                                                                                                \
        }                                                                                                              \
        __attribute__((target("avx512f,avx512bw,avx512vl"))) static void avx512 params                                 \
        {                                                                                                              \
            using V = ::quorin::image::lanes::V32;                                                                     \
            __VA_ARGS__                                                                                                \
        }                                                                                                              \
        QUORIN_KERNEL_PICK                                                                                             \
    }

#define QUORIN_LANES_LOAD(p)                                                                                           \
    ({                                                                                                                 \
        V v_;                                                                                                          \
        std::memcpy(&v_, (p), sizeof v_);                                                                              \
        v_;                                                                                                            \
    })
#define QUORIN_LANES_STORE(p, v)                                                                                       \
    do {                                                                                                               \
        const V s_ = (v);                                                                                              \
        std::memcpy((p), &s_, sizeof s_);                                                                              \
    } while (0)
// Lanes of a where mask is set, else of b.
#define QUORIN_LANES_PICK(mask, a, b)                                                                                  \
    ({                                                                                                                 \
        const V m_ = (mask);                                                                                           \
        ((a) & m_) | ((b) & ~m_);                                                                                      \
    })
#define QUORIN_LANES_MAGNITUDE(v)                                                                                      \
    ({                                                                                                                 \
        const V v_ = (v);                                                                                              \
        v_ < 0 ? -v_ : v_;                                                                                             \
    })
#define QUORIN_LANES_CLAMP(v)                                                                                          \
    ({                                                                                                                 \
        V c_ = (v);                                                                                                    \
        c_ = c_ & ~(c_ < 0);                                                                                           \
        const V high_ = c_ > static_cast<std::int16_t>(kMaxValue);                                                     \
        (c_ & ~high_) | (high_ & static_cast<std::int16_t>(kMaxValue));                                                \
    })
// All ones in the lanes of columns x, x + 1, ... with ((x ^ odd) & 1) set.
#define QUORIN_LANES_ODD(x, odd)                                                                                       \
    ({                                                                                                                 \
        const V alternate_ = QUORIN_LANES_LOAD(reinterpret_cast<const uint16_t *>(lanes::kAlternate));                 \
        -(alternate_ ^ static_cast<std::int16_t>(((x) ^ (odd)) & 1u));                                                 \
    })

// Split rows (see vector_kernels.h): the lanes at column col and the
// columns 2, 4, ... after it, which lie side by side in the half of col's
// parity of a row whose odd columns start at `half`.
#define QUORIN_SPLIT_AT(row, col) QUORIN_LANES_LOAD((row) + ((col) & 1u) * half + (col) / 2)
#define QUORIN_SPLIT_PLACE(row, col) ((row) + ((col) & 1u) * half + (col) / 2)

namespace quorin::image {

// The sites of parity `parity` among columns from .. to: the first one and
// their number.
struct SplitSites {
    std::size_t first = 0, count = 0;
    SplitSites(std::size_t from, std::size_t to, std::uint32_t parity)
    {
        first = from + ((from ^ parity) & 1u);
        if (to >= first)
            count = (to - first) / 2 + 1;
    }
};

} // namespace quorin::image
