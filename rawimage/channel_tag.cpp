#include "rawimage/channel_tag.h"

#include <climits>

namespace MUtils {
inline namespace v1 {

std::int64_t pixelTagBytes(int width, int height, int valueSize) {
    const std::int64_t bytes = valuesBytes(width, height, valueSize);
    return bytes <= INT_MAX - kTagHeaderBytes ? bytes : -1;
}

std::int64_t ChannelTag::bytes() const {
    const RIF_PIXEL_KIND* kind = findChannelKind(type);
    return kind != nullptr ? pixelTagBytes(width, height, kind->valueSize) : -1;
}

// Last channel first, deliberately.
void listChannelTags(const RegionFeed::Call& call, std::vector<ChannelTag>& tags) {
    const MRRegionData& region = *call.region;
    tags.clear();
    for (int i = region.numChannels() - 1; i >= 0; --i) {
        if (i >= region.channels.Count() || region.channels[i].data == nullptr) continue;
        const RegionChannel& channel = region.channels[i];
        tags.push_back({channel.data, i, channel.type, region.x0, region.y0, region.width, region.height,
                        call.b, call.c});
    }
}

}  // namespace v1
}  // namespace MUtils
