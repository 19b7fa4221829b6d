#include "examples/render_frame/render_pool.h"

#include <algorithm>
#include <utility>

namespace render_frame {

RenderPool::RenderPool(const Tracer& tracer, std::vector<Bucket> buckets, int threads,
                       std::atomic<bool>& stop, HandOver handOver)
    : tracer_(tracer),
      buckets_(std::move(buckets)),
      stop_(stop),
      handOver_(std::move(handOver)),
      slots_(std::max<size_t>(1, std::min(buckets_.size(), static_cast<size_t>(threads) * 2 + 2))),
      running_(0) {
    threads_.reserve(static_cast<size_t>(threads));
    try {
        for (int i = 0; i < threads; ++i) {
            const std::lock_guard lock(mutex_);
            threads_.emplace_back([this] { work(); });
            ++running_;
        }
    } catch (const std::exception&) {
        // The system gives no more threads: those that run do the work.
        if (threads_.empty()) throw;
    }
}

RenderPool::~RenderPool() {
    {
        const std::lock_guard lock(mutex_);
        stop_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_)
        thread.join();
}

const BucketPixels* RenderPool::next() {
    std::unique_lock lock(mutex_);
    released_ = delivered_;
    changed_.notify_all();
    if (delivered_ == buckets_.size()) return nullptr;
    Slot& slot = slotOf(delivered_);
    changed_.wait(lock, [&] { return slot.finished || running_ == 0; });
    if (!slot.finished) {
        if (failure_) std::rethrow_exception(failure_);
        return nullptr;
    }
    slot.finished = false;
    ++delivered_;
    return &slot.pixels;
}

void RenderPool::wait() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return running_ == 0; });
    if (failure_) std::rethrow_exception(failure_);
}

void RenderPool::work() {
    std::exception_ptr failure;
    try {
        renderAll();
    } catch (...) {
        failure = std::current_exception();
    }
    const std::lock_guard lock(mutex_);
    if (failure) {
        failure_ = failure;
        stop_ = true;
    }
    --running_;
    changed_.notify_all();
}

void RenderPool::renderAll() {
    for (size_t index; claim(index);) {
        Slot& slot = slotOf(index);
        if (!tracer_.render(buckets_[index], slot.pixels, stop_)) return;
        std::unique_lock lock(mutex_);
        slot.finished = true;
        if (handOver_) handOverFinished(lock);
        changed_.notify_all();
    }
}

// Hands over all buckets whose turn it is. A thread that finds another one at it leaves its bucket to that.
void RenderPool::handOverFinished(std::unique_lock<std::mutex>& lock) {
    if (handingOver_) return;
    handingOver_ = true;
    while (released_ < buckets_.size() && slotOf(released_).finished) {
        Slot& slot = slotOf(released_);
        lock.unlock();
        const bool goOn = handOver_(slot.pixels);
        lock.lock();
        slot.finished = false;
        delivered_ = ++released_;
        changed_.notify_all();
        if (!goOn) {
            stop_ = true;
            return;
        }
    }
    handingOver_ = false;
}

// The next bucket that no thread renders yet, once there is a slot for it; false when there is nothing left
// to do.
bool RenderPool::claim(size_t& index) {
    std::unique_lock lock(mutex_);
    changed_.wait(
        lock, [&] { return stop_ || claimed_ == buckets_.size() || claimed_ < released_ + slots_.size(); });
    if (stop_ || claimed_ == buckets_.size()) return false;
    index = claimed_++;
    return true;
}

}  // namespace render_frame
