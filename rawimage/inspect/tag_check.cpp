#include "rawimage/inspect/tag_check.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace MUtils {
inline namespace v1 {

namespace {

constexpr int kInflaterOutOfMemory = -4;  // zlib's code

bool allZero(const unsigned char* bytes, std::size_t size) {
    return std::all_of(bytes, bytes + size, [](unsigned char byte) { return byte == 0; });
}

// A text ends in its only zero byte; a scene without a name has none.
const char* textFault(const RIF_TAG& tag, const unsigned char* payload, std::size_t size) {
    const auto start = static_cast<std::size_t>(textStart(tag));
    const bool ends = size > start && std::memchr(payload + start, 0, size - start) == payload + size - 1;
    if (tag.id == TAG_SCENE_INFO) return ends || size == start ? nullptr : "scene name without a proper end";
    return ends ? nullptr : "stamp text without a proper end";
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

std::optional<PixelBox> windowOf(const RIF_TAG& tag, const PixelBox& frame) {
    if (!statesWindow(tag)) return std::nullopt;
    const PixelBox window = boxAt(tag.p2, tag.p3, tag.p4, tag.p6);
    const bool sound = window.width() >= 0 && window.height() >= 0 && contains(frame, window);
    return sound ? std::optional(window) : std::nullopt;
}

const char PayloadCheck::kBytesBehindPixels[] = "bytes behind the end of the pixels";

bool PayloadCheck::looksAt(const RIF_TAG& tag, const TagRules& rules) {
    if (textStart(tag) >= 0) return tag.payloadBytes() <= kLongestCheckedText;
    return tag.id == TAG_NOTE || isChannelList(tag) || rules.provesItself(tag);
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

const char* PayloadCheck::fault(const RIF_TAG& tag, const unsigned char* payload, std::size_t size) {
    if (rules_.provesItself(tag)) return pixelFault(tag, payload, size);
    if (isChannelList(tag)) return channelsFault(tag, payload);
    if (tag.id == TAG_NOTE) return noteFault(payload, size);
    return textStart(tag) >= 0 ? textFault(tag, payload, size) : nullptr;
}

std::int64_t PayloadCheck::sizeByContent(const RIF_TAG& tag, const unsigned char* bytes, std::size_t size) {
    if (rules_.provesItself(tag)) {
        const std::int64_t expected = pixelBytes(tag);
        if (expected < 0) return -1;
        std::size_t came = static_cast<std::size_t>(expected);
        std::size_t used = size;
        const bool ends = measure(came, bytes, used) == 0 && came == static_cast<std::size_t>(expected);
        return ends ? static_cast<std::int64_t>(used) : -1;
    }
    const std::int64_t text = textStart(tag);
    const auto start = static_cast<std::size_t>(text);
    if (text < 0 || size <= start) return -1;
    const auto* end = static_cast<const unsigned char*>(std::memchr(bytes + start, 0, size - start));
    return end != nullptr ? end - bytes + 1 : -1;
}

}  // namespace v1
}  // namespace MUtils
