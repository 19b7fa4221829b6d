#include "rawimage/inspect/moved_tags.h"

#include <algorithm>
#include <tuple>

#include "rawimage/inspect/gap_list.h"

namespace MUtils {
inline namespace v1 {

namespace {

// Another bucket of a channel has the same size by this chance at least: siblings are similar.
constexpr double kLeastChanceOfSize = 1.0 / 16;
constexpr double kLargestChance = 1.0 / 1000;  // of all tags with a displacement that counts

auto words(const RIF_TAG& tag) {
    return std::tie(tag.id, tag.size, tag.p1, tag.p2, tag.p3, tag.p4, tag.p5, tag.p6, tag.p7, tag.p8);
}

struct HeaderLess {
    bool operator()(const INFOTAG* a, const RIF_TAG& b) const { return words(*a) < words(b); }
    bool operator()(const RIF_TAG& a, const INFOTAG* b) const { return words(a) < words(*b); }
};

}  // namespace

MovedTags::MovedTags(const TagScan& scan, const TableMatch& match, bool bytesHaveMoved)
    : scan_(scan), match_(match), moved_(scan.tags.size()) {
    for (const TableMatch::OpenEntry& entry : match.open())
        open_.push_back(&entry.header);
    std::sort(open_.begin(), open_.end(), [](const INFOTAG* a, const INFOTAG* b) {
        return std::tuple_cat(words(*a), std::tie(a->offset)) <
               std::tuple_cat(words(*b), std::tie(b->offset));
    });
    collectSizes();
    const std::vector<bool>& confirmed = match.confirmed();
    for (std::size_t from = 0; from < scan.tags.size(); ++from) {
        const std::size_t first = from;
        while (!confirmed[from])
            ++from;  // the table is the last tag, and confirmed
        if (from > first) judge(first, from, bytesHaveMoved);
    }
}

bool MovedTags::isListed(const RIF_TAG& header) const {
    return std::binary_search(open_.begin(), open_.end(), header, HeaderLess());
}

void MovedTags::collectSizes() {
    const auto add = [this](const RIF_TAG& tag) {
        if (isPixelTag(tag.id))
            sizes_.push_back({tag.p8, tag.p4, tag.p5, static_cast<std::int32_t>(tag.size)});
    };
    for (const INFOTAG* entry : open_)
        add(*entry);
    for (std::size_t i = 0; i < scan_.tags.size(); ++i) {
        if (match_.confirmed()[i]) add(scan_.tags[i]);
    }
    std::sort(sizes_.begin(), sizes_.end());
}

// Of the listed buckets of its channel that have its width and height, the share that has its size.
double MovedTags::chanceOfSize(const RIF_TAG& tag) const {
    if (!isPixelTag(tag.id)) return 1;
    const auto count = [this, &tag](std::int32_t least, std::int32_t most) {
        const auto first =
            std::lower_bound(sizes_.begin(), sizes_.end(), Size{tag.p8, tag.p4, tag.p5, least});
        return std::upper_bound(first, sizes_.end(), Size{tag.p8, tag.p4, tag.p5, most}) - first;
    };
    const auto size = static_cast<std::int32_t>(tag.size);
    const double share =
        static_cast<double>(count(size, size)) / static_cast<double>(count(INT32_MIN, INT32_MAX));
    return std::max(share, kLeastChanceOfSize);
}

// From the nearest open entry that has the tag's header: a bucket that was rendered again may have several.
MovedTags::Displacement MovedTags::displacementOf(const INFOTAG& tag) const {
    const auto [first, last] =
        std::equal_range(open_.begin(), open_.end(), static_cast<const RIF_TAG&>(tag), HeaderLess());
    const auto behind = std::lower_bound(
        first, last, tag.offset, [](const INFOTAG* entry, std::uint64_t at) { return entry->offset < at; });
    Displacement nearest;
    if (behind != first) nearest = startOf(tag) - startOf(**(behind - 1));
    const bool mayBeBehind = behind != last && (*behind)->offset <= scan_.tags.back().offset;
    if (mayBeBehind && (!nearest || startOf(**behind) - startOf(tag) < *nearest))
        nearest = startOf(tag) - startOf(**behind);
    return nearest;
}

// The tags from `from` on, between two confirmed tags.
void MovedTags::judge(std::size_t from, std::size_t to, bool bytesHaveMoved) {
    std::vector<Displacement> displacements;
    std::map<std::int64_t, double> chances;  // by displacement
    for (std::size_t i = from; i < to; ++i) {
        displacements.push_back(displacementOf(scan_.tags[i]));
        if (!displacements.back()) continue;
        double& chance = chances.emplace(*displacements.back(), 1.0).first->second;
        chance *= chanceOfSize(scan_.tags[i]);
    }
    for (Displacement& displacement : displacements) {
        if (displacement && !bytesHaveMoved && chances[*displacement] > kLargestChance) displacement.reset();
    }
    Displacement last;
    for (std::size_t i = from; i < to; ++i)
        follow(i, displacements[i - from], last);
    last.reset();
    for (std::size_t i = to; i-- > from;)
        follow(i, displacements[i - from], last);
}

// `last` is the displacement of the neighbour, and becomes that of the tag.
void MovedTags::follow(std::size_t tag, Displacement own, Displacement& last) {
    if (own) {
        last = own;
        moved_[tag] = true;
    } else if (last && mayComeFrom(scan_.tags[tag], *last)) {
        moved_[tag] = true;
    }
}

bool MovedTags::mayComeFrom(const INFOTAG& tag, std::int64_t displacement) const {
    const std::int64_t start = startOf(tag) - displacement;
    const auto entry = match_.soundFrom(start);
    if (entry == match_.sound().end()) return true;
    const INFOTAG& claiming = (*entry)->header;
    return startOf(claiming) >= start + tag.size || (startOf(claiming) == start && claiming.size == tag.size);
}

}  // namespace v1
}  // namespace MUtils
