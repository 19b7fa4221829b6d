#pragma once

#include "cli/exit_codes.h"

namespace rimg {

// What `rimg diff` answers with, in place of the program's codes of the same numbers: those of other tools
// that compare pictures, so that scripts need not tell which one they call. A wrong command line is 2 all the
// same.
enum class DiffCode : int {
    kGood = 0,
    kWarnings = 1,
    kFailures = 2,
    kMismatch = 3,
    kFileError = 4  // an input, an output, or no memory: there are no numbers
};

constexpr ExitCode exitCodeOf(DiffCode code) {
    return static_cast<ExitCode>(code);
}

}  // namespace rimg
