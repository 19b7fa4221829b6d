#include "rawimage/frame/frame_info.h"

#include <algorithm>
#include <set>

#include "support/bytes.h"

namespace MUtils {
inline namespace v1 {

namespace {

template <class Wanted>
const FrameChannel* lastListed(const std::vector<FrameChannel>& channels, Wanted wanted) {
    const auto found = std::find_if(channels.rbegin(), channels.rend(),
                                    [&wanted](const FrameChannel& one) { return one.listed && wanted(one); });
    return found != channels.rend() ? &*found : nullptr;
}

int componentsOf(RegionChannelType type) {
    const RIF_PIXEL_KIND* kind = findChannelKind(type);
    return kind != nullptr ? kind->valueSize / 4 : 0;
}

FrameChannel listedChannel(const RIF_CHANNEL& record) {
    FrameChannel channel;
    channel.index = record.index;
    channel.type = static_cast<RegionChannelType>(record.type);
    channel.alias = static_cast<RegionChannelAlias>(record.alias);
    channel.flags = record.flags;
    channel.name = record.name;
    channel.listed = true;
    return channel;
}

}  // namespace

int FrameChannel::components() const {
    return componentsOf(type);
}

const char* FrameChannel::componentName(int component) const {
    static constexpr const char* kColour[] = {"R", "G", "B", "A"};
    static constexpr const char* kVector[] = {"X", "Y", "Z"};
    const int count = components();
    if (count < 2 || component < 0 || component >= count) return "";
    return type == RCT_VECTOR || type == RCT_FLOAT2 ? kVector[component] : kColour[component];
}

const FrameChannel* FrameInfo::find(const std::string& name) const {
    return lastListed(channels, [&name](const FrameChannel& channel) { return channel.name == name; });
}

const FrameChannel* FrameInfo::find(RegionChannelAlias alias) const {
    return lastListed(channels, [alias](const FrameChannel& channel) { return channel.alias == alias; });
}

const FrameChannel* FrameInfo::findIndex(int index) const {
    const auto found = std::find_if(channels.begin(), channels.end(),
                                    [index](const FrameChannel& channel) { return channel.index == index; });
    return found != channels.end() ? &*found : nullptr;
}

ChannelTarget::ChannelTarget(const FrameChannel& of, void* memory, ValueFormat as)
    : channel(of.index), type(of.type), format(as), data(memory) {}

int ChannelTarget::components() const {
    return componentsOf(type);
}

bool listAgrees(const std::vector<RIF_CHANNEL>& list, const std::map<std::int32_t, std::int32_t>& channels) {
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (list[i].index != static_cast<std::int32_t>(i)) return false;
        if (list[i].type < RCT_NONE || list[i].type > RCT_FLOAT4) return false;
    }
    return list.empty() || std::all_of(channels.begin(), channels.end(), [&list](const auto& channel) {
               const auto& [index, type] = channel;
               return index >= 0 && static_cast<std::size_t>(index) < list.size() &&
                      list[static_cast<std::size_t>(index)].type == type;
           });
}

std::shared_ptr<const FrameInfo> makeFrameInfo(const Inspection& file,
                                               const std::map<std::int32_t, std::int32_t>& channels) {
    const auto info = std::make_shared<FrameInfo>();
    info->fileBytes = file.fileBytes;
    info->finished = file.tableOffset != 0;
    info->compressed = file.compressed;
    info->hasPixels = !channels.empty();
    info->frame = file.facts.frame();
    info->area = file.facts.area();
    info->region = file.facts.region;
    if (file.facts.resolution && file.facts.resolution->p3 != 0)
        info->pixelAspect = floatFromBits(static_cast<std::uint32_t>(file.facts.resolution->p3));
    if (const auto& buckets = file.facts.buckets)
        info->buckets = BucketSize{{buckets->p1, buckets->p2}, buckets->p3 != 0};
    for (const RIF_CHANNEL& record : file.facts.channels)
        info->channels.push_back(listedChannel(record));
    std::set<std::int32_t> listed;
    for (const FrameChannel& channel : info->channels)
        listed.insert(channel.index);
    const std::size_t most = info->channels.size() + kMaxUnlistedFrameChannels;
    for (const auto& [index, type] : channels) {
        if (listed.count(index) != 0) continue;
        info->furtherChannels = info->channels.size() == most;
        if (info->furtherChannels) break;
        FrameChannel& channel = info->channels.emplace_back();
        channel.index = index;
        channel.type = static_cast<RegionChannelType>(type);
    }
    return info;
}

}  // namespace v1
}  // namespace MUtils
