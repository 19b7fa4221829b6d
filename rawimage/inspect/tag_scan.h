#pragma once

#include "rawimage/inspect/inspection.h"
#include "rawimage/tag_rules.h"

namespace MUtils {
inline namespace v1 {

inline TagRules rulesOf(const TagScan& scan) {
    return TagRules(scan.compressed);
}

// Takes the file on `stream`, which knows its length, apart. One damaged byte costs at most the tag it is in:
// tag_search.h finds the next one. Tags that contradict the channel list or the table are separated from the
// sound ones by what the others say. The header of another raw image, where no sound tag contains it, ends
// the file; the rest is one gap.
//
// False when the stream does not hold a raw image: shorter than its header, or neither the magic nor a sound
// tag within the first 16 MiB, nor anywhere behind a header of zeros. Time and memory stay within a small
// multiple of the file's size, whatever it holds: 48 bytes a tag, 72 a gap, and PayloadPool's payloads.
// Throws std::bad_alloc.
bool scanTags(PStream& stream, const InspectOptions& options, TagScan& scan);

}  // namespace v1
}  // namespace MUtils
