#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "support/pstream.h"

namespace MUtils {

namespace {

// Sets `position` to `target`, counted from the start; EBADF on a closed stream, EINVAL below 0.
int seekTo(bool open, std::int64_t target, std::int64_t& position, bool& shortRead) {
    if (!open) return EBADF;
    if (target < 0) return EINVAL;
    position = target;
    shortRead = false;
    return 0;
}

int skipBy(bool open, long distance, std::int64_t& position, bool& shortRead) {
    if (distance > 0 && position > std::numeric_limits<std::int64_t>::max() - distance) return EOVERFLOW;
    return seekTo(open, position + distance, position, shortRead);
}

// Copies up to `size` bytes out of `bytes`.
int readFrom(const std::vector<unsigned char>& bytes, std::int64_t& position, void* data, int size) {
    const std::int64_t left = std::max<std::int64_t>(static_cast<std::int64_t>(bytes.size()) - position, 0);
    const int got = static_cast<int>(std::min<std::int64_t>(left, std::max(size, 0)));
    if (got > 0) std::memcpy(data, bytes.data() + position, static_cast<std::size_t>(got));
    position += got;
    return got;
}

}  // namespace

PMemStream::PMemStream(int initialSize) {
    bytes_.reserve(static_cast<std::size_t>(std::max(initialSize, 0)));
}

int PMemStream::Open() {
    open_ = true;
    shortRead_ = false;
    position_ = 0;
    return 0;
}

int PMemStream::Close() {
    open_ = false;
    return 0;
}

int PMemStream::Read(void* data, int size, int& bytesRead) {
    bytesRead = 0;
    if (!open_) return EBADF;
    bytesRead = readFrom(bytes_, position_, data, size);
    shortRead_ = bytesRead < size;
    return 0;
}

int PMemStream::Write(const void* data, int size, int& bytesWritten) {
    bytesWritten = 0;
    if (!open_) return EBADF;
    if (size <= 0) return 0;
    if (position_ > std::numeric_limits<std::int64_t>::max() - size) return EFBIG;
    const auto* from = static_cast<const unsigned char*>(data);
    // Not Length(), which a derived stream may answer in its own way.
    const auto there = static_cast<std::int64_t>(bytes_.size());
    try {
        if (position_ > there) bytes_.resize(static_cast<std::size_t>(position_));
        const auto over = static_cast<int>(std::clamp<std::int64_t>(there - position_, 0, size));
        if (over > 0) std::memcpy(bytes_.data() + position_, from, static_cast<std::size_t>(over));
        bytes_.insert(bytes_.end(), from + over, from + size);
    } catch (const std::exception&) {
        return ENOMEM;
    }
    position_ += size;
    bytesWritten = size;
    return 0;
}

int PMemStream::Seek(long position) {
    return seekTo(open_, position, position_, shortRead_);
}

int PMemStream::Skip(long distance) {
    return skipBy(open_, distance, position_, shortRead_);
}

int PMemStream::Truncate() {
    if (!open_) return EBADF;
    if (position_ < static_cast<std::int64_t>(bytes_.size()))
        bytes_.resize(static_cast<std::size_t>(position_));
    return 0;
}

void PBufStream::Alloc(int size) {
    position_ = 0;
    bytes_ = {};  // before the new memory is allocated
    bytes_.resize(static_cast<std::size_t>(std::max(size, 0)));
}

int PBufStream::Open() {
    open_ = true;
    shortRead_ = false;
    position_ = 0;
    return 0;
}

int PBufStream::Close() {
    open_ = false;
    return 0;
}

int PBufStream::Read(void* data, int size, int& bytesRead) {
    bytesRead = 0;
    if (!open_) return EBADF;
    bytesRead = readFrom(bytes_, position_, data, size);
    shortRead_ = bytesRead < size;
    return 0;
}

int PBufStream::Write(const void* data, int size, int& bytesWritten) {
    bytesWritten = 0;
    if (!open_) return EBADF;
    const std::int64_t room = std::max<std::int64_t>(Size() - position_, 0);
    bytesWritten = static_cast<int>(std::min<std::int64_t>(room, std::max(size, 0)));
    if (bytesWritten > 0) {
        std::memcpy(bytes_.data() + position_, data, static_cast<std::size_t>(bytesWritten));
        position_ += bytesWritten;
    }
    return bytesWritten < size ? ENOSPC : 0;
}

int PBufStream::Seek(long position) {
    return seekTo(open_, position, position_, shortRead_);
}

int PBufStream::Skip(long distance) {
    return skipBy(open_, distance, position_, shortRead_);
}

int PBufStream::Truncate() {
    if (!open_) return EBADF;
    return position_ >= Size() ? 0 : ENOTSUP;
}

}  // namespace MUtils
