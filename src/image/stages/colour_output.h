// The output of a colour frame from its finished planes, row by row: the
// colour matrix and look-up, then, as the transfer asks, 8-bit triples,
// 16-bit triples, the 16-bit result in the live cache (8-bit transfers
// with the cache kept, or with edge enhancement, which builds its result
// there) and edge enhancement, which reads the looked-up rows above and
// below the one it writes.
#pragma once

#include "image/stages/colour_finish.h"
#include "image/stages/row_output.h"

#include <optional>

namespace quorin::image {

class ColourOutput {
public:
    // job: the frame's (its matrix, tables and settings; narrow or not).
    ColourOutput(const ColourJob &job, bool sixteenBit, void *dest);

    // Rows beyond its own that a band's output reads: 1 with edge
    // enhancement (the rows above and below), else 0.
    uint32_t reach() const { return edge_ ? 1 : 0; }

    // A thread's rows in flight: the looked-up values of the last three
    // rows finished, as planes, and their luminance.
    struct Thread {
        alignas(64) uint16_t values[3][3][kSensorSide]; // [row % 3][colour][x]
        alignas(64) uint16_t luma[3][kSensorSide];
        uint32_t first = 0, end = 0;
    };

    // Starts a band: rows first .. end - 1 are output by this thread.
    void begin(Thread &t, uint32_t first, uint32_t end) const;
    // Row y of the job's planes is final (the job may be a window). Rows
    // come in order, from first - reach() to end - 1 + reach() (within the
    // frame).
    void finished(const ColourJob &job, uint32_t y, Thread &t) const;
    // Ends the band.
    void end(Thread &t) const;

private:
    void lookUp(const ColourJob &job, uint32_t y, uint16_t *out[3], size_t from) const;
    void store16(uint16_t *const values[3], uint16_t *out, size_t from) const;
    void emitEdge(uint32_t y, Thread &t) const;

    const Frame &f_;
    const Area &a_;
    const bool sixteenBit_;
    const bool cache_; // the 16-bit result goes to the live cache too
    const bool edge_;
    const unsigned edgeShift_;
    std::uint8_t *const dest8_;
    std::uint16_t *const dest16_;
    const PlanarFinish bytes_; // 8-bit triples straight from the planes
    MatrixBlockKernel matrix_;
    unsigned slot_[3];
    // The AVX-512 kernels serve values below 1024 with a matrix of 16-bit
    // coefficients (or none): the tables widened, the identity left out.
    bool vectorFinish_ = false;
    bool avx2Finish_ = false; // the AVX2 kernel serves the same values
    bool sse2Finish_ = false; // and the SSE2 one
    // The AVX-512 edge kernels serve tables whose values stay below 1024.
    bool vectorEdge_ = false;
    std::int16_t narrowMatrix_[9];
    std::optional<Table16> tables_[3];
    const std::uint32_t *gatherTables_[3] = {}; // widened, null for the identity
    vec::ByteTables byteTables_{};
};

} // namespace quorin::image
