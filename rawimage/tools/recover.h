#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "../../support/error_code.h"

// Saves what is sound of a damaged or unfinished raw image file.

namespace MUtils {

enum class RecoverState {
    kGood,
    kNotThisFormat,  // neither the magic nor a sound tag: nothing was written
    kCannotOpen,     // nothing was written; a file that is to be changed may have another writer
    kNotInPlace,     // there is damage that cutting the end does not mend: the file is as it was
    kWriteFailed,    // see `error`; an output file has no table then, like an unfinished one
    kStopped         // by the caller's progress: likewise
};

// Bytes of the input that are not in the output.
struct LostRange {
    std::int64_t offset = 0;
    std::int64_t end = 0;
    std::string cause;
};

// Where the input contradicts itself and nobody can tell which side is right.
struct RecoverDoubt {
    std::int64_t offset = 0;
    std::string cause;
};

struct RecoverReport {
    RecoverState state = RecoverState::kGood;
    std::string cause;  // of a state that is not kGood
    ErrorCode error;
    // Of the input; the table and older ones do not count.
    std::int64_t tagsKept = 0;
    std::int64_t tagsOfPixels = 0;  // of these
    std::int64_t bytesKept = 0;
    std::vector<LostRange> lost;  // in file order
    std::vector<RecoverDoubt> doubts;
    bool changed = true;  // false when an in-place recovery found the file finished and sound
};

struct RecoverOptions {
    int threads = 0;  // for checking payloads; below 1: one for each processor
    std::function<bool(std::int64_t done, std::int64_t total)> progress;  // false stops
};

// Copies every sound tag of `input` as it stands to the new file `output`, which is emptied when it exists,
// and writes a table. Old tables are left out. Tags whose headers contradict the table are kept unless
// something else says that the table is right. What it writes verifies: good, or incomplete. Throws
// std::bad_alloc, as do the others.
RecoverReport recoverFile(const char* input, const char* output, const RecoverOptions& options);

// Cuts a torn tail off the file and adds the table, in place, under the writers' lock. Refuses when anything
// else is wrong with it; a sound, finished file stays as it is.
RecoverReport recoverInPlace(const char* fileName, const RecoverOptions& options);

// Makes a file ready to be continued with RIFile::Append and ReadInfoTags: cuts a torn tail, or the table of
// a finished file, so that the next tag follows the last whole one. Refuses what recoverInPlace() refuses,
// save damage inside pixels, which it does not inflate: verify first where that matters.
RecoverReport prepareResume(const char* fileName);

}  // namespace MUtils
