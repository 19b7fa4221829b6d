#pragma once

#include <cstdint>
#include <string>
#include <vector>

// How much of a frame the buckets of a file cover, where they may overlap, lie outside, or claim to be of any
// size.

namespace MUtils {

// The pixels [x, x + width) x [y, y + height). Any four numbers are a box; one without pixels has width or
// height below 1, and edges past the range of an int count as they are.
struct PixelBox {
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;

    friend bool operator==(const PixelBox& a, const PixelBox& b) {
        return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
    }
};

// "64x32+128+0": size and corner.
std::string boxText(const PixelBox& box);

// Pixels of `frame` that lie in at least one of `boxes`. Takes O(n log n) time and, besides the boxes, at
// most 44 bytes for each of them, 12 when they stand in a grid. Give up the boxes with std::move where they
// are no longer needed.
std::int64_t coveredPixels(std::vector<PixelBox> boxes, const PixelBox& frame);

}  // namespace MUtils
