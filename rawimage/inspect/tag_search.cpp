#include "rawimage/inspect/tag_search.h"

#include <algorithm>
#include <utility>

#include "rawimage/inspect/payload_pool.h"
#include "rawimage/table_entries.h"
#include "support/bytes.h"
#include "support/scratch_buffer.h"

namespace MUtils {

namespace {

constexpr std::int64_t kFirstChunk = 1 << 12;
constexpr std::int64_t kLargestChunk = 1 << 16;
constexpr std::int64_t kBudgetPerByte = 64;
constexpr std::int64_t kLeastBudget = 1 << 25;

}  // namespace

TableExtents::TableExtents(PStream& stream, const TagScan& scan, const TagRules& rules) {
    const std::uint64_t stored = scan.header.infoTagsOffset;
    const std::int64_t lastPlace = scan.fileBytes - kTagHeaderBytes;
    if (lastPlace < kFileHeaderBytes || stored < kFileHeaderBytes ||
        stored > static_cast<std::uint64_t>(lastPlace))
        return;
    const auto offset = static_cast<std::int64_t>(stored);
    ByteBuffer bytes;
    if (!readPayloadAt(stream, offset, kTagHeaderBytes, bytes)) return;
    const RIF_TAG tag = decodeTag(bytes.data());
    if (tag.id != TAG_INFO_TAGS || rules.headerFault(tag, offset, scan.fileBytes) != nullptr) return;
    TableEntries entries(stream, offset + kTagHeaderBytes, tag.p1);
    for (INFOTAG entry; entries.next(entry);) {
        if (entry.offset < kFileHeaderBytes || entry.offset > static_cast<std::uint64_t>(lastPlace)) continue;
        const auto at = static_cast<std::int64_t>(entry.offset);
        if (rules.headerFault(entry, at, scan.fileBytes) == nullptr)
            extents_.push_back({at, at + entry.size, isOpaque(entry.id)});
    }
    std::sort(extents_.begin(), extents_.end(),
              [](const Extent& a, const Extent& b) { return a.offset < b.offset; });
    for (std::size_t i = 0; i + 1 < extents_.size(); ++i)
        extents_[i].end = std::min(extents_[i].end, extents_[i + 1].offset);
}

std::vector<TableExtents::Extent>::const_iterator TableExtents::lastUpTo(std::int64_t offset) const {
    const auto after =
        std::upper_bound(extents_.begin(), extents_.end(), offset,
                         [](std::int64_t at, const Extent& extent) { return at < extent.offset; });
    return after == extents_.begin() ? extents_.end() : after - 1;
}

bool TableExtents::covers(std::int64_t offset, bool holdsTags) const {
    const auto extent = lastUpTo(offset);
    if (extent != extents_.end() && holdsTags && !extent->opaque) return false;
    return extent != extents_.end() && extent->offset < offset && offset < extent->end;
}

std::int64_t TableExtents::endOf(std::int64_t offset) const {
    const auto extent = lastUpTo(offset);
    return extent != extents_.end() && extent->offset == offset ? extent->end : -1;
}

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

bool TagSearch::leadsOn(const Place& place, std::int64_t offset) const {
    if (place.fault == nullptr || offset > scan_.fileBytes - kTagHeaderBytes) return true;
    return place.whole && rules_.cutInPayload(place.tag, offset, scan_.fileBytes);
}

const char* TagSearch::payloadFault(const RIF_TAG& tag, std::int64_t offset) {
    if (!PayloadCheck::looksAt(tag, rules_)) return nullptr;
    budget_ -= tag.size;
    if (budget_ < 0) return "too much damage to look through";
    if (!readPayloadAt(stream_, offset + kTagHeaderBytes, tag.payloadBytes(), payload_))
        return "payload cannot be read";
    const std::int64_t before = check_.inflated();
    const char* fault = check_.fault(tag, payload_.data(), static_cast<std::size_t>(tag.payloadBytes()));
    budget_ -= check_.inflated() - before;
    return fault;
}

const char* TagSearch::tableFault(const RIF_TAG& tag, std::int64_t offset) {
    if (tag.id != TAG_INFO_TAGS) return nullptr;
    budget_ -= tag.payloadBytes();
    if (budget_ < 0) return "too much damage to look through";
    std::int64_t foreign = 0;
    TableEntries entries(stream_, offset + kTagHeaderBytes, tag.p1);
    for (INFOTAG entry; entries.next(entry);) {
        const bool before =
            entry.offset >= kFileHeaderBytes && entry.offset < static_cast<std::uint64_t>(offset);
        foreign += before && isKnownTag(entry.id) ? 0 : 1;
    }
    if (entries.failed()) return "payload cannot be read";
    return 2 * foreign > tag.p1 ? "table of entries that lead nowhere" : nullptr;
}

// By what the payload holds, whatever the size says; -1 when it cannot be told.
std::int64_t TagSearch::naturalEnd(const RIF_TAG& tag, std::int64_t offset, std::int64_t end) {
    const std::int64_t start = offset + kTagHeaderBytes;
    const std::int64_t most = rules_.mostPayload(tag);
    const std::int64_t size = std::min(most == PayloadRange::kAny ? kLongestCheckedText : most, end - start);
    if (size <= 0 || budget_ < size) return -1;
    budget_ -= size;
    if (!readPayloadAt(stream_, start, size, payload_)) return -1;
    const std::int64_t before = check_.inflated();
    const std::int64_t natural = check_.naturalSize(tag, payload_.data(), static_cast<std::size_t>(size));
    budget_ -= check_.inflated() - before;
    return natural >= 0 ? start + natural : -1;
}

bool TagSearch::endsEarly(const RIF_TAG& tag, std::int64_t offset) {
    return naturalEnd(tag, offset, scan_.fileBytes) >= 0;
}

bool TagSearch::stands(const RIF_TAG& tag, std::int64_t offset, std::int64_t end) {
    // A checksum says more than a table, but a blob may be a file with checksums of its own.
    const bool proves = rules_.provesItself(tag);
    if (rules_.headerFault(tag, offset, end) != nullptr || !unusedParametersClear(tag) ||
        table().covers(offset, proves) || payloadFault(tag, offset) != nullptr)
        return false;
    if (proves || table().endOf(offset) == offset + tag.size) return true;
    const std::int64_t next = offset + tag.size;
    return leadsOn(look(next, scan_.fileBytes), next) && !isTableEntry(offset);
}

// An entry of a table whose own header is lost: the header of a tag, and the place where that tag is.
bool TagSearch::isTableEntry(std::int64_t offset) {
    unsigned char entry[kInfoTagBytes];
    unsigned char header[kTagHeaderBytes];
    if (!readAt(offset, entry, kInfoTagBytes)) return false;
    const std::uint64_t at = decodeInfoTag(entry).offset;
    return at < static_cast<std::uint64_t>(offset) &&
           readAt(static_cast<std::int64_t>(at), header, kTagHeaderBytes) &&
           std::equal(header, header + kTagHeaderBytes, entry);
}

// A place that something points to, within the damaged tag's `end`: what stands there need not be sound all
// through. What points there weakly asks for more: another tag behind it, as for one that is found, or two
// fields or a checksum that agree.
bool TagSearch::mayResume(std::int64_t offset, std::int64_t end, bool weakly) {
    if (offset == end) return true;
    if (offset > end) return false;
    const Place place = look(offset, end);
    const bool clear = !place.whole || unusedParametersClear(place.tag);
    if (place.fault != nullptr) return clear && !weakly && end == scan_.fileBytes && leadsOn(place, offset);
    if (!clear || isTableEntry(offset)) return false;
    const std::int64_t next = offset + place.tag.size;
    if (!weakly || next == end || leadsOn(look(next, end), next)) return true;
    if (rules_.provesItself(place.tag)) return payloadFault(place.tag, offset) == nullptr;
    return place.tag.payloadBytes() > 0 && rules_.payloadByParameters(place.tag) == place.tag.payloadBytes();
}

std::int64_t TagSearch::nextAfter(std::int64_t offset, const Place& place, std::int64_t end) {
    if (!place.whole) return search(offset + 1, end);
    const RIF_TAG& tag = place.tag;
    const std::int64_t start = offset + kTagHeaderBytes;
    const std::int64_t byParameters = rules_.payloadByParameters(tag);
    const bool cut = rules_.cutInPayload(tag, offset, end);
    // Nobody hides tags in a note or a record, so a tag under one that seems cut was written behind it.
    if (cut && byParameters >= 0 && end == scan_.fileBytes)
        return isOpaque(tag.id) ? end : search(start, end);
    const std::int64_t listed = table().endOf(offset);
    if (listed >= start && mayResume(listed, end, false)) return listed;
    const std::int64_t bySize = offset + tag.size;
    // What points beyond a tag that stands is the damaged field.
    const bool proves = rules_.provesItself(tag);
    const bool confirmed = sizeConfirmed(tag);
    const bool isText = tag.id == TAG_SCENE_INFO || tag.id == TAG_STAMP_TEXT;
    std::pair<std::int64_t, bool> ways[] = {
        {naturalEnd(tag, offset, end), !proves},
        {byParameters >= 0 ? start + byParameters : -1, true},
        // A checksum or an end of a text that is wrong leaves this one to the search, which looks for tags
        // before it.
        {(proves || isText) && !confirmed ? -1 : bySize, !confirmed},
    };
    std::sort(std::begin(ways), std::end(ways));
    for (const auto& [way, weakly] : ways) {
        if (way < start || !mayResume(way, end, weakly)) continue;
        if (way == end || look(way, end).fault == nullptr) return way;
        // It leads to what is cut itself: tags that stand across that place count for more.
        RIF_TAG above = tag;
        above.size = static_cast<std::uint32_t>(way - offset);
        return tagsAcross(above, offset, end);
    }
    // A size that nothing confirms may have been damaged so that it reaches over sound tags.
    const bool sizeLeadsOn = bySize >= start && mayResume(bySize, end, true);
    return search(offset + 1, sizeLeadsOn ? bySize : end);
}

// As many bytes as can be read of those asked for.
int TagSearch::readChunk(std::int64_t offset, std::int64_t size) {
    int got = 0;
    unsigned char* bytes = reserve(chunk_, static_cast<std::size_t>(kLargestChunk + kTagHeaderBytes));
    if (stream_.Seek(static_cast<long>(offset)) != 0) return 0;
    (void)stream_.Read(bytes, static_cast<int>(size), got);
    return got;
}

std::int64_t TagSearch::tagsAcross(const RIF_TAG& above, std::int64_t offset, std::int64_t end) {
    const std::int64_t next = offset + above.size;
    const std::int64_t last = search(offset + 1, next, end, true);
    if (last == next || isOpaque(above.id)) return last;
    for (std::int64_t from = offset + 1; from < last;) {
        const std::int64_t first = search(from, last);
        from = first;
        for (Place place = look(from, last); place.fault == nullptr; place = look(from, last))
            from += place.tag.size;
        if (from == last) return first;
        ++from;
    }
    return last;
}

std::int64_t TagSearch::search(std::int64_t from, std::int64_t to, std::int64_t end, bool beyond) {
    std::int64_t step = kFirstChunk;
    const std::int64_t last = std::min(to, end - kTagHeaderBytes + 1);
    for (std::int64_t start = from; start < last && budget_ > 0 && going(start);) {
        const std::int64_t size = std::min(step, last - start) + kTagHeaderBytes - 1;
        const int got = readChunk(start, size);
        if (got < size && step > kFirstChunk) {  // behind a part of the disk that is gone the file goes on
            step = kFirstChunk;
            continue;
        }
        for (std::int64_t at = 0; at < step && at + kTagHeaderBytes <= got; ++at) {
            const std::uint32_t id = loadU32(chunk_.data() + at);
            if (id < kFirstTagId || id > kLastTagId) continue;
            const RIF_TAG tag = decodeTag(chunk_.data() + at);
            if (beyond && start + at + tag.size <= to) continue;
            if (stands(tag, start + at, end)) return start + at;
        }
        start += step;
        step = std::min(step * 2, kLargestChunk);
    }
    return to;
}

}  // namespace MUtils
