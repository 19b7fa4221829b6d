#include "rawimage/read/torn_tail.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "rawimage/tag_rules.h"
#include "support/bounded_read.h"
#include "support/bytes.h"
#include "support/deflate.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr int kChunk = 1 << 14;

bool isText(const RIF_TAG& tag) {
    return textStart(tag) >= 0;
}

bool sizeFits(const RIF_TAG& tag, const TagRules& rules) {
    return isKnownTag(tag.id) && rules.payloadRange(tag).contains(tag.payloadBytes());
}

// The position of the text's first NUL in the first `size` bytes of the payload; -1 when there is none.
std::int64_t firstNul(const RIF_TAG& tag, const ByteBuffer& bytes, std::int64_t size) {
    const std::int64_t start = std::min(textStart(tag), size);
    const auto rest = static_cast<std::size_t>(size - start);
    const void* nul = rest > 0 ? std::memchr(bytes.data() + start, 0, rest) : nullptr;
    return nul != nullptr ? static_cast<const unsigned char*>(nul) - bytes.data() : -1;
}

// What a zlib stream in `size` bytes of payload gives: the bytes it takes, whether it ends there with all its
// values, and whether it gives more than those.
struct Inflated {
    std::int64_t used;
    bool whole;
    bool tooMany;
};

Inflated inflated(const RIF_TAG& tag, const ByteBuffer& bytes, std::int64_t size) {
    Inflater inflater;
    const auto expected = static_cast<std::size_t>(pixelBytes(tag));
    std::size_t came = expected;
    auto used = static_cast<std::size_t>(size);
    const bool ended = inflater.measure(came, bytes.data(), used) == 0;
    return {static_cast<std::int64_t>(used), ended && came == expected, ended || came > expected};
}

// Whether the content of the payload ends where the size field puts its end.
bool endsAsItSays(PStream& stream, const INFOTAG& tag, const TagRules& rules) {
    if (rules.payloadRange(tag).certain()) return true;
    const std::int64_t size = tag.payloadBytes();
    // Values that were stored as they are; a compressed file may contain them too.
    if (isPixelTag(tag.id) && size == MUtils::pixelBytes(tag)) return true;
    if (!isPixelTag(tag.id) && (!isText(tag) || size > kLongestCheckedText)) return false;
    ByteBuffer bytes;
    if (!readPayloadAt(stream, static_cast<std::int64_t>(tag.offset) + kTagHeaderBytes, size, bytes))
        return false;
    if (isText(tag)) return size == textStart(tag) || firstNul(tag, bytes, size) == size - 1;
    const Inflated pixels = inflated(tag, bytes, size);
    return pixels.whole && pixels.used == size;
}

// Whether the bytes up to `end` are the beginning of the payload and contain no end of it.
bool breaksOff(PStream& stream, const INFOTAG& tag, std::int64_t end, const TagRules& rules) {
    if (rules.payloadRange(tag).certain()) return true;
    const std::int64_t start = static_cast<std::int64_t>(tag.offset) + kTagHeaderBytes;
    const std::int64_t size = end - start;
    if (!isPixelTag(tag.id) && (!isText(tag) || size > kLongestCheckedText)) return false;
    ByteBuffer bytes;
    if (!readPayloadAt(stream, start, size, bytes)) return false;
    if (isText(tag)) return firstNul(tag, bytes, size) < 0;
    const Inflated pixels = inflated(tag, bytes, size);
    return !pixels.tooMany && pixels.used == size;
}

// Whether the bytes up to `end`, fewer than a header's, begin like the header of a tag that there is.
bool beginsAHeader(PStream& stream, std::int64_t offset, std::int64_t end) {
    constexpr std::int64_t kIdBytes = 4;
    const std::int64_t size = std::min(end - offset, kIdBytes);
    ByteBuffer bytes;
    if (!readPayloadAt(stream, offset, size, bytes)) return false;
    for (std::uint32_t id = kFirstTagId; id <= kLastTagId; ++id) {
        unsigned char known[kIdBytes];
        storeU32(known, id);
        if (std::equal(known, known + size, bytes.data())) return true;
    }
    return false;
}

// Whether a tag may begin between the two places: one whose size its parameters confirm or, at `offset`, to
// which a walk leads, any tag of a known id. Bytes that cannot be read may be a tag.
bool mayHoldATag(PStream& stream, std::int64_t offset, std::int64_t end, const TagRules& rules) {
    unsigned char bytes[kChunk];
    bool first = true;
    for (; end - offset >= kTagHeaderBytes; first = false) {
        const auto size = static_cast<int>(std::min<std::int64_t>(kChunk, end - offset));
        if (stream.Seek(static_cast<long>(offset)) != 0 || !readExactly(stream, bytes, size)) return true;
        const int places = size - kTagHeaderBytes + 1;
        for (int i = 0; i < places; ++i) {
            if (!isKnownTag(loadU32(bytes + i))) continue;
            if ((first && i == 0) || sizeFits(decodeTag(bytes + i), rules)) return true;
        }
        offset += places;
    }
    return false;
}

}  // namespace

int findEnd(PStream& stream, std::int64_t from, std::int64_t& end) {
    end = stream.Length();
    if (end >= 0) return 0;
    end = from;
    unsigned char bytes[kChunk];
    int code = stream.Seek(static_cast<long>(from));
    for (int got = kChunk; code == 0 && got == kChunk; end += got)
        code = stream.Read(bytes, kChunk, got);
    // Some streams answer an error at their end.
    return code != 0 && stream.IsEOF() ? 0 : code;
}

bool endsInTornTag(PStream& stream, const INFOTAG* tags, int count, std::int64_t end, const TagRules& rules) {
    const auto fits = [&rules](const INFOTAG& tag) { return sizeFits(tag, rules); };
    if (!std::all_of(tags, tags + count, fits)) return false;
    const std::int64_t walked = count > 0
                                    ? static_cast<std::int64_t>(tags[count - 1].offset) + tags[count - 1].size
                                    : kFileHeaderBytes;
    const bool halfHeader = walked < end;
    const int before = halfHeader ? count - 1 : count - 2;
    try {
        if (before >= 0 && !endsAsItSays(stream, tags[before], rules)) return false;
        return halfHeader ? beginsAHeader(stream, walked, end)
                          : breaksOff(stream, tags[count - 1], end, rules);
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool isTableAtEnd(PStream& stream, const RIF_TAG& table, std::int64_t offset, std::int64_t end,
                  const TagRules& rules) {
    const std::int64_t rest = end - offset;
    const std::int64_t byEntries = kTagHeaderBytes + std::int64_t{std::max(table.p1, 0)} * kInfoTagBytes;
    const std::int64_t bySize = std::max<std::int64_t>(table.size, kTagHeaderBytes);
    if (rest == byEntries || rest == bySize) return true;
    // Entries look like tags: where the counts differ, those behind the smaller one keep the file whole.
    return !mayHoldATag(stream, offset + std::min(byEntries, bySize), end, rules);
}

}  // namespace v1
}  // namespace MUtils
