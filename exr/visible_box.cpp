#include "exr/visible_box.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int kComponents = 3;

// A NaN is not visible.
bool isVisible(const float* value) {
    constexpr float kThreshold = 1e-12f;
    return std::fabs(value[0]) > kThreshold || std::fabs(value[1]) > kThreshold ||
           std::fabs(value[2]) > kThreshold;
}

const float* floatsAt(const MBVTable& alpha, int index) {
    return reinterpret_cast<const float*>(alpha.item(index));
}

// The first visible value from `begin` up to `end`, `end` when there is none. Values lie together within a
// block.
int firstVisible(const MBVTable& alpha, int begin, int end) {
    while (begin < end) {
        const int count = std::min(end - begin, alpha.itemsPerBlock - begin % alpha.itemsPerBlock);
        const float* values = floatsAt(alpha, begin);
        for (int i = 0; i < count; ++i) {
            if (isVisible(values + i * kComponents)) return begin + i;
        }
        begin += count;
    }
    return end;
}

// One past the last visible value between `begin` and `end`, `begin` when there is none.
int pastLastVisible(const MBVTable& alpha, int begin, int end) {
    while (begin < end) {
        const int count = std::min(end - begin, (end - 1) % alpha.itemsPerBlock + 1);
        const float* values = floatsAt(alpha, end - count);
        for (int i = count; i > 0; --i) {
            if (isVisible(values + (i - 1) * kComponents)) return end - count + i;
        }
        end -= count;
    }
    return begin;
}

}  // namespace

PixelWindow findVisibleBox(const MBVTable& alpha, int width, int height) {
    const int pixels = width * height;
    const int first = firstVisible(alpha, 0, pixels);
    if (first == pixels) return {};
    const int pastLast = pastLastVisible(alpha, first, pixels);

    PixelWindow box = {width, first / width, 0, (pastLast - 1) / width + 1};
    // In each row only what is left and right of the columns found so far.
    for (int y = box.y0; y < box.y1; ++y) {
        const int row = y * width;
        box.x0 = firstVisible(alpha, row, row + box.x0) - row;
        box.x1 = pastLastVisible(alpha, row + box.x1, row + width) - row;
    }
    return box;
}
