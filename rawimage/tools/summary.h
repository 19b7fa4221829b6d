#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "../format.h"

// What a raw image file holds, told from one walk over its headers and small records. Pixels are not read, so
// a file of any size is summarised quickly, and what they decompress to is taken from their headers.

namespace MUtils {

enum class FileVerdict {
    kGood,           // finished and sound, as far as headers tell
    kUnfinished,     // never closed, or cut: every whole tag can be read, and the file can be continued
    kDamaged,        // a header contradicts the format, itself or the rest of the file
    kNotThisFormat,  // does not begin with the format's file header
    kCannotOpen
};

// "good", "unfinished", "damaged", "not this format", "cannot open".
const char* verdictName(FileVerdict verdict);

// A text of the file, up to its NUL. One of more than kMaxSummaryText bytes is not read.
struct StoredText {
    std::int64_t bytes = 0;  // as stored, NUL and fill included
    std::string text;        // any bytes but NUL: not necessarily UTF-8, and not fit for a terminal as it is
};
constexpr std::int64_t kMaxSummaryText = 1 << 20;

struct FrameSize {
    int width = 0;  // pixels; as stored, so zero and negative numbers are met
    int height = 0;
};

struct FrameResolution : FrameSize {
    float aspect = 1.0f;  // width of a pixel over its height
};

// What the writer announced, not what the pixel tags have.
struct BucketSize : FrameSize {
    bool varies = false;
};

// The scene as its tag has it; the value means something to the renderer only.
struct SceneSummary {
    int value = 0;
    StoredText name;
};

// A channel and the whole tags of its pixels.
struct ChannelSummary {
    // As the file's channel list has it. When it has no such index, only the index and the type that one of
    // its tags gives are set.
    RIF_CHANNEL record;
    bool listed = false;
    std::int64_t tags = 0;
    std::int64_t storedBytes = 0;  // payloads
    std::int64_t rawBytes = 0;     // the values that they stand for
    // Pixels of the frame that its tags cover, overlaps counted once; none when the file gives no resolution.
    std::optional<std::int64_t> coveredPixels;
};

// Everything that is optional is there when the file has the tag, whole; of several tags of a kind the last
// one counts.
struct FileSummary {
    FileVerdict verdict = FileVerdict::kGood;
    // Why the verdict is not kGood, and the file offset where it shows. Of several faults the first damage is
    // told.
    std::string cause;
    std::int64_t faultOffset = 0;

    // Of a stream that does not know its length: where the last tag ends.
    std::int64_t fileBytes = 0;
    // As it stands in the file, zeros when there is none to read.
    RIF_HEADER header;
    // The header's offset leads to a tag table that ends the file and has an entry for each tag that must be
    // listed.
    bool finished = false;
    // Tag headers met, one whose payload is cut included. A walk that breaks off at damage knows none behind
    // it.
    std::int64_t tagCount = 0;

    std::optional<FrameResolution> resolution;
    std::optional<BucketSize> buckets;
    std::optional<RICameraInfo> camera;
    std::optional<RIRegionInfo> region;
    std::optional<SceneSummary> scene;
    std::optional<StoredText> note;
    std::optional<StoredText> stampText;
    // The opaque records: payload bytes.
    std::optional<std::int64_t> stampBytes;
    std::optional<std::int64_t> overlayBytes;
    std::optional<std::int64_t> settingsBytes;
    // The stored thumbnail.
    std::optional<FrameSize> preview;

    // The channel list in its order, then channels that only pixel tags name, by index: at most
    // kMaxUnlistedChannels, `furtherChannels` counts the rest.
    std::vector<ChannelSummary> channels;
    std::int64_t furtherChannels = 0;

    // Every tag header, in file order; empty unless asked for. 50 bytes a tag.
    std::deque<INFOTAG> tags;
};
constexpr int kMaxUnlistedChannels = 1000;

// Pixels of the frame, 0 when there is no sensible resolution.
std::int64_t framePixels(const FileSummary& summary);

// Summarises a file. Never fails: what is wrong stands in the verdict. Needs about 64 bytes of memory a tag,
// besides the list of tags. Throws std::bad_alloc.
FileSummary summariseFile(const char* fileName, bool keepTags);

// The same for an open stream, which is left open at no particular position. A stream that does not know its
// length is not found out when its last payload is cut.
FileSummary summariseStream(PStream& stream, bool keepTags);

}  // namespace MUtils
