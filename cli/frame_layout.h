#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace rimg {

// Pixels, ends exclusive. Wide enough for anything that the windows of a file say.
struct Rect {
    std::int64_t x0 = 0;
    std::int64_t y0 = 0;
    std::int64_t x1 = 0;
    std::int64_t y1 = 0;

    std::int64_t width() const { return x1 - x0; }
    std::int64_t height() const { return y1 - y0; }
    bool empty() const { return x1 <= x0 || y1 <= y0; }
    std::int64_t area() const { return empty() ? 0 : width() * height(); }
    bool operator==(const Rect& o) const { return x0 == o.x0 && y0 == o.y0 && x1 == o.x1 && y1 == o.y1; }
};

// What both have; empty when they do not meet.
Rect intersect(const Rect& a, const Rect& b);
// The smallest one around both; an empty one counts for nothing.
Rect bound(const Rect& a, const Rect& b);

// How a frame that is given in parts, each with a window of its own, is cut into buckets. The buckets lie on
// the frame's grid and are clipped to the frame and to the window of the part that they come from: every
// pixel of a bucket is one of the part, none is made up.
class FrameLayout {
  public:
    // The frame's first pixel is (0, 0). Buckets larger than the frame are as large as the frame.
    FrameLayout(std::int64_t width, std::int64_t height, const std::vector<Rect>& windows,
                std::int64_t bucketWidth, std::int64_t bucketHeight);

    const Rect& frame() const { return frame_; }
    // What is there of a part within the frame, maybe empty.
    const Rect& visible(int part) const { return visible_[static_cast<std::size_t>(part)]; }
    // The smallest rectangle around all that is there.
    const Rect& rendered() const { return rendered_; }
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
    const Rect& grid() const { return grid_; }
    // A bucket of the grid as far as part `part` has pixels of it, maybe empty.
    Rect bucket(int part, std::int64_t column, std::int64_t row) const;
    // All buckets of a row of the grid, likewise.
    Rect bucketRow(int part, std::int64_t row) const;

  private:
    const Rect frame_;
    const std::int64_t bucketWidth_;
    const std::int64_t bucketHeight_;
    std::vector<Rect> visible_;
    Rect rendered_;
    Rect grid_;
    std::int64_t cutPixels_ = 0;
};

}  // namespace rimg
