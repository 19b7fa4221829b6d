#include "rawimage/inspect/table_match.h"

#include <algorithm>

#include "rawimage/inspect/gap_list.h"
#include "rawimage/table_entries.h"

namespace MUtils {
inline namespace v1 {

TableMatch::TableMatch(PStream& stream, const TagScan& scan)
    : scan_(scan), confirmed_(scan.tags.size()), listed_(scan.tags.size()) {
    const INFOTAG& table = scan.tags.back();
    confirmed_.back() = true;
    TableEntries entries(stream, startOf(table) + kTagHeaderBytes, table.p1);
    for (INFOTAG entry; entries.next(entry);)
        match(entry, entries.entryOffset());
    if (entries.failed()) failedAt_ = entries.nextOffset();
    if (!open_.empty()) weigh();
}

void TableMatch::match(const INFOTAG& entry, std::int64_t place) {
    std::size_t tag = firstTagFrom(scan_.tags, entry.offset);
    // The table does not list itself.
    if (tag + 1 >= scan_.tags.size() || scan_.tags[tag].offset != entry.offset) tag = kNoTag;
    const bool same = tag != kNoTag && sameHeader(scan_.tags[tag], entry);
    const bool repeated = same && confirmed_[tag];
    if (tag != kNoTag) listed_[tag] = true;
    if (same && !repeated) {
        confirmed_[tag] = true;
        ++confirmedCount_;
        return;
    }
    open_.push_back({entry, place, tag, repeated});
}

bool TableMatch::isPossible(const OpenEntry& entry, const std::vector<std::uint32_t>& confirmedBefore) const {
    const INFOTAG& table = scan_.tags.back();
    if (entry.repeated || entry.header.offset < kFileHeaderBytes || entry.header.offset >= table.offset)
        return false;
    const std::int64_t offset = startOf(entry.header);
    if (rulesOf(scan_).headerFault(entry.header, offset, startOf(table)) != nullptr) return false;
    std::size_t first = firstTagFrom(scan_.tags, entry.header.offset);
    if (first > 0 && endOf(scan_.tags[first - 1]) > offset) --first;
    const std::size_t last = firstTagFrom(scan_.tags, entry.header.offset + entry.header.size);
    return confirmedBefore[first] == confirmedBefore[last];
}

void TableMatch::weigh() {
    std::vector<std::uint32_t> confirmedBefore(scan_.tags.size() + 1);
    for (std::size_t i = 0; i < scan_.tags.size(); ++i)
        confirmedBefore[i + 1] = confirmedBefore[i] + (confirmed_[i] ? 1 : 0);
    std::sort(open_.begin(), open_.end(), [](const OpenEntry& a, const OpenEntry& b) {
        return a.header.offset != b.header.offset ? a.header.offset < b.header.offset : a.place < b.place;
    });
    OpenEntry* furthest = nullptr;
    for (OpenEntry& entry : open_) {
        if (!isPossible(entry, confirmedBefore)) continue;
        entry.sound = furthest == nullptr || startOf(entry.header) >= endOf(furthest->header);
        if (!entry.sound) furthest->sound = false;
        if (furthest == nullptr || endOf(entry.header) > endOf(furthest->header)) furthest = &entry;
    }
    for (const OpenEntry& entry : open_) {
        if (entry.sound) sound_.push_back(&entry);
    }
}

std::vector<const TableMatch::OpenEntry*>::const_iterator TableMatch::soundFrom(std::int64_t offset) const {
    return std::partition_point(sound_.begin(), sound_.end(),
                                [offset](const OpenEntry* entry) { return endOf(entry->header) <= offset; });
}

bool TableMatch::beginsAt(std::int64_t offset) const {
    const std::size_t tag = firstTagFrom(scan_.tags, static_cast<std::uint64_t>(offset));
    if (tag < scan_.tags.size() && startOf(scan_.tags[tag]) == offset && confirmed_[tag]) return true;
    const auto entry = soundFrom(offset);
    return entry != sound_.end() && startOf((*entry)->header) == offset;
}

}  // namespace v1
}  // namespace MUtils
