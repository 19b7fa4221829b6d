#pragma once

#include <vector>

#include "rawimage/format.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// Compares the pixels of a file with its channel list: each channel has one type, in the list and in its
// tags. Where they differ, the witnesses are believed in this order:
//
//   1. Tags that the table confirms (`proven`): the list is damaged.
//   2. The majority of the channel's tags: the list is damaged when more of them contradict it than agree.
//   3. A channel all of whose tags contradict the list: the list is damaged, unless the tag looks like one of
//      another channel.
//   4. Else the tags are damaged that contradict the list. So is a tag of a channel that is not listed, when
//      it is the only one and a listed channel of its type lacks its bucket.
//
// What is damaged gets its cause in `dropped`, which has an entry for each tag, null so far. Files whose
// lists contradict each other are left alone.
void checkChannels(PStream& stream, const std::vector<INFOTAG>& tags, const std::vector<bool>& proven,
                   std::vector<const char*>& dropped);

}  // namespace v1
}  // namespace MUtils
