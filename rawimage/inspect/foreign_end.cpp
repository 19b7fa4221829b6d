#include "rawimage/inspect/foreign_end.h"

#include <algorithm>

#include "rawimage/inspect/gap_list.h"
#include "rawimage/table_entries.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::int64_t kNowhere = 0;
constexpr std::int64_t kPage = 4096;

bool isTable(const INFOTAG& tag) {
    return tag.id == TAG_INFO_TAGS;
}

// The last gap before `offset` when a page begins in it or at its end; null for any other one.
const TagGap* pageGapBefore(const TagScan& scan, std::int64_t offset) {
    const auto gap = std::find_if(scan.gaps.rbegin(), scan.gaps.rend(),
                                  [offset](const TagGap& a) { return a.offset < offset; });
    const bool found = gap != scan.gaps.rend() && gap->end / kPage * kPage >= gap->offset;
    return found ? &*gap : nullptr;
}

// What a table states of the tags before it.
struct Statement {
    std::vector<std::int64_t> listed;  // offsets of tags that have their entries' headers; ascending
    int denied = 0;                    // tags into which entries lead, or that have another header
    std::int64_t deniedEnd = kFileHeaderBytes;
};

Statement statementOf(PStream& stream, const std::vector<INFOTAG>& tags, const INFOTAG& table) {
    Statement found;
    TableEntries entries(stream, startOf(table) + kTagHeaderBytes, table.p1);
    for (INFOTAG entry; entries.next(entry);) {
        if (entry.offset < kFileHeaderBytes || entry.offset >= table.offset) continue;
        std::size_t tag = firstTagFrom(tags, entry.offset);
        const bool begins = tags[tag].offset == entry.offset;
        if (begins && sameHeader(tags[tag], entry)) {
            found.listed.push_back(startOf(entry));
            continue;
        }
        if (!begins && (tag-- == 0 || endOf(tags[tag]) <= startOf(entry))) continue;
        if (endOf(tags[tag]) > found.deniedEnd) ++found.denied;
        found.deniedEnd = std::max(found.deniedEnd, endOf(tags[tag]));
    }
    std::sort(found.listed.begin(), found.listed.end());
    return found;
}

// A single denied tag may be due to a damaged entry. With fewer, the file has to go on behind the table, and
// the tags to begin behind a gap at a page.
std::int64_t beginByTable(PStream& stream, const TagScan& scan) {
    constexpr int kLeastDenied = 2;
    const auto table = std::find_if(scan.tags.rbegin(), scan.tags.rend(), isTable);
    if (table == scan.tags.rend() || table + 1 == scan.tags.rend() ||
        table->offset == scan.header.infoTagsOffset)
        return kNowhere;
    const Statement found = statementOf(stream, scan.tags, *table);
    const INFOTAG& last = *(table + 1);
    const bool leadsUpToIt =
        !found.listed.empty() && found.listed.back() == startOf(last) && endOf(last) == startOf(*table);
    if (!leadsUpToIt) return kNowhere;
    std::int64_t from = found.deniedEnd;
    if (found.denied < kLeastDenied) {
        const TagGap* gap = pageGapBefore(scan, startOf(*table));
        if (gap == nullptr || endOf(*table) == scan.ownBytes) return kNowhere;
        from = std::max(from, gap->end);
    }
    const auto first = std::lower_bound(found.listed.begin(), found.listed.end(), from);
    return first != found.listed.end() ? *first : kNowhere;
}

std::int64_t beginByOffset(const TagScan& scan) {
    const std::uint64_t stored = scan.header.infoTagsOffset;
    const std::size_t behind = firstTagFrom(scan.tags, stored);
    if (behind == 0 || static_cast<std::uint64_t>(endOf(scan.tags[behind - 1])) <= stored) return kNowhere;
    const auto around = scan.tags.begin() + static_cast<std::ptrdiff_t>(behind - 1);
    // Bytes that were inserted or lost move a table away from the header's offset.
    if (std::any_of(around, scan.tags.end(), isTable)) return kNowhere;
    const TagGap* gap = pageGapBefore(scan, startOf(*around));
    return gap != nullptr ? gap->end : kNowhere;
}

}  // namespace

void doubtForeignEnd(PStream& stream, TagScan& scan) {
    scan.foreignFrom = beginByTable(stream, scan);
    if (scan.foreignFrom == kNowhere) scan.foreignFrom = beginByOffset(scan);
    if (scan.foreignFrom == kNowhere) return;
    for (std::size_t i = firstTagFrom(scan.tags, static_cast<std::uint64_t>(scan.foreignFrom));
         i < scan.tags.size(); ++i) {
        if (!isTable(scan.tags[i])) scan.doubted.push_back(startOf(scan.tags[i]));
    }
}

}  // namespace v1
}  // namespace MUtils
