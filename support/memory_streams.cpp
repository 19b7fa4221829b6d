#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <new>

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

// Copies up to `size` bytes out of `bytes`, which hold `length`.
int readFrom(const unsigned char* bytes, std::int64_t length, std::int64_t& position, void* data, int size) {
    const std::int64_t left = std::max<std::int64_t>(length - position, 0);
    const int got = static_cast<int>(std::min<std::int64_t>(left, std::max(size, 0)));
    if (got > 0) std::memcpy(data, bytes + position, static_cast<std::size_t>(got));
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
    bytesRead = readFrom(bytes_.data(), length_, position_, data, size);
    shortRead_ = bytesRead < size;
    return 0;
}

int PMemStream::Write(const void* data, int size, int& bytesWritten) {
    bytesWritten = 0;
    if (!open_) return EBADF;
    if (size <= 0) return 0;
    if (position_ > std::numeric_limits<std::int64_t>::max() - size) return EFBIG;
    const std::int64_t end = position_ + size;
    if (end > static_cast<std::int64_t>(bytes_.capacity())) {
        try {
            const auto doubled = static_cast<std::int64_t>(bytes_.capacity()) * 2;
            bytes_.grow(static_cast<std::size_t>(std::max(end, doubled)), static_cast<std::size_t>(length_));
        } catch (const std::bad_alloc&) {
            return ENOMEM;
        }
    }
    unsigned char* bytes = bytes_.data();
    if (position_ > length_) std::memset(bytes + length_, 0, static_cast<std::size_t>(position_ - length_));
    std::memcpy(bytes + position_, data, static_cast<std::size_t>(size));
    position_ = end;
    length_ = std::max(length_, end);
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
    length_ = std::min(length_, position_);
    return 0;
}

void PBufStream::Alloc(int size) {
    size_ = 0;
    position_ = 0;
    bytes_.release();
    size = std::max(size, 0);
    bytes_.reserve(static_cast<std::size_t>(size));
    if (size > 0) std::memset(bytes_.data(), 0, static_cast<std::size_t>(size));
    size_ = size;
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
    bytesRead = readFrom(bytes_.data(), size_, position_, data, size);
    shortRead_ = bytesRead < size;
    return 0;
}

int PBufStream::Write(const void* data, int size, int& bytesWritten) {
    bytesWritten = 0;
    if (!open_) return EBADF;
    const std::int64_t room = std::max<std::int64_t>(size_ - position_, 0);
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
    return position_ >= size_ ? 0 : ENOTSUP;
}

}  // namespace MUtils
