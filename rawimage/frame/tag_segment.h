#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "rawimage/area/pixel_box.h"
#include "rawimage/format.h"
#include "rawimage/frame/place_index.h"

namespace MUtils {
inline namespace v1 {

// Tags that follow each other in a file, with those that have pixels indexed by channel and place when they
// are first asked for. Unchanging; any number of threads may ask at a time.
class TagSegment {
  public:
    // In file order.
    explicit TagSegment(std::vector<INFOTAG> tags) : tags_(std::move(tags)) {}

    const std::vector<INFOTAG>& tags() const { return tags_; }

    // Adds the tags of `channel` that have a pixel in `box` to `found`, in file order; they live as long as
    // the segment. Throws std::bad_alloc.
    void find(std::int32_t channel, const PixelBox& box, std::vector<const INFOTAG*>& found) const;

  private:
    struct Channel {
        std::size_t from = 0, count = 0;  // of its tags in order_
        std::once_flag indexed;
        PlaceIndex index;
    };

    void group() const;

    const std::vector<INFOTAG> tags_;
    mutable std::once_flag grouped_;
    mutable std::vector<std::uint32_t> order_;  // of tags with pixels, by channel
    mutable std::unordered_map<std::int32_t, Channel> channels_;
};

}  // namespace v1
}  // namespace MUtils
