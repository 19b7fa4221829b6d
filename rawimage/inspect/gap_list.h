#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "rawimage/inspect/tag_scan.h"

namespace MUtils {
inline namespace v1 {

// True for headers that agree in all ten words.
bool sameHeader(const RIF_TAG& a, const RIF_TAG& b);

inline std::int64_t startOf(const INFOTAG& tag) {
    return static_cast<std::int64_t>(tag.offset);
}
inline std::int64_t endOf(const INFOTAG& tag) {
    return static_cast<std::int64_t>(tag.offset) + tag.size;
}

// The place in the list of the first tag at or behind `offset`. The tags are in file order.
std::size_t firstTagFrom(const std::vector<INFOTAG>& tags, std::uint64_t offset);

// True when `offset` lies in one of the gaps, which are in file order.
bool isInGap(const std::vector<TagGap>& gaps, std::uint64_t offset);

// Turns the tags that have a cause in `dropped` into gaps. `dropped` has an entry for each tag, null for one
// that stays.
void dropTags(TagScan& scan, const std::vector<const char*>& dropped);

// Takes tags that lie in gaps into the list of tags; what is left of the gaps stays. `found` is in file
// order, and its tags do not overlap.
void restoreTags(TagScan& scan, const std::vector<INFOTAG>& found);

// Divides gaps where the tags `lost` begin, so that each is a gap of its own, with its header as the table
// has it. Parts before which bytes of the same gap lie have the given cause. `lost` is in file order.
void splitGaps(TagScan& scan, const std::vector<INFOTAG>& lost, const char* cause);

}  // namespace v1
}  // namespace MUtils
