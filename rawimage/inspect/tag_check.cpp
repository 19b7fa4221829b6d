#include "rawimage/inspect/tag_check.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "rawimage/payload_range.h"

namespace MUtils {

namespace {

constexpr int kInflaterOutOfMemory = -4;  // zlib's code
constexpr std::size_t kSceneTextStart = 4;

bool isKnown(std::uint32_t tagId) {
    return tagId >= kFirstTagId && tagId <= kLastTagId;
}

bool pixelTypeFits(const RIF_TAG& tag) {
    const RIF_PIXEL_KIND* kind = findChannelKind(tag.p1);
    return kind != nullptr && kind->tagId == tag.id;
}

// A list of records of another size than ours has p1 records of p2 bytes.
PayloadRange expectedRange(const RIF_TAG& tag, bool compressed) {
    if (tag.id != TAG_CHANNEL_INFO) return payloadRange(tag, compressed);
    if (tag.p1 < 0 || tag.p2 < 0) return {-1, -1};
    const std::int64_t bytes = std::int64_t{tag.p1} * tag.p2;
    return {bytes, bytes};
}

// What is wrong with a header wherever it stands.
const char* contentFault(const RIF_TAG& tag, bool compressed) {
    if (!isKnown(tag.id)) return "unknown tag id";
    if (tag.size < kTagHeaderBytes) return "size less than the tag header's";
    const PayloadRange range = expectedRange(tag, compressed);
    if (!range.possible()) return "impossible parameters";
    if (isPixelTag(tag.id) && !pixelTypeFits(tag)) return "channel type of another tag";
    const std::int64_t payload = tag.payloadBytes();
    return payload < range.least || payload > range.most ? "size that its parameters contradict" : nullptr;
}

bool allZero(const unsigned char* bytes, std::size_t size) {
    return std::all_of(bytes, bytes + size, [](unsigned char byte) { return byte == 0; });
}

// A text that ends in its only zero byte.
bool isText(const unsigned char* bytes, std::size_t size) {
    return size > 0 && std::memchr(bytes, 0, size) == bytes + size - 1;
}

const char* channelsFault(const RIF_TAG& tag, const unsigned char* payload) {
    for (std::int32_t i = 0; i < tag.p1; ++i) {
        const RIF_CHANNEL channel = decodeChannel(payload + std::int64_t{i} * kChannelRecordBytes);
        if (channel.index != i) return "channel record out of order";
        if (channel.type < 0 || channel.type > RCT_FLOAT4) return "channel record of an unknown type";
    }
    return nullptr;
}

const char* noteFault(const unsigned char* payload, std::size_t size) {
    const auto* end = static_cast<const unsigned char*>(std::memchr(payload, 0, size));
    if (end == nullptr) return "note without an end";
    return allZero(end, size - static_cast<std::size_t>(end - payload)) ? nullptr
                                                                        : "note with bytes behind its end";
}

}  // namespace

const char* headerFault(const RIF_TAG& tag, std::int64_t offset, std::int64_t end, bool compressed) {
    if (const char* fault = contentFault(tag, compressed)) return fault;
    return tag.size > end - offset ? "payload goes past the end of the file" : nullptr;
}

bool cutInPayload(const RIF_TAG& tag, std::int64_t offset, std::int64_t end, bool compressed) {
    return contentFault(tag, compressed) == nullptr && tag.size > end - offset;
}

std::int64_t payloadByParameters(const RIF_TAG& tag, bool compressed) {
    if (!isKnown(tag.id)) return -1;
    const PayloadRange range = expectedRange(tag, compressed);
    return range.least == range.most ? range.least : -1;
}

std::int64_t mostPayload(const RIF_TAG& tag, bool compressed) {
    if (!isKnown(tag.id)) return -1;
    const PayloadRange range = expectedRange(tag, compressed);
    return range.possible() ? range.most : -1;
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

bool unusedParametersClear(const RIF_TAG& tag) {
    const std::int32_t parameters[] = {tag.p1, tag.p2, tag.p3, tag.p4, tag.p5, tag.p6, tag.p7, tag.p8};
    int used = 0;
    switch (tag.id) {
        case TAG_RESOLUTION:
        case TAG_REGIONS_INFO: used = 3; break;
        case TAG_CHANNEL_INFO:
        case TAG_PREVIEW: used = 2; break;
        case TAG_INFO_TAGS:
        case TAG_STAMP:
        case TAG_OVERLAY_TEXTS:
        case TAG_SETTINGS: used = 1; break;
        default: used = isPixelTag(tag.id) ? 8 : 0;
    }
    return std::all_of(parameters + used, std::end(parameters),
                       [](std::int32_t value) { return value == 0; });
}

std::optional<PixelBox> windowOf(const RIF_TAG& tag, const PixelBox& frame) {
    if (!statesWindow(tag)) return std::nullopt;
    const PixelBox window = boxAt(tag.p2, tag.p3, tag.p4, tag.p6);
    const bool sound = window.width() >= 0 && window.height() >= 0 && contains(frame, window);
    return sound ? std::optional(window) : std::nullopt;
}

const char PayloadCheck::kBytesBehindPixels[] = "bytes behind the end of the pixels";

bool PayloadCheck::looksAt(const RIF_TAG& tag, bool compressed) {
    switch (tag.id) {
        case TAG_CHANNEL_INFO: return isChannelList(tag);
        case TAG_SCENE_INFO:
        case TAG_STAMP_TEXT: return tag.payloadBytes() <= kLongestText;
        case TAG_NOTE: return true;
        default: return provesItself(tag, compressed);
    }
}

int PayloadCheck::measure(std::size_t& outSize, const unsigned char* data, std::size_t& size) {
    const int code = inflater_.measure(outSize, data, size);
    if (code == kInflaterOutOfMemory) throw std::bad_alloc();
    inflated_ += static_cast<std::int64_t>(outSize);
    return code;
}

const char* PayloadCheck::pixelFault(const RIF_TAG& tag, const unsigned char* payload, std::size_t size) {
    const auto expected = static_cast<std::size_t>(pixelBytes(tag));
    std::size_t came = expected;
    std::size_t used = size;
    const int code = measure(came, payload, used);
    if (came > expected) return "pixels inflate to more than their region";
    if (code != 0) return "pixels do not inflate";
    if (came != expected) return "pixels inflate to less than their region";
    return used == size ? nullptr : kBytesBehindPixels;
}

const char* PayloadCheck::fault(const RIF_TAG& tag, const unsigned char* payload, std::size_t size,
                                bool compressed) {
    if (provesItself(tag, compressed)) return pixelFault(tag, payload, size);
    switch (tag.id) {
        case TAG_CHANNEL_INFO: return isChannelList(tag) ? channelsFault(tag, payload) : nullptr;
        case TAG_SCENE_INFO:
            return size == kSceneTextStart || isText(payload + kSceneTextStart, size - kSceneTextStart)
                       ? nullptr
                       : "scene name without a proper end";
        case TAG_STAMP_TEXT: return isText(payload, size) ? nullptr : "stamp text without a proper end";
        case TAG_NOTE: return noteFault(payload, size);
        default: return nullptr;
    }
}

std::int64_t PayloadCheck::naturalSize(const RIF_TAG& tag, const unsigned char* bytes, std::size_t size,
                                       bool compressed) {
    if (provesItself(tag, compressed)) {
        const std::int64_t expected = pixelBytes(tag);
        if (expected < 0) return -1;
        std::size_t came = static_cast<std::size_t>(expected);
        std::size_t used = size;
        const bool ends = measure(came, bytes, used) == 0 && came == static_cast<std::size_t>(expected);
        return ends ? static_cast<std::int64_t>(used) : -1;
    }
    const std::size_t start = tag.id == TAG_SCENE_INFO ? kSceneTextStart : 0;
    if ((tag.id != TAG_SCENE_INFO && tag.id != TAG_STAMP_TEXT) || size <= start) return -1;
    const auto* end = static_cast<const unsigned char*>(std::memchr(bytes + start, 0, size - start));
    return end != nullptr ? end - bytes + 1 : -1;
}

}  // namespace MUtils
