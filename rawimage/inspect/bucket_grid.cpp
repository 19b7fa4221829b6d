#include "rawimage/inspect/bucket_grid.h"

#include <algorithm>
#include <tuple>

#include "rawimage/area/coverage.h"
#include "rawimage/area/tag_box.h"

namespace MUtils {
inline namespace v1 {

namespace {

// The first pixel of the bucket that `pixel` lies in, where another one begins at `start`.
std::int64_t firstPixel(std::int64_t pixel, std::int64_t start, std::int64_t size) {
    const std::int64_t past = (pixel - start) % size;
    return pixel - (past < 0 ? past + size : past);
}

// The pixel tags that begin where a bucket does, of a grid with a corner at (x, y).
std::int64_t tagsOnGrid(const std::vector<INFOTAG>& tags, std::int64_t x, std::int64_t y,
                        const RIF_TAG& size) {
    return std::count_if(tags.begin(), tags.end(), [&](const INFOTAG& tag) {
        return isPixelTag(tag.id) && (tag.p2 - x) % size.p1 == 0 && (tag.p3 - y) % size.p2 == 0;
    });
}

// The distinct boxes of the pixel tags, as far as they lie in the area.
std::vector<PixelBox> boxesOfTags(const Inspection& file) {
    std::vector<PixelBox> boxes;
    for (const INFOTAG& tag : file.tags) {
        const PixelBox box = isPixelTag(tag.id) ? intersect(boxOf(tag), file.area) : PixelBox();
        if (!box.empty()) boxes.push_back(box);
    }
    // The header of a gap is not reliable.
    for (const TagGap& gap : file.gaps) {
        const PixelBox box = isPixelTag(gap.tag.id) ? boxOf(gap.tag) : PixelBox();
        if (!box.empty() && contains(file.area, box)) boxes.push_back(box);
    }
    const auto key = [](const PixelBox& box) { return std::tie(box.y0, box.x0, box.y1, box.x1); };
    std::sort(boxes.begin(), boxes.end(),
              [key](const PixelBox& a, const PixelBox& b) { return key(a) < key(b); });
    boxes.erase(std::unique(boxes.begin(), boxes.end()), boxes.end());
    return boxes;
}

}  // namespace

BucketGrid::BucketGrid(const PixelBox& area, std::int64_t x, std::int64_t y, std::int64_t width,
                       std::int64_t height)
    : area_(area),
      x_(firstPixel(area.x0, x, width)),
      y_(firstPixel(area.y0, y, height)),
      width_(width),
      height_(height) {
    cells_ = cellsOf({area}).front();
}

// The columns and rows that each box meets within the area, counted from the area's first bucket: so they fit
// into 31 bits, as the sweep over them needs.
std::vector<PixelBox> BucketGrid::cellsOf(const std::vector<PixelBox>& boxes) const {
    std::vector<PixelBox> cells;
    for (const PixelBox& box : boxes) {
        const PixelBox seen = intersect(box, area_);
        if (seen.empty()) continue;
        cells.push_back({(seen.x0 - x_) / width_, (seen.y0 - y_) / height_, (seen.x1 - 1 - x_) / width_ + 1,
                         (seen.y1 - 1 - y_) / height_ + 1});
    }
    return cells;
}

std::int64_t BucketGrid::countIn(const std::vector<PixelBox>& boxes) const {
    return coveredPixels(cellsOf(boxes), cells_);
}

std::vector<PixelBox> BucketGrid::bucketsIn(const std::vector<PixelBox>& boxes, std::size_t limit) const {
    std::vector<PixelBox> buckets;
    for (const PixelBox& cells : unitedBoxes(cellsOf(boxes), cells_, limit).boxes) {
        for (std::int64_t row = cells.y0; row < cells.y1; ++row) {
            for (std::int64_t column = cells.x0; column < cells.x1; ++column) {
                if (buckets.size() >= limit) return buckets;
                const PixelBox bucket = boxAt(x_ + column * width_, y_ + row * height_, width_, height_);
                buckets.push_back(intersect(bucket, area_));
            }
        }
    }
    return buckets;
}

std::optional<BucketGrid> announcedGrid(const Inspection& file) {
    const std::optional<RIF_TAG>& size = file.facts.buckets;
    const bool varies = size && size->p3 != 0;
    if (!size || varies || size->p1 < 1 || size->p2 < 1 || file.area.empty()) return {};
    const PixelBox& area = file.area;
    const bool fromArea = tagsOnGrid(file.tags, area.x0, area.y0, *size) > tagsOnGrid(file.tags, 0, 0, *size);
    return BucketGrid(area, fromArea ? area.x0 : 0, fromArea ? area.y0 : 0, size->p1, size->p2);
}

std::optional<BucketCount> countBuckets(const Inspection& file) {
    const std::vector<PixelBox>& missing = file.missingInAny.boxes;
    if (file.area.empty() || file.missingInAny.truncated) return {};
    if (const auto grid = announcedGrid(file))
        return BucketCount{grid->count() - grid->countIn(missing), grid->count()};

    constexpr std::size_t kMostComparisons = 100'000'000;
    const std::vector<PixelBox> buckets = boxesOfTags(file);
    if (buckets.empty() || missing.size() > kMostComparisons / buckets.size()) return {};
    const std::int64_t sound = std::count_if(buckets.begin(), buckets.end(), [&](const PixelBox& bucket) {
        return std::none_of(missing.begin(), missing.end(),
                            [&](const PixelBox& box) { return overlaps(bucket, box); });
    });
    return BucketCount{sound, static_cast<std::int64_t>(buckets.size())};
}

}  // namespace v1
}  // namespace MUtils
