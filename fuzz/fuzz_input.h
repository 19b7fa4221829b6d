#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/pstream.h"
#include "tests/testing/memory_file.h"

// What the fuzz targets share. A target ends the process at the first property that does not hold, so that
// the fuzzer keeps the input.

namespace fuzzing {

using testing_tools::MemoryFile;

inline void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "fuzz: does not hold: %s\n", what);
    std::abort();
}

// The input as an open stream, with or without a length.
class InputStream : public PMemStream {
  public:
    InputStream(const std::uint8_t* data, std::size_t size, bool lengthKnown = true)
        : lengthKnown_(lengthKnown) {
        int written = 0;
        Open();
        Write(data, static_cast<int>(size), written);
        Seek(0);
    }
    std::int64_t Length() override { return lengthKnown_ ? PMemStream::Length() : -1; }

  private:
    bool lengthKnown_;
};

}  // namespace fuzzing
