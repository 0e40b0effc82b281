// The second pass of a colour frame: the interpolation and the output in
// bands of rows, each interpolated into a window of rows on its thread.
#pragma once

#include "image/stages/colour_output.h"
#include "image/stages/interpolation.h"

namespace quorin::image {

// The frame in bands of kBand rows (the last one taking a lone last row),
// each thread taking the next band when done with its own. Each band is
// interpolated into a window of rows on its thread, kept in the buffers
// the prepared mosaic leaves free (the smoothing copy's, then the RGB
// image's first two thirds): the band's rows of the three planes, the rows
// beyond it that the output reads (one on each side with edge
// enhancement), and the green plane of the row above and the row below
// those, which their passes read. A row is handed to the output as soon
// as it is done; the top row once the edge rule has read the row below it,
// the bottom row likewise. So the planes take no room in the caches beyond
// the windows, and the full planes are not written (planesFromMosaic()
// computes them when asked).
class WindowPass {
public:
    static constexpr uint32_t kBand = 32;

    WindowPass(const ColourJob &job, const ColourOutput &output);

    // How many of `threads` threads the buffers hold a window for.
    static uint32_t threadsFor(const ColourJob &job, const ColourOutput &output, uint32_t threads);

    uint32_t bands() const { return bands_; }
    uint32_t first(uint32_t b) const { return b * kBand; }
    uint32_t end(uint32_t b) const { return b + 1 == bands_ ? a_.h : (b + 1) * kBand; }
    // The rows of the prepared mosaic that band b reads: needFirst(b) ..
    // needEnd(b) - 1.
    uint32_t needFirst(uint32_t b) const;
    uint32_t needEnd(uint32_t b) const;

    // Thread t's window and the output's rows in flight.
    struct Thread {
        ColourJob local;
        ColourOutput::Thread out;
        Thread(const WindowPass &pass, uint32_t t) : local(pass.window(t)) {}
    };

    void run(uint32_t b, Thread &thread) const;

private:
    static size_t windowValues(size_t w, uint32_t reach) { return 3 * (kBand + 3 + 2 * size_t{reach}) * w; }
    ColourJob window(uint32_t t) const;

    const ColourJob &job_;
    const ColourOutput &output_;
    const Area &a_;
    const uint32_t reach_;
    const size_t windowValues_;
    const PassRowKernel green_, line_, diagonal_;
    uint32_t bands_;
};

} // namespace quorin::image
