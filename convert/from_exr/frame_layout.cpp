#include "convert/from_exr/frame_layout.h"

namespace MUtils {
inline namespace v1 {

FrameLayout::FrameLayout(std::int64_t width, std::int64_t height, const std::vector<PixelBox>& windows,
                         std::int64_t bucketWidth, std::int64_t bucketHeight)
    : frame_{0, 0, width, height},
      bucketWidth_(std::min(bucketWidth, width)),
      bucketHeight_(std::min(bucketHeight, height)) {
    for (const PixelBox& window : windows) {
        const PixelBox seen = intersect(window, frame_);
        visible_.push_back(seen.empty() ? PixelBox() : seen);
        rendered_ = boxAround(rendered_, visible_.back());
        cutPixels_ += window.area() - seen.area();
    }
    if (!rendered_.empty()) {
        grid_ = {rendered_.x0 / bucketWidth_, rendered_.y0 / bucketHeight_,
                 (rendered_.x1 - 1) / bucketWidth_ + 1, (rendered_.y1 - 1) / bucketHeight_ + 1};
    }
}

PixelBox FrameLayout::bucket(int part, std::int64_t column, std::int64_t row) const {
    return intersect(visible(part), {column * bucketWidth_, row * bucketHeight_, (column + 1) * bucketWidth_,
                                     (row + 1) * bucketHeight_});
}

PixelBox FrameLayout::bucketRow(int part, std::int64_t row) const {
    return intersect(visible(part), {0, row * bucketHeight_, frame_.x1, (row + 1) * bucketHeight_});
}

}  // namespace v1
}  // namespace MUtils
