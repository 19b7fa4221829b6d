#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "../../support/pstream.h"
#include "../area/missing_boxes.h"

// Whether a raw image file is what was written, and whether it is all there.

namespace MUtils {

enum class VerifyVerdict {
    kGood,
    kUnfinished,  // never closed or cut short; every whole tag is sound
    kIncomplete,  // finished and sound, but some channel lacks pixels, or there is no frame or channel
    kDamaged,
    kNotThisFormat,
    kCannotOpen
};

// "good", "unfinished", "incomplete", "damaged", "not this format", "cannot open".
const char* verdictName(VerifyVerdict verdict);

struct VerifyFault {
    std::int64_t offset = 0;
    std::int64_t end = 0;     // past the bytes that are lost; the offset itself when no tag is
    std::uint32_t tagId = 0;  // what it is about; 0 when that is no tag, or its header could not be read
    PixelBox box;             // of a pixel tag, as its header or table entry has it, damaged or not
    int channel = -1;
    std::string channelName;
    std::string cause;
};

// The pixels that a channel lacks of the area to cover.
struct MissingPixels {
    int channel = -1;
    std::string name;
    MissingBoxes boxes;
};

struct VerifyReport {
    VerifyVerdict verdict = VerifyVerdict::kGood;
    std::string cause;  // of any verdict but good; of a damaged file the first fault's
    // By offset, at most kMaxVerifyFaults; `furtherFaults` counts the rest.
    std::vector<VerifyFault> faults;
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

// Reads the whole file unless it is quick. Incompressible payloads, larger than their pixels, are sound.
// Channels without values (type 0) lack nothing, and those with windows (kChannelWindowMark) nothing outside
// them. Time and memory are bounded by the file's size, whatever it
// holds. Throws std::bad_alloc.
//
// What cannot be told: values that are stored without a checksum (uncompressed pixels, camera, blobs, letters
// of names and notes); and of a file without a table, where a bucket belongs. Tags of no known id and, in a
// compressed file, those of the direct writers (WTInt ... _WT3Float), at which readers stop, count as
// damaged.
VerifyReport verifyFile(const char* fileName, const VerifyOptions& options);

// The same for an open stream that knows its length; it is left open at no particular position.
VerifyReport verifyStream(PStream& stream, const VerifyOptions& options);

// What is left to render of a file: the boxes that some channel lacks, and those of each channel. As
// verifyFile() with `quick`: a bucket whose tag header is sound counts as there.
VerifyReport missingPixels(const char* fileName);

}  // namespace MUtils
