#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "rawimage/frame/frame_snapshot.h"

namespace MUtils {
inline namespace v1 {

class TagLoader;

// Where the values of a box go.
class BoxSink {
  public:
    // The values of the pixels `piece` of a tag, which may reach beyond the box: all of them, or a part where
    // the request has them in pieces. Calls for tags of one channel that overlap come one after another, in
    // file order; others come on several threads. False stops.
    virtual bool take(std::size_t request, const INFOTAG& tag, const PixelBox& piece,
                      const unsigned char* values) = 0;
    // Pixels that no tag has, or whose tag may turn out not to have them. Comes before any take() of them, or
    // when their only tag is damaged.
    virtual void fill(std::size_t request, const PixelBox& part) = 0;
    // False: the tag is not decoded. Called for each tag before all of these, on the calling thread.
    virtual bool wants(const INFOTAG& /*tag*/) { return true; }

  protected:
    ~BoxSink() = default;
};

// Decodes the tags that have pixels of a box, each once for each request, on several threads.
class BoxReader {
  public:
    // The pixels of one channel. Tags with values of another type than `type` are damaged; RCT_NONE is the
    // type of the channel.
    struct Request {
        std::int32_t channel = -1;
        RegionChannelType type = RCT_NONE;
        bool filled = false;    // as ChannelTarget::filled
        bool inPieces = false;  // values of more than kMaxHeldValues bytes
    };

    // `mayBeStale`: run() ends when a tag's header is not the one that is listed. Else such a tag is damaged.
    // Everything must outlive the object.
    BoxReader(const FrameSnapshot& snapshot, const PixelBox& box, const FrameReadOptions& options,
              bool mayBeStale)
        : snapshot_(snapshot), box_(box), options_(options), mayBeStale_(mayBeStale) {}

    // False when the snapshot proved stale: what the sink has is worth nothing. Throws std::bad_alloc, and
    // what the sink and the progress throw.
    bool run(const std::vector<Request>& requests, BoxSink& sink, FrameRead& result);

  private:
    struct Wanted {
        const INFOTAG* tag;
        std::uint32_t request;
    };
    // Tags that are decoded one after another: one, or a group that overlaps.
    struct Step {
        std::size_t first, count;
    };
    struct Worker;

    void plan(std::size_t request, const Request& of, BoxSink& sink, FrameRead& result);
    void addSteps(std::size_t request, const std::vector<const INFOTAG*>& tags,
                  const std::vector<std::size_t>& groups, BoxSink& sink);
    void fillUncovered(std::size_t request, const std::vector<PixelBox>& covered, BoxSink& sink) const;
    void reportMissing(std::int32_t channel, std::vector<PixelBox> covered, bool mayOverlap,
                       FrameRead& result) const;
    void work(const std::vector<Request>& requests, BoxSink& sink, Worker& worker, FrameRead& result);
    void process(std::size_t number, const std::vector<Request>& requests, BoxSink& sink, Worker& worker,
                 FrameRead& result);
    const char* load(const Wanted& wanted, const Request& request, bool overlaps, std::size_t step,
                     BoxSink& sink, Worker& worker);
    const char* loadInPieces(const Wanted& wanted, bool overlaps, BoxSink& sink, TagLoader& loader);
    void report(const INFOTAG& tag, const char* cause, FrameRead& result);
    bool awaitTurn(std::size_t step);
    void finishStep();
    PixelBox partOf(const INFOTAG& tag) const;
    void callProgress(Worker& worker, bool tookLong);

    const FrameSnapshot& snapshot_;
    const PixelBox box_;
    const FrameReadOptions& options_;
    const bool mayBeStale_;
    std::vector<Wanted> wanted_;
    std::vector<Step> steps_;
    std::atomic<std::size_t> next_{0};
    std::atomic<std::int64_t> done_{0};
    std::atomic<bool> stale_{false};
    std::atomic<bool> stopped_{false};
    std::mutex resultMutex_;
    // Of a read in order: the steps whose values have been taken.
    std::mutex turnMutex_;
    std::condition_variable turn_;
    std::size_t taken_ = 0;
};

}  // namespace v1
}  // namespace MUtils
