#pragma once

#include "rawimage/format.h"
#include "support/error_code.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// writeNote() on a file that is open. `mending` is a second stream on the same file, which puts back what was
// there when a write fails: `file` may refuse to write any more then. Where the file has notes, each is
// overwritten by one write of 1024 bytes. Else the tag and the table that lists it are first written behind
// the old table, which shows that there is room for them, then cut off again with the old table and written
// in its place; meanwhile the file header marks the file as unfinished, and every tag can be reached.
// Throws std::bad_alloc.
ErrorCode setNote(PStream& file, PStream& mending, const char* note);

}  // namespace v1
}  // namespace MUtils
