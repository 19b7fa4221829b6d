#include "rawimage/inspect/quick_scan.h"

#include <algorithm>

#include "rawimage/read/torn_tail.h"
#include "rawimage/table_entries.h"
#include "support/bounded_read.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::size_t kTagsBetweenCalls = 4096;  // of the progress

}  // namespace

bool QuickScan::run() {
    if (!readHeader()) return false;
    end = kFileHeaderBytes;
    return header.infoTagsOffset == 0 ? listHeaders(fileBytes) : takeTable(nullptr);
}

bool QuickScan::resume(const Known& known) {
    if (!readHeader()) return false;
    resumes_ = true;
    end = known.end;
    order = known.order;
    return header.infoTagsOffset == 0 ? listHeaders(fileBytes) : takeTable(&known);
}

bool QuickScan::readHeader() {
    unsigned char bytes[kFileHeaderBytes];
    fileBytes = stream_.Length();
    if (stream_.Seek(0) != 0 || !readExactly(stream_, bytes, kFileHeaderBytes)) return false;
    header = decodeHeader(bytes);
    rules_ = TagRules(header);
    return header.magic == RIF_MAGIC;
}

// The table, to which the header leads, ends the file. Of tags that are `known` already, which may be null,
// it is not read: only their number is compared.
bool QuickScan::takeTable(const Known* known) {
    if (header.infoTagsOffset > static_cast<std::uint64_t>(std::max<std::int64_t>(fileBytes, 0)))
        return false;
    const auto offset = static_cast<std::int64_t>(header.infoTagsOffset);
    RIF_TAG table;
    if (offset < end || !readTag(offset, table) || table.id != TAG_INFO_TAGS) return false;
    if (rules_.headerFault(table, offset, fileBytes) != nullptr || offset + table.size != fileBytes)
        return false;
    if (known == nullptr ? !listByTable(table) : !listHeaders(offset)) return false;
    tableOffset = header.infoTagsOffset;
    if (known == nullptr || stopped) return true;
    return table.p1 >= known->pixelTags + pixelTags &&
           table.p1 <= known->tags + static_cast<std::int64_t>(tags.size());
}

// Between the tags that are listed may be others that tables omit.
bool QuickScan::listByTable(const RIF_TAG& table) {
    const auto offset = static_cast<std::int64_t>(header.infoTagsOffset);
    hasTable_ = true;
    tags.reserve(static_cast<std::size_t>(table.p1) + 8);
    TableEntries entries(stream_, offset + kTagHeaderBytes, table.p1);
    for (INFOTAG entry; entries.next(entry);) {
        if (entry.offset >= header.infoTagsOffset) return false;
        const auto at = static_cast<std::int64_t>(entry.offset);
        if (at != end && (at < end || !listHeaders(at))) return false;
        if (headerFault(entry, offset) != nullptr || !take(entry)) return false;
        if (tags.size() % kTagsBetweenCalls == 0 && !going()) return true;
    }
    return !entries.failed() && listHeaders(offset);
}

// Lists the tags up to `until`, which is the end of the file, or a place where a tag is known to begin and
// before which only tags are expected that the table omits or that have been appended.
bool QuickScan::listHeaders(std::int64_t until) {
    while (end < until) {
        INFOTAG tag;
        tag.offset = static_cast<std::uint64_t>(end);
        if (until - end < kTagHeaderBytes)
            return until == fileBytes && takeTornEnd(tag, "file ends inside a tag header");
        if (!readTag(end, tag) || (hasTable_ && isAlwaysListed(tag.id))) return false;
        if (tag.id == TAG_INFO_TAGS) return takeTableInWork(tag);
        if (const char* fault = headerFault(tag, until))
            return until == fileBytes && rules_.cutInPayload(tag, end, until) && takeTornEnd(tag, fault);
        if (!take(tag)) return false;
        if (tags.size() % kTagsBetweenCalls == 0 && !going()) return true;
    }
    return end == until;
}

// A writer that closes the file brings the table to the disk before it sets the offset in the header. The
// table is not there until then.
bool QuickScan::takeTableInWork(const RIF_TAG& tag) {
    if (!resumes_ || header.infoTagsOffset != 0) return false;
    const char* fault = rules_.headerFault(tag, end, fileBytes);
    if (fault == nullptr) return end + tag.size == fileBytes;
    addTornEnd(tag, fault);
    return rules_.cutInPayload(tag, end, fileBytes);
}

// What is behind the last tag, up to the end of the file, must be half a tag and nothing else.
bool QuickScan::takeTornEnd(const RIF_TAG& tag, const char* fault) {
    INFOTAG last[2];
    int count = 0;
    if (!tags.empty()) last[count++] = tags.back();
    if (tag.id != 0) {
        static_cast<RIF_TAG&>(last[count]) = tag;
        last[count++].offset = static_cast<std::uint64_t>(end);
    }
    addTornEnd(tag, fault);
    return endsInTornTag(stream_, last, count, fileBytes, rules_);
}

void QuickScan::addTornEnd(const RIF_TAG& tag, const char* fault) {
    TagGap gap;
    gap.offset = end;
    gap.end = fileBytes;
    gap.cause = fault;
    gap.tag = tag;
    gap.torn = true;
    tornEnd = gap;
}

const char* QuickScan::headerFault(const RIF_TAG& tag, std::int64_t until) {
    Checked& like = checked_[static_cast<std::uint32_t>(tag.p8) % checked_.size()];
    const bool known = tag.id == like.tag.id && tag.p1 == like.tag.p1 && tag.p4 == like.tag.p4 &&
                       tag.p5 == like.tag.p5 && like.payload.contains(tag.payloadBytes());
    if (known && tag.size <= until - end) return nullptr;
    const char* fault = rules_.headerFault(tag, end, until);
    if (fault == nullptr && isPixelTag(tag.id)) like = {tag, rules_.payloadRange(tag)};
    return fault;
}

bool QuickScan::take(const INFOTAG& tag) {
    // Only pixels are among the headers that were checked.
    const bool isPixels = checked_[static_cast<std::uint32_t>(tag.p8) % checked_.size()].tag.id == tag.id;
    if (isPixels ? !order.take(tag) : tag.id == TAG_INFO_TAGS) return false;
    if (isPixels) ++pixelTags;
    if (!isPixels || tag.p5 == 0) others.push_back(tag);  // the latter is perhaps a window
    tags.push_back(tag);
    end += tag.size;
    return true;
}

bool QuickScan::readTag(std::int64_t offset, RIF_TAG& tag) {
    unsigned char bytes[kTagHeaderBytes];
    if (stream_.Seek(static_cast<long>(offset)) != 0 || !readExactly(stream_, bytes, kTagHeaderBytes))
        return false;
    tag = decodeTag(bytes);
    return true;
}

bool QuickScan::going() {
    stopped = stopped || (progress_ && !progress_(end, fileBytes));
    return !stopped;
}

}  // namespace v1
}  // namespace MUtils
