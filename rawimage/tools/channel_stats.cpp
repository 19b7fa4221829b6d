#include "rawimage/tools/channel_stats.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "rawimage/area/box_sweep.h"
#include "rawimage/inspect/tag_check.h"

namespace MUtils {
inline namespace v1 {

void ChannelStats::add(const RIF_TAG& tag, std::int64_t rawBytes) {
    if (statesWindow(tag)) {  // no bucket
        windowed_.insert(tag.p8);
        return;
    }
    tags_.push_back({tag.p8, tag.p1, tag.p2, tag.p3, tag.p4, tag.p5,
                     static_cast<std::uint32_t>(tag.payloadBytes()), static_cast<std::int32_t>(rawBytes)});
}

// What the frame has and the inspection does not miss. None where that looked at another area than the frame,
// or took tags for missing.
std::optional<std::int64_t> ChannelStats::coveredOf(std::int32_t channel, const Inspection& file) const {
    if (file.area != file.facts.frame() || !file.doubted.empty() || !file.repairs.empty() ||
        windowed_.count(channel) > 0)
        return std::nullopt;
    const auto missing = std::lower_bound(
        file.missing.begin(), file.missing.end(), channel,
        [](const MissingPixels& pixels, std::int32_t index) { return pixels.channel < index; });
    std::int64_t covered = file.area.area();
    if (missing == file.missing.end() || missing->channel != channel) return covered;
    if (missing->boxes.truncated) return std::nullopt;
    for (const PixelBox& box : missing->boxes.boxes)
        covered -= box.area();
    return covered;
}

ChannelSummary ChannelStats::summariseOne(Position first, Position end, const Inspection& file,
                                          const FileSummary& summary) const {
    ChannelSummary channel;
    channel.record.index = first->channel;
    channel.record.type = first->type;
    channel.tags = std::distance(first, end);
    for (Position tag = first; tag != end; ++tag) {
        channel.storedBytes += tag->storedBytes;
        channel.rawBytes += tag->rawBytes;
    }
    if (framePixels(summary) == 0) return channel;
    channel.coveredPixels = coveredOf(first->channel, file);
    if (channel.coveredPixels) return channel;
    BoxSweep sweep(boxAt(0, 0, summary.resolution->width, summary.resolution->height));
    sweep.reserve(static_cast<std::size_t>(channel.tags));
    for (Position tag = first; tag != end; ++tag)
        sweep.add(boxAt(tag->x, tag->y, tag->width, tag->height));
    channel.coveredPixels = sweep.coveredPixels();
    return channel;
}

void ChannelStats::summarise(const Inspection& file, FileSummary& summary) {
    std::vector<ChannelSummary>& channels = summary.channels;
    std::vector<std::size_t> byIndex;  // rows of `channels`, in the order of their channel indices
    for (const RIF_CHANNEL& record : file.facts.channels) {
        byIndex.push_back(channels.size());
        channels.emplace_back();
        channels.back().record = record;
        channels.back().listed = true;
        if (framePixels(summary) > 0) channels.back().coveredPixels = 0;
    }
    const auto indexOf = [&channels](std::size_t row) { return channels[row].record.index; };
    std::sort(byIndex.begin(), byIndex.end(),
              [&indexOf](std::size_t a, std::size_t b) { return indexOf(a) < indexOf(b); });
    std::sort(tags_.begin(), tags_.end(),
              [](const PixelTag& a, const PixelTag& b) { return a.channel < b.channel; });

    auto row = byIndex.begin();
    int unlisted = 0;
    for (Position first = tags_.cbegin(); first != tags_.cend();) {
        const std::int32_t index = first->channel;
        const Position end =
            std::find_if(first, tags_.cend(), [index](const PixelTag& tag) { return tag.channel != index; });
        while (row != byIndex.end() && indexOf(*row) < index)
            ++row;
        const bool isListed = row != byIndex.end() && indexOf(*row) == index;
        if (!isListed && ++unlisted > kMaxUnlistedChannels) {
            ++summary.furtherChannels;
        } else {
            ChannelSummary channel = summariseOne(first, end, file, summary);
            // A list may name an index twice.
            for (; row != byIndex.end() && indexOf(*row) == index; ++row) {
                channel.record = channels[*row].record;
                channel.listed = true;
                channels[*row] = channel;
            }
            if (!isListed) channels.push_back(channel);
        }
        first = end;
    }
    tags_.clear();
}

}  // namespace v1
}  // namespace MUtils
