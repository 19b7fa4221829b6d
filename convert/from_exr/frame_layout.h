#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "rawimage/area/pixel_box.h"

namespace rimg {

// How a frame that is given in parts, each with a window of its own, is cut into buckets. The buckets lie on
// the frame's grid and are clipped to the frame and to the window of the part that they come from: every
// pixel of a bucket is one of the part, none is made up.
class FrameLayout {
  public:
    // The frame's first pixel is (0, 0). Buckets larger than the frame are as large as the frame.
    FrameLayout(std::int64_t width, std::int64_t height, const std::vector<MUtils::PixelBox>& windows,
                std::int64_t bucketWidth, std::int64_t bucketHeight);

    const MUtils::PixelBox& frame() const { return frame_; }
    // What is there of a part within the frame, maybe empty.
    const MUtils::PixelBox& visible(int part) const { return visible_[static_cast<std::size_t>(part)]; }
    // The smallest rectangle around all that is there.
    const MUtils::PixelBox& rendered() const { return rendered_; }
    // Pixels of all parts that lie outside the frame (overscan), for which a raw image has no place.
    std::int64_t cutPixels() const { return cutPixels_; }

    std::int64_t bucketWidth() const { return bucketWidth_; }
    std::int64_t bucketHeight() const { return bucketHeight_; }
    // The most rows and pixels that bucket() gives.
    std::int64_t maxBucketRows() const { return std::min(bucketHeight_, rendered_.height()); }
    std::int64_t maxBucketPixels() const {
        return std::min(bucketWidth_, rendered_.width()) * maxBucketRows();
    }
    // The columns and rows of the grid whose buckets meet the rendered rectangle.
    const MUtils::PixelBox& grid() const { return grid_; }
    // A bucket of the grid as far as part `part` has pixels of it, maybe empty.
    MUtils::PixelBox bucket(int part, std::int64_t column, std::int64_t row) const;
    // All buckets of a row of the grid, likewise.
    MUtils::PixelBox bucketRow(int part, std::int64_t row) const;

  private:
    const MUtils::PixelBox frame_;
    const std::int64_t bucketWidth_;
    const std::int64_t bucketHeight_;
    std::vector<MUtils::PixelBox> visible_;
    MUtils::PixelBox rendered_;
    MUtils::PixelBox grid_;
    std::int64_t cutPixels_ = 0;
};

}  // namespace rimg
