#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "support/files.h"
#include "support/pstream.h"
#include "support/sync_file.h"

namespace MUtils {

namespace {

// Bytes fetched ahead: little after a long jump, as the next thing read is often one 40-byte header; more and
// more while reading straight on or in short jumps.
constexpr int kFirstReadAhead = 2048;
constexpr int kMaxReadAhead = 64 * 1024;

constexpr unsigned kShareWrite = 2;

bool writes(unsigned access) {
    return (access & PFileStream::kWrite) != 0;
}

// Emptying comes later, when the file is known to be this stream's alone.
int openFlags(unsigned access, unsigned disposition) {
    const bool writeOnly = (access & PFileStream::kReadWrite) == PFileStream::kWrite;
    const int flags = O_CLOEXEC | O_NONBLOCK | (writeOnly ? O_WRONLY : writes(access) ? O_RDWR : O_RDONLY);
    switch (disposition) {
        case PFileStream::kCreateNew: return flags | O_CREAT | O_EXCL;
        case PFileStream::kCreateAlways: return flags | O_CREAT;
        case PFileStream::kOpenAlways: return writes(access) ? flags | O_CREAT : flags;
        default: return flags;
    }
}

bool startsAnew(unsigned disposition) {
    return disposition == PFileStream::kCreateAlways || disposition == PFileStream::kTruncateExisting;
}

// 0 when `status` is of a kind that this stream serves.
int refusedKind(const struct stat& status) {
    if (S_ISREG(status.st_mode) || S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode)) return 0;
    return S_ISDIR(status.st_mode) ? EISDIR : ESPIPE;
}

}  // namespace

PFileStream::~PFileStream() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

void PFileStream::SetFile(const char* name, unsigned access, unsigned share, unsigned disposition) {
    if (descriptor_ >= 0) ::close(descriptor_);
    descriptor_ = -1;
    name_ = name != nullptr ? name : "";
    access_ = access;
    share_ = share;
    disposition_ = disposition;
}

int PFileStream::Open(const char* name, unsigned access, unsigned share, unsigned disposition) {
    SetFile(name, access, share, disposition);
    return Open();
}

int PFileStream::Create(const char* name, unsigned /*flags*/) {
    const int code = Open(name, kReadWrite, 1, kCreateAlways);
    // Opening once more means what was just written.
    if (code == 0) disposition_ = kOpenAlways;
    return code;
}

int PFileStream::Open() {
    position_ = 0;
    shortRead_ = false;
    if (descriptor_ >= 0) return 0;
    const int flags = openFlags(access_, disposition_);
    int descriptor = ::open(name_.c_str(), flags, 0666);
    // What is made anew need not be read: a file may be one's to write and not to read.
    if (descriptor < 0 && errno == EACCES && writes(access_) && startsAnew(disposition_))
        descriptor = ::open(name_.c_str(), (flags & ~O_ACCMODE) | O_WRONLY, 0666);
    if (descriptor < 0) return errno;
    struct stat status;
    int refused = ::fstat(descriptor, &status) != 0 ? errno : refusedKind(status);
    if (refused == 0) refused = lockAndEmpty(descriptor, S_ISREG(status.st_mode));
    if (refused != 0) {
        ::close(descriptor);
        return refused;
    }
    descriptor_ = descriptor;
    seekable_ = S_ISREG(status.st_mode);
    length_ = -1;
    Length();
    writeError_ = 0;
    buffered_ = 0;
    readAhead_ = kFirstReadAhead;
    return 0;
}

int PFileStream::lockAndEmpty(int descriptor, bool regular) const {
    if (!regular || !writes(access_)) return 0;
    const bool alone = (share_ & kShareWrite) == 0;
    if (alone) {
        if (const int code = lockForWriting(descriptor); code != 0) return code;
    }
    return startsAnew(disposition_) && ::ftruncate(descriptor, 0) != 0 ? errno : 0;
}

int PFileStream::Close() {
    if (descriptor_ < 0) return writeError_;
    const int code = ::close(descriptor_) != 0 ? errno : 0;
    descriptor_ = -1;
    buffered_ = 0;
    buffer_.reset();
    return writeError_ != 0 ? writeError_ : code;
}

// Takes what the buffer holds at the position; the number of bytes taken.
int PFileStream::fromBuffer(unsigned char* data, int size) {
    const std::int64_t at = position_ - bufferStart_;
    if (size <= 0 || at < 0 || at >= buffered_) return 0;
    const int taken = static_cast<int>(std::min<std::int64_t>(buffered_ - at, size));
    std::memcpy(data, buffer_.get() + at, static_cast<std::size_t>(taken));
    position_ += taken;
    return taken;
}

// One system call: fills `rest` (`size` bytes) from the position and the buffer with what follows. `got`
// receives the bytes that `rest` received, 0 at the end of the file.
int PFileStream::refill(unsigned char* rest, int size, int& got) {
    got = 0;
    // Past every file; the kernel refuses offsets whose end leaves 63 bits.
    if (position_ > std::numeric_limits<std::int64_t>::max() - size - kMaxReadAhead) return 0;
    const std::int64_t jump = position_ - (bufferStart_ + buffered_);
    const bool onwards = jump >= 0 && jump <= readAhead_;
    readAhead_ = onwards ? std::min(readAhead_ * 2, kMaxReadAhead) : kFirstReadAhead;
    if (buffer_ == nullptr) buffer_.reset(new unsigned char[kMaxReadAhead]);
    const iovec pieces[2] = {{rest, static_cast<std::size_t>(size)},
                             {buffer_.get(), static_cast<std::size_t>(readAhead_)}};
    ssize_t total;
    do {
        total = ::preadv(descriptor_, pieces, 2, position_);
    } while (total < 0 && errno == EINTR);
    if (total < 0) return errno;
    got = static_cast<int>(std::min<ssize_t>(total, size));
    position_ += got;
    bufferStart_ = position_;
    buffered_ = static_cast<int>(total - got);
    return 0;
}

int PFileStream::Read(void* data, int size, int& bytesRead) {
    bytesRead = 0;
    if (descriptor_ < 0) return EBADF;
    auto* bytes = static_cast<unsigned char*>(data);
    bytesRead = fromBuffer(bytes, size);
    while (bytesRead < size) {
        int got = 0;
        if (const int code = refill(bytes + bytesRead, size - bytesRead, got); code != 0) return code;
        if (got == 0) break;
        bytesRead += got;
    }
    shortRead_ = bytesRead < size;
    return 0;
}

int PFileStream::Write(const void* data, int size, int& bytesWritten) {
    bytesWritten = 0;
    if (descriptor_ < 0) return EBADF;
    if (writeError_ != 0) return writeError_;
    buffered_ = 0;
    const auto* bytes = static_cast<const unsigned char*>(data);
    while (bytesWritten < size) {
        const ssize_t n = ::pwrite(descriptor_, bytes + bytesWritten,
                                   static_cast<std::size_t>(size - bytesWritten), position_);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return writeError_ = n < 0 ? errno : ENOSPC;
        bytesWritten += static_cast<int>(n);
        position_ += n;
    }
    if (seekable_) length_ = std::max(length_, position_);
    return 0;
}

std::int64_t PFileStream::CopyFrom(PFileStream& source, std::int64_t size) {
    constexpr std::int64_t kMostAtOnce = 1 << 30;
    if (descriptor_ < 0 || source.descriptor_ < 0 || writeError_ != 0) return 0;
    buffered_ = 0;
    std::int64_t copied = 0;
    while (copied < size) {
        const auto piece = static_cast<std::size_t>(std::min(size - copied, kMostAtOnce));
        off_t from = source.position_;
        off_t to = position_;
        const ssize_t n = ::copy_file_range(source.descriptor_, &from, descriptor_, &to, piece, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        source.position_ += n;
        position_ += n;
        copied += n;
    }
    return copied;
}

int PFileStream::ReadAt(std::int64_t offset, void* data, std::size_t size, std::size_t& bytesRead) const {
    bytesRead = 0;
    if (descriptor_ < 0) return EBADF;
    auto* bytes = static_cast<unsigned char*>(data);
    while (bytesRead < size) {
        const ssize_t n = ::pread(descriptor_, bytes + bytesRead, size - bytesRead,
                                  offset + static_cast<std::int64_t>(bytesRead));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return errno;
        if (n == 0) break;
        bytesRead += static_cast<std::size_t>(n);
    }
    return 0;
}

bool PFileStream::IsStillNamed() const {
    struct stat open, named;
    return descriptor_ >= 0 && ::fstat(descriptor_, &open) == 0 && ::stat(name_.c_str(), &named) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

int PFileStream::Seek(long position) {
    if (descriptor_ < 0) return EBADF;
    if (position < 0) return EINVAL;
    position_ = position;
    shortRead_ = false;
    return 0;
}

int PFileStream::Skip(long distance) {
    if (distance > 0 && position_ > std::numeric_limits<std::int64_t>::max() - distance) return EOVERFLOW;
    return Seek(position_ + distance);
}

bool PFileStream::IsEOF() {
    if (shortRead_) return true;
    const std::int64_t at = position_ - bufferStart_;
    if (at >= 0 && at < buffered_) return false;
    const std::int64_t length = Length();
    return length >= 0 && position_ >= length;
}

int PFileStream::Truncate() {
    if (descriptor_ < 0) return EBADF;
    if (writeError_ != 0) return writeError_;
    if (seekable_ && position_ >= Length()) return 0;  // ftruncate would lengthen the file
    buffered_ = 0;
    if (::ftruncate(descriptor_, position_) != 0) return errno;
    length_ = position_;
    return 0;
}

int PFileStream::Sync() {
    if (descriptor_ < 0) return EBADF;
    if (writeError_ != 0) return writeError_;
    if (!seekable_) return 0;
    // Data that did not reach the disk is lost, whatever a later call returns.
    return writeError_ = syncFile(descriptor_);
}

// The length may change under a reader (a render that goes on, a file that is cut): asked anew each time,
// which costs far less than the allocation that it guards.
std::int64_t PFileStream::Length() {
    struct stat status;
    if (descriptor_ >= 0 && seekable_ && ::fstat(descriptor_, &status) == 0) length_ = status.st_size;
    return length_;
}

}  // namespace MUtils
