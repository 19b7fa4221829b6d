#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "../../support/error_code.h"
#include "../export.h"
#include "../inspect/inspection.h"

// Saves what is sound of a damaged or unfinished raw image file.

namespace MUtils {
inline namespace v1 {

enum class RecoverState {
    kGood,
    kNotThisFormat,  // neither the magic nor a sound tag: nothing was written
    kCannotOpen,     // nothing was written; a file that is to be changed may have another writer
    kMismatch,       // what is to be supplied contradicts the pixels: nothing was written
    kNotInPlace,     // there is damage that cutting the end does not mend: the file is as it was
    kWriteFailed,    // see `error`; an output file has no table then, like an unfinished one
    kStopped         // by the caller's progress: likewise
};

// "good", "not this format", "cannot open", "mismatch", "not in place", "write failed", "stopped".
RAWIMAGE_EXPORT const char* stateName(RecoverState state);

struct RecoverReport {
    RecoverState state = RecoverState::kGood;
    std::string cause;  // of a state that is not kGood
    ErrorCode error;
    // Of the input; the table and older ones do not count.
    std::int64_t tagsKept = 0;
    std::int64_t tagsOfPixels = 0;  // of these
    std::int64_t bytesKept = 0;
    // In file order: bytes of the input that are not in the output, a torn end among them, tags that the
    // output has as they were written and not as they are in the input, and contradictions that cost nothing.
    std::vector<FileFault> lost;
    std::int64_t cutFrom = -1;  // offset of the torn end, one of `lost`; -1 when there is none
    std::vector<FileFault> repaired;
    std::vector<FileFault> doubts;
    // The output lacks something of what the input had, whole or in parts: pixels, a record, or proof of a
    // tag that is in doubt. The table does not count, as the output has its own, nor does a torn end in
    // which no tag can be recognised.
    bool lacks = false;
    // What readers need to show pixels and the output does not have: RecoverOptions can supply it.
    bool lacksResolution = false;
    bool lacksChannels = false;
    // Some channel lacks pixels of what is to be rendered; false where that is not known.
    bool lacksPixels = false;
    std::vector<std::uint32_t> supplied;  // ids of the tags that were
    bool changed = true;                  // false when an in-place recovery found the file finished and sound
};

struct RecoverOptions {
    // Supply what the input has lost: the resolution and the channel list of a sibling, the name of a file of
    // the same render, or the resolution alone. What the input has itself stays.
    std::string like;
    int width = 0;
    int height = 0;
    int threads = 0;  // for checking payloads; below 1: one for each processor
    std::function<bool(std::int64_t done, std::int64_t total)> progress;  // false stops
};

// Copies every sound tag of `input` to the new file `output`, which is emptied when it exists, and writes a
// table. Tags are copied byte for byte, save the header of one that is repaired. Tags in doubt come before
// all others, records before pixels, so that they replace and cover none. Old tables are left out.
// docs/recovery.md describes which of a damaged file's statements are believed. What it writes verifies:
// good, or incomplete. Throws std::bad_alloc, as does the other.
RAWIMAGE_EXPORT RecoverReport recoverFile(const char* input, const char* output,
                                          const RecoverOptions& options);

// Cuts a torn tail off the file and adds the table, in place, under the writers' lock. Refuses when anything
// else is wrong with it; a sound, finished file stays as it is.
RAWIMAGE_EXPORT RecoverReport recoverInPlace(const char* fileName, const RecoverOptions& options);

}  // namespace v1
}  // namespace MUtils
