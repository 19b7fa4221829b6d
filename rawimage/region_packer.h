#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "rawimage/channel_packer.h"
#include "support/job_queue.h"

namespace MUtils {
inline namespace v1 {

// Packs the channels of a region on several threads, for a writer that takes them one by one in order. The
// writer's thread packs, too, while what it asks for is not there. At most `threads` channels are being
// packed at a time; those that are done before their turn wait at their packed size. One thread, the
// writer's, uses it; the channels must stay as they are between start() and the last take() or abandon().
class RegionPacker final : private JobQueue {
  public:
    // A channel to pack; null data makes an order that is never asked for.
    struct Order {
        const MBVTable* data = nullptr;
        int count = 0;
        int size = 0;
    };

    // `threads` is at least 2, the writer's included. The manager outlives this object; null makes it start
    // threads of its own.
    RegionPacker(ThreadManager* manager, int threads);
    ~RegionPacker();

    void start(const std::vector<Order>& orders, const CompressionSetting& setting);

    // Waits for order `index`. Null, with the zlib stream in `bytes` and `size` until the next start(); or
    // packChannel's message.
    const char* take(std::size_t index, const unsigned char*& bytes, std::size_t& size);

    // Waits for what is under way and forgets the rest.
    void abandon();

  private:
    struct Packed {
        Order order;
        ByteBuffer bytes;
        std::size_t size = 0;
        const char* failure = nullptr;
        bool done = false;
        // What the orders of this place have cost of late, in nanoseconds; its bytes before the first one.
        std::int64_t cost = 0;
        bool timed = false;
    };
    // What one thread packs with.
    struct Tools {
        Deflater deflater;
        PMemStream memStream;
        ByteBuffer zipBuf;
    };

    int jobProc(int threadIndex, int jobIndex, void* data) override;
    void packNext(std::unique_lock<std::mutex>& lock, Tools& tools);
    static void pack(Packed& packed, const CompressionSetting& setting, Tools& tools);

    std::vector<Tools> tools_;  // by worker; the last are the writer's

    std::mutex mutex_;  // guards what follows, orders that are being packed aside
    std::condition_variable done_;
    CompressionSetting setting_{};
    std::vector<Packed> packed_;         // by order
    std::vector<std::size_t> sequence_;  // orders as they are begun
    std::size_t next_ = 0;               // in the sequence
};

}  // namespace v1
}  // namespace MUtils
