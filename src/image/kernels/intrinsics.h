// What every kernel file written with intrinsics includes: the
// instruction-set headers and the target attributes of the levels.
#pragma once

#include "image/kernels/output_table.h"
#include "image/kernels/simd.h"
#include "image/kernels/vector_kernels.h"

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

// GCC 12 takes the deliberately undefined pass-through operand inside some
// AVX-512 intrinsics (_mm512_undefined_epi32) for an uninitialised variable.
// Clang (the fuzz build) has no such warning.
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#define QUORIN_TARGET_AVX2 __attribute__((target("avx2")))
#define QUORIN_TARGET_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl")))
#define QUORIN_TARGET_VBMI __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi")))
