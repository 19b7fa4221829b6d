#pragma once

#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// A stream that passes every operation on to another one, which must outlive it: the base of streams that
// change one or two of them.
class StreamWrapper : public PStream {
  public:
    explicit StreamWrapper(PStream& wrapped) : wrapped_(wrapped) {}

    int Open() override { return wrapped_.Open(); }
    int Close() override { return wrapped_.Close(); }
    bool IsOpen() const override { return wrapped_.IsOpen(); }
    int Read(void* data, int size, int& got) override { return wrapped_.Read(data, size, got); }
    int Write(const void* data, int size, int& done) override { return wrapped_.Write(data, size, done); }
    int Seek(long position) override { return wrapped_.Seek(position); }
    int Skip(long distance) override { return wrapped_.Skip(distance); }
    std::int64_t Tell() override { return wrapped_.Tell(); }
    bool IsEOF() override { return wrapped_.IsEOF(); }
    int Truncate() override { return wrapped_.Truncate(); }
    int Sync() override { return wrapped_.Sync(); }
    std::int64_t Length() override { return wrapped_.Length(); }

  protected:
    PStream& wrapped_;
};

}  // namespace v1
}  // namespace MUtils
