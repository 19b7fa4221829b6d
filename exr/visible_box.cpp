#include "exr/visible_box.h"

#include <algorithm>
#include <cmath>

namespace MUtils {
inline namespace v1 {

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

PixelBox findVisibleBox(const MBVTable& alpha, int width, int height) {
    const int pixels = width * height;
    const int first = firstVisible(alpha, 0, pixels);
    if (first == pixels) return {};
    const int pastLast = pastLastVisible(alpha, first, pixels);

    const int top = first / width;
    const int bottom = (pastLast - 1) / width + 1;
    int left = width;
    int right = 0;
    // In each row only what is left and right of the columns found so far.
    for (int y = top; y < bottom; ++y) {
        const int row = y * width;
        left = firstVisible(alpha, row, row + left) - row;
        right = pastLastVisible(alpha, row + right, row + width) - row;
    }
    return {left, top, right, bottom};
}

}  // namespace v1
}  // namespace MUtils
