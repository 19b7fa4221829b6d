#pragma once

#include <cstdint>
#include <limits>

#include "rawimage/format.h"

// What a tag must and may say: the facts of each tag id, and the checks of a header that follow from them.
// docs/raw_format.md describes the tags; one row here states each.

namespace MUtils {
inline namespace v1 {

// What the payload of a tag consists of, and which parameters give its size.
enum class PayloadKind {
    kFixed,     // `bytes`
    kPixels,    // p4 x p5 values of its RIF_PIXEL_KIND, or their zlib stream
    kRecords,   // p1 records of `bytes`
    kImage,     // p1 x p2 pixels of `bytes`
    kChannels,  // p1 channel records of p2 bytes
    kText       // `bytes`, then a text up to its NUL
};

// Whether a writer enters the tag in the table of a finished file.
enum class TableEntry { kAlways, kSometimes, kNever };

struct TagRow {
    std::uint32_t id;
    const char* name;
    int parameters;  // those behind the first so many are 0
    PayloadKind payload;
    int bytes;  // see PayloadKind
    TableEntry inTable;
    bool opaque;  // the payload may hold any bytes, whole tags included
};

// Null for an id that the format does not have.
const TagRow* findTagRow(std::uint32_t tagId);

inline bool isKnownTag(std::uint32_t tagId) {
    return findTagRow(tagId) != nullptr;
}

inline bool isOpaque(std::uint32_t tagId) {
    const TagRow* row = findTagRow(tagId);
    return row != nullptr && row->opaque;
}

inline bool isAlwaysListed(std::uint32_t tagId) {
    const TagRow* row = findTagRow(tagId);
    return row != nullptr && row->inTable == TableEntry::kAlways;
}

// True for a list of channels in this format's records; readers pass over any other.
inline bool isChannelList(const RIF_TAG& tag) {
    return tag.id == TAG_CHANNEL_INFO && tag.p2 == kChannelRecordBytes;
}

// Texts are short. A tag that claims a longer one is not read to check its end.
constexpr std::int64_t kLongestCheckedText = 1 << 20;

// Where the text begins in the payload; -1 for a tag without one.
std::int64_t textStart(const RIF_TAG& tag);

// True when the parameters that the format leaves unused in this tag are 0, as writers leave them.
bool unusedParametersClear(const RIF_TAG& tag);

// The bytes at the beginning of the header that give the payload's size: the id, the size field and the
// parameters that confirm it.
int headerBytesOfSize(const RIF_TAG& tag);

// True when the size field agrees with a parameter of the header, whatever the id is: a single damaged field
// does not bring that about.
bool sizeConfirmed(const RIF_TAG& tag);

// The payload sizes that a tag's other fields allow. A tag with less cannot be decoded. Readers pass over
// what is beyond the most; there it means that a field is damaged, and not that the file was cut.
struct PayloadRange {
    static constexpr std::int64_t kAny = std::numeric_limits<std::int64_t>::max();

    std::int64_t least = 0;
    std::int64_t most = kAny;

    // False when the parameters make no sense, whatever the size: negative, or more values than a reader
    // takes.
    bool possible() const { return least >= 0; }
    bool certain() const { return least == most; }
    bool contains(std::int64_t bytes) const { return possible() && bytes >= least && bytes <= most; }
};

// The rules of one file, which depend on how it stores pixels. A value that whoever checks tags is given.
class TagRules {
  public:
    explicit TagRules(bool compressed) : compressed_(compressed) {}
    // As the file header has it, which may be damaged.
    explicit TagRules(const RIF_HEADER& header) : TagRules((header.flags & RIF_COMPRESSED) != 0) {}

    // True when pixel payloads are zlib streams.
    bool compressed() const { return compressed_; }

    // The range {0, kAny} for an unknown id.
    PayloadRange payloadRange(const RIF_TAG& tag) const;
    // The payload size when the parameters allow no other; else -1.
    std::int64_t payloadByParameters(const RIF_TAG& tag) const;
    // The most payload bytes that the parameters allow; -1 when they make no sense or the id is unknown.
    std::int64_t mostPayload(const RIF_TAG& tag) const;

    // Null when a tag with this header fits between `offset` and `end`; else what is wrong with it.
    const char* headerFault(const RIF_TAG& tag, std::int64_t offset, std::int64_t end) const;
    // True when headerFault() objects to nothing but the tag's end: the file was cut inside its payload.
    bool cutInPayload(const RIF_TAG& tag, std::int64_t offset, std::int64_t end) const;

    // True for tags whose payload has a checksum: compressed pixels.
    bool provesItself(const RIF_TAG& tag) const { return compressed_ && isPixelTag(tag.id); }

  private:
    const char* contentFault(const RIF_TAG& tag) const;

    bool compressed_;
};

}  // namespace v1
}  // namespace MUtils
