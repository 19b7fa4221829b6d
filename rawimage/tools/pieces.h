#pragma once

#include <cstdint>
#include <vector>

#include "../area/pixel_box.h"
#include "../export.h"
#include "../inspect/inspection.h"

// Cuts a frame into boxes that are rendered apart, and merged afterwards (rawimage/tools/merge.h).

namespace MUtils {
inline namespace v1 {

struct PieceOptions {
    std::int64_t width = 0;  // of the frame, in pixels, as of the buckets: at least 1
    std::int64_t height = 0;
    std::int64_t bucketWidth = 64;
    std::int64_t bucketHeight = 64;
    std::int64_t count = 1;  // of pieces, at least 1
    // An earlier frame, whose pixel tags show by their bytes what a place costs to render. It may be of
    // another size. Null: every pixel costs the same.
    const Inspection* costs = nullptr;
};
constexpr std::int64_t kMostPieces = 100000;
constexpr std::int64_t kMostPixelsOfASide = 1000000;

struct FramePiece {
    PixelBox box;
    double share = 0;  // of the cost of the frame: all shares add up to 1
};

// Returns boxes on the grid of buckets from the frame's first pixel on, which tile the frame exactly, from
// the top down and from the left: `count` of them, or one for each bucket when that is less. They cost about
// the same each; the same options give the same boxes. Sizes beyond the limits above and values below 1 give
// no pieces. Takes 8 bytes of memory for each bucket with `costs`, 32 MiB at most. Throws std::bad_alloc.
RAWIMAGE_EXPORT std::vector<FramePiece> cutFrame(const PieceOptions& options);

}  // namespace v1
}  // namespace MUtils
