#include "rawimage/inspect/frame_facts.h"

#include <algorithm>

#include "rawimage/inspect/payload_pool.h"
#include "rawimage/inspect/tag_check.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::int32_t kWholeFrame = -1;  // a render region's kind

template <class Wanted>
const INFOTAG* lastTag(const std::vector<INFOTAG>& tags, Wanted wanted) {
    const auto found = std::find_if(tags.rbegin(), tags.rend(), wanted);
    return found != tags.rend() ? &*found : nullptr;
}

}  // namespace

PixelBox FrameFacts::frame() const {
    return resolution ? boxAt(0, 0, resolution->p1, resolution->p2) : PixelBox();
}

PixelBox FrameFacts::area() const {
    const bool isPart = region && region->kind != kWholeFrame && region->width > 0 && region->height > 0;
    if (!isPart) return frame();
    return boxAt(region->left, region->top, region->width, region->height);
}

std::string FrameFacts::channelName(int index) const {
    // Sound lists are in the order of their indices.
    const auto at = static_cast<std::size_t>(index);
    return index >= 0 && at < channels.size() && channels[at].index == index ? channels[at].name : "";
}

bool readChannelList(PStream& stream, const INFOTAG& tag, std::vector<RIF_CHANNEL>& list) {
    list.clear();
    ByteBuffer bytes;
    const auto start = static_cast<std::int64_t>(tag.offset) + kTagHeaderBytes;
    if (!readPayloadAt(stream, start, tag.payloadBytes(), bytes)) return false;
    for (std::int32_t i = 0; i < tag.p1; ++i)
        list.push_back(decodeChannel(bytes.data() + std::int64_t{i} * kChannelRecordBytes));
    return true;
}

const INFOTAG* readFrameFacts(PStream& stream, const std::vector<INFOTAG>& tags, FrameFacts& facts) {
    facts = FrameFacts();
    const INFOTAG* unreadable = nullptr;
    const auto withId = [](std::uint32_t id) { return [id](const RIF_TAG& tag) { return tag.id == id; }; };
    if (const INFOTAG* tag = lastTag(tags, withId(TAG_RESOLUTION))) facts.resolution = *tag;
    if (const INFOTAG* tag = lastTag(tags, withId(TAG_REGIONS_INFO))) facts.buckets = *tag;
    if (const INFOTAG* tag = lastTag(tags, withId(TAG_RENDER_REGION))) {
        ByteBuffer bytes;
        const auto start = static_cast<std::int64_t>(tag->offset) + kTagHeaderBytes;
        if (readPayloadAt(stream, start, kRegionRecordBytes, bytes)) {
            facts.region = decodeRegion(bytes.data());
        } else {
            unreadable = tag;
        }
    }
    const INFOTAG* list = lastTag(tags, isChannelList);
    if (list != nullptr && !readChannelList(stream, *list, facts.channels)) unreadable = list;
    return unreadable;
}

}  // namespace v1
}  // namespace MUtils
