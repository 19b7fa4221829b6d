#pragma once

#include <cstdint>
#include <vector>

#include "../export.h"
#include "pixel_box.h"

namespace MUtils {
inline namespace v1 {

// Returns how many pixels of `frame` lie in at least one of `boxes`, which may overlap and may lie outside
// the frame. Coordinates outside the range of int32 do not count; a result beyond the range of int64 is cut
// to it. Takes O(n log n) time and at most 60 bytes of memory a box, 28 where the boxes form a grid. Throws
// std::bad_alloc.
RAWIMAGE_EXPORT std::int64_t coveredPixels(const std::vector<PixelBox>& boxes, const PixelBox& frame);

}  // namespace v1
}  // namespace MUtils
