// Records and batches handed from one thread to another.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <vector>

namespace murv {

// Case records made on one thread and used on another: two batches change
// hands, so that the making of one batch overlaps the use of the one before.
class RecordPipe {
public:
    struct Stopped {};
    explicit RecordPipe(std::size_t recordBytes)
        : bytes_(std::max<std::size_t>(recordBytes, 1)), per_(std::max<std::size_t>(1, (1u << 20) / bytes_)) {
        for (Batch& b : batches_) b.data.resize(per_ * bytes_);
    }

    // Producer: the next record to fill; throws Stopped once the consumer
    // has given up.
    char* Slot() {
        if (filled_ == per_) Publish();
        if (filled_ == 0) {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [&] { return !batches_[producing_].full || stop_; });
            if (stop_) throw Stopped{};
        }
        return batches_[producing_].data.data() + filled_++ * bytes_;
    }
    // Producer: takes back the record last given by Slot, unfilled.
    void Unfill() {
        if (filled_ > 0) --filled_;
    }
    // Producer: no more records; error is what ended it early, if anything.
    void Done(std::exception_ptr error) {
        if (filled_ > 0) Publish();
        std::lock_guard lock(mutex_);
        done_ = true;
        error_ = error;
        changed_.notify_all();
    }
    // Consumer: hands every record to write, in order; rethrows the
    // producer's failure after the records made before it.
    template <class F>
    void Drain(F&& write) {
        for (int c = 0;; c ^= 1) {
            Batch& b = batches_[c];
            {
                std::unique_lock lock(mutex_);
                changed_.wait(lock, [&] { return b.full || done_; });
                if (!b.full) {
                    if (error_) std::rethrow_exception(error_);
                    return;
                }
            }
            for (std::size_t i = 0; i < b.count; ++i) write(b.data.data() + i * bytes_);
            std::lock_guard lock(mutex_);
            b.full = false;
            changed_.notify_all();
        }
    }
    // Consumer: gives up; the producer stops at its next record.
    void Stop() {
        std::lock_guard lock(mutex_);
        stop_ = true;
        changed_.notify_all();
    }

private:
    void Publish() {
        std::lock_guard lock(mutex_);
        batches_[producing_].count = filled_;
        batches_[producing_].full = true;
        changed_.notify_all();
        producing_ ^= 1;
        filled_ = 0;
    }
    struct Batch {
        std::vector<char> data;
        std::size_t count = 0;
        bool full = false;
    };
    const std::size_t bytes_, per_;
    Batch batches_[2];
    int producing_ = 0;
    std::size_t filled_ = 0;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool done_ = false, stop_ = false;
    std::exception_ptr error_;
};

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

}  // namespace murv
