#pragma once

#include <vector>

#include "rawimage/format.h"
#include "support/pstream.h"

namespace MUtils {

// Holds the pixels of a file against its channel list: each channel has one type, in the list and in its
// tags. Where they differ, what is damaged gets its cause in `dropped`, which has an entry for each tag, null
// so far: the list when tags that the table confirms (`proven`) or most tags of a channel contradict it, else
// the tag. A tag of a channel that no list has is damaged when it is the only one, nothing confirms it, and
// a listed channel of its type lacks its bucket.
//
// Files whose lists contradict each other are left alone.
void checkChannels(PStream& stream, const std::vector<INFOTAG>& tags, const std::vector<bool>& proven,
                   std::vector<const char*>& dropped);

}  // namespace MUtils
