#pragma once

#include <string>

#include "cli/exit_codes.h"
#include "cli/size_option.h"

namespace rimg {

struct ConvertOptions {
    std::string input;
    std::string output;
    PixelSize bucket;
};

// The directions of the verb "convert". Each reports what it loses on the way, answers for it with its exit
// code, and throws Failure when it cannot go on. The output is created only once the input has been found
// convertible; what was written by then stays readable whatever happens.
ExitCode convertFromExr(const ConvertOptions& options);

}  // namespace rimg
