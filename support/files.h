#pragma once

#include <cstdint>

#include "../rawimage/export.h"

// Questions about files by name, and the lock that keeps a second writer out of one.

namespace MUtils {
inline namespace v1 {

// True when both names lead to one existing file, through links too.
RAWIMAGE_EXPORT bool isSameFile(const char* a, const char* b);

// A regular file at a moment: what tells it from another one of its name, and from itself once it was written
// to.
class RAWIMAGE_EXPORT FileStamp {
  public:
    // Of no file.
    FileStamp() = default;
    // Follows links. Of no file when there is none, or none that is regular.
    explicit FileStamp(const char* fileName);

    // False when one of both is of no file.
    bool isSame(const FileStamp& other) const { return isSameFile(other) && wasSame(other); }
    // Likewise; it may have been written to.
    bool isSameFile(const FileStamp& other) const;
    // Whether the file had not been written to for some time. To one that had, somebody may write once more
    // without a difference in its time, which comes in steps.
    bool wasAtRest() const { return atRest_; }

  private:
    bool wasSame(const FileStamp& other) const;

    bool known_ = false;
    bool atRest_ = false;
    std::uint64_t device_ = 0, number_ = 0;
    std::int64_t size_ = 0, seconds_ = 0, nanoseconds_ = 0;  // the time is that of the last change
};

// True when a writer has the file open at this moment: it holds the lock that PFileStream takes for writing.
// Returns at once and changes nothing. False when there is no such file or it cannot be opened for reading,
// and where the file system knows no locks.
RAWIMAGE_EXPORT bool isBeingWritten(const char* fileName);

// Takes that lock for an open descriptor, which keeps it until it is closed. Returns 0, also where the file
// system knows no locks, or EWOULDBLOCK when another writer has it.
RAWIMAGE_EXPORT int lockForWriting(int descriptor);

}  // namespace v1
}  // namespace MUtils
