#pragma once

#include <cstddef>
#include <vector>

#include "rawimage/area/pixel_box.h"

namespace MUtils {
inline namespace v1 {

// Divides boxes into groups so that boxes of different groups do not overlap. Returns for each box the place
// of the first box of its group. Boxes that overlap none are groups of their own; boxes may be in one group
// that are only near to others of it. `boxes` are not empty. Takes O(n log n) time. Throws std::bad_alloc.
std::vector<std::size_t> groupOverlapping(const std::vector<PixelBox>& boxes);

}  // namespace v1
}  // namespace MUtils
