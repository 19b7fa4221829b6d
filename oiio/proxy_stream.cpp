#include "oiio/proxy_stream.h"

#include <algorithm>
#include <cerrno>

namespace rimg_imageio {

int ProxyStream::Open() {
    position_ = 0;
    shortRead_ = false;
    return proxy_.opened() ? 0 : EBADF;
}

// The caller closes what is the caller's.
int ProxyStream::Close() {
    if (proxy_.mode() == OIIO::Filesystem::IOProxy::Write) proxy_.flush();
    return 0;
}

// A proxy returns fewer bytes both at its end and after an error; only its error text tells these apart.
int ProxyStream::Read(void* data, int size, int& bytesRead) {
    const std::size_t got = proxy_.pread(data, static_cast<std::size_t>(size), position_);
    bytesRead = static_cast<int>(std::min(got, static_cast<std::size_t>(size)));
    position_ += bytesRead;
    shortRead_ = bytesRead < size;
    return shortRead_ && position_ < Length() ? EIO : 0;
}

int ProxyStream::Write(const void* data, int size, int& bytesWritten) {
    const std::size_t taken = proxy_.pwrite(data, static_cast<std::size_t>(size), position_);
    bytesWritten = static_cast<int>(std::min(taken, static_cast<std::size_t>(size)));
    position_ += bytesWritten;
    written_ = std::max(written_, position_);
    return bytesWritten < size ? EIO : 0;
}

int ProxyStream::Seek(long position) {
    if (position < 0) return EINVAL;
    position_ = position;
    shortRead_ = false;
    return 0;
}

int ProxyStream::Skip(long distance) {
    std::int64_t target = 0;
    if (__builtin_add_overflow(position_, std::int64_t{distance}, &target)) return EINVAL;
    return Seek(target);
}

int ProxyStream::Truncate() {
    return position_ == Length() ? 0 : ENOTSUP;
}

std::int64_t ProxyStream::Length() {
    return std::max(written_, static_cast<std::int64_t>(proxy_.size()));
}

}  // namespace rimg_imageio
