#include "rawimage/frame/tag_segment.h"

#include <algorithm>

#include "rawimage/area/tag_box.h"

namespace MUtils {
inline namespace v1 {

namespace {

bool hasPixels(const INFOTAG& tag) {
    return isPixelTag(tag.id) && tag.p4 > 0 && tag.p5 > 0;
}

}  // namespace

// Sorts the tags by channel: counts those of each, then puts each into its channel's part of the order.
void TagSegment::group() const {
    std::unordered_map<std::int32_t, Channel> channels;
    for (const INFOTAG& tag : tags_) {
        if (hasPixels(tag)) ++channels[tag.p8].count;
    }
    std::size_t all = 0;
    for (auto& [index, channel] : channels) {
        channel.from = all;
        all += channel.count;
        channel.count = 0;
    }
    std::vector<std::uint32_t> order(all);
    for (std::size_t i = 0; i < tags_.size(); ++i) {
        if (!hasPixels(tags_[i])) continue;
        Channel& channel = channels[tags_[i].p8];
        order[channel.from + channel.count++] = static_cast<std::uint32_t>(i);
    }
    order_.swap(order);
    channels_.swap(channels);
}

void TagSegment::find(std::int32_t channel, const PixelBox& box, std::vector<const INFOTAG*>& found) const {
    std::call_once(grouped_, [this] { group(); });
    const auto entry = channels_.find(channel);
    if (entry == channels_.end()) return;
    Channel& own = entry->second;
    std::call_once(own.indexed, [&] { own.index.build(tags_.data(), order_.data() + own.from, own.count); });
    std::vector<std::uint32_t> numbers;
    own.index.find(box, numbers);
    std::sort(numbers.begin(), numbers.end());
    for (const std::uint32_t number : numbers)
        found.push_back(&tags_[number]);
}

}  // namespace v1
}  // namespace MUtils
