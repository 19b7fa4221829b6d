#pragma once

#include "rawimage/inspect/tag_scan.h"

namespace MUtils {
inline namespace v1 {

// Compares the tags of a scan with each other, as its last step: with the table (TableCheck), with the order
// of the channels in a bucket (repairChannelOrder), with the channel list (checkChannels) and with the places
// of the other channels (PlaceCheck), in this order. Each believes the tags that the one before has left; a
// tag that the table confirms is believed by all. Sets `tableOffset`. Tags that are wrong become gaps, or
// repairs where another witness knows their header; tags that may be wrong become doubts; what costs no tag
// becomes a fault. docs/recovery.md describes the whole. Throws std::bad_alloc.
void crossCheck(PStream& stream, TagScan& scan);

}  // namespace v1
}  // namespace MUtils
