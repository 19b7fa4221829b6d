#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "support/positioned_reader.h"

namespace MUtils {
inline namespace v1 {

// The bytes of a PositionedReader as a stream that is only read, with a position of its own: each thread has
// one.
class PositionedStream final : public PStream {
  public:
    // Of the first `length` bytes. `reader` must live longer.
    PositionedStream(const PositionedReader& reader, std::int64_t length)
        : reader_(reader), length_(length) {}

    int Open() override { return Seek(0); }
    int Close() override { return 0; }
    bool IsOpen() const override { return true; }
    int Read(void* data, int size, int& bytesRead) override {
        const std::int64_t left = std::max<std::int64_t>(length_ - position_, 0);
        const auto part = static_cast<int>(std::min<std::int64_t>(size, left));
        isShort_ = part < size;
        bytesRead = 0;
        if (part > 0 && !reader_.read(position_, data, static_cast<std::size_t>(part))) return EIO;
        bytesRead = part;
        position_ += part;
        return 0;
    }
    int Write(const void* /*data*/, int /*size*/, int& bytesWritten) override {
        bytesWritten = 0;
        return EBADF;
    }
    int Seek(long position) override {
        if (position < 0) return EINVAL;
        position_ = position;
        isShort_ = false;
        return 0;
    }
    int Skip(long distance) override { return Seek(static_cast<long>(position_) + distance); }
    std::int64_t Tell() override { return position_; }
    bool IsEOF() override { return isShort_ || position_ >= length_; }
    int Truncate() override { return EBADF; }
    std::int64_t Length() override { return length_; }

  private:
    const PositionedReader& reader_;
    const std::int64_t length_;
    std::int64_t position_ = 0;
    bool isShort_ = false;
};

}  // namespace v1
}  // namespace MUtils
