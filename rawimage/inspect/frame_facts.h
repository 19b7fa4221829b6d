#pragma once

#include <vector>

#include "rawimage/inspect/inspection.h"

namespace MUtils {
inline namespace v1 {

// Returns the tag of a record that cannot be read, null when all can. Throws std::bad_alloc.
const INFOTAG* readFrameFacts(PStream& stream, const std::vector<INFOTAG>& tags, FrameFacts& facts);

// The records of a channel list. False when it cannot be read; there are none then.
bool readChannelList(PStream& stream, const INFOTAG& tag, std::vector<RIF_CHANNEL>& list);

}  // namespace v1
}  // namespace MUtils
