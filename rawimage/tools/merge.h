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
    kWriteFailed,    // or an input changed meanwhile; the output has no table, like an unfinished file
    kStopped,        // by the caller's progress: likewise, or nothing was written
    kNotVerified     // the output, read again, is not sound or not what the inputs have
};

// "good", "cannot open", "not this format", "damaged", "mismatch", "overlap", "holes", "write failed",
// "stopped", "not verified".
RAWIMAGE_EXPORT const char* stateName(MergeState state);

enum class MergeOverlap {
    kRefuse,  // of a bucket that several inputs have in the same place one is taken, the first sound one
    kFirst,   // where inputs overlap, the first one that has the pixel counts
    kLast
};

struct MergeOptions {
    MergeOverlap overlap = MergeOverlap::kRefuse;
    bool allowHoles = false;
    // Reads the closed output again: inflates all pixels, and compares them with the inputs byte for byte.
    bool verify = false;
    int threads = 0;   // that inspect and inflate; below 1: one for each processor
    bool sync = true;  // as RIFile::setSyncOnClose()
    std::function<bool(std::int64_t done, std::int64_t total)> progress;  // bytes; false stops
};

// Buckets that were taken from another input, which has them too.
struct MergeRepeat {
    std::string file;
    std::string takenFrom;
    std::int64_t tags = 0;  // of pixels
    // Of these, the tags whose values are damaged. Looked for with MergeOverlap::kRefuse only.
    std::int64_t damaged = 0;
};

// A damaged input of which nothing was taken, as the others have all of its area.
struct MergeSetAside {
    std::string file;
    std::string cause;
};

struct MergeReport {
    MergeState state = MergeState::kGood;
    std::string file;  // that a state other than kGood is about, if it is one
    std::string cause;
    ErrorCode error;
    std::int64_t tags = 0;  // of pixels
    // Inputs that were never finished. What is whole in them is used. One that ends before its channels is a
    // hole, whose place is not known.
    std::vector<std::string> unfinished;
    std::vector<MergeRepeat> repeats;  // in the order of the inputs
    std::vector<MergeSetAside> setAside;
    // With MergeOptions::verify: the inputs of which every pixel tag is in the output, byte for byte.
    std::vector<std::string> contained;
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
// counts only; of others the tags of the one that counts come last. Where it is not allowed, a piece may
// still come twice, as by two attempts to render it. Does not inflate pixels otherwise: damage inside them is
// copied.
//
// Inputs are opened a few at a time, as often as they are needed: their number is not limited by open files.
// One that changes meanwhile fails the merge. Takes about 50 bytes of memory for each tag, and as much again
// for buckets that repeat or to verify. Throws std::bad_alloc.
RAWIMAGE_EXPORT MergeReport mergeFiles(const std::vector<std::string>& inputs, const std::string& output,
                                       const MergeOptions& options);

}  // namespace v1
}  // namespace MUtils
