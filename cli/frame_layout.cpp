#include "cli/frame_layout.h"

namespace rimg {

Rect intersect(const Rect& a, const Rect& b) {
    return {std::max(a.x0, b.x0), std::max(a.y0, b.y0), std::min(a.x1, b.x1), std::min(a.y1, b.y1)};
}

Rect bound(const Rect& a, const Rect& b) {
    if (a.empty()) return b;
    if (b.empty()) return a;
    return {std::min(a.x0, b.x0), std::min(a.y0, b.y0), std::max(a.x1, b.x1), std::max(a.y1, b.y1)};
}

FrameLayout::FrameLayout(std::int64_t width, std::int64_t height, const std::vector<Rect>& windows,
                         std::int64_t bucketWidth, std::int64_t bucketHeight)
    : frame_{0, 0, width, height},
      bucketWidth_(std::min(bucketWidth, width)),
      bucketHeight_(std::min(bucketHeight, height)) {
    for (const Rect& window : windows) {
        const Rect seen = intersect(window, frame_);
        visible_.push_back(seen.empty() ? Rect() : seen);
        rendered_ = bound(rendered_, visible_.back());
        cutPixels_ += window.area() - seen.area();
    }
    if (!rendered_.empty()) {
        grid_ = {rendered_.x0 / bucketWidth_, rendered_.y0 / bucketHeight_,
                 (rendered_.x1 - 1) / bucketWidth_ + 1, (rendered_.y1 - 1) / bucketHeight_ + 1};
    }
}

Rect FrameLayout::bucket(int part, std::int64_t column, std::int64_t row) const {
    return intersect(visible(part), {column * bucketWidth_, row * bucketHeight_, (column + 1) * bucketWidth_,
                                     (row + 1) * bucketHeight_});
}

Rect FrameLayout::bucketRow(int part, std::int64_t row) const {
    return intersect(visible(part), {0, row * bucketHeight_, frame_.x1, (row + 1) * bucketHeight_});
}

}  // namespace rimg
