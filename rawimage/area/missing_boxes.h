#pragma once

#include <cstddef>
#include <vector>

#include "../export.h"
#include "pixel_box.h"

namespace MUtils {
inline namespace v1 {

// A part of an area, as boxes that do not overlap, from the top down and from the left. Neighbours are joined
// where that gives a box.
struct MissingBoxes {
    std::vector<PixelBox> boxes;
    // The part has more boxes than these, which are the upper ones.
    bool truncated = false;
};
constexpr std::size_t kMaxMissingBoxes = 100000;

// Returns the part of `area` that no box covers. Coordinates outside the range of int32 do not count. Takes
// O(n log n) time for n boxes that form a grid. For other boxes the time is bounded, too: the result is
// truncated at `limit` boxes or when it has taken too much work. Throws std::bad_alloc.
RAWIMAGE_EXPORT MissingBoxes missingBoxes(const std::vector<PixelBox>& boxes, const PixelBox& area,
                                          std::size_t limit = kMaxMissingBoxes);

// Returns the part of `area` that the boxes, which may overlap, cover, within the same bounds.
RAWIMAGE_EXPORT MissingBoxes unitedBoxes(const std::vector<PixelBox>& boxes, const PixelBox& area,
                                         std::size_t limit = kMaxMissingBoxes);

}  // namespace v1
}  // namespace MUtils
