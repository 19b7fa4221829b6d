#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// Reads single places of a stream for several threads: of a file that it opened itself at the same time, of a
// caller's stream one after the other.
class PositionedReader {
  public:
    // Opens a file for reading. `code` receives the result of Open.
    PositionedReader(const char* fileName, int& code);
    // Borrows an open stream.
    explicit PositionedReader(PStream& stream) : stream_(stream) {}

    // Reads exactly `size` bytes at `offset`; false when the stream fails or ends first.
    bool read(std::int64_t offset, void* bytes, std::size_t size) const;

    // The stream, for one thread at a time, as long as the lock lives. Its buffer is empty.
    class Locked {
      public:
        explicit Locked(PositionedReader& reader);
        PStream& stream() { return stream_; }

      private:
        std::unique_lock<std::mutex> lock_;
        PStream& stream_;
    };

    // False when the file that was opened by name has that name no more.
    bool isStillNamed() const { return file_ == nullptr || file_->IsStillNamed(); }

  private:
    bool readBorrowed(std::int64_t offset, unsigned char* bytes, std::size_t size) const;

    std::unique_ptr<PFileStream> file_;  // null for a borrowed stream
    PStream& stream_;
    mutable std::mutex mutex_;  // of the stream's position
};

}  // namespace v1
}  // namespace MUtils
