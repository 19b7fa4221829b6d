#include "rawimage/frame/place_index.h"

#include <algorithm>
#include <cmath>

#include "rawimage/area/tag_box.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::size_t kFanOut = 16;

std::size_t nodesFor(std::size_t count) {
    return (count + kFanOut - 1) / kFanOut;
}

}  // namespace

void PlaceIndex::build(const INFOTAG* tags, std::uint32_t* numbers, std::size_t count) {
    tags_ = tags;
    numbers_ = numbers;
    count_ = count;
    buildLevels();
    if (isCoherent()) return;
    sortByPlace();
    buildLevels();
}

// Renderers write their buckets so that those that follow each other lie close together; the order of the
// file serves as it is then.
bool PlaceIndex::isCoherent() const {
    constexpr double kMostSpread = 4.0;
    if (levels_.empty()) return true;
    double around = 0;
    for (const PixelBox& box : levels_.front())
        around += static_cast<double>(box.width()) * static_cast<double>(box.height());
    double own = 0;
    for (std::size_t i = 0; i < count_; ++i) {
        const INFOTAG& tag = tags_[numbers_[i]];
        own += static_cast<double>(tag.p4) * static_cast<double>(tag.p5);
    }
    return around <= kMostSpread * own;
}

// Cuts the tags into slabs of rows and orders each by columns, so that each node holds about a square.
void PlaceIndex::sortByPlace() {
    struct Corner {
        std::int32_t x, y;
        std::uint32_t number;
    };
    std::vector<Corner> corners(count_);
    for (std::size_t i = 0; i < count_; ++i) {
        const INFOTAG& tag = tags_[numbers_[i]];
        corners[i] = {tag.p2, tag.p3, numbers_[i]};
    }
    std::sort(corners.begin(), corners.end(), [](const Corner& a, const Corner& b) { return a.y < b.y; });
    const auto slabs = static_cast<std::size_t>(std::ceil(std::sqrt(static_cast<double>(nodesFor(count_)))));
    const std::size_t slab = nodesFor(nodesFor(count_) / slabs + 1) * kFanOut * kFanOut;
    for (std::size_t from = 0; from < count_; from += slab) {
        const auto first = corners.begin() + static_cast<std::ptrdiff_t>(from);
        const auto last = corners.begin() + static_cast<std::ptrdiff_t>(std::min(from + slab, count_));
        std::sort(first, last, [](const Corner& a, const Corner& b) { return a.x < b.x; });
    }
    for (std::size_t i = 0; i < count_; ++i)
        numbers_[i] = corners[i].number;
}

void PlaceIndex::buildLevels() {
    levels_.clear();
    std::vector<PixelBox> nodes(nodesFor(count_));
    for (std::size_t i = 0; i < count_; ++i) {
        PixelBox& node = nodes[i / kFanOut];
        node = boxAround(node, boxOf(tags_[numbers_[i]]));
    }
    while (!nodes.empty()) {
        levels_.push_back(std::move(nodes));
        const std::vector<PixelBox>& below = levels_.back();
        if (below.size() == 1) break;
        nodes = std::vector<PixelBox>(nodesFor(below.size()));
        for (std::size_t i = 0; i < below.size(); ++i)
            nodes[i / kFanOut] = boxAround(nodes[i / kFanOut], below[i]);
    }
}

void PlaceIndex::find(const PixelBox& box, std::vector<std::uint32_t>& found) const {
    if (!levels_.empty()) descend(levels_.size() - 1, 0, box, found);
}

void PlaceIndex::descend(std::size_t level, std::size_t node, const PixelBox& box,
                         std::vector<std::uint32_t>& found) const {
    if (!overlaps(levels_[level][node], box)) return;
    const std::size_t from = node * kFanOut;
    const std::size_t below = level > 0 ? levels_[level - 1].size() : count_;
    for (std::size_t i = from; i < std::min(from + kFanOut, below); ++i) {
        if (level > 0) {
            descend(level - 1, i, box, found);
        } else if (overlaps(boxOf(tags_[numbers_[i]]), box)) {
            found.push_back(numbers_[i]);
        }
    }
}

}  // namespace v1
}  // namespace MUtils
