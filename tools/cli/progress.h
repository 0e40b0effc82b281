// Progress of a frame sequence: a bar redrawn in place on a terminal
// (frames done, rate, time left), plain lines otherwise.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

namespace quorin::cli {

class Progress {
public:
    // The bar is drawn on stderr when that is a terminal; otherwise each
    // frame gets a plain line on stdout.
    explicit Progress(std::uint32_t total);
    // One more frame is done; line is what a plain report says about it.
    void step(const std::string &line);
    // Ends the bar's line.
    void finish();
    double elapsedSeconds() const;
    std::uint32_t done() const { return done_; }

private:
    std::uint32_t total_;
    std::uint32_t done_ = 0;
    bool terminal_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point start_;
};

} // namespace quorin::cli
