#pragma once

#include <cstdint>
#include <string>

#include "rawimage/writer.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// The raw image that a conversion writes. Every error becomes a ConvertError (kWriteFailed) with the place
// where writing broke off, the system's reason, and the chain of operations.
class RawOutput {
  public:
    // Throws ConvertError also for a file that another writer has open (kLocked).
    explicit RawOutput(const std::string& path);
    RawOutput(const RawOutput&) = delete;
    RawOutput& operator=(const RawOutput&) = delete;

    RIFile& file() { return file_; }

    // Throws when `error` is one.
    void check(const ErrorCode& error) const;
    // True when the system has refused a write; every later one is refused too.
    bool broken() const { return stream_.error != 0; }

    // Writes the table of tags and closes the file.
    void close();

  private:
    // Remembers where and why the first write failed, which the writer does not pass on.
    class Stream : public PFileStream {
      public:
        int Write(const void* data, int size, int& bytesWritten) override;

        int error = 0;
        std::int64_t errorOffset = 0;
    };

    Stream stream_;
    RIFile file_;
};

}  // namespace v1
}  // namespace MUtils
