#include "image/stages/row_output.h"

#include "image/frame.h"
#include "image/kernels/simd.h"
#include "image/kernels/vector_kernels.h"

#include <algorithm>

namespace quorin::image {
namespace {

using std::size_t;
using std::uint16_t;
using std::uint32_t;

QUORIN_KERNEL(Reduce8, (const uint16_t *in, size_t n, std::uint8_t *out, uint32_t shift), {
    for (size_t k = 0; k < n; ++k) {
        const uint32_t o = in[k] >> shift;
        out[k] = static_cast<std::uint8_t>(o > 255 ? 255 : o);
    }
});

QUORIN_KERNEL(LookUp16, (const uint16_t *in, size_t n, const uint16_t *table, uint16_t *out), {
    for (size_t k = 0; k < n; ++k)
        out[k] = table[lutIndex(in[k])];
});

QUORIN_KERNEL(Limit1023, (const uint16_t *in, size_t n, uint16_t *out), {
    for (size_t k = 0; k < n; ++k)
        out[k] = std::min(in[k], kMaxValue);
});

} // namespace

void reduceRow(const uint16_t *in, size_t n, std::uint8_t *out, uint32_t shift)
{
    Reduce8::pick()(in, n, out, shift);
}

void lookUpRow8(const uint16_t *in, size_t n, const vec::OutputTable &table, std::uint8_t *out)
{
    if (vec::vbmiActive()) {
        vec::lookUp8Vbmi(in, n, table, out);
    } else if (vec::avx2Active()) {
        vec::lookUp8Avx2(in, n, table, out);
    } else {
        for (size_t k = 0; k < n; ++k)
            out[k] = table.bytes[lutIndex(in[k])];
    }
}

Table16::Table16(const uint16_t *t) : table(t), identity(identityTable(t))
{
    for (uint32_t i = 0; i < 1024; ++i) {
        wide[i] = t[i];
        low[i] = static_cast<std::uint8_t>(t[i]);
        high[i] = static_cast<std::uint8_t>(t[i] >> 8);
    }
}

void lookUpRow16(const uint16_t *in, size_t n, const Table16 &table, uint16_t *out)
{
    if (table.identity)
        Limit1023::pick()(in, n, out);
    else if (vec::vbmiActive())
        vec::lookUp16Vbmi(in, n, table.low, table.high, out);
    else if (vec::avx512Active())
        vec::lookUp16Avx512(in, n, table.wide, out);
    else
        LookUp16::pick()(in, n, table.table, out);
}

bool identityTable(const uint16_t *table)
{
    for (uint32_t i = 0; i < 1024; ++i)
        if (table[i] != i)
            return false;
    return true;
}

} // namespace quorin::image
