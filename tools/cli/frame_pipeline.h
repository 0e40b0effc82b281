// Transfers and writing side by side: the camera's frames are transferred
// into a small ring of buffers on the calling thread while writer threads
// write the frames before them, so that a download runs at the pace of the
// slower of the two instead of their sum.
#pragma once

#include "recording_files.h"

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace quorin::cli {

class FramePipeline {
public:
    // onWritten runs after each frame is written, in frame order, one at a
    // time (on a writer thread).
    FramePipeline(FrameSink &sink, std::size_t frameBytes, std::function<void(const FrameStamp &)> onWritten);
    // Stops the writers; frames not yet written are dropped.
    ~FramePipeline();
    FramePipeline(const FramePipeline &) = delete;
    FramePipeline &operator=(const FramePipeline &) = delete;

    // A free buffer for the next frame, waiting while every buffer is in
    // use. Throws the first failure of a writer.
    unsigned char *next();
    // Hands the buffer next() returned over to the writers.
    void submit(const FrameStamp &stamp);
    // Waits until every frame handed over is written and returns how many
    // were. Throws the first failure of a writer.
    std::uint64_t finish();

private:
    struct Slot {
        std::vector<unsigned char> pixels;
        FrameStamp stamp;
        std::uint64_t index = 0;
        enum class State { Free, Filling, Queued, Writing, Written } state = State::Free;
    };
    void work();
    void rethrow();

    FrameSink &sink_;
    std::function<void(const FrameStamp &)> onWritten_;
    std::vector<Slot> slots_;
    std::vector<std::thread> threads_;
    std::mutex lock_;
    std::condition_variable changed_;
    Slot *filling_ = nullptr;
    std::uint64_t submitted_ = 0, written_ = 0;
    bool stop_ = false;
    std::exception_ptr failure_;
};

} // namespace quorin::cli
