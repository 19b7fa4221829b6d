#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "convert/to_exr/channel_region.h"
#include "convert/to_exr/exr_channels.h"
#include "convert/to_exr/raw_input.h"
#include "convert/work_count.h"

namespace MUtils {
inline namespace v1 {

// Fills rectangles of a frame with the pixels of a raw image's tags.
class PixelLoader {
  public:
    // A tag whose values could not be read.
    struct Loss {
        INFOTAG tag;
        const char* cause;
    };
    using Losses = std::map<std::uint64_t, Loss>;  // by the tag's offset

    // `input` must live longer. Tags are decoded on up to `threads` threads. Throws ConvertError
    // (kCannotOpen) when the file does not open again.
    PixelLoader(const RawInput& input, const std::vector<ExrChannel>& channels, int threads);
    ~PixelLoader();
    PixelLoader(const PixelLoader&) = delete;
    PixelLoader& operator=(const PixelLoader&) = delete;

    // The memory that decoding these tags takes, in bytes.
    double bytesNeeded(const std::vector<const INFOTAG*>& tags) const;

    // True for a tag that has pixels of a written channel.
    bool wants(const INFOTAG& tag) const;

    // Fills `region`, whose box is set, from tags that are wanted, as far as they lie in it. Pixels that no
    // tag has are 0; where tags overlap the last one counts. Counts the tags, and lets what `count` throws
    // through.
    void load(const std::vector<const INFOTAG*>& tags, ChannelRegion& region, WorkCount& count);

    // Of all loads so far.
    const Losses& lost() const { return lost_; }

  private:
    class Decoder;

    struct Job {
        const std::vector<const INFOTAG*>& tags;
        ChannelRegion& region;
        std::atomic<std::size_t> next{0};
        std::atomic<std::int64_t> done{0};
        std::int64_t counted = 0;  // of the tags done, by the thread that counts
    };

    std::size_t usefulThreads(const Job& job) const;
    bool overlap(const Job& job) const;
    void work(Job& job, Decoder& decoder, WorkCount* count);
    const char* place(const INFOTAG& tag, const PixelBox& box, ChannelRegion& region, Decoder& decoder);
    void noteLoss(const INFOTAG& tag, const char* cause);
    void restore(const Job& job, std::size_t lost, Decoder& decoder);

    std::vector<std::unique_ptr<Decoder>> decoders_;  // one for each thread
    std::map<std::int32_t, std::size_t> byIndex_;     // written channels by their index in the raw image
    std::mutex mutex_;                                // guards what follows
    Losses lost_;
    std::exception_ptr failure_;
};

}  // namespace v1
}  // namespace MUtils
