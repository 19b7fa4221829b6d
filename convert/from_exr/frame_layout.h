#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "rawimage/area/pixel_box.h"

namespace MUtils {
inline namespace v1 {

// Cuts a frame that is given in parts, each with a window of its own, into buckets. They lie on the frame's
// grid and are clipped to the frame and to the window of their part, so that they have no pixel that is not
// in the file.
class FrameLayout {
  public:
    // The frame's first pixel is (0, 0). Buckets larger than the frame are as large as the frame.
    FrameLayout(std::int64_t width, std::int64_t height, const std::vector<PixelBox>& windows,
                std::int64_t bucketWidth, std::int64_t bucketHeight);

    const PixelBox& frame() const { return frame_; }
    // The pixels of a part within the frame, maybe none.
    const PixelBox& visible(int part) const { return visible_[static_cast<std::size_t>(part)]; }
    // The smallest box around the visible pixels of all parts.
    const PixelBox& rendered() const { return rendered_; }
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
    const PixelBox& grid() const { return grid_; }
    // The pixels of a part in a bucket of the grid, maybe none.
    PixelBox bucket(int part, std::int64_t column, std::int64_t row) const;
    // The same for a whole row of buckets.
    PixelBox bucketRow(int part, std::int64_t row) const;

  private:
    const PixelBox frame_;
    const std::int64_t bucketWidth_;
    const std::int64_t bucketHeight_;
    std::vector<PixelBox> visible_;
    PixelBox rendered_;
    PixelBox grid_;
    std::int64_t cutPixels_ = 0;
};

}  // namespace v1
}  // namespace MUtils
