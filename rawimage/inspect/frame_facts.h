#pragma once

#include <vector>

#include "rawimage/inspect/inspection.h"

namespace MUtils {

// Throws std::bad_alloc.
FrameFacts readFrameFacts(PStream& stream, const std::vector<INFOTAG>& tags);

// The records of a channel list; none when it cannot be read.
std::vector<RIF_CHANNEL> readChannelList(PStream& stream, const INFOTAG& tag);

}  // namespace MUtils
