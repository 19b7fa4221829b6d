#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "coverage.h"

namespace MUtils {

// A part of an area, as boxes that do not overlap, from the top down and from the left; neighbours are joined
// where that gives a box.
struct MissingBoxes {
    std::vector<PixelBox> boxes;
    // There are more than `boxes`, which come from the top of the area.
    bool truncated = false;
};
constexpr std::size_t kMaxMissingBoxes = 100000;

// The part of `area` that no box covers. Takes O(n log n) time for n boxes on a grid; for others the time is
// bounded, too, and the answer is cut at `limit` boxes or when it has taken too much work.
MissingBoxes missingBoxes(const std::vector<PixelBox>& boxes, const PixelBox& area,
                          std::size_t limit = kMaxMissingBoxes);

// The part of `area` that the boxes, which may overlap, cover. Time and limit likewise.
MissingBoxes unitedBoxes(const std::vector<PixelBox>& boxes, const PixelBox& area,
                         std::size_t limit = kMaxMissingBoxes);

}  // namespace MUtils
