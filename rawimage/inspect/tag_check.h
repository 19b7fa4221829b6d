#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "rawimage/area/pixel_box.h"
#include "rawimage/tag_rules.h"
#include "support/deflate.h"

namespace MUtils {
inline namespace v1 {

// True for a tag that states a channel's window, maybe a malformed one.
inline bool statesWindow(const RIF_TAG& tag) {
    return isPixelTag(tag.id) && tag.p5 == 0 && tag.p7 == kChannelWindowMark;
}

// The window that a tag states, maybe without pixels. None when it states none, or one that is not within the
// frame.
std::optional<PixelBox> windowOf(const RIF_TAG& tag, const PixelBox& frame);

// Checks payloads, as far as the format allows: compressed pixels have a checksum; everything else is held
// against its fixed sizes, fills and terminating zeros. Keeps zlib's memory; one object serves one thread.
class PayloadCheck {
  public:
    explicit PayloadCheck(const TagRules& rules) : rules_(rules) {}

    // What fault() returns for sound compressed pixels behind which more bytes follow in the payload.
    static const char kBytesBehindPixels[];

    // True when fault() looks at this tag's payload at all.
    static bool looksAt(const RIF_TAG& tag, const TagRules& rules);

    // Null when the payload is what the header promises: a compressed one inflates, to its very last byte, to
    // exactly the values' bytes, with the right checksum. Throws std::bad_alloc.
    const char* fault(const RIF_TAG& tag, const unsigned char* payload, std::size_t size);

    // Where the payload of a tag ends by what it holds, of the `size` bytes that follow the header of a tag
    // whose size is in doubt: compressed pixels where their stream ends, with the right checksum, texts
    // behind their zero byte. -1 when the content does not show it.
    std::int64_t sizeByContent(const RIF_TAG& tag, const unsigned char* bytes, std::size_t size);

    // Bytes that came out of zlib so far.
    std::int64_t inflated() const { return inflated_; }

  private:
    int measure(std::size_t& outSize, const unsigned char* data, std::size_t& size);
    const char* pixelFault(const RIF_TAG& tag, const unsigned char* payload, std::size_t size);

    TagRules rules_;
    Inflater inflater_;
    std::int64_t inflated_ = 0;
};

}  // namespace v1
}  // namespace MUtils
