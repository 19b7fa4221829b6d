#pragma once

#include "../rawimage/export.h"

// Questions about files by name, and the lock that keeps a second writer out of one.

namespace MUtils {
inline namespace v1 {

// True when both names lead to one existing file, through links too.
RAWIMAGE_EXPORT bool isSameFile(const char* a, const char* b);

// True when a writer has the file open at this moment: it holds the lock that PFileStream takes for writing.
// Returns at once and changes nothing. False when there is no such file or it cannot be opened for reading,
// and where the file system knows no locks.
RAWIMAGE_EXPORT bool isBeingWritten(const char* fileName);

// Takes that lock for an open descriptor, which keeps it until it is closed. Returns 0, also where the file
// system knows no locks, or EWOULDBLOCK when another writer has it.
RAWIMAGE_EXPORT int lockForWriting(int descriptor);

}  // namespace v1
}  // namespace MUtils
