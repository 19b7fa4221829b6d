#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/output_file.h"
#include "rawimage/writer.h"
#include "support/pstream.h"

namespace rimg {

// A raw image that a verb writes. It turns every error into a Failure (kFailure) that names the file, the
// place where writing broke off, what the system said, and the chain of operations.
class RawOutput {
  public:
    explicit RawOutput(const std::string& path, const std::vector<std::string>& inputs = {});
    RawOutput(const RawOutput&) = delete;
    RawOutput& operator=(const RawOutput&) = delete;

    RIFile& file() { return file_; }

    // Throws when `error` is one.
    void check(const ErrorCode& error);
    // True when the system has refused a write; every later one is refused too.
    bool broken() const { return stream_.error != 0; }

    // Writes the table of tags and puts the file in its place.
    void close();

  private:
    // Remembers where and why the first write failed: the writer passes on neither.
    class Stream : public PFileStream {
      public:
        int Write(const void* data, int size, int& bytesWritten) override;

        int error = 0;
        std::int64_t errorOffset = 0;
    };

    OutputFile output_;
    Stream stream_;
    RIFile file_;
};

}  // namespace rimg
