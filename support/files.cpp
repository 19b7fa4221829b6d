#include "support/files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <system_error>
#include <thread>

namespace MUtils {
inline namespace v1 {

bool isSameFile(const char* a, const char* b) {
    std::error_code ignored;
    return std::filesystem::equivalent(a, b, ignored);
}

FileStamp::FileStamp(const char* fileName) {
    constexpr std::int64_t kRest = 2;  // seconds: the longest step of a file system's time
    struct stat status;
    if (fileName == nullptr || ::stat(fileName, &status) != 0 || !S_ISREG(status.st_mode)) return;
    known_ = true;
    device_ = status.st_dev;
    number_ = status.st_ino;
    size_ = status.st_size;
    seconds_ = status.st_mtim.tv_sec;
    nanoseconds_ = status.st_mtim.tv_nsec;
    atRest_ = ::time(nullptr) - seconds_ > kRest;
}

bool FileStamp::isSameFile(const FileStamp& other) const {
    return known_ && other.known_ && device_ == other.device_ && number_ == other.number_;
}

bool FileStamp::wasSame(const FileStamp& other) const {
    return size_ == other.size_ && seconds_ == other.seconds_ && nanoseconds_ == other.nanoseconds_;
}

namespace {

bool isTaken(int descriptor, int kind) {
    return ::flock(descriptor, kind | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

}  // namespace

bool isBeingWritten(const char* fileName) {
    struct stat status;
    // To open anything else may wait, or do something to a device.
    if (fileName == nullptr || ::stat(fileName, &status) != 0 || !S_ISREG(status.st_mode)) return false;
    const int descriptor = ::open(fileName, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) return false;
    const bool taken = isTaken(descriptor, LOCK_SH);
    ::close(descriptor);
    return taken;
}

// isBeingWritten() holds a shared lock for a moment: only a refusal that lasts is another writer's.
int lockForWriting(int descriptor) {
    constexpr int kTries = 20;
    for (int i = 1; isTaken(descriptor, LOCK_EX); ++i) {
        if (i == kTries) return EWOULDBLOCK;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return 0;
}

}  // namespace v1
}  // namespace MUtils
