#pragma once

#include <cstdint>

#include "rawimage/tag_rules.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// The end of a file that was never finished: what a writer that continues it may go over.

// Where the stream's data ends: its length or, where it does not know it, what can be read from `from` on,
// which lies within the data. Returns the stream's code.
int findEnd(PStream& stream, std::int64_t from, std::int64_t& end);

// Whether the file ends in a tag that its writer did not finish. `tags`, `count` of them, are the headers
// that a walk met, by their sizes alone; the last one reaches past `end`, where the file ends, or fewer bytes
// than a header follow it. True only where nothing but half a tag can be there: every size agrees with its
// parameters, the content of the tag before ends where its size field does, and what is there of the last one
// is the beginning of its payload. A size that is damaged leads astray, and sound tags may lie beneath.
bool endsInTornTag(PStream& stream, const INFOTAG* tags, int count, std::int64_t end, const TagRules& rules);

// Whether no tag goes when the file is cut at `offset`, where the file header leads to a table:
// by either of its own two counts it is the last thing in the file, or what is behind it holds no tag.
bool isTableAtEnd(PStream& stream, const RIF_TAG& table, std::int64_t offset, std::int64_t end,
                  const TagRules& rules);

}  // namespace v1
}  // namespace MUtils
