#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "../export.h"
#include "../format.h"
#include "../frame/frame_records.h"
#include "../inspect/inspection.h"

// What a raw image file contains, by its headers and small records. Pixels are not read, so a file of any
// size is summarised quickly, and the bytes that they decompress to come from their headers.

namespace MUtils {
inline namespace v1 {

// A channel and the whole tags of its pixels.
struct ChannelSummary {
    // As the file's channel list has it. When it has no such index, only the index and the type that one of
    // its tags gives are set.
    RIF_CHANNEL record;
    bool listed = false;
    std::int64_t tags = 0;
    std::int64_t storedBytes = 0;  // payloads
    std::int64_t rawBytes = 0;     // of their values
    // Pixels of the frame that its tags cover, overlaps counted once; none when the file gives no resolution.
    std::optional<std::int64_t> coveredPixels;
};

// Everything that is optional is there when the file has the tag, whole; of several tags of a kind the last
// one counts.
struct FileSummary : SmallRecords {
    // As the inspection's: why the state is not kGood, and the file offset where that shows, -1 where it
    // shows nowhere.
    FileState state = FileState::kGood;
    std::string cause;
    std::int64_t faultOffset = -1;

    std::int64_t fileBytes = 0;
    // As it is in the file, zeros when there is none to read.
    RIF_HEADER header;
    // The file has its table: it ends the file, and the header's offset leads to it.
    bool finished = false;
    std::int64_t tagCount = 0;  // sound tags, the table included

    std::optional<FrameResolution> resolution;
    std::optional<BucketSize> buckets;
    // The stored thumbnail.
    std::optional<FrameSize> preview;

    // The channel list in its order, then channels that only pixel tags name, by index: at most
    // kMaxUnlistedChannels, `furtherChannels` counts the rest.
    std::vector<ChannelSummary> channels;
    std::int64_t furtherChannels = 0;

    // The sound tags, in file order; empty unless asked for.
    std::vector<INFOTAG> tags;
};
constexpr int kMaxUnlistedChannels = 1000;

// Pixels of the frame, 0 when there is no sensible resolution.
RAWIMAGE_EXPORT std::int64_t framePixels(const FileSummary& summary);

// Summarises a file: a view of its inspection to the depth of records. Never fails: what is wrong is in the
// state. Needs about 80 bytes of memory a tag. Throws std::bad_alloc.
RAWIMAGE_EXPORT FileSummary summariseFile(const char* fileName, bool keepTags);

// The same for an open stream, which is left open at no particular position.
RAWIMAGE_EXPORT FileSummary summariseStream(PStream& stream, bool keepTags);

// The same for a stream that has been inspected to the depth of records or more. Without the tags, which are
// those of the inspection.
RAWIMAGE_EXPORT FileSummary summarise(PStream& stream, const Inspection& file);

}  // namespace v1
}  // namespace MUtils
