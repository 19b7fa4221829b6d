#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "../area/missing_boxes.h"
#include "../export.h"
#include "inspection.h"

// The buckets that a frame is rendered in, and which of them are to be rendered again.

namespace MUtils {
inline namespace v1 {

// The grid of buckets that a file's writer announced, clipped to the pixels to render.
//
//     const MUtils::Inspection file = MUtils::inspectFile("frame.rimg", {});
//     if (const auto grid = MUtils::announcedGrid(file)) {
//         for (const MUtils::PixelBox& bucket : grid->bucketsIn(file.missingInAny.boxes, 1000))
//         render(bucket);
//     }
class RAWIMAGE_EXPORT BucketGrid {
  public:
    // Buckets of width x height pixels, both at least 1, over an area that is not empty. The first pixel of
    // some bucket is at (x, y); it may lie outside the area.
    BucketGrid(const PixelBox& area, std::int64_t x, std::int64_t y, std::int64_t width, std::int64_t height);

    const PixelBox& area() const { return area_; }
    // All buckets.
    std::int64_t count() const { return cells_.area(); }
    // The buckets that have a pixel in at least one of `boxes`, which may overlap. Takes O(n log n) time for
    // n boxes, however large the grid is. Throws std::bad_alloc.
    std::int64_t countIn(const std::vector<PixelBox>& boxes) const;
    // Returns those buckets, each once, at most `limit` of them. Takes as much time more as it returns
    // buckets.
    std::vector<PixelBox> bucketsIn(const std::vector<PixelBox>& boxes, std::size_t limit) const;

  private:
    std::vector<PixelBox> cellsOf(const std::vector<PixelBox>& boxes) const;

    PixelBox area_;
    std::int64_t x_, y_, width_, height_;
    PixelBox cells_;  // columns and rows that the area meets
};

// The grid that the file announces: none when it announces no size, or sizes that vary, or has no pixels to
// render. Buckets begin at the corner of the frame or at that of the area, whichever fits more of the pixel
// tags.
RAWIMAGE_EXPORT std::optional<BucketGrid> announcedGrid(const Inspection& file);

struct BucketCount {
    std::int64_t sound = 0;  // no channel lacks a pixel of it
    std::int64_t all = 0;
};

// Counts the buckets of the announced grid, else the distinct boxes that the file's pixel tags have, damaged
// ones included. None when they cannot be counted: there are no pixels to render, the file has neither a grid
// nor pixels, its missing pixels are truncated, or the count would take too much work. Throws std::bad_alloc.
RAWIMAGE_EXPORT std::optional<BucketCount> countBuckets(const Inspection& file);

}  // namespace v1
}  // namespace MUtils
