#pragma once

#include "rawimage/inspect/tag_scan.h"

namespace MUtils {

// Holds the sound tags of a scan against the table and the channel list, as the last step of scanTags(), and
// finds `tableOffset`. A tag that differs from its table entry becomes a gap when the channel list, the other
// channels of its bucket or the other tags say that the entry is right; likewise one that contradicts the
// channel list. Every other contradiction becomes a fault.
void crossCheck(PStream& stream, TagScan& scan);

}  // namespace MUtils
