#pragma once

#include "rawimage/inspect/tag_scan.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// Finds the end of another file in place of this one's: pages that a disk did not write still contain a
// sibling frame, whose tags are as sound as the file's own. For a file in which no table is believed. Either
// of these shows where the other file begins:
//
//   its table     It is not at the header's table offset, it lists the tags before it, and its entries lead
//                 into the middle of tags further ahead. Where there are too few of these, as most of the
//                 file is the other one: the file goes on behind the table.
//   the offset    The header's table offset leads into the middle of a tag, so the file was finished and its
//                 table is overwritten. The tags around it go back to a gap at the beginning of a page.
//
// Sets the scan's `foreignFrom` and puts the tags from there on in doubt. Throws std::bad_alloc.
void doubtForeignEnd(PStream& stream, TagScan& scan);

}  // namespace v1
}  // namespace MUtils
