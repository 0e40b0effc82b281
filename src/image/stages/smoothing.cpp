#include "image/stages/smoothing.h"

#include "image/kernels/portable.h"
#include "image/kernels/vector_kernels.h"

namespace quorin::image {

using std::int32_t;
using std::size_t;
using std::uint16_t;
using std::uint32_t;

namespace {

// Adaptive smoothing of the green sites of one row (`here`, between the
// balanced rows `above` and `below`) into `out`, which holds the row's
// values: every green site x of the row from `from` with x <= last. The
// division by the weight (4 to 12) is done in single precision, which is
// exact here: sums stay below 2^20, so a quotient is never within half a
// unit in the last place of an integer it does not reach.
QUORIN_ALWAYS_INLINE inline void smoothRow(const uint16_t *__restrict above, const uint16_t *__restrict here,
                                           const uint16_t *__restrict below, uint16_t *__restrict out, size_t w,
                                           uint32_t odd, uint32_t last, uint32_t from = 1)
{
    for (uint32_t x = from; x + 1 < w; ++x) {
        const size_t i = x;
        const int32_t c = here[i];
        const int32_t n[4] = {above[i - 1], above[i + 1], below[i - 1], below[i + 1]};
        int32_t sum = 4 * c, weight = 4;
        for (int32_t v : n) {
            const int32_t d = magnitude(c - v);
            const int32_t k = (maskOf(d < 25) & 2) | (maskOf(d >= 25) & maskOf(d < 50) & 1);
            sum += k * v;
            weight += k;
        }
        const auto smoothed = static_cast<int32_t>(static_cast<float>(sum) / static_cast<float>(weight));
        const bool green = ((x ^ odd) & 1u) != 0 && x <= last;
        out[i] = static_cast<uint16_t>(choose(maskOf(green), smoothed, out[i]));
    }
}

// The weighted mean of sites c (weight 4) and their four diagonal
// neighbours n (2 within 25 of c, 1 within 50), truncated, in 16-bit lanes
// of type V: the division in single precision, half a register at a time
// (Half, Quotients and Wide are the kernel's types for that). A macro, as
// the lane helpers of portable.h: it must expand inside each kernel.
#define QUORIN_SMOOTHED_MEAN(c, n)                                                                                     \
    ({                                                                                                                 \
        V sum_ = (c) << 2, weight_ = V{} + 4;                                                                          \
        for (const V neighbour_ : (n)) {                                                                               \
            const V d_ = QUORIN_LANES_MAGNITUDE((c) - neighbour_);                                                     \
            const V close_ = d_ < 25, near_ = (d_ >= 25) & (d_ < 50);                                                  \
            sum_ += ((neighbour_ + neighbour_) & close_) | (neighbour_ & near_);                                       \
            weight_ += (close_ & 2) | (near_ & 1);                                                                     \
        }                                                                                                              \
        Half sums_[2], weights_[2], quotients_[2];                                                                     \
        std::memcpy(sums_, &sum_, sizeof sums_);                                                                       \
        std::memcpy(weights_, &weight_, sizeof weights_);                                                              \
        for (int k_ = 0; k_ < 2; ++k_) {                                                                               \
            const Quotients q_ = __builtin_convertvector(sums_[k_], Quotients) /                                       \
                                 __builtin_convertvector(weights_[k_], Quotients);                                     \
            quotients_[k_] = __builtin_convertvector(__builtin_convertvector(q_, Wide), Half);                         \
        }                                                                                                              \
        V mean_;                                                                                                       \
        std::memcpy(&mean_, quotients_, sizeof mean_);                                                                 \
        mean_;                                                                                                         \
    })

QUORIN_KERNEL(SmoothRow,
              (const uint16_t *above, const uint16_t *here, const uint16_t *below, uint16_t *out, size_t w,
               uint32_t odd, uint32_t last),
              smoothRow(above, here, below, out, w, odd, last););

// The same in 16-bit lanes when the copy holds values below 1024 (sums stay
// below 12288), the division in single precision as above; the last columns
// one by one.
QUORIN_LANES_KERNEL(SmoothRowNarrow,
              (const uint16_t *above, const uint16_t *here, const uint16_t *below, uint16_t *out, size_t w,
               uint32_t odd, uint32_t last), {
                  constexpr uint32_t kLanes = sizeof(V) / 2;
                  // The division takes half a register of sums at a time.
                  typedef std::int16_t Half __attribute__((vector_size(sizeof(V) / 2)));
                  typedef float Quotients __attribute__((vector_size(sizeof(V))));
                  typedef std::int32_t Wide __attribute__((vector_size(sizeof(V))));
                  const V column = QUORIN_LANES_LOAD(reinterpret_cast<const uint16_t *>(lanes::kColumn));
                  const uint32_t end = static_cast<uint32_t>(w) - 1;
                  uint32_t x = 1;
                  for (; end >= 1 + kLanes; x += kLanes) {
                      // The last block ends at the last column, over columns
                      // done already: it writes the same values again.
                      x = std::min(x, end - kLanes);
                      const size_t i = x;
                      const V green = QUORIN_LANES_ODD(x, odd);
                      const V c = QUORIN_LANES_LOAD(here + i);
                      const V n[4] = {QUORIN_LANES_LOAD(above + i - 1), QUORIN_LANES_LOAD(above + i + 1),
                                      QUORIN_LANES_LOAD(below + i - 1), QUORIN_LANES_LOAD(below + i + 1)};
                      const V smoothed = QUORIN_SMOOTHED_MEAN(c, n);
                      const V mask = green & (column + static_cast<std::int16_t>(x) <= static_cast<std::int16_t>(last));
                      QUORIN_LANES_STORE(out + i, QUORIN_LANES_PICK(mask, smoothed, QUORIN_LANES_LOAD(out + i)));
                      if (x + kLanes == end) {
                          x = end;
                          break;
                      }
                  }
                  smoothRow(above, here, below, out, w, odd, last, x); // rows too short for a block
              });

// The same with the intrinsic kernels of AVX-512 and AVX2 (see
// kernels/vector_kernels.h), which divide by a reciprocal multiplication;
// rows too short for their blocks one by one.
void smoothRowAvx512(const uint16_t *above, const uint16_t *here, const uint16_t *below, uint16_t *out, size_t w,
                     uint32_t odd, uint32_t last)
{
    const auto from = static_cast<uint32_t>(vec::smoothGreenAvx512(above, here, below, out, w, odd, last));
    smoothRow(above, here, below, out, w, odd, last, from);
}

void smoothRowAvx2(const uint16_t *above, const uint16_t *here, const uint16_t *below, uint16_t *out, size_t w,
                   uint32_t odd, uint32_t last)
{
    const auto from = static_cast<uint32_t>(vec::smoothGreenAvx2(above, here, below, out, w, odd, last));
    smoothRow(above, here, below, out, w, odd, last, from);
}

// The same for split rows in 16-bit lanes: only the green half of the
// row, whole registers of sites (the last over sites done already); the
// green sites outside the smoothed ones (one at most at each end) as they
// are.
QUORIN_LANES_KERNEL(SmoothSplit,
                    (const uint16_t *above, const uint16_t *here, const uint16_t *below, uint16_t *mosaic, size_t w,
                     uint32_t odd, uint32_t last),
                    {
                        constexpr size_t kLanes = sizeof(V) / 2;
                        typedef std::int16_t Half __attribute__((vector_size(sizeof(V) / 2)));
                        typedef float Quotients __attribute__((vector_size(sizeof(V))));
                        typedef std::int32_t Wide __attribute__((vector_size(sizeof(V))));
                        const size_t half = (w + 1) / 2;
                        const SplitSites sites(1, last, odd ^ 1u);
                        const size_t counts[2] = {half, w / 2};
                        const uint32_t green = odd ^ 1u;
                        const size_t firstIndex = sites.first / 2, lastIndex = firstIndex + sites.count - 1;
                        const size_t greenAt = green * half;
                        std::memcpy(mosaic + greenAt, here + greenAt, firstIndex * 2);
                        std::memcpy(mosaic + greenAt + lastIndex + 1, here + greenAt + lastIndex + 1,
                                    (counts[green] - lastIndex - 1) * 2);
                        for (size_t t = 0;; t += kLanes) {
                            t = std::min(t, sites.count - kLanes);
                            const size_t x = sites.first + 2 * t;
                            const V c = QUORIN_SPLIT_AT(here, x);
                            const V n[4] = {QUORIN_SPLIT_AT(above, x - 1), QUORIN_SPLIT_AT(above, x + 1),
                                            QUORIN_SPLIT_AT(below, x - 1), QUORIN_SPLIT_AT(below, x + 1)};
                            const V smoothed = QUORIN_SMOOTHED_MEAN(c, n);
                            QUORIN_LANES_STORE(QUORIN_SPLIT_PLACE(mosaic, x), smoothed);
                            if (t + kLanes == sites.count)
                                return;
                        }
                    });

} // namespace

SmoothSplitKernel smoothSplitKernel()
{
    if (vec::avx512Active())
        return vec::smoothSplitAvx512;
    return vec::avx2Active() ? vec::smoothSplitAvx2 : SmoothSplit::pick();
}

SmoothRowKernel smoothRowKernel(bool narrow)
{
    if (narrow && vec::avx512Active())
        return smoothRowAvx512;
    if (narrow && vec::avx2Active())
        return smoothRowAvx2;
    return narrow ? SmoothRowNarrow::pick() : SmoothRow::pick();
}

} // namespace quorin::image
