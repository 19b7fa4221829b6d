#include "rawimage/payload_range.h"

#include <algorithm>

#include "support/deflate.h"

namespace MUtils {

namespace {

constexpr std::int64_t kLeastScene = 4;  // its value; an empty rest counts as no name

PayloadRange exactly(std::int64_t bytes) {
    return {bytes, bytes};
}

std::int64_t valuesBytes(std::int32_t width, std::int32_t height, int valueSize) {
    if (width < 0 || height < 0) return -1;
    const std::int64_t count = std::int64_t{width} * height;
    return count <= std::numeric_limits<std::int32_t>::max() / valueSize ? count * valueSize : -1;
}

// A zlib stream of the values can be as small as inflateLimit allows and as large as the room a writer gives
// it. Values that are stored as they are lie between the two.
PayloadRange pixelRange(const RIF_TAG& tag, bool compressed) {
    const std::int64_t raw = pixelBytes(tag);
    if (raw < 0 || !compressed) return exactly(raw);
    constexpr auto kExpansion = static_cast<std::int64_t>(inflateLimit(1) - inflateLimit(0));
    constexpr auto kAllowance = static_cast<std::int64_t>(inflateLimit(0));
    const std::int64_t beyond = std::max<std::int64_t>(raw - kAllowance, 0);
    return {(beyond + kExpansion - 1) / kExpansion, raw + raw / 100 + 12};
}

}  // namespace

std::int64_t pixelBytes(const RIF_TAG& tag) {
    const RIF_PIXEL_KIND* kind = findPixelKind(tag.id);
    return kind != nullptr ? valuesBytes(tag.p4, tag.p5, kind->valueSize) : 0;
}

PayloadRange payloadRange(const RIF_TAG& tag, bool compressed) {
    switch (tag.id) {
        case TAG_RESOLUTION:
        case TAG_REGIONS_INFO: return exactly(0);
        case TAG_CHAN_FLOAT:
        case TAG_CHAN_FLOAT2:
        case TAG_CHAN_FLOAT3:
        case TAG_CHAN_FLOAT4:
        case TAG_CHAN_INT: return pixelRange(tag, compressed);
        case TAG_CHANNEL_INFO:
            // A record size other than ours is some other writer's list, which readers pass over.
            if (tag.p2 != kChannelRecordBytes) return {};
            return exactly(std::int64_t{tag.p1} * kChannelRecordBytes);
        case TAG_INFO_TAGS: return exactly(std::int64_t{tag.p1} * kInfoTagBytes);
        case TAG_CAMERA_INFO: return exactly(kCameraRecordBytes);
        case TAG_RENDER_REGION: return exactly(kRegionRecordBytes);
        case TAG_PREVIEW: return exactly(valuesBytes(tag.p1, tag.p2, sizeof(RGB24)));
        case TAG_SCENE_INFO: return {kLeastScene, PayloadRange::kAny};
        case TAG_STAMP:
        case TAG_OVERLAY_TEXTS:
        case TAG_SETTINGS: return exactly(tag.p1);
        case TAG_NOTE: return exactly(kNoteBytes);
        default: return {};
    }
}

}  // namespace MUtils
