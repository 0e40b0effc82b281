// The kernels written with x86 intrinsics, for the steps the compiler
// cannot vectorise well by itself, one file per family and level:
// unpacking the 10-bit groups with byte shuffles (unpack_avx2.cpp), with
// the dark frame and the pixel gain in the same registers on VBMI
// (sensor_vbmi.cpp); the 8-bit output through a 1024-entry table, by
// in-register table look-ups with AVX-512 VBMI, gathers with AVX2 or a
// shift for straight tables (lookup_*.cpp), with the colour matrix and the
// interleaving of the triples (matrix_*.cpp); green smoothing by a
// reciprocal multiplication instead of a division (smoothing_*.cpp); and
// the passes over split rows (split_rows_avx512.cpp, see below). Each
// kernel exists only for the level named in it; the callers keep a plain
// loop for the other levels.
#pragma once

#include "image/kernels/output_table.h"

#include <cstddef>
#include <cstdint>

namespace quorin::image::vec {

// Row c of a colour matrix as the 32-bit words its 16-bit multiply-adds
// take at every level: red and green in one word, blue alone in another.
struct MatrixWords {
    int redGreen, blue;
};
inline MatrixWords matrixWords(const std::int16_t matrix[9], unsigned c)
{
    return {static_cast<int>(static_cast<std::uint16_t>(matrix[3 * c]) |
                             std::uint32_t{static_cast<std::uint16_t>(matrix[3 * c + 1])} << 16),
            static_cast<int>(static_cast<std::uint16_t>(matrix[3 * c + 2]))};
}

constexpr std::size_t kBlock = 64;

// Unpacks whole blocks of four groups (20 bytes, 16 values) from in to out
// while every byte read lies among the first `readable` bytes of in (AVX2).
// Returns the number of groups done; the caller unpacks the rest.
std::size_t unpackGroupsAvx2(const std::uint8_t *in, std::size_t groups, std::size_t readable, std::uint16_t *out);
// The same with the dark subtraction and pixel gain of sensorRowVbmi
// (below) in the same registers.
std::size_t sensorRowAvx2(const std::uint8_t *in, std::size_t groups, std::size_t readable, const std::uint16_t *dark,
                          bool darkClamp, const std::uint16_t *gainRow, std::uint16_t constantGain,
                          std::uint16_t *out);

// One row of the sensor corrections on whole groups (VBMI): unpacks
// `groups` groups of four 10-bit values from in (five bytes each) to out,
// subtracts the dark row (dark null: none; darkClamp: the result kept
// within 0 .. 1023, else only above 0, both as 16-bit signed values) and
// applies the pixel gain, value * gain >> 9 in 16 bits, values above 1023
// as signed 16-bit values becoming 1023 (gainRow null: the constant gain,
// 0: none).
void sensorRowVbmi(const std::uint8_t *in, std::size_t groups, const std::uint16_t *dark, bool darkClamp,
                   const std::uint16_t *gainRow, std::uint16_t constantGain, std::uint16_t *out);

// out[k] = table.bytes[min(in[k], 1023)] for k < n, by in-register look-ups
// (VBMI) or gathers (AVX2), or by the table's shift.
void lookUp8Avx2(const std::uint16_t *in, std::size_t n, const OutputTable &table, std::uint8_t *out);
void lookUp8Vbmi(const std::uint16_t *in, std::size_t n, const OutputTable &table, std::uint8_t *out);

// The 8-bit triples of n <= kBlock pixels held as three planes of values
// below 1024: values[c][k] goes through tables[c] to out[3 * k + slot[c]]
// (VBMI).
void triples8Vbmi(const std::uint16_t (*values)[kBlock], std::size_t n, const OutputTable *const tables[3],
                  const unsigned slot[3], std::uint8_t *out);

// Where the matrix kernel reads a row's red, green and blue values: for
// natural rows rows[c][0] and rows[c][1] both point at the row; for split
// rows (see below) rows[c][0] at its even columns and rows[c][1] at its
// odd ones, which may lie in different buffers.
using RowHalves = const std::uint16_t *const[3][2];

// The colour matrix, look-up and 8-bit triples of a row of n pixels of
// values below 1024, natural or split, with matrix coefficients that fit
// 16 bits (the sums then never wrap): row c of the matrix gives the value
// that goes through tables[c] to out[3 * k + slot[c]] (VBMI).
void matrixTriples8Vbmi(const RowHalves &rows, std::size_t n, bool split, const std::int16_t matrix[9],
                        const OutputTable *const tables[3], const unsigned slot[3], std::uint8_t *out);

// The colour matrix (matrix null: none; coefficients of 16 bits, applied as
// matrixTriples8Vbmi does) and the 16-bit look-up of a row of n pixels of
// values below 1024, natural or split (AVX-512): the value of colour c
// goes through tables[c] (1024 entries widened to 32 bits; null: the
// identity) to out[c], in pixel order.
void matrixLookUp16Avx512(const RowHalves &rows, std::size_t n, bool split, const std::int16_t *matrix,
                          const std::uint32_t *const tables[3], std::uint16_t *const out[3]);

// 16-bit look-up tables of 1024 entries split into their low and high
// bytes, for the VBMI kernels' in-register look-ups; null: the identity.
struct ByteTables {
    const std::uint8_t *low[3];
    const std::uint8_t *high[3];
};

// The same into triples, with the tables split into bytes: colour c of
// pixel k to out16[3 k + slot[c]], and unless out8 is null also reduced to
// 8 bits (min(v >> outputShift, 255)) to out8[3 k + slot[c]] (VBMI); whole
// rows of bytes on a 64-byte boundary take streaming stores.
void finishTriplesVbmi(const RowHalves &rows, std::size_t n, bool split, const std::int16_t *matrix,
                       const ByteTables &tables, const unsigned slot[3], std::uint16_t *out16, std::uint8_t *out8,
                       unsigned outputShift);

// out[k] = table[min(in[k], 1023)] for k < n, the table widened to 32-bit
// entries (AVX-512 gathers), or split into its low and high bytes (VBMI
// in-register look-ups, which take a quarter of the time).
void lookUp16Avx512(const std::uint16_t *in, std::size_t n, const std::uint32_t *table, std::uint16_t *out);
void lookUp16Vbmi(const std::uint16_t *in, std::size_t n, const std::uint8_t *low, const std::uint8_t *high,
                  std::uint16_t *out);

// n triples of 16-bit values from three planes in slot order (AVX-512);
// whole rows of a destination on a 64-byte boundary take streaming stores.
void interleave16Avx512(const std::uint16_t *const bySlot[3], std::size_t n, std::uint16_t *out);

// Edge enhancement of rows of looked-up values no larger than 32767
// (AVX-512): the luminance (77 s2 + 151 s1 + 28 s0) >> 8 of n pixels held
// as planes by slot; and, for values no larger than 1023, the enhanced
// pixels of an inner row (its planes by slot, the luminance of it and the
// rows above and below; the first and last pixel as they are) as 16-bit
// triples in out; its VBMI form also writes the triples reduced to 8 bits
// (v >> outputShift, at most 255) into out8, with streaming stores for
// whole rows on a 64-byte boundary.
void lumaAvx512(const std::uint16_t *const bySlot[3], std::size_t n, std::uint16_t *luma);
void edgeRowAvx512(const std::uint16_t *const bySlot[3], const std::uint16_t *above, const std::uint16_t *here,
                   const std::uint16_t *below, std::size_t w, unsigned shift, std::uint16_t *out);
void edgeRowBytesVbmi(const std::uint16_t *const bySlot[3], const std::uint16_t *above, const std::uint16_t *here,
                      const std::uint16_t *below, std::size_t w, unsigned shift, unsigned outputShift,
                      std::uint16_t *out, std::uint8_t *out8);

// Monochrome edge enhancement of an inner row of looked-up values no
// larger than 1023 (AVX-512): pixels 1 .. w - 2 of `here` plus ((4 L - L
// left - L right - L above - L below) >> shift), limited to 0 .. 1023, the
// first and last pixel as they are, into out; unless out8 is null also
// reduced to 8 bits (min(v >> outputShift, 255)) into out8. Whole rows on
// a 64-byte boundary take streaming stores.
void edgeGreyRowAvx512(const std::uint16_t *above, const std::uint16_t *here, const std::uint16_t *below,
                       std::size_t w, unsigned shift, std::uint16_t *out, std::uint8_t *out8, unsigned outputShift);

// Adaptive smoothing of the green sites of one row of a mosaic whose values
// are all below 1024: for each column x from 1 with ((x ^ odd) & 1) set and
// x <= last, out[x] becomes the weighted mean of here[x] (weight 4) and its
// four diagonal neighbours in the rows above and below (weight 2 within 25
// of it, 1 within 50, else 0), truncated; out keeps its other values. Runs
// in blocks of 32 columns (AVX-512) or 16 (AVX2) while a block fits
// between column 1 and column w - 2; returns the first column it did not
// reach (w - 1 when it did them all, 1 when the row is too short for a
// block).
std::size_t smoothGreenAvx512(const std::uint16_t *above, const std::uint16_t *here, const std::uint16_t *below,
                              std::uint16_t *out, std::size_t w, std::uint32_t odd, std::uint32_t last);
std::size_t smoothGreenAvx2(const std::uint16_t *above, const std::uint16_t *here, const std::uint16_t *below,
                            std::uint16_t *out, std::size_t w, std::uint32_t odd, std::uint32_t last);

// The same for AVX2, natural or split rows, over whole blocks of 32
// pixels; returns the number of pixels done (the caller finishes the rest).
std::size_t matrixTriples8Avx2(const RowHalves &rows, bool split, std::size_t n, const std::int16_t matrix[9],
                               const OutputTable *const tables[3], const unsigned slot[3], std::uint8_t *out);
// The same with SSE2 (the x86-64 baseline), over blocks of 16 pixels while
// two more pixels follow (its stores reach four bytes beyond a block).
std::size_t matrixTriples8Sse2(const RowHalves &rows, bool split, std::size_t n, const std::int16_t matrix[9],
                               const OutputTable *const tables[3], const unsigned slot[3], std::uint8_t *out);

// The colour matrix (matrix null: none) and the 16-bit look-up (tables
// widened to 32 bits; null: the identity) of a row of n pixels of values
// below 1024, natural or split, into 16-bit triples, colour c of pixel k
// to out[3 k + slot[c]] (AVX2), over whole blocks of 16 pixels; returns
// the number of pixels done.
std::size_t finishTriples16Avx2(const RowHalves &rows, bool split, std::size_t n, const std::int16_t *matrix,
                                const std::uint32_t *const tables[3], const unsigned slot[3], std::uint16_t *out);
// The same with SSE2, over blocks of 8 pixels while two more follow.
std::size_t finishTriples16Sse2(const RowHalves &rows, bool split, std::size_t n, const std::int16_t *matrix,
                                const std::uint32_t *const tables[3], const unsigned slot[3], std::uint16_t *out);

// Split rows: the planes of the fast 8-bit colour path on AVX-512 keep each
// row as its even columns followed by its odd ones (column x of a row of
// width w at x / 2, or at (w + 1) / 2 + x / 2 when x is odd), so that the
// interpolation passes, which change every other pixel of a row, read and
// write whole registers of the sites they change.

// Colour balance of a row into split halves: value * gain >> 4 in 16 bits
// (gain[0] for even columns, gain[1] for odd ones), limited to 1023 as a
// signed or an unsigned 16-bit value, for the columns below `columns`; the
// others keep their value.
struct SplitBalance {
    std::uint16_t gain[2];
    bool signedLimit;
    std::size_t columns;
};

// Row in (w values), balanced by `rule`, split: its even columns to even,
// its odd ones to odd. Returns the OR of the values written.
std::uint32_t balanceSplitAvx512(const std::uint16_t *in, std::size_t w, const SplitBalance &rule,
                                 std::uint16_t *even, std::uint16_t *odd);
std::uint32_t balanceSplitAvx2(const std::uint16_t *in, std::size_t w, const SplitBalance &rule, std::uint16_t *even,
                               std::uint16_t *odd);

// The inner columns of one inner row (y, with odd = y & 1) of the three
// interpolation passes on split rows, over a split mosaic of values below
// 1024 (m points to row y; rows y - 2 .. y + 2 are read). The planes'
// pointers point to row y of each; the green plane's rows y - 1 and y + 1
// lie w values before and after it. Rows must be at least 68 wide.
//  - green: red and blue sites of columns 2 .. w-3 get the gradient-guided
//    green in `green`. The values the mosaic already holds (a green site's
//    green, a red or blue site's own colour) stay there: the finish and
//    the probe read them from the split mosaic.
//  - line: green sites of columns 2 .. w-3 get the colour of their row's
//    neighbours in `horizontal` and of their column's in `vertical`.
//  - diagonal: red and blue sites of columns 1 .. w-2 get the colour of
//    their diagonal neighbours in `missing`, fall-backs included.
constexpr std::size_t kSplitMinWidth = 68;
// Green smoothing of one row (1 .. h-2) from split balanced rows (`here`,
// and the rows above and below it) into the row of the split mosaic at
// `mosaic`: the green sites of the row (those with ((x ^ odd) & 1) set),
// each from column 1 to `last` replaced by its weighted mean as
// smoothGreenAvx512 computes it, the others as they are. Only the green
// half of each row is read and written.
void smoothSplitAvx512(const std::uint16_t *above, const std::uint16_t *here, const std::uint16_t *below,
                       std::uint16_t *mosaic, std::size_t w, std::uint32_t odd, std::uint32_t last);
void smoothSplitAvx2(const std::uint16_t *above, const std::uint16_t *here, const std::uint16_t *below,
                     std::uint16_t *mosaic, std::size_t w, std::uint32_t odd, std::uint32_t last);
void greenSplitAvx512(const std::uint16_t *m, std::uint16_t *green, std::size_t w, std::uint32_t odd);
void lineSplitAvx512(const std::uint16_t *m, const std::uint16_t *green, std::uint16_t *horizontal,
                     std::uint16_t *vertical, std::size_t w, std::uint32_t odd);
void diagonalSplitAvx512(const std::uint16_t *m, const std::uint16_t *green, std::uint16_t *missing, std::size_t w,
                         std::uint32_t odd);

} // namespace quorin::image::vec
