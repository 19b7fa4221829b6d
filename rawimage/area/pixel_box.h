#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

namespace MUtils {
inline namespace v1 {

// The pixels [x0, x1) x [y0, y1). Any four numbers that a file states fit, and so do the ends of a box that a
// file states by its corner and size. A box with x1 <= x0 or y1 <= y0 has no pixels.
struct PixelBox {
    std::int64_t x0 = 0;
    std::int64_t y0 = 0;
    std::int64_t x1 = 0;
    std::int64_t y1 = 0;

    std::int64_t width() const { return x1 - x0; }
    std::int64_t height() const { return y1 - y0; }
    bool empty() const { return x1 <= x0 || y1 <= y0; }
    // In pixels.
    std::int64_t area() const { return empty() ? 0 : width() * height(); }

    friend bool operator==(const PixelBox& a, const PixelBox& b) {
        return a.x0 == b.x0 && a.y0 == b.y0 && a.x1 == b.x1 && a.y1 == b.y1;
    }
    friend bool operator!=(const PixelBox& a, const PixelBox& b) { return !(a == b); }
};

// The box of the given size whose first pixel is (x, y).
inline PixelBox boxAt(std::int64_t x, std::int64_t y, std::int64_t width, std::int64_t height) {
    return {x, y, x + width, y + height};
}

// The pixels that lie in both boxes.
inline PixelBox intersect(const PixelBox& a, const PixelBox& b) {
    return {std::max(a.x0, b.x0), std::max(a.y0, b.y0), std::min(a.x1, b.x1), std::min(a.y1, b.y1)};
}

inline bool overlaps(const PixelBox& a, const PixelBox& b) {
    return !intersect(a, b).empty();
}

// True when no edge of `inner` lies outside `outer`.
inline bool contains(const PixelBox& outer, const PixelBox& inner) {
    return outer.x0 <= inner.x0 && outer.y0 <= inner.y0 && inner.x1 <= outer.x1 && inner.y1 <= outer.y1;
}

// The smallest box around both. A box without pixels does not count.
inline PixelBox boxAround(const PixelBox& a, const PixelBox& b) {
    if (a.empty()) return b;
    if (b.empty()) return a;
    return {std::min(a.x0, b.x0), std::min(a.y0, b.y0), std::max(a.x1, b.x1), std::max(a.y1, b.y1)};
}

// Size and first pixel: "64x32+128+0".
inline std::string boxText(const PixelBox& box) {
    return std::to_string(box.width()) + 'x' + std::to_string(box.height()) + '+' + std::to_string(box.x0) +
           '+' + std::to_string(box.y0);
}

}  // namespace v1
}  // namespace MUtils
