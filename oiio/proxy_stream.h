#pragma once

#include <OpenImageIO/filesystem.h>

#include <cstdint>

#include "support/pstream.h"

namespace rimg_imageio {

// The library's stream over a proxy of the caller, which is open and lives longer.
class ProxyStream final : public PStream {
  public:
    explicit ProxyStream(OIIO::Filesystem::IOProxy& proxy) : proxy_(proxy) {}

    int Open() override;
    int Close() override;
    bool IsOpen() const override { return proxy_.opened(); }
    int Read(void* data, int size, int& bytesRead) override;
    int Write(const void* data, int size, int& bytesWritten) override;
    int Seek(long position) override;
    int Skip(long distance) override;
    std::int64_t Tell() override { return position_; }
    bool IsEOF() override { return shortRead_ || position_ >= Length(); }
    // A proxy cannot be cut: succeeds at the end, else ENOTSUP.
    int Truncate() override;
    std::int64_t Length() override;

  private:
    OIIO::Filesystem::IOProxy& proxy_;
    std::int64_t position_ = 0;
    std::int64_t written_ = 0;  // the end of what was written, which not every proxy counts in its size
    bool shortRead_ = false;
};

}  // namespace rimg_imageio
