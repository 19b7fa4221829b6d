#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "rawimage/area/pixel_box.h"
#include "rawimage/format.h"
#include "support/deflate.h"

namespace MUtils {

// Whether one tag of a raw image file is sound, as far as the format lets anyone tell. Pixels of a compressed
// file carry a checksum; everything else is held against its fixed sizes, fills and terminating zeros.

// Null when a tag with this header can stand at `offset` and end by `end`; else what is wrong with it.
const char* headerFault(const RIF_TAG& tag, std::int64_t offset, std::int64_t end, bool compressed);

// True when nothing but the tag's end speaks against headerFault(): the file was cut inside its payload.
bool cutInPayload(const RIF_TAG& tag, std::int64_t offset, std::int64_t end, bool compressed);

// The payload bytes that the header says in another way than by its size; -1 when it does not, or makes no
// sense.
std::int64_t payloadByParameters(const RIF_TAG& tag, bool compressed);

// The most payload bytes that the other fields of the header allow; -1 when they make no sense.
std::int64_t mostPayload(const RIF_TAG& tag, bool compressed);

// True when the size field agrees with a parameter of the header, whatever the id says: one damaged field
// cannot bring that about.
bool sizeConfirmed(const RIF_TAG& tag);

// True when the parameters that the format leaves unused in this tag are 0, as writers leave them.
bool unusedParametersClear(const RIF_TAG& tag);

// True for tags whose soundness needs no neighbour to be believed: compressed pixels, with their checksum.
inline bool provesItself(const RIF_TAG& tag, bool compressed) {
    return compressed && isPixelTag(tag.id);
}

// True for a list of channels in this format's records; readers pass over any other.
inline bool isChannelList(const RIF_TAG& tag) {
    return tag.id == TAG_CHANNEL_INFO && tag.p2 == kChannelRecordBytes;
}

// True for a tag that states a channel's window, maybe a malformed one.
inline bool statesWindow(const RIF_TAG& tag) {
    return isPixelTag(tag.id) && tag.p5 == 0 && tag.p7 == kChannelWindowMark;
}

// The window that a tag states, maybe without pixels. None when it states none, or one that is not within the
// frame.
std::optional<PixelBox> windowOf(const RIF_TAG& tag, const PixelBox& frame);

// Checks payloads. Keeps zlib's memory; one object serves one thread.
class PayloadCheck {
  public:
    // Texts are short; a tag that claims a longer one is not read for it.
    static constexpr std::int64_t kLongestText = 1 << 20;

    // What fault() says of compressed pixels that are sound, where more bytes follow in the payload.
    static const char kBytesBehindPixels[];

    // True when fault() looks at this tag's payload at all.
    static bool looksAt(const RIF_TAG& tag, bool compressed);

    // Null when the payload is what the header promises: a compressed one inflates, to its very last byte, to
    // exactly the values' bytes, with the right checksum. Throws std::bad_alloc.
    const char* fault(const RIF_TAG& tag, const unsigned char* payload, std::size_t size, bool compressed);

    // Where the payload of a tag ends by what it holds, of the `size` bytes that follow the header of a tag
    // whose size is in doubt: compressed pixels where their stream ends, with the right checksum, texts
    // behind their zero byte. -1 when it cannot be told.
    std::int64_t naturalSize(const RIF_TAG& tag, const unsigned char* bytes, std::size_t size,
                             bool compressed);

    // Bytes that came out of zlib so far.
    std::int64_t inflated() const { return inflated_; }

  private:
    int measure(std::size_t& outSize, const unsigned char* data, std::size_t& size);
    const char* pixelFault(const RIF_TAG& tag, const unsigned char* payload, std::size_t size);

    Inflater inflater_;
    std::int64_t inflated_ = 0;
};

}  // namespace MUtils
