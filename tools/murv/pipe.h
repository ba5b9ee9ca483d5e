// Records and batches handed from one thread to another.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <vector>

namespace murv {

// Two batches of any kind handed between a thread that fills them and one
// that uses them, so that both work at once.
template <class Batch>
class Handoff {
public:
    struct Stopped {};
    // Producer: an empty batch to fill (waits for one); throws Stopped once
    // the consumer has given up.
    Batch& Fill() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return !full_[producing_] || stop_; });
        if (stop_) throw Stopped{};
        return batches_[producing_];
    }
    // Producer: the batch from Fill is ready.
    void Publish() {
        std::lock_guard lock(mutex_);
        full_[producing_] = true;
        producing_ ^= 1;
        changed_.notify_all();
    }
    // Producer: no more batches; error is what ended it early, if anything.
    void Done(std::exception_ptr error) {
        std::lock_guard lock(mutex_);
        done_ = true;
        error_ = error;
        changed_.notify_all();
    }
    // Consumer: the next batch, or null after the last; rethrows the
    // producer's failure after the batches made before it.
    Batch* Take() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return full_[consuming_] || done_; });
        if (full_[consuming_]) return &batches_[consuming_];
        if (error_) std::rethrow_exception(error_);
        return nullptr;
    }
    // Consumer: done with the batch from Take.
    void Release() {
        std::lock_guard lock(mutex_);
        full_[consuming_] = false;
        consuming_ ^= 1;
        changed_.notify_all();
    }
    // Consumer: gives up; the producer stops at its next Fill.
    void Stop() {
        std::lock_guard lock(mutex_);
        stop_ = true;
        changed_.notify_all();
    }

private:
    Batch batches_[2];
    bool full_[2] = {false, false};
    int producing_ = 0, consuming_ = 0;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool done_ = false, stop_ = false;
    std::exception_ptr error_;
};

#ifndef MURV_PIPE_BATCH
#define MURV_PIPE_BATCH (1u << 20)
#endif

// Case records made on one thread and used on another, in batches of about
// 1 MiB, so that the making of one batch overlaps the use of the one before.
class RecordPipe {
    static constexpr std::size_t kBatchBytes = MURV_PIPE_BATCH;
    struct Batch {
        std::vector<char> data;
        std::size_t count = 0;
    };

public:
    using Stopped = Handoff<Batch>::Stopped;
    explicit RecordPipe(std::size_t recordBytes)
        : bytes_(std::max<std::size_t>(recordBytes, 1)), per_(std::max<std::size_t>(1, kBatchBytes / bytes_)) {}

    // Producer: the next record to fill; throws Stopped once the consumer
    // has given up.
    char* Slot() {
        if (current_ && filled_ == per_) Publish();
        if (!current_) {
            current_ = &handoff_.Fill();
            current_->data.resize(per_ * bytes_);
        }
        return current_->data.data() + filled_++ * bytes_;
    }
    // Producer: takes back the record last given by Slot, unfilled.
    void Unfill() {
        if (filled_ > 0) --filled_;
    }
    // Producer: no more records; error is what ended it early, if anything.
    void Done(std::exception_ptr error) {
        if (current_ && filled_ > 0) Publish();
        handoff_.Done(error);
    }
    // Consumer: hands every record to use, in order; rethrows the
    // producer's failure after the records made before it.
    template <class F>
    void Drain(F&& use) {
        while (Batch* b = handoff_.Take()) {
            for (std::size_t i = 0; i < b->count; ++i) use(b->data.data() + i * bytes_);
            handoff_.Release();
        }
    }
    // Consumer: gives up; the producer stops at its next batch.
    void Stop() { handoff_.Stop(); }

private:
    void Publish() {
        current_->count = filled_;
        handoff_.Publish();
        current_ = nullptr;
        filled_ = 0;
    }
    const std::size_t bytes_, per_;
    Handoff<Batch> handoff_;
    Batch* current_ = nullptr;
    std::size_t filled_ = 0;
};

}  // namespace murv
