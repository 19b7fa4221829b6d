#include "rawimage/inspect/gap_list.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace MUtils {
inline namespace v1 {

namespace {

bool byOffset(const INFOTAG& a, const INFOTAG& b) {
    return a.offset < b.offset;
}

// Adds the part [from, to) of a gap, if there is any. The gap's header is known only at its beginning.
void addPart(const TagGap& gap, std::int64_t from, std::int64_t to, std::vector<TagGap>& parts) {
    if (from >= to) return;
    TagGap& part = parts.emplace_back(gap);
    if (from != gap.offset) part.tag = RIF_TAG();
    part.offset = from;
    part.end = to;
    part.torn = gap.torn && to == gap.end;
}

}  // namespace

bool sameHeader(const RIF_TAG& a, const RIF_TAG& b) {
    return a.id == b.id && a.size == b.size && a.p1 == b.p1 && a.p2 == b.p2 && a.p3 == b.p3 && a.p4 == b.p4 &&
           a.p5 == b.p5 && a.p6 == b.p6 && a.p7 == b.p7 && a.p8 == b.p8;
}

std::size_t firstTagFrom(const std::vector<INFOTAG>& tags, std::uint64_t offset) {
    const auto at =
        std::lower_bound(tags.begin(), tags.end(), offset,
                         [](const INFOTAG& tag, std::uint64_t from) { return tag.offset < from; });
    return static_cast<std::size_t>(at - tags.begin());
}

bool isInGap(const std::vector<TagGap>& gaps, std::uint64_t offset) {
    const auto position = static_cast<std::int64_t>(std::min<std::uint64_t>(offset, INT64_MAX));
    const auto after = std::upper_bound(gaps.begin(), gaps.end(), position,
                                        [](std::int64_t at, const TagGap& gap) { return at < gap.offset; });
    return after != gaps.begin() && position < (after - 1)->end;
}

void dropTags(TagScan& scan, const std::vector<const char*>& dropped) {
    std::size_t kept = 0;
    const std::size_t gaps = scan.gaps.size();
    for (std::size_t i = 0; i < scan.tags.size(); ++i) {
        const INFOTAG tag = scan.tags[i];
        if (dropped[i] != nullptr) {
            const auto offset = static_cast<std::int64_t>(tag.offset);
            scan.gaps.push_back({offset, offset + tag.size, dropped[i], tag, false});
        } else {
            scan.tags[kept++] = tag;
        }
    }
    scan.tags.resize(kept);
    if (scan.gaps.size() == gaps) return;
    std::sort(scan.gaps.begin(), scan.gaps.end(),
              [](const TagGap& a, const TagGap& b) { return a.offset < b.offset; });
}

void restoreTags(TagScan& scan, const std::vector<INFOTAG>& found) {
    if (found.empty()) return;
    std::vector<TagGap> left;
    auto next = found.begin();
    for (const TagGap& gap : scan.gaps) {
        while (next != found.end() && endOf(*next) <= gap.offset)
            ++next;
        std::int64_t at = gap.offset;
        for (auto tag = next; tag != found.end() && static_cast<std::int64_t>(tag->offset) < gap.end; ++tag) {
            addPart(gap, at, static_cast<std::int64_t>(tag->offset), left);
            at = std::max(at, endOf(*tag));
        }
        addPart(gap, at, gap.end, left);
    }
    scan.gaps.swap(left);
    std::vector<INFOTAG> tags;
    tags.reserve(scan.tags.size() + found.size());
    std::merge(scan.tags.begin(), scan.tags.end(), found.begin(), found.end(), std::back_inserter(tags),
               byOffset);
    scan.tags.swap(tags);
}

void splitGaps(TagScan& scan, const std::vector<INFOTAG>& lost, const char* cause) {
    if (lost.empty()) return;
    std::vector<TagGap> parts;
    auto next = lost.begin();
    for (const TagGap& gap : scan.gaps) {
        while (next != lost.end() && startOf(*next) < gap.offset)
            ++next;
        TagGap part = gap;
        for (; next != lost.end() && startOf(*next) < gap.end; ++next) {
            addPart(part, part.offset, startOf(*next), parts);
            part.offset = startOf(*next);
            part.tag = *next;
            if (part.offset > gap.offset) part.cause = cause;
        }
        addPart(part, part.offset, gap.end, parts);
    }
    scan.gaps.swap(parts);
}

}  // namespace v1
}  // namespace MUtils
