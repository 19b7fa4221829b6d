#include "rawimage/tag_rules.h"

#include <algorithm>
#include <iterator>

#include "support/deflate.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr auto kAlways = TableEntry::kAlways;
constexpr auto kSometimes = TableEntry::kSometimes;
constexpr auto kNever = TableEntry::kNever;
constexpr int kSceneValueBytes = 4;

// By id, without gaps.
constexpr TagRow kRows[] = {
    // id, name, parameters, payload, bytes, in the table, opaque
    {TAG_RESOLUTION, "resolution", 3, PayloadKind::kFixed, 0, kAlways, false},
    {TAG_REGIONS_INFO, "regions info", 3, PayloadKind::kFixed, 0, kAlways, false},
    {TAG_CHAN_FLOAT3, "float3 pixels", 8, PayloadKind::kPixels, 0, kAlways, false},
    {TAG_CHAN_FLOAT2, "float2 pixels", 8, PayloadKind::kPixels, 0, kAlways, false},
    {TAG_CHAN_FLOAT, "float pixels", 8, PayloadKind::kPixels, 0, kAlways, false},
    {TAG_CHAN_INT, "int pixels", 8, PayloadKind::kPixels, 0, kAlways, false},
    {TAG_CHANNEL_INFO, "channel info", 2, PayloadKind::kChannels, 0, kSometimes, false},
    {TAG_INFO_TAGS, "tag table", 1, PayloadKind::kRecords, kInfoTagBytes, kNever, true},
    {TAG_CAMERA_INFO, "camera", 0, PayloadKind::kFixed, kCameraRecordBytes, kNever, false},
    {TAG_RENDER_REGION, "render region", 0, PayloadKind::kFixed, kRegionRecordBytes, kNever, false},
    {TAG_PREVIEW, "preview", 2, PayloadKind::kImage, sizeof(RGB24), kAlways, false},
    {TAG_SCENE_INFO, "scene", 0, PayloadKind::kText, kSceneValueBytes, kNever, false},
    {TAG_STAMP, "stamp", 1, PayloadKind::kRecords, 1, kAlways, true},
    {TAG_NOTE, "note", 0, PayloadKind::kFixed, kNoteBytes, kAlways, false},
    {TAG_CHAN_FLOAT4, "float4 pixels", 8, PayloadKind::kPixels, 0, kAlways, false},
    {TAG_STAMP_TEXT, "stamp text", 0, PayloadKind::kText, 0, kAlways, false},
    {TAG_OVERLAY_TEXTS, "overlay texts", 1, PayloadKind::kRecords, 1, kAlways, true},
    {TAG_SETTINGS, "settings", 1, PayloadKind::kRecords, 1, kAlways, true},
};

constexpr bool rowsAreInOrder() {
    for (std::uint32_t i = 0; i < std::size(kRows); ++i) {
        if (kRows[i].id != kFirstTagId + i) return false;
    }
    return std::size(kRows) == kLastTagId - kFirstTagId + 1;
}
static_assert(rowsAreInOrder(), "a row for each tag, found by its id");

PayloadRange exactly(std::int64_t bytes) {
    return {bytes, bytes};
}

// A zlib stream of the values can be as small as inflateLimit allows and as large as the room a writer gives
// it. Values that are stored as they are lie between the two.
PayloadRange deflatedRange(std::int64_t raw) {
    if (raw < 0) return exactly(raw);
    constexpr auto kExpansion = static_cast<std::int64_t>(inflateLimit(1) - inflateLimit(0));
    constexpr auto kAllowance = static_cast<std::int64_t>(inflateLimit(0));
    const std::int64_t beyond = std::max<std::int64_t>(raw - kAllowance, 0);
    const auto most = static_cast<std::int64_t>(deflateBound(static_cast<std::size_t>(raw)));
    return {(beyond + kExpansion - 1) / kExpansion, most};
}

}  // namespace

const TagRow* findTagRow(std::uint32_t tagId) {
    return tagId >= kFirstTagId && tagId <= kLastTagId ? &kRows[tagId - kFirstTagId] : nullptr;
}

std::int64_t textStart(const RIF_TAG& tag) {
    const TagRow* row = findTagRow(tag.id);
    return row != nullptr && row->payload == PayloadKind::kText ? row->bytes : -1;
}

bool unusedParametersClear(const RIF_TAG& tag) {
    const std::int32_t parameters[] = {tag.p1, tag.p2, tag.p3, tag.p4, tag.p5, tag.p6, tag.p7, tag.p8};
    const TagRow* row = findTagRow(tag.id);
    return std::all_of(parameters + (row != nullptr ? row->parameters : 0), std::end(parameters),
                       [](std::int32_t value) { return value == 0; });
}

int headerBytesOfSize(const RIF_TAG& tag) {
    constexpr int kFirst = 8, kField = 4;  // behind id and size; each parameter
    const TagRow* row = findTagRow(tag.id);
    if (row == nullptr) return kFirst;
    switch (row->payload) {
        case PayloadKind::kPixels: return kFirst + 5 * kField;
        case PayloadKind::kChannels:
        case PayloadKind::kImage: return kFirst + 2 * kField;
        case PayloadKind::kRecords: return kFirst + kField;
        case PayloadKind::kFixed:
        case PayloadKind::kText: break;
    }
    return kFirst;
}

bool sizeConfirmed(const RIF_TAG& tag) {
    constexpr std::int64_t kPreviewPixelBytes = sizeof(RGB24);
    const std::int64_t payload = tag.payloadBytes();
    if (payload <= 0) return false;
    const std::int64_t first = tag.p1;
    const bool preview = payload % kPreviewPixelBytes == 0 && first * tag.p2 == payload / kPreviewPixelBytes;
    return payload == first || payload == first * kChannelRecordBytes || payload == first * kInfoTagBytes ||
           preview;
}

PayloadRange TagRules::payloadRange(const RIF_TAG& tag) const {
    const TagRow* row = findTagRow(tag.id);
    if (row == nullptr) return {};
    switch (row->payload) {
        case PayloadKind::kPixels: {
            const std::int64_t raw = pixelBytes(tag);
            return compressed_ ? deflatedRange(raw) : exactly(raw);
        }
        case PayloadKind::kChannels:
            // Records of another size than ours are some other writer's.
            return exactly(tag.p1 >= 0 && tag.p2 >= 0 ? std::int64_t{tag.p1} * tag.p2 : -1);
        case PayloadKind::kImage: return exactly(valuesBytes(tag.p1, tag.p2, row->bytes));
        case PayloadKind::kRecords: return exactly(std::int64_t{tag.p1} * row->bytes);
        case PayloadKind::kText: return {row->bytes, PayloadRange::kAny};
        case PayloadKind::kFixed: break;
    }
    return exactly(row->bytes);
}

std::int64_t TagRules::payloadByParameters(const RIF_TAG& tag) const {
    const PayloadRange range = payloadRange(tag);
    return range.certain() ? range.least : -1;
}

std::int64_t TagRules::mostPayload(const RIF_TAG& tag) const {
    const PayloadRange range = payloadRange(tag);
    return isKnownTag(tag.id) && range.possible() ? range.most : -1;
}

// What is wrong with a header wherever it is.
const char* TagRules::contentFault(const RIF_TAG& tag) const {
    if (tag.id == 0) return "zeros in place of a tag id";
    if (!isKnownTag(tag.id)) return "unknown tag id";
    if (tag.size < kTagHeaderBytes) return "size less than the tag header's";
    const PayloadRange range = payloadRange(tag);
    if (!range.possible()) return "impossible parameters";
    const RIF_PIXEL_KIND* kind = findChannelKind(tag.p1);
    if (isPixelTag(tag.id) && (kind == nullptr || kind->tagId != tag.id))
        return "channel type of another tag";
    return range.contains(tag.payloadBytes()) ? nullptr : "size that its parameters contradict";
}

const char* TagRules::headerFault(const RIF_TAG& tag, std::int64_t offset, std::int64_t end) const {
    if (const char* fault = contentFault(tag)) return fault;
    return tag.size > end - offset ? "payload goes past the end of the file" : nullptr;
}

bool TagRules::cutInPayload(const RIF_TAG& tag, std::int64_t offset, std::int64_t end) const {
    return contentFault(tag) == nullptr && tag.size > end - offset;
}

}  // namespace v1
}  // namespace MUtils

const char* MUtils::tagName(std::uint32_t tagId) {
    const MUtils::TagRow* row = MUtils::findTagRow(tagId);
    return row != nullptr ? row->name : "unknown";
}
