#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "../../support/pstream.h"
#include "../inspect/inspection.h"

// Whether a raw image file is what was written, and whether it is all there.

namespace MUtils {

struct VerifyReport {
    FileState state = FileState::kGood;
    std::string cause;  // of any state but good; of a damaged file the first fault's
    // By offset, at most kMaxVerifyFaults; `furtherFaults` counts the rest.
    std::vector<FileFault> faults;
    std::int64_t furtherFaults = 0;
    // The render region when the file carries one that has any pixels, else the frame; no pixels when it has
    // neither.
    PixelBox area;
    // Only channels that lack any. Of a damaged or unfinished file likewise: what is left to render.
    std::vector<MissingPixels> missing;
    // The pixels that any channel lacks.
    MissingBoxes missingInAny;
    std::int64_t tags = 0;  // sound ones
    std::int64_t fileBytes = 0;
    bool stopped = false;  // by the caller's progress; the rest then means nothing
};
constexpr std::size_t kMaxVerifyFaults = 10000;

struct VerifyOptions {
    bool quick = false;  // headers, table, lists and texts only: pixels are not inflated
    int threads = 0;     // below 1: one for each processor
    std::function<bool(std::int64_t done, std::int64_t total)> progress;  // bytes; false stops
};

// A view of the file's inspection, with the faults that cost a tag and those that cost none in one list.
// Reads the whole file unless it is quick. Incompressible payloads, larger than their pixels, are sound.
// Throws std::bad_alloc.
VerifyReport verifyFile(const char* fileName, const VerifyOptions& options);

// The same for an open stream that knows its length; it is left open at no particular position.
VerifyReport verifyStream(PStream& stream, const VerifyOptions& options);

// What is left to render of a file: the boxes that some channel lacks, and those of each channel. As
// verifyFile() with `quick`: a bucket whose tag header is sound counts as there.
VerifyReport missingPixels(const char* fileName);

}  // namespace MUtils
