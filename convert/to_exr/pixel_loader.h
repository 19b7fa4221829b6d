#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "cli/progress.h"
#include "convert/to_exr/channel_region.h"
#include "convert/to_exr/exr_channels.h"
#include "convert/to_exr/raw_input.h"
#include "rawimage/area/pixel_box.h"

namespace rimg {

// Puts rectangles of a frame together from the tags of a raw image.
class PixelLoader {
  public:
    // A tag whose values could not be read.
    struct Loss {
        INFOTAG tag;
        const char* cause;
    };

    // All of these must live longer. Tags are decoded on up to `threads` threads.
    PixelLoader(const RawInput& input, const std::vector<ExrChannel>& channels, int threads);
    PixelLoader(const PixelLoader&) = delete;
    PixelLoader& operator=(const PixelLoader&) = delete;

    // The memory that decoding these tags takes, in bytes.
    double bytesNeeded(const std::vector<const INFOTAG*>& tags) const;

    // True for a tag that has pixels of a written channel.
    bool wants(const INFOTAG& tag) const;

    // Fills `region`, whose box is set, from tags that are wanted, as far as they lie in it. What none of
    // them has is 0; where they overlap the last one counts. False when a signal came before the end.
    bool load(const std::vector<const INFOTAG*>& tags, ChannelRegion& region, Progress& progress);

    // Of all loads so far, in no order.
    const std::vector<Loss>& lost() const { return lost_; }

  private:
    struct Job {
        const std::vector<const INFOTAG*>& tags;
        ChannelRegion& region;
        std::atomic<std::size_t> next{0};
        std::atomic<std::int64_t> done{0};
    };

    std::size_t usefulThreads(const Job& job) const;
    bool overlap(const Job& job) const;
    void work(Job& job, PixelDecoder& decoder, Progress* progress);
    const char* place(const INFOTAG& tag, const MUtils::PixelBox& box, ChannelRegion& region,
                      PixelDecoder& decoder);
    void noteLoss(const INFOTAG& tag, const char* cause);
    void restore(const Job& job, std::size_t lost, PixelDecoder& decoder);

    std::vector<std::unique_ptr<PixelDecoder>> decoders_;  // one for each thread
    std::map<std::int32_t, std::size_t> byIndex_;          // written channels by their index in the raw image
    std::mutex mutex_;                                     // guards what follows
    std::vector<Loss> lost_;
    std::exception_ptr failure_;
};

}  // namespace rimg
