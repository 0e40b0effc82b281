// The output of a grey frame (the monochrome model, or the colour model's
// raw mosaic) row by row, from its corrected values: the look-up, then, as
// the transfer asks, 8-bit or 16-bit values, the 16-bit result in the live
// cache (8-bit transfers with the cache kept, or with edge enhancement,
// which builds its result there) and edge enhancement, which reads the
// looked-up rows above and below the one it writes. The raw mosaic is
// reduced or copied without a look-up.
#pragma once

#include "image/frame.h"
#include "image/kernels/output_table.h"
#include "image/stages/row_output.h"

namespace quorin::image {

class GreyOutput {
public:
    GreyOutput(const Frame &f, bool sixteenBit, void *dest);

    // Rows beyond its own that a band's output reads: 1 with edge
    // enhancement (the rows above and below), else 0.
    std::uint32_t reach() const { return edge_ ? 1 : 0; }

    // A thread's rows in flight: the looked-up values of the last three
    // rows finished.
    struct Thread {
        alignas(64) std::uint16_t looked[3][kSensorSide];
        std::uint32_t first = 0, end = 0;
    };

    // Starts a band: rows first .. end - 1 are output by this thread.
    void begin(Thread &t, std::uint32_t first, std::uint32_t end) const;
    // Row y's corrected values are final. Rows come in order, from
    // first - reach() to end - 1 + reach() (within the frame).
    void finished(const std::uint16_t *values, std::uint32_t y, Thread &t) const;

private:
    void lookUp16(const std::uint16_t *values, std::uint16_t *out) const;
    void emitEdge(std::uint32_t y, Thread &t) const;

    const Frame &f_;
    const Area &a_;
    const bool raw_; // the colour model's mosaic: no look-up
    const bool sixteenBit_;
    const bool cache_;
    const bool edge_;
    const unsigned edgeShift_;
    std::uint8_t *const dest8_;
    std::uint16_t *const dest16_;
    const vec::OutputTable bytes_; // the look-up reduced to 8 bits
    const Table16 table_;          // the look-up at 16 bits
    bool vectorEdge_ = false;      // the AVX-512 edge kernel serves: the table stays below 1024
};

} // namespace quorin::image
