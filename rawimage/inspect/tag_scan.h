#pragma once

#include "rawimage/inspect/inspection.h"
#include "rawimage/tag_rules.h"

namespace MUtils {

inline TagRules rulesOf(const TagScan& scan) {
    return TagRules(scan.compressed);
}

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
bool scanTags(PStream& stream, const InspectOptions& options, TagScan& scan);

}  // namespace MUtils
