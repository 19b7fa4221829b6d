#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "../../support/error_code.h"
#include "../area/missing_boxes.h"
#include "../export.h"

// One file out of several that hold pieces of the same frame, by copying: nothing is compressed again.

namespace MUtils {
inline namespace v1 {

enum class MergeState {
    kGood,
    kCannotOpen,     // an input; nothing was written, as with the next five
    kNotThisFormat,  // an input
    kDamaged,        // an input: recover it first
    kMismatch,       // the inputs are not of one frame
    kOverlap,        // several have a pixel, and MergeOptions::overlap refuses that
    kHoles,          // together they lack pixels, and MergeOptions::allowHoles is off
    kWriteFailed,    // the output then has no table, like an unfinished file
    kStopped         // by the caller's progress: likewise
};

enum class MergeOverlap {
    kRefuse,
    kFirst,  // where inputs overlap, the first one that has the pixel counts
    kLast
};

struct MergeOptions {
    MergeOverlap overlap = MergeOverlap::kRefuse;
    bool allowHoles = false;
    bool sync = true;                                                     // as RIFile::setSyncOnClose()
    std::function<bool(std::int64_t done, std::int64_t total)> progress;  // bytes; false stops
};

struct MergeReport {
    MergeState state = MergeState::kGood;
    std::string file;  // that a state other than kGood is about, if it is one
    std::string cause;
    ErrorCode error;
    std::int64_t tags = 0;  // of pixels
    // Inputs that were never finished. What is whole in them is used.
    std::vector<std::string> unfinished;
    PixelBox frame;
    PixelBox area;  // what the pieces are to cover: the box around their render regions, else the frame
    // What some channel lacks of the merged area, whether that is allowed or not.
    MissingBoxes holes;
};

// Merges `inputs`, at least one, into the new file `output`, which is emptied when it exists and is none of
// them. Their size, aspect, way of storing pixels and channels (index, type, name) must agree. Each kind of
// frame metadata comes from the first file that has it; the render region becomes the box around all of
// theirs. Pixels may overlap within one input: later ones are drawn over earlier ones.
//
// Where inputs overlap and that is allowed, buckets that another input has, too, come from the one that
// counts only; of others the tags of the one that counts come last. Does not inflate pixels: damage inside
// them is copied. Throws std::bad_alloc.
RAWIMAGE_EXPORT MergeReport mergeFiles(const std::vector<std::string>& inputs, const std::string& output,
                                       const MergeOptions& options);

}  // namespace v1
}  // namespace MUtils
