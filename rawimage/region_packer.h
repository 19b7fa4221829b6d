#pragma once

#include <memory>
#include <vector>

#include "rawimage/channel_packer.h"
#include "support/job_queue.h"

// Packs the channels of a region on several threads, for a writer that takes them one by one in order. At
// most threads + 1 channels are packed or waiting at a time. One thread, the writer's, uses it; the channels
// must stay as they are between start() and the last take() or abandon().
class RegionPacker final : private JobQueue {
  public:
    // A channel to pack; null data makes an order that is never asked for.
    struct Order {
        const MBVTable* data = nullptr;
        int count = 0;
        int size = 0;
    };

    // `threads` is at least 2. The manager outlives this object; null makes it start threads of its own.
    RegionPacker(ThreadManager* manager, int threads);
    ~RegionPacker();

    void start(const std::vector<Order>& orders, int level);

    // Waits for order `index`, higher than at the call before. Null, with the zlib stream in `bytes` and
    // `size` until the next call; or packChannel's message.
    const char* take(std::size_t index, const unsigned char*& bytes, std::size_t& size);

    // Waits for what is under way and forgets the rest.
    void abandon();

  private:
    struct Packed {
        JobsHandle handle;
        Order order;
        PMemStream memStream;
        MUtils::ScratchBuffer zipBuf;
        std::size_t size = 0;
        const char* failure = nullptr;
    };

    int jobProc(int threadIndex, int jobIndex, void* data) override;
    void enqueueUpTo(std::size_t end);
    Packed& packedOf(std::size_t index) { return *packed_[index % packed_.size()]; }

    int level_ = 0;
    std::vector<std::unique_ptr<MUtils::Deflater>> deflaters_;  // by worker
    std::vector<std::unique_ptr<Packed>> packed_;               // order i in place i modulo their number
    const std::vector<Order>* orders_ = nullptr;
    std::size_t next_ = 0;  // the first order that is not enqueued
};
