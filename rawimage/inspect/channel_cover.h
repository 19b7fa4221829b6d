#pragma once

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "rawimage/area/missing_boxes.h"
#include "rawimage/format.h"
#include "rawimage/inspect/inspection.h"

namespace MUtils {
inline namespace v1 {

// The boxes that each channel has pixels of, by channel index.
class ChannelCover {
  public:
    using Boxes = std::map<std::int32_t, std::vector<PixelBox>>;

    // Channels of the list count even without pixels, except those without values.
    void addChannels(const std::vector<RIF_CHANNEL>& list);
    void addPixels(const std::vector<INFOTAG>& tags);
    // The pixels of a file. A tag in doubt covers nothing and spoils its place, as readers draw it there:
    // only later tags cover that. `repairedSpoils`: likewise a tag that was repaired, in the place
    // that its header in the file has, as for readers of the file as it is.
    void addPixels(const TagScan& scan, bool repairedSpoils);
    // Windows that tags state: of a channel that has some, nothing is missing outside them. Those that are
    // not within the frame do not count.
    void addWindows(const std::vector<INFOTAG>& tags, const PixelBox& frame);
    void addWindow(std::int32_t channel, const PixelBox& window) { windows_[channel].push_back(window); }
    void addBoxes(std::int32_t channel, const std::vector<PixelBox>& boxes);
    const Boxes& boxes() const { return boxes_; }
    const Boxes& windows() const { return windows_; }

    // What channels lack of an area.
    struct Missing {
        std::vector<std::pair<std::int32_t, MissingBoxes>> channels;  // only those that lack any
        MissingBoxes inAny;                                           // what any of them lacks
    };
    // Everything, when there is no channel. The boxes of all answers together are bounded.
    Missing missing(const PixelBox& area) const;

  private:
    // A box that may be drawn wrong, unless the boxes of its channel from `later` on cover it.
    struct Spoiled {
        PixelBox box;
        std::size_t later;
    };

    void addSpoiled(const RIF_TAG& drawn);
    MissingBoxes missingOf(std::int32_t channel, std::vector<PixelBox> covered, const PixelBox& area,
                           std::size_t limit) const;
    MissingBoxes withSpoiled(std::int32_t channel, MissingBoxes missing, const PixelBox& area,
                             std::size_t limit) const;

    Boxes boxes_;
    Boxes windows_;
    std::map<std::int32_t, std::vector<Spoiled>> spoiled_;  // by channel
};

}  // namespace v1
}  // namespace MUtils
