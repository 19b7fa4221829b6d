#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace MUtils {
inline namespace v1 {

// Rows of pixels [y0, y1).
struct RowSpan {
    std::int64_t height() const { return y1 - y0; }

    std::int64_t y0, y1;
};

// Sorts spans from the top down and joins those that overlap; spans that only touch stay apart.
inline std::vector<RowSpan> joinOverlapping(std::vector<RowSpan> spans) {
    std::sort(spans.begin(), spans.end(), [](const RowSpan& a, const RowSpan& b) { return a.y0 < b.y0; });
    std::vector<RowSpan> joined;
    for (const RowSpan& next : spans) {
        if (!joined.empty() && next.y0 < joined.back().y1) {
            joined.back().y1 = std::max(joined.back().y1, next.y1);
        } else {
            joined.push_back(next);
        }
    }
    return joined;
}

}  // namespace v1
}  // namespace MUtils
