#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "../../support/pstream.h"
#include "../area/missing_boxes.h"
#include "../export.h"
#include "../format.h"

// The inspection of a raw image file: what is sound in it, what is not and why, and the one state that every
// tool and every exit code is taken from. Works on finished, unfinished and damaged files alike.
//
//     MUtils::InspectOptions headersOnly;
//     headersOnly.depth = MUtils::InspectDepth::kHeaders;
//     const MUtils::Inspection file = MUtils::inspectFile("frame.rimg", headersOnly);
//     if (file.state == MUtils::FileState::kDamaged) report(file.cause);

namespace MUtils {
inline namespace v1 {

enum class FileState {
    kGood,        // finished and sound, and no channel lacks pixels
    kUnfinished,  // never closed or cut short; every whole tag is sound
    kIncomplete,  // finished and sound, but pixels are missing, or the resolution or the channel list is
    kDamaged,
    kNotThisFormat,
    kCannotOpen
};

// "good", "unfinished", "incomplete", "damaged", "not this format", "cannot open".
RAWIMAGE_EXPORT const char* stateName(FileState state);

// A deeper look may find more damage. It never calls damaged what a shallower one has proved sound.
enum class InspectDepth {
    kHeaders,  // file header, tag headers and the table; payloads only where a header is in doubt
    kRecords,  // and the payloads of lists and texts
    kPayloads  // and the pixels: every compressed payload is inflated
};

struct InspectOptions {
    InspectDepth depth = InspectDepth::kPayloads;
    int threads = 0;  // that inflate pixels; below 1: one for each processor
    // Pixels of a tag that is repaired count as missing: for programs that continue a file as it is, with the
    // wrong header in it.
    bool repairedIsMissing = false;
    // Whether pixels are looked for that are missing. Without it a file that lacks some counts as kGood: for
    // programs that do that for several files together.
    bool findMissing = true;
    // Called now and then on the calling thread with the bytes checked and all bytes; false stops.
    std::function<bool(std::int64_t done, std::int64_t total)> progress;
};

// Bytes of a file that belong to no sound tag.
struct TagGap {
    std::int64_t offset = 0;
    std::int64_t end = 0;
    const char* cause = "";
    // What the header at `offset` contains, where there is a whole one. Not reliable.
    RIF_TAG tag;
    // The file breaks off here, as it does when a render dies while it writes: no damage.
    bool torn = false;
};

// A file taken apart: every byte from the end of the file header belongs to one tag or one gap.
struct TagScan {
    // As it is in the file.
    RIF_HEADER header;
    std::int64_t fileBytes = 0;
    // Where the file itself ends: before `fileBytes` when another file was appended to it.
    std::int64_t ownBytes = 0;
    // Whether pixel payloads are zlib streams: the header's flag, unless the payloads prove it wrong.
    bool compressed = false;
    std::vector<INFOTAG> tags;  // the sound ones, in file order
    std::vector<TagGap> gaps;   // in file order
    // The table of a finished file: it ends the file, and the header leads to it. 0 when there is none.
    std::uint64_t tableOffset = 0;
    // Contradictions that cost no tag: of the file header and of the table, and those where either side may
    // be damaged. At most kMaxFaults, in no order; `furtherFaults` counts the rest.
    struct Fault {
        std::int64_t offset;
        std::string cause;
        RIF_TAG tag;             // that it is about; id 0 when it is about none
        std::int64_t count = 1;  // like ones that it represents
    };
    static constexpr std::size_t kMaxFaults = 1000;
    std::vector<Fault> faults;
    std::int64_t furtherFaults = 0;
    // A sound tag whose header was damaged and is known from another witness. `tags` holds it as it was
    // written, `found` is the header in the file.
    struct Repair {
        std::int64_t offset;
        RIF_TAG found;
        const char* cause;
    };
    std::vector<Repair> repairs;  // by offset
    // Offsets of tags in `tags` that may be wrong, ascending: pixels whose place or channel other tags deny
    // without proof, records that differ from their table entry without one, and all tags from `foreignFrom`
    // on.
    std::vector<std::int64_t> doubted;
    // Where tags begin that another file seems to have left at the end of this one; 0 when none do. They
    // count for no facts of the frame.
    std::int64_t foreignFrom = 0;
    bool stopped = false;  // by the caller's progress; what is here is then not complete
};

// What the sound tags of a file contain of its frame. Of several tags of a kind the last one counts, as for a
// reader that receives one after the other.
struct RAWIMAGE_EXPORT FrameFacts {
    std::optional<RIF_TAG> resolution;
    std::optional<RIF_TAG> buckets;  // the announced bucket size
    std::optional<RIRegionInfo> region;
    std::vector<RIF_CHANNEL> channels;  // in the order of the list; none when there is no list

    // The pixels [0, width) x [0, height); none without a resolution.
    PixelBox frame() const;
    // The pixels to render: the render region when the file has one with any pixels, else the frame.
    PixelBox area() const;
    // "" for a channel that is not listed.
    std::string channelName(int index) const;
};

// The pixels that a channel lacks of the area to cover.
struct MissingPixels {
    int channel = -1;
    std::string name;
    MissingBoxes boxes;
};

struct Inspection : TagScan {
    FileState state = FileState::kGood;
    // Of any state but kGood, and the file offset where it shows, -1 where it shows nowhere. Of a damaged
    // file both are those of the first damage.
    std::string cause;
    std::int64_t causeOffset = -1;

    // Where the file goes on behind the table that its header leads to; 0 when it does not.
    std::int64_t tailOffset = 0;

    FrameFacts facts;
    // What the pixels are to cover: facts.area().
    PixelBox area;
    // The channels that lack pixels of the area, also of a damaged or unfinished file; those of tags in doubt
    // count as missing. Channels without
    // values (type 0) lack nothing, and those with windows (kChannelWindowMark) nothing outside them.
    std::vector<MissingPixels> missing;
    // The pixels that any channel lacks; all of the area when there is no channel.
    MissingBoxes missingInAny;
};

// A fault of a file, for reports.
struct FileFault {
    std::int64_t offset = 0;
    std::int64_t end = 0;     // past the bytes that belong to no tag; the offset itself when there are none
    std::uint32_t tagId = 0;  // that it is about; 0 when that is no tag, or its header cannot be read
    PixelBox box;             // of a pixel tag, as its header or table entry has it, damaged or not
    int channel = -1;
    std::string channelName;
    std::string cause;
    std::int64_t count = 1;  // like ones that it represents
};

// What is wrong with a file, in the order of the offsets of each kind.
struct FileFaults {
    std::vector<FileFault> lost;      // bytes that belong to no tag; torn ends not included
    std::vector<FileFault> repaired;  // tags whose header was damaged and is known from elsewhere
    std::vector<FileFault> doubts;    // contradictions that cost no tag, and damage beside the tags
};
RAWIMAGE_EXPORT FileFaults faultsOf(const Inspection& file);
// A gap as a fault.
RAWIMAGE_EXPORT FileFault faultOf(const TagGap& gap, const FrameFacts& facts);

// Inspects an open stream, which is left open at no particular position; one that does not know its length is
// read to its end first. Never fails: what is wrong is in the state. One object's work is done by the calling
// thread and up to `threads` of its own. Throws std::bad_alloc.
//
// Time and memory stay within a small multiple of the file's size, whatever it contains: 48 bytes a tag, 72 a
// gap, and the payloads in work.
//
// What no inspection can find: damage in values that are stored without a checksum (uncompressed pixels,
// camera, blobs, letters of names and notes). Tags of an unknown id and, in a compressed file, those of the
// direct writers (WTInt ... _WT3Float), at which readers stop, count as damaged.
RAWIMAGE_EXPORT Inspection inspectStream(PStream& stream, const InspectOptions& options);

// The same for a file, which may be written to at the same time.
RAWIMAGE_EXPORT Inspection inspectFile(const char* fileName, const InspectOptions& options);

}  // namespace v1
}  // namespace MUtils
