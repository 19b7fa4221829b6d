#include "rawimage/inspect/channel_cover.h"

#include <algorithm>

#include "rawimage/area/tag_box.h"
#include "rawimage/inspect/tag_check.h"

namespace MUtils {

void ChannelCover::addChannels(const std::vector<RIF_CHANNEL>& list) {
    for (const RIF_CHANNEL& channel : list) {
        if (channel.type != RCT_NONE) boxes_[channel.index];
    }
}

void ChannelCover::addPixels(const std::vector<INFOTAG>& tags) {
    for (const INFOTAG& tag : tags) {
        if (isPixelTag(tag.id)) boxes_[tag.p8].push_back(boxOf(tag));
    }
}

void ChannelCover::addWindows(const std::vector<INFOTAG>& tags, const PixelBox& frame) {
    for (const INFOTAG& tag : tags) {
        if (const auto window = windowOf(tag, frame)) addWindow(tag.p8, *window);
    }
}

// What lies outside the windows counts as covered.
MissingBoxes ChannelCover::missingOf(std::int32_t channel, std::vector<PixelBox> covered,
                                     const PixelBox& area, std::size_t limit) const {
    const auto windows = windows_.find(channel);
    if (windows != windows_.end()) {
        const MissingBoxes outside = missingBoxes(windows->second, area);
        covered.insert(covered.end(), outside.boxes.begin(), outside.boxes.end());
    }
    return missingBoxes(covered, area, limit);
}

ChannelCover::Missing ChannelCover::missing(const PixelBox& area) const {
    constexpr std::size_t kMostInAll = 10 * kMaxMissingBoxes;
    Missing result;
    if (area.empty()) return result;
    std::vector<PixelBox> lacking;
    bool truncated = false;
    for (const auto& [channel, covered] : boxes_) {
        MissingBoxes boxes =
            missingOf(channel, covered, area, std::min(kMaxMissingBoxes, kMostInAll - lacking.size()));
        if (boxes.boxes.empty() && !boxes.truncated) continue;
        truncated = truncated || boxes.truncated;
        lacking.insert(lacking.end(), boxes.boxes.begin(), boxes.boxes.end());
        result.channels.emplace_back(channel, std::move(boxes));
    }
    if (boxes_.empty()) lacking.push_back(area);
    result.inAny = unitedBoxes(lacking, area);
    result.inAny.truncated = result.inAny.truncated || truncated;
    return result;
}

}  // namespace MUtils
