#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "rawimage/inspect/tag_scan.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// Repairs the channel index of pixel tags by the order of the channels in their bucket. Writers store the
// channels of a bucket one behind the other, from the last to the first. A tag whose index breaks that order
// while its neighbours leave room for exactly one index gets that one, if
//
//   1. the table does not confirm the tag,
//   2. the channel list has the tag's type for the index,
//   3. the channel of that index has fewer tags in this place than the neighbour's channel, and
//   4. the channel that the tag states has more tags in this place than the neighbour's, or is not listed and
//      has no other tag.
//
// A tag that is covered by later ones of both channels stays as it is. `confirmed`: by tag. Throws
// std::bad_alloc.
void repairChannelOrder(PStream& stream, TagScan& scan, const std::vector<bool>& confirmed);

}  // namespace v1
}  // namespace MUtils
