#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include "cli/exit_codes.h"

namespace rimg {

// Why the work on one file ended, and what the program answers for it. Verbs throw it; a verb that goes on
// with its next file catches it there, everything else is caught in main.
class Failure : public std::runtime_error {
  public:
    static constexpr std::int64_t kNoOffset = -1;

    // `offset` is the place in the file where the cause lies, in bytes, when it is known.
    Failure(ExitCode code, std::string file, const std::string& cause, std::int64_t offset = kNoOffset)
        : std::runtime_error(cause), code_(code), file_(std::move(file)), offset_(offset) {}

    ExitCode code() const { return code_; }
    const std::string& file() const { return file_; }
    std::int64_t offset() const { return offset_; }

  private:
    ExitCode code_;
    std::string file_;
    std::int64_t offset_;
};

// One line on stderr: "rimg: FILE: offset N: CAUSE", without the parts that are empty or unknown, as
// safeText() shows it.
void report(const std::string& file, const std::string& cause, std::int64_t offset = Failure::kNoOffset);
void report(const Failure& failure);

// Brings what was printed to standard output on its way; throws Failure (kFailure) when it cannot be written.
void flushOutput();

// The system's words for an errno code.
std::string systemMessage(int code);

// A file that could not be opened for writing, `code` being the errno: kUnreadable when another writer has
// it, else kFailure.
Failure outputFailure(const std::string& file, int code);

}  // namespace rimg
