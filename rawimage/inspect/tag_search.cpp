#include "rawimage/inspect/tag_search.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "rawimage/inspect/payload_pool.h"
#include "rawimage/table_entries.h"
#include "support/bytes.h"
#include "support/scratch_buffer.h"

// Resynchronisation. Tags follow each other without a mark between them, so a damaged tag hides where the
// next one begins. resumeAfter() finds it in two steps.
//
// First come the places that something points to: the table's extent of the damaged tag, the end that its
// parameters give, the end of its content (of a zlib stream or a text), and its size field. A pointer may be
// what is damaged, so a place counts only when isResumePoint() accepts it. The table is a reliable source:
// the header of a tag there is enough. The others are doubtful unless two of them agree: there must be
// another tag behind that tag, or its own fields must prove it.
//
// Failing that, searchBytes() tries every byte. With no pointer to the place, the tag must be sound alone: a
// header without a fault, unused parameters that are zero, a payload that passes its check and, when the
// payload has no checksum, another tag or the end of the file behind it. Bytes that the table gives to a
// listed tag are no candidates, as a blob may contain a whole raw image.
//
// The opposite happens, too: a tag whose header is sound, in which bytes are missing, so that its size
// reaches into the tags behind it, or over them. findTagInside() finds the first of those.

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::int64_t kFirstChunk = 1 << 12;
constexpr std::int64_t kLargestChunk = 1 << 16;
constexpr std::int64_t kBudgetPerByte = 64;
constexpr std::int64_t kLeastBudget = 1 << 25;
constexpr const char* kBudgetSpent = "too much damage to look through";
constexpr const char* kUnreadable = "payload cannot be read";

bool isFileHeader(const RIF_HEADER& header) {
    return header.magic == RIF_MAGIC && header.formatFirst == RIF_FORMAT_FIRST &&
           header.formatSecond == RIF_FORMAT_SECOND && (header.flags & ~RIF_COMPRESSED) == 0 &&
           header.reserved == 0;
}

// The first place in [at, end) where the id of a tag may be, going by its second byte; `end` when there is
// none. There are bytes behind `end`.
std::int64_t nextId(const unsigned char* bytes, std::int64_t at, std::int64_t end) {
    constexpr std::uint32_t kSecondByte = kFirstTagId >> 8;
    static_assert(kSecondByte == kLastTagId >> 8 && kSecondByte <= 0xff);
    const void* found =
        at < end ? std::memchr(bytes + at + 1, kSecondByte, static_cast<std::size_t>(end - at)) : nullptr;
    return found != nullptr ? static_cast<const unsigned char*>(found) - bytes - 1 : end;
}

// Likewise for the magic of a file, by its first byte.
std::int64_t nextMagic(const unsigned char* bytes, std::int64_t at, std::int64_t end) {
    const void* found =
        at < end ? std::memchr(bytes + at, RIF_MAGIC & 0xff, static_cast<std::size_t>(end - at)) : nullptr;
    return found != nullptr ? static_cast<const unsigned char*>(found) - bytes : end;
}

}  // namespace

TagSearch::TagSearch(PStream& stream, const TagScan& scan, const InspectOptions& options,
                     const TagRules& rules)
    : stream_(stream),
      scan_(scan),
      options_(options),
      rules_(rules),
      check_(rules),
      budget_(std::min(scan.fileBytes, INT64_MAX / (2 * kBudgetPerByte)) * kBudgetPerByte + kLeastBudget) {}

bool TagSearch::going(std::int64_t offset) {
    if (!stopped_ && options_.progress) stopped_ = !options_.progress(offset, scan_.fileBytes);
    return !stopped_;
}

const TableExtents& TagSearch::table() {
    if (!table_) table_.emplace(stream_, scan_, rules_);
    return *table_;
}

bool TagSearch::readAt(std::int64_t offset, unsigned char* bytes, int size) {
    int got = 0;
    return stream_.Seek(static_cast<long>(offset)) == 0 && stream_.Read(bytes, size, got) == 0 && got == size;
}

TagSearch::Place TagSearch::look(std::int64_t offset, std::int64_t end) {
    Place place;
    if (end - offset < kTagHeaderBytes) {
        place.fault = "file ends inside a tag header";
        return place;
    }
    unsigned char bytes[kTagHeaderBytes] = {};
    if (!readAt(offset, bytes, kTagHeaderBytes)) {
        place.fault = "tag header cannot be read";
        return place;
    }
    place.whole = true;
    place.tag = decodeTag(bytes);
    place.fault = rules_.headerFault(place.tag, offset, end);
    return place;
}

bool TagSearch::isTagOrEnd(const Place& place, std::int64_t offset) const {
    if (place.fault == nullptr || offset > scan_.fileBytes - kTagHeaderBytes) return true;
    return place.whole && rules_.cutInPayload(place.tag, offset, scan_.fileBytes);
}

const char* TagSearch::payloadFault(const RIF_TAG& tag, std::int64_t offset) {
    if (!PayloadCheck::looksAt(tag, rules_)) return nullptr;
    budget_ -= tag.size;
    if (budget_ < 0) return kBudgetSpent;
    if (!readPayloadAt(stream_, offset + kTagHeaderBytes, tag.payloadBytes(), payload_)) return kUnreadable;
    const std::int64_t before = check_.inflated();
    const char* fault = check_.fault(tag, payload_.data(), static_cast<std::size_t>(tag.payloadBytes()));
    budget_ -= check_.inflated() - before;
    return fault;
}

const char* TagSearch::tableFault(const RIF_TAG& tag, std::int64_t offset) {
    if (tag.id != TAG_INFO_TAGS) return nullptr;
    budget_ -= tag.payloadBytes();
    if (budget_ < 0) return kBudgetSpent;
    std::int64_t foreign = 0;
    TableEntries entries(stream_, offset + kTagHeaderBytes, tag.p1);
    for (INFOTAG entry; entries.next(entry);) {
        const bool before =
            entry.offset >= kFileHeaderBytes && entry.offset < static_cast<std::uint64_t>(offset);
        foreign += before && isKnownTag(entry.id) ? 0 : 1;
    }
    if (entries.failed()) return kUnreadable;
    return 2 * foreign > tag.p1 ? "table of entries that lead nowhere" : nullptr;
}

// Where the payload ends by its content, whatever the size field is; -1 when the content does not show
// it.
std::int64_t TagSearch::endByContent(const RIF_TAG& tag, std::int64_t offset, std::int64_t end) {
    const std::int64_t start = offset + kTagHeaderBytes;
    const std::int64_t most = rules_.mostPayload(tag);
    const std::int64_t size = std::min(most == PayloadRange::kAny ? kLongestCheckedText : most, end - start);
    if (size <= 0 || budget_ < size) return -1;
    budget_ -= size;
    if (!readPayloadAt(stream_, start, size, payload_)) return -1;
    const std::int64_t before = check_.inflated();
    const std::int64_t content = check_.sizeByContent(tag, payload_.data(), static_cast<std::size_t>(size));
    budget_ -= check_.inflated() - before;
    return content >= 0 ? start + content : -1;
}

bool TagSearch::hasWholePayload(const RIF_TAG& tag, std::int64_t offset) {
    return endByContent(tag, offset, scan_.fileBytes) >= 0;
}

// Whether everything about the tag is right when no tag before it leads there.
bool TagSearch::isSoundAlone(const RIF_TAG& tag, std::int64_t offset, std::int64_t end) {
    // A checksum counts for more than the table, except in a blob, which may hold a file with checksums.
    const bool proves = rules_.provesItself(tag);
    if (rules_.headerFault(tag, offset, end) != nullptr || !unusedParametersClear(tag) ||
        table().covers(offset, proves) || payloadFault(tag, offset) != nullptr)
        return false;
    if (proves || table().endOf(offset) == offset + tag.size) return true;
    const std::int64_t next = offset + tag.size;
    return !isTableEntry(offset) && (isTagOrEnd(look(next, scan_.fileBytes), next) || fieldsProve(tag));
}

// Whether the size of a payload agrees with the parameters, which damage or chance does not bring about.
bool TagSearch::fieldsProve(const RIF_TAG& tag) const {
    return tag.payloadBytes() > 0 && rules_.payloadByParameters(tag) == tag.payloadBytes();
}

// Whether these bytes are an entry of a table whose own header is lost: the header of a tag, then the place
// where that tag is.
bool TagSearch::isTableEntry(std::int64_t offset) {
    unsigned char entry[kInfoTagBytes];
    unsigned char header[kTagHeaderBytes];
    if (!readAt(offset, entry, kInfoTagBytes)) return false;
    const std::uint64_t at = decodeInfoTag(entry).offset;
    return at < static_cast<std::uint64_t>(offset) &&
           readAt(static_cast<std::int64_t>(at), header, kTagHeaderBytes) &&
           std::equal(header, header + kTagHeaderBytes, entry);
}

// Whether the walk may go on at a place that something in the damaged tag points to. `end` is where the bytes
// end that are in doubt.
bool TagSearch::isResumePoint(std::int64_t offset, std::int64_t end, Source source) {
    if (offset >= end) return offset == end;
    const bool reliable = source == Source::kReliable;
    const Place place = look(offset, end);
    const bool clear = !place.whole || unusedParametersClear(place.tag);
    if (place.fault != nullptr)
        return clear && reliable && end == scan_.fileBytes && isTagOrEnd(place, offset);
    if (!clear || isTableEntry(offset)) return false;
    const std::int64_t next = offset + place.tag.size;
    if (reliable || next == end || isTagOrEnd(look(next, end), next)) return true;
    return fieldsProve(place.tag);
}

TagSearch::Resume TagSearch::resumeAfter(std::int64_t offset, const Place& place, std::int64_t end) {
    // Tags in a blob in which the file breaks off may be its content.
    if (place.whole && isOpaque(place.tag.id) && end == scan_.fileBytes &&
        rules_.cutInPayload(place.tag, offset, end))
        return {end};
    const auto resume = place.whole ? resumeByPointers(place.tag, offset, end) : std::nullopt;
    return resume ? *resume : Resume{findTag(offset + 1, end, end)};
}

// The first place that the table or the damaged tag points to and that is accepted.
std::optional<TagSearch::Resume> TagSearch::resumeByPointers(const RIF_TAG& tag, std::int64_t offset,
                                                             std::int64_t end) {
    const std::int64_t start = offset + kTagHeaderBytes;
    const std::int64_t listed = table().endOf(offset);
    if (listed >= start && isResumePoint(listed, end, Source::kReliable)) return Resume{listed, true};
    const std::int64_t byParameters = rules_.payloadByParameters(tag);
    const bool proves = rules_.provesItself(tag);
    const bool confirmed = sizeConfirmed(tag);
    // The check of the content has failed for the size, and sound tags may lie before the place it leads to.
    const bool denied = !confirmed && (proves || textStart(tag) >= 0);
    std::pair<std::int64_t, Source> pointers[] = {
        {endByContent(tag, offset, end), proves ? Source::kReliable : Source::kDoubtful},
        {byParameters >= 0 ? start + byParameters : -1, Source::kDoubtful},
        {denied ? -1 : offset + tag.size, confirmed ? Source::kReliable : Source::kDoubtful},
    };
    // The nearest first: a pointer that leads beyond a sound tag is the damaged field.
    std::sort(std::begin(pointers), std::end(pointers));
    for (const auto& [target, source] : pointers) {
        if (target < start || !isResumePoint(target, end, source)) continue;
        if (target == end || look(target, end).fault == nullptr) return Resume{target, true};
        // It leads to a tag that is cut off: sound tags across that place count for more.
        RIF_TAG above = tag;
        above.size = static_cast<std::uint32_t>(target - offset);
        return Resume{findTagInside(above, offset, end)};
    }
    return std::nullopt;
}

std::int64_t TagSearch::findTagInside(const RIF_TAG& tag, std::int64_t offset, std::int64_t end) {
    const std::int64_t next = offset + tag.size;
    if (!isOpaque(tag.id)) return searchBytes(offset + 1, next, end, Ends::kAnywhere);
    // The content of a blob may be tags, too. Those behind it are one that reaches over its end and the chain
    // that leads to that one, unless a file header shows that they are a file.
    const std::int64_t last = searchBytes(offset + 1, next, end, Ends::kBeyondSearch);
    if (last == next || findOtherFile(offset + 1, last)) return last;
    for (std::int64_t from = offset + 1; from < last; ++from) {
        const std::int64_t first = findTag(from, last, last);
        from = first;
        for (Place place = look(from, last); place.fault == nullptr; place = look(from, last))
            from += place.tag.size;
        if (from == last) return first;
    }
    return last;
}

// As many bytes as can be read of those asked for.
int TagSearch::readChunk(std::int64_t offset, std::int64_t size) {
    int got = 0;
    unsigned char* bytes = reserve(chunk_, static_cast<std::size_t>(kLargestChunk + kTagHeaderBytes));
    if (stream_.Seek(static_cast<long>(offset)) != 0) return 0;
    (void)stream_.Read(bytes, static_cast<int>(size), got);
    return got;
}

// The first place in [from, to) where a tag is sound alone and ends by `end`, behind `to` when `ends` asks
// for it; `to` when there is none.
std::int64_t TagSearch::searchBytes(std::int64_t from, std::int64_t to, std::int64_t end, Ends ends) {
    std::int64_t step = kFirstChunk;
    const std::int64_t last = std::min(to, end - kTagHeaderBytes + 1);
    for (std::int64_t start = from; start < last && budget_ > 0 && going(start);) {
        const std::int64_t size = std::min(step, last - start) + kTagHeaderBytes - 1;
        const int got = readChunk(start, size);
        if (got < size && step > kFirstChunk) {  // behind a part of the disk that is gone the file goes on
            step = kFirstChunk;
            continue;
        }
        const unsigned char* bytes = chunk_.data();
        const std::int64_t stop = std::min<std::int64_t>(step, got - kTagHeaderBytes + 1);
        for (std::int64_t at = nextId(bytes, 0, stop); at < stop; at = nextId(bytes, at + 1, stop)) {
            if (!isKnownTag(loadU32(chunk_.data() + at))) continue;
            const RIF_TAG tag = decodeTag(chunk_.data() + at);
            if (ends == Ends::kBeyondSearch && start + at + tag.size <= to) continue;
            if (isSoundAlone(tag, start + at, end)) return start + at;
        }
        start += step;
        step = std::min(step * 2, kLargestChunk);
    }
    return to;
}

std::optional<TagSearch::OtherFile> TagSearch::findOtherFile(std::int64_t from, std::int64_t to) {
    const std::int64_t last = std::min(to, scan_.fileBytes - kFileHeaderBytes + 1);
    for (std::int64_t start = from; start < last && going(start); start += kLargestChunk) {
        const int got = readChunk(start, std::min(kLargestChunk, last - start) + kFileHeaderBytes - 1);
        const unsigned char* bytes = chunk_.data();
        const std::int64_t stop = std::min<std::int64_t>(kLargestChunk, got - kFileHeaderBytes + 1);
        for (std::int64_t at = nextMagic(bytes, 0, stop); at < stop; at = nextMagic(bytes, at + 1, stop)) {
            if (loadU32(chunk_.data() + at) != RIF_MAGIC) continue;
            const RIF_HEADER header = decodeHeader(chunk_.data() + at);
            const std::int64_t offset = start + at;
            if (isFileHeader(header) && !table().covers(offset, false))
                return OtherFile{offset, endOfOtherFile(offset, header)};
        }
    }
    return std::nullopt;
}

// A finished file with tags behind its table was the content of a blob whose own header is lost. Any other
// one goes on to the end.
std::int64_t TagSearch::endOfOtherFile(std::int64_t offset, const RIF_HEADER& header) {
    const auto left = static_cast<std::uint64_t>(scan_.fileBytes - offset);
    if (header.infoTagsOffset < kFileHeaderBytes || header.infoTagsOffset >= left) return scan_.fileBytes;
    const std::int64_t table = offset + static_cast<std::int64_t>(header.infoTagsOffset);
    const Place place = look(table, scan_.fileBytes);
    if (place.fault != nullptr || place.tag.id != TAG_INFO_TAGS) return scan_.fileBytes;
    const std::int64_t end = table + place.tag.size;
    return look(end, scan_.fileBytes).fault == nullptr ? end : scan_.fileBytes;
}

}  // namespace v1
}  // namespace MUtils
