#pragma once

#include <atomic>
#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "examples/render_frame/tracer.h"

namespace render_frame {

// Renders buckets on several threads and hands them over one after another, in the order given, whichever
// thread is done first: so a file written from it comes out the same, byte for byte, whatever the number of
// threads. They are handed over by the threads that render, or to a consumer that asks for them.
//
// At most two buckets a thread, and two, are finished or under way at a time; then the threads wait for
// whoever takes them.
class RenderPool {
  public:
    // Takes a finished bucket. False ends the rendering.
    using HandOver = std::function<bool(const BucketPixels& pixels)>;

    // Starts the threads, at least one. Setting `stop` from anywhere, a signal handler included, ends the
    // rendering. The tracer and the flag must outlive the pool. The thread that has rendered the bucket whose
    // turn it is calls `handOver`, no two at a time, for it and for those behind it that are finished; with
    // none, somebody calls next().
    RenderPool(const Tracer& tracer, std::vector<Bucket> buckets, int threads, std::atomic<bool>& stop,
               HandOver handOver = {});
    // Sets the stop flag and waits for the threads.
    ~RenderPool();
    RenderPool(const RenderPool&) = delete;
    RenderPool& operator=(const RenderPool&) = delete;

    // Waits for the next bucket; valid until the next call. Null after the last one, or when the rendering
    // was stopped before this one was done. Throws what a rendering thread threw. For one consumer.
    const BucketPixels* next();

    // Waits until the threads have handed everything over, or the rendering was ended. Throws what a
    // rendering thread threw.
    void wait();

  private:
    // Bucket i is rendered into slot i modulo their number, once bucket i - that number has been consumed.
    struct Slot {
        BucketPixels pixels;
        bool finished = false;
    };

    void work();
    void renderAll();
    bool claim(size_t& index);
    void handOverFinished(std::unique_lock<std::mutex>& lock);
    Slot& slotOf(size_t index) { return slots_[index % slots_.size()]; }

    const Tracer& tracer_;
    const std::vector<Bucket> buckets_;
    std::atomic<bool>& stop_;
    const HandOver handOver_;

    std::mutex mutex_;                 // guards all that follows
    std::condition_variable changed_;  // notified of every change
    std::vector<Slot> slots_;          // pixels: the thread that claimed the slot, then the consumer's
    size_t claimed_ = 0;               // buckets that a thread has begun
    size_t delivered_ = 0;             // buckets that next() has returned
    size_t released_ = 0;              // of those, the ones that the consumer is done with
    bool handingOver_ = false;         // a thread does, or has ended the rendering by it
    int running_;                      // threads that may still finish a bucket
    std::exception_ptr failure_;

    std::vector<std::thread> threads_;  // started last
};

}  // namespace render_frame
