#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "rawimage/frame/frame_snapshot.h"

namespace MUtils {
inline namespace v1 {

// Where the values of a box go.
class BoxSink {
  public:
    // The values of a tag, of which the pixels `part` lie in the box. Calls for tags of one channel that
    // overlap come one after another, in file order; others come on several threads. False stops.
    virtual bool take(std::size_t request, const INFOTAG& tag, const PixelBox& part,
                      const unsigned char* values) = 0;
    // Pixels that no tag has, or whose tag may turn out not to have them. Comes before any take() of them, or
    // when their only tag is damaged.
    virtual void fill(std::size_t request, const PixelBox& part) = 0;

  protected:
    ~BoxSink() = default;
};

// Decodes the tags that have pixels of a box, each once for each request, on several threads.
class BoxReader {
  public:
    // The pixels of one channel. Tags with values of another size than those of `type` are damaged; RCT_NONE
    // takes any.
    struct Request {
        std::int32_t channel = -1;
        RegionChannelType type = RCT_NONE;
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
                  const std::vector<std::size_t>& groups);
    void fillUncovered(std::size_t request, std::int32_t channel, const std::vector<PixelBox>& covered,
                       bool mayOverlap, BoxSink& sink, FrameRead& result);
    void reportMissing(std::int32_t channel, std::vector<PixelBox> covered, FrameRead& result) const;
    void work(const std::vector<Request>& requests, BoxSink& sink, FrameRead& result);
    void process(const Step& step, const std::vector<Request>& requests, BoxSink& sink, Worker& worker,
                 FrameRead& result);
    const char* decode(const INFOTAG& tag, RegionChannelType type, Worker& worker,
                       const unsigned char*& values);
    PixelBox partOf(const INFOTAG& tag) const;
    void callProgress();

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
    std::mutex progressMutex_;
};

}  // namespace v1
}  // namespace MUtils
