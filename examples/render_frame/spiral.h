#pragma once

#include <vector>

namespace render_frame {

// A rectangle of the frame's pixels: x0 <= x < x1, y0 <= y < y1, row 0 at the top.
struct Bucket {
    int x0 = 0, x1 = 0, y0 = 0, y1 = 0;

    int width() const { return x1 - x0; }
    int height() const { return y1 - y0; }
    int pixelCount() const { return width() * height(); }
    bool empty() const { return x1 <= x0 || y1 <= y0; }
};

// Cuts a frame into buckets and returns them in the order in which an artist wants to see them: in a
// spiral that starts at the middle of the frame. Buckets at the right and lower edge are clipped to the
// frame; together the buckets cover each pixel once. All four sizes are at least 1.
std::vector<Bucket> spiralOrder(int frameWidth, int frameHeight, int bucketWidth, int bucketHeight);

// Those buckets that meet `region`, clipped to it, in the same order.
std::vector<Bucket> clipTo(const Bucket& region, const std::vector<Bucket>& buckets);

}  // namespace render_frame
