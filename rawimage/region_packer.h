#pragma once

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <vector>

#include "rawimage/channel_packer.h"
#include "rawimage/channel_tag.h"
#include "support/job_queue.h"

namespace MUtils {
inline namespace v1 {

// Packs the channels of regions on several threads, for a writer that takes them one by one in order. The
// threads take regions off the feed as soon as they have nothing left to pack, so that they go on with the
// next region while the one before is not done. The writer's thread packs, too, while what it asks for is not
// there. Channels that are done before their turn wait at their packed size.
//
// One thread, the writer's, uses it.
class RegionPacker final : private JobQueue {
  public:
    // `threads` is at least 2, the writer's included. The manager outlives this object; null makes it start
    // threads of its own.
    RegionPacker(ThreadManager* manager, int threads);
    ~RegionPacker();

    // False when the system gave no threads: start() would not return then.
    using JobQueue::hasThreads;

    // Packs the regions of `feed` until finish(), on no more than `threads` threads.
    void start(RegionFeed& feed, const CompressionSetting& setting, int threads);

    // The channels of the next region, in the order of the file; valid until the next call. Lets go of the
    // region before. Null at the end of the feed.
    const std::vector<ChannelTag>* nextRegion();
    // Waits for channel `index` of the region. Null, with the zlib stream in `bytes` and `size` until
    // nextRegion() or finish(); or packChannel's message. Not for a channel whose bytes() are -1 or whose
    // table is empty: those are not packed.
    const char* take(std::size_t index, const unsigned char*& bytes, std::size_t& size);

    // Ends the feed, waits for what is under way and forgets the rest.
    void finish();

  private:
    struct Packed {
        ByteBuffer bytes;
        std::size_t size = 0;
        const char* failure = nullptr;
        bool done = false;
    };
    // A region that is not written yet. Its memory is kept for another one.
    struct Region {
        std::vector<ChannelTag> channels;
        std::vector<Packed> packed;    // by channel
        std::int64_t packedBytes = 0;  // of those that are done
        std::int64_t rawBytes = 0;
    };
    // What one thread packs with.
    struct Tools {
        Deflater deflater;
        PMemStream memStream;
        ByteBuffer zipBuf;
    };
    // What the channels at one place of the regions have cost of late, in nanoseconds.
    struct Cost {
        std::int64_t time = 0;
        bool known = false;
    };
    using Lock = std::unique_lock<std::mutex>;

    int jobProc(int threadIndex, int jobIndex, void* data) override;
    bool mayPull() const;
    bool pull(Lock& lock, bool wait);
    void begin(std::unique_ptr<Region> region);
    void packNext(Lock& lock, Tools& tools);
    static void pack(const ChannelTag& channel, Packed& packed, const CompressionSetting& setting,
                     Tools& tools);
    void letGo(std::unique_ptr<Region> region);

    std::vector<Tools> tools_;  // by worker; the last are the writer's

    std::mutex mutex_;  // guards what follows, channels that are being packed aside
    std::condition_variable changed_;
    RegionFeed* feed_ = nullptr;
    CompressionSetting setting_{};
    int threads_ = 0;
    bool ended_ = true;                             // the feed has no more
    bool pulling_ = false;                          // a thread waits for the feed
    bool taken_ = false;                            // the writer is at the first region
    std::exception_ptr failure_;                    // of a thread that pulled
    std::vector<std::unique_ptr<Region>> regions_;  // in order
    std::vector<std::unique_ptr<Region>> unused_;
    std::vector<std::size_t> sequence_;  // channels of the last region as they are begun
    std::size_t next_ = 0;               // in the sequence
    std::int64_t packedBytes_ = 0;       // of all regions
    std::vector<Cost> costs_;
};

}  // namespace v1
}  // namespace MUtils
