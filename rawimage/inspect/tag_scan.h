#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "rawimage/format.h"
#include "support/pstream.h"

namespace MUtils {

// Bytes of a file that belong to no sound tag.
struct TagGap {
    std::int64_t offset = 0;
    std::int64_t end = 0;
    const char* cause = "";
    // What the header at `offset` says, where there is a whole one. Not to be believed.
    RIF_TAG tag;
    // The file breaks off here, as a render does that dies while it writes: no damage.
    bool torn = false;
};

// A file taken apart: every byte from the end of the file header belongs to one tag or one gap.
struct TagScan {
    RIF_HEADER header;
    std::int64_t fileBytes = 0;
    // Whether pixel payloads are zlib streams: the header's flag, unless the payloads prove it wrong.
    bool compressed = false;
    std::vector<INFOTAG> tags;  // the sound ones, in file order
    std::vector<TagGap> gaps;   // in file order
    // The table of a finished file: it ends the file, and the header leads to it. 0 when there is none.
    std::uint64_t tableOffset = 0;
    // Contradictions that cost no tag, as nobody can tell which side is damaged, or only what is not a tag
    // is: of the file header and of the table. At most kMaxFaults, in no order; `furtherFaults` counts the
    // rest.
    struct Fault {
        std::int64_t offset;
        std::string cause;
        RIF_TAG tag;  // that it is about; id 0 when it is about none
    };
    static constexpr std::size_t kMaxFaults = 1000;
    std::vector<Fault> faults;
    std::int64_t furtherFaults = 0;
    bool stopped = false;  // by the caller's progress
};

struct TagScanOptions {
    // Inflate pixels, on `threads` threads (below 1: one for each processor). Without, headers, lists and
    // texts are checked, and pixels only where headers are in doubt.
    bool pixels = true;
    int threads = 0;
    // Called now and then on the calling thread with the bytes checked so far; false stops the scan.
    std::function<bool(std::int64_t done, std::int64_t total)> progress;
};

// Takes the file on `stream`, which knows its length, apart. Behind a tag that is not sound the next one is
// where the table or what is left of the damaged tag says; failing that it is searched byte by byte, by its
// shape: a known id, a size that fits its parameters and the file, a payload that is what the header says,
// and, for tags without a checksum, another tag or the end behind it. What lies inside a tag that the table
// lists is never taken for a tag, save pixels with their checksum where the table has no blob. One damaged
// byte costs at most the tag it lies in. Tags that contradict the channel list or the table are told from the
// sound ones by what the others say.
//
// False when the stream does not hold a raw image: shorter than its header, or neither the magic nor a sound
// tag within the first 16 MiB, nor anywhere behind a header of zeros. Time and memory stay within a small
// multiple of the file's size, whatever it holds: 48 bytes a tag, 72 a gap, and PayloadPool's payloads.
// Throws std::bad_alloc.
bool scanTags(PStream& stream, const TagScanOptions& options, TagScan& scan);

}  // namespace MUtils
