#include "rawimage/inspect/channel_cover.h"

#include <algorithm>

#include "rawimage/area/tag_box.h"
#include "rawimage/inspect/tag_check.h"

namespace MUtils {
inline namespace v1 {

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

void ChannelCover::addBoxes(std::int32_t channel, const std::vector<PixelBox>& boxes) {
    std::vector<PixelBox>& covered = boxes_[channel];
    covered.insert(covered.end(), boxes.begin(), boxes.end());
}

// A channel that only a damaged header has is none.
void ChannelCover::addSpoiled(const RIF_TAG& drawn) {
    const auto channel = boxes_.find(drawn.p8);
    if (channel != boxes_.end() && isPixelTag(drawn.id))
        spoiled_[drawn.p8].push_back({boxOf(drawn), channel->second.size()});
}

void ChannelCover::addPixels(const TagScan& scan, bool repairedSpoils) {
    auto repair = scan.repairs.begin();
    auto doubt = scan.doubted.begin();
    for (const INFOTAG& tag : scan.tags) {
        if (!isPixelTag(tag.id)) continue;
        const auto offset = static_cast<std::int64_t>(tag.offset);
        while (repair != scan.repairs.end() && repair->offset < offset)
            ++repair;
        while (doubt != scan.doubted.end() && *doubt < offset)
            ++doubt;
        const bool repaired = repairedSpoils && repair != scan.repairs.end() && repair->offset == offset;
        std::vector<PixelBox>& covered = boxes_[tag.p8];
        if (repaired) {
            addSpoiled(repair->found);
        } else if (doubt != scan.doubted.end() && *doubt == offset) {
            addSpoiled(tag);
        } else {
            covered.push_back(boxOf(tag));
        }
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

MissingBoxes ChannelCover::withSpoiled(std::int32_t channel, MissingBoxes missing, const PixelBox& area,
                                       std::size_t limit) const {
    constexpr std::size_t kMostLookedAt = 64;  // the rest counts as missing
    const auto found = spoiled_.find(channel);
    if (found == spoiled_.end()) return missing;
    const std::vector<PixelBox>& boxes = boxes_.at(channel);
    bool truncated = missing.truncated;
    std::size_t looked = 0;
    for (const Spoiled& spoiled : found->second) {
        std::vector<PixelBox> later;
        if (++looked <= kMostLookedAt)
            later.assign(boxes.begin() + static_cast<std::ptrdiff_t>(spoiled.later), boxes.end());
        const MissingBoxes rest = missingBoxes(later, spoiled.box, limit);
        missing.boxes.insert(missing.boxes.end(), rest.boxes.begin(), rest.boxes.end());
        truncated = truncated || rest.truncated;
    }
    missing = unitedBoxes(missing.boxes, area, limit);
    missing.truncated = missing.truncated || truncated;
    return missing;
}

ChannelCover::Missing ChannelCover::missing(const PixelBox& area) const {
    constexpr std::size_t kMostInAll = 10 * kMaxMissingBoxes;
    Missing result;
    if (area.empty()) return result;
    std::vector<PixelBox> lacking;
    bool truncated = false;
    for (const auto& [channel, covered] : boxes_) {
        const std::size_t limit = std::min(kMaxMissingBoxes, kMostInAll - lacking.size());
        MissingBoxes boxes = withSpoiled(channel, missingOf(channel, covered, area, limit), area, limit);
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

}  // namespace v1
}  // namespace MUtils
