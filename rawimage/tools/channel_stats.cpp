#include "rawimage/tools/channel_stats.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "rawimage/area/box_sweep.h"
#include "rawimage/inspect/tag_check.h"

namespace MUtils {
inline namespace v1 {

void ChannelStats::add(const RIF_TAG& tag, std::int64_t rawBytes) {
    if (statesWindow(tag)) return;  // no bucket
    tags_.push_back({tag.p8, tag.p1, tag.p2, tag.p3, tag.p4, tag.p5,
                     static_cast<std::uint32_t>(tag.payloadBytes()), static_cast<std::int32_t>(rawBytes)});
}

ChannelSummary ChannelStats::summariseOne(Position first, Position end, const FileSummary& summary) {
    ChannelSummary channel;
    channel.record.index = first->channel;
    channel.record.type = first->type;
    channel.tags = std::distance(first, end);
    const bool hasFrame = framePixels(summary) > 0;
    BoxSweep sweep(hasFrame ? boxAt(0, 0, summary.resolution->width, summary.resolution->height)
                            : PixelBox());
    if (hasFrame) sweep.reserve(static_cast<std::size_t>(channel.tags));
    for (; first != end; ++first) {
        channel.storedBytes += first->storedBytes;
        channel.rawBytes += first->rawBytes;
        sweep.add(boxAt(first->x, first->y, first->width, first->height));
    }
    if (hasFrame) channel.coveredPixels = sweep.coveredPixels();
    return channel;
}

void ChannelStats::summarise(const std::vector<RIF_CHANNEL>& listed, FileSummary& summary) {
    std::vector<ChannelSummary>& channels = summary.channels;
    std::vector<std::size_t> byIndex;  // rows of `channels`, in the order of their channel indices
    for (const RIF_CHANNEL& record : listed) {
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
            ChannelSummary channel = summariseOne(first, end, summary);
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
