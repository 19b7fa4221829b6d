#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "../../support/pstream.h"
#include "../export.h"
#include "../inspect/bucket_grid.h"
#include "../inspect/inspection.h"

// Whether a raw image file is what was written, and whether it is all there.

namespace MUtils {
inline namespace v1 {

struct VerifyReport {
    FileState state = FileState::kGood;
    // Of any state but good, and the file offset where it shows, -1 where it shows nowhere. Of a damaged file
    // both are those of the first damage.
    std::string cause;
    std::int64_t causeOffset = -1;
    // What is damaged or in doubt, by offset, at most kMaxVerifyFaults; `furtherFaults` counts the rest. The
    // bytes from `offset` to `end` are lost; where both are equal the fault costs no tag.
    std::vector<FileFault> faults;
    std::int64_t furtherFaults = 0;
    // Tags whose header is damaged and known from elsewhere, by offset, at most kMaxVerifyFaults.
    std::vector<FileFault> repaired;
    // The render region when the file carries one that has any pixels, else the frame; no pixels when it has
    // neither.
    PixelBox area;
    // Only channels that lack any. Of a damaged or unfinished file likewise: what is left to render.
    std::vector<MissingPixels> missing;
    // The pixels that any channel lacks.
    MissingBoxes missingInAny;
    // The channel list is missing: channels without any pixels are not known.
    bool lacksChannels = false;
    // As countBuckets() and announcedGrid() give them.
    std::optional<BucketCount> buckets;
    std::optional<BucketGrid> grid;
    std::int64_t tags = 0;  // sound ones; some in a file that is not of this format by its header, too
    std::int64_t fileBytes = 0;
    // A writer has the file open, as its lock shows: an unfinished file is then a render that goes on. Not
    // known of a stream: false.
    bool beingWritten = false;
    bool stopped = false;  // by the caller's progress; the rest then means nothing
};
constexpr std::size_t kMaxVerifyFaults = 10000;

struct VerifyOptions {
    bool quick = false;  // headers, table, lists and texts only: pixels are not inflated
    int threads = 0;     // below 1: one for each processor
    std::function<bool(std::int64_t done, std::int64_t total)> progress;  // bytes; false stops
};

// Reports on a file: a view of its inspection. Reads the whole file unless it is quick. Incompressible
// payloads, larger than their pixels, are sound. Throws std::bad_alloc.
RAWIMAGE_EXPORT VerifyReport verifyFile(const char* fileName, const VerifyOptions& options);

// The same for an open stream that knows its length; it is left open at no particular position.
RAWIMAGE_EXPORT VerifyReport verifyStream(PStream& stream, const VerifyOptions& options);

struct MissingOptions {
    // Inflate the pixels: a bucket whose values are damaged is missing. Without it a bucket whose tag header
    // is sound counts as there.
    bool deep = false;
    int threads = 0;  // that inflate; below 1: one for each processor
    std::function<bool(std::int64_t done, std::int64_t total)> progress;  // bytes; false stops
};

// Reports what is left to render of a file: the boxes that some channel lacks, and those of each channel.
// Pixels of a tag whose header is damaged count as missing, also where verifyFile() knows the header from
// elsewhere: a program that continues the file as it is leaves the wrong header in it. Throws std::bad_alloc.
RAWIMAGE_EXPORT VerifyReport missingPixels(const char* fileName, const MissingOptions& options = {});

}  // namespace v1
}  // namespace MUtils
