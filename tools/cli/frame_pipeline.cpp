// The ring of frame buffers between the transfers and the writers.
#include "frame_pipeline.h"

namespace quorin::cli {

FramePipeline::FramePipeline(FrameSink &sink, std::size_t frameBytes,
                             std::function<void(const FrameStamp &)> onWritten)
    : sink_(sink), onWritten_(std::move(onWritten))
{
    const unsigned writers = sink.writers();
    // One buffer per writer, one being filled, one waiting: the transfers
    // never wait for a writer that has just started.
    slots_.resize(writers + 2);
    for (Slot &s : slots_)
        s.pixels.resize(frameBytes);
    for (unsigned i = 0; i < writers; ++i)
        threads_.emplace_back([this] { work(); });
}

FramePipeline::~FramePipeline()
{
    {
        std::lock_guard<std::mutex> g(lock_);
        stop_ = true;
    }
    changed_.notify_all();
    for (std::thread &t : threads_)
        t.join();
}

void FramePipeline::rethrow()
{
    if (failure_)
        std::rethrow_exception(failure_);
}

unsigned char *FramePipeline::next()
{
    std::unique_lock<std::mutex> g(lock_);
    Slot *free = nullptr;
    changed_.wait(g, [&] {
        for (Slot &s : slots_)
            if (s.state == Slot::State::Free)
                free = &s;
        return free != nullptr || failure_;
    });
    rethrow();
    free->state = Slot::State::Filling;
    filling_ = free;
    return free->pixels.data();
}

void FramePipeline::submit(const FrameStamp &stamp)
{
    {
        std::lock_guard<std::mutex> g(lock_);
        rethrow();
        filling_->stamp = stamp;
        filling_->index = submitted_++;
        filling_->state = Slot::State::Queued;
        filling_ = nullptr;
    }
    changed_.notify_all();
}

std::uint64_t FramePipeline::finish()
{
    std::unique_lock<std::mutex> g(lock_);
    changed_.wait(g, [&] { return written_ == submitted_ || failure_; });
    rethrow();
    return written_;
}

void FramePipeline::work()
{
    std::unique_lock<std::mutex> g(lock_);
    for (;;) {
        // The oldest frame queued.
        Slot *job = nullptr;
        changed_.wait(g, [&] {
            for (Slot &s : slots_)
                if (s.state == Slot::State::Queued && (job == nullptr || s.index < job->index))
                    job = &s;
            return job != nullptr || stop_ || failure_;
        });
        if (job == nullptr || failure_)
            return;
        job->state = Slot::State::Writing;
        g.unlock();
        try {
            sink_.write(job->pixels.data(), job->stamp, job->index);
        } catch (...) {
            g.lock();
            if (!failure_)
                failure_ = std::current_exception();
            changed_.notify_all();
            return;
        }
        g.lock();
        job->state = Slot::State::Written;
        // Frames written report in their order; a writer that finished
        // early leaves its frame for the one before it to report.
        for (bool more = true; more && !failure_;) {
            more = false;
            for (Slot &s : slots_)
                if (s.state == Slot::State::Written && s.index == written_) {
                    try {
                        sink_.written(s.stamp, s.index);
                        onWritten_(s.stamp);
                    } catch (...) {
                        failure_ = std::current_exception();
                        break;
                    }
                    s.state = Slot::State::Free;
                    ++written_;
                    more = true;
                }
        }
        changed_.notify_all();
    }
}

} // namespace quorin::cli
