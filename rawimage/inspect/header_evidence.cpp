#include "rawimage/inspect/header_evidence.h"

#include <algorithm>

#include "rawimage/area/tag_box.h"
#include "rawimage/tag_rules.h"
#include "support/bytes.h"

namespace MUtils {
inline namespace v1 {

namespace {

bool sameBucket(const RIF_TAG& a, const RIF_TAG& b) {
    return boxOf(a) == boxOf(b) && a.p6 == b.p6 && a.p7 == b.p7;
}

// Sizes and pixel aspects that frames may have.
bool isPossibleSize(const RIF_TAG& header) {
    constexpr std::int32_t kLargest = 1 << 18;
    return header.p1 > 0 && header.p1 <= kLargest && header.p2 > 0 && header.p2 <= kLargest;
}
bool isPossibleAspect(const RIF_TAG& header) {
    constexpr float kLeast = 0.1f, kMost = 10;
    const float aspect = floatFromBits(static_cast<std::uint32_t>(header.p3));
    return aspect == 0 || (aspect >= kLeast && aspect <= kMost);
}

// Nearly all frames have them.
bool hasSquarePixels(const RIF_TAG& header) {
    return floatFromBits(static_cast<std::uint32_t>(header.p3)) == 1;
}

}  // namespace

bool HeaderEvidence::agreesWithList(const RIF_TAG& header) const {
    const auto channel = static_cast<std::size_t>(header.p8);
    return header.p8 >= 0 && channel < facts_.channels.size() && facts_.channels[channel].type == header.p1;
}

// The tags before and behind it are other channels of its bucket.
bool HeaderEvidence::agreesWithBucket(std::size_t index, const RIF_TAG& header) const {
    const auto agrees = [&header](const INFOTAG& neighbour) {
        return isPixelTag(neighbour.id) && sameBucket(header, neighbour) && header.p8 != neighbour.p8;
    };
    return (index > 0 && agrees(tags_[index - 1])) || (index + 1 < tags_.size() && agrees(tags_[index + 1]));
}

// The two words of the caller's are often the same all through a file.
bool HeaderEvidence::agreesWithCaller(std::size_t index, const RIF_TAG& header) const {
    const auto agrees = [&header](const INFOTAG& neighbour) {
        return isPixelTag(neighbour.id) && header.p6 == neighbour.p6 && header.p7 == neighbour.p7;
    };
    return (index > 0 && agrees(tags_[index - 1])) || (index + 1 < tags_.size() && agrees(tags_[index + 1]));
}

bool HeaderEvidence::leavesOthersFree(std::size_t index, const RIF_TAG& header) const {
    const PixelBox box = boxOf(header);
    for (std::size_t i = 0; i < tags_.size(); ++i) {
        const bool other = i != index && ignored_[i] == nullptr && isPixelTag(tags_[i].id);
        if (other && tags_[i].p8 == header.p8 && overlaps(box, boxOf(tags_[i]))) return false;
    }
    return true;
}

void HeaderEvidence::survey() {
    if (surveyed_) return;
    surveyed_ = true;
    for (std::size_t i = 0; i < tags_.size(); ++i) {
        const INFOTAG& tag = tags_[i];
        if (ignored_[i] != nullptr) continue;
        ++counts_[tag.id];
        if (!isPixelTag(tag.id)) continue;
        if (tag.p4 < 1 || tag.p5 < 1) continue;
        right_ = std::max(right_, std::int64_t{tag.p2} + tag.p4);
        bottom_ = std::max(bottom_, std::int64_t{tag.p3} + tag.p5);
        widest_ = std::max(widest_, tag.p4);
        highest_ = std::max(highest_, tag.p5);
    }
    for (std::size_t i = 0; i < tags_.size() && !sizesVary_; ++i) {
        const INFOTAG& tag = tags_[i];
        if (ignored_[i] != nullptr || !isPixelTag(tag.id) || tag.p4 < 1 || tag.p5 < 1) continue;
        const bool full = tag.p4 == widest_ || std::int64_t{tag.p2} + tag.p4 == right_;
        sizesVary_ = !full || (tag.p5 != highest_ && std::int64_t{tag.p3} + tag.p5 != bottom_);
    }
}

int HeaderEvidence::countOf(std::uint32_t id) {
    survey();
    const auto found = counts_.find(id);
    return found != counts_.end() ? found->second : 0;
}

// A frame that its buckets fill to its right and bottom edges, a bucket size that the largest one has.
bool HeaderEvidence::agreesWithPixels(const RIF_TAG& header) {
    survey();
    if (header.id == TAG_RESOLUTION) return header.p1 == right_ && header.p2 == bottom_;
    return header.p1 == widest_ && header.p2 == highest_;
}

// Buckets of one size are announced as such. Cropped ones may have any.
bool HeaderEvidence::agreesWithSizes(const RIF_TAG& header) {
    survey();
    return sizesVary_ || header.p3 == 0;
}

// A frame of which the buckets cover more than a corner.
bool HeaderEvidence::isCovered(const RIF_TAG& header) {
    constexpr std::int64_t kMostBeyond = 4;
    return header.p1 <= kMostBeyond * right_ && header.p2 <= kMostBeyond * bottom_;
}

// A frame with room for all buckets.
bool HeaderEvidence::holdsPixels(const RIF_TAG& header) {
    return header.p1 >= right_ && header.p2 >= bottom_;
}

int HeaderEvidence::comparePixels(std::size_t index, const RIF_TAG& entry) {
    const RIF_TAG& tag = tags_[index];
    int found = better(tag, entry, [this](const RIF_TAG& header) { return agreesWithList(header); });
    if (found == 0)
        found = better(tag, entry, [&](const RIF_TAG& header) { return agreesWithBucket(index, header); });
    if (found == 0)
        found = better(tag, entry, [&](const RIF_TAG& header) { return agreesWithCaller(index, header); });
    if (found == 0)
        found = better(tag, entry,
                       [&](const RIF_TAG& header) { return overlaps(boxOf(header), facts_.frame()); });
    if (found == 0)
        found = better(tag, entry, [&](const RIF_TAG& header) { return leavesOthersFree(index, header); });
    return found;
}

// Of two kinds, the one that tables list; else the one that the file lacks, when it has the other one again.
int HeaderEvidence::compareIds(const RIF_TAG& tag, const RIF_TAG& entry) {
    if (isPixelTag(tag.id) || isPixelTag(entry.id)) return 0;
    if (isAlwaysListed(tag.id) != isAlwaysListed(entry.id)) return isAlwaysListed(entry.id) ? 1 : -1;
    const bool tagRepeats = countOf(tag.id) > 0 && countOf(entry.id) == 0;
    const bool lacksResolution = entry.id == TAG_RESOLUTION && countOf(TAG_RESOLUTION) == 0;
    return tagRepeats || lacksResolution ? 1 : 0;
}

int HeaderEvidence::compare(std::size_t index, const RIF_TAG& entry) {
    const RIF_TAG& tag = tags_[index];
    if (tag.id != entry.id) return compareIds(tag, entry);
    int found = better(tag, entry, unusedParametersClear);
    if (found == 0 && isPixelTag(tag.id)) return comparePixels(index, entry);
    if (found != 0 || (tag.id != TAG_RESOLUTION && tag.id != TAG_REGIONS_INFO)) return found;
    found = better(tag, entry, [this](const RIF_TAG& header) { return agreesWithPixels(header); });
    if (found != 0) return found;
    if (tag.id == TAG_REGIONS_INFO)
        return better(tag, entry, [this](const RIF_TAG& header) { return agreesWithSizes(header); });
    found = better(tag, entry, [this](const RIF_TAG& header) { return holdsPixels(header); });
    if (found == 0) found = better(tag, entry, isPossibleSize);
    if (found == 0) found = better(tag, entry, [this](const RIF_TAG& header) { return isCovered(header); });
    if (found == 0) found = better(tag, entry, isPossibleAspect);
    return found != 0 ? found : better(tag, entry, hasSquarePixels);
}

}  // namespace v1
}  // namespace MUtils
