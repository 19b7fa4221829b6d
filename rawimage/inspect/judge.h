#pragma once

#include "rawimage/inspect/channel_cover.h"
#include "rawimage/inspect/inspection.h"

namespace MUtils {
inline namespace v1 {

// The last step of an inspection: lists the pixels that are missing and, where the state is still kGood, sets
// it. `cover` has the file's channels, pixels and windows; the tags themselves may have been left out.
void judge(Inspection& file, const ChannelCover& cover);

}  // namespace v1
}  // namespace MUtils
