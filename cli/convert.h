#pragma once

#include <string>
#include <vector>

#include "cli/exit_codes.h"
#include "cli/size_option.h"
#include "rawimage/format.h"

namespace rimg {

struct ConvertOptions {
    std::string input;
    std::string output;
    int threads = 0;  // below 1: one for each processor
    // From OpenEXR.
    PixelSize bucket;
    int level = kCompressionLevel;
    // To OpenEXR.
    int kind = 0;         // ExrFile::Kind
    int bits = 32;        // of a value that is no integer
    int compression = 3;  // as ExrFile numbers them: ZIPS
    bool autoDataWindow = false;
    std::string attributes;
    std::vector<std::string> channels;  // globs; none for all channels
};

// The directions of the verb "convert". Each reports what it loses on the way, answers for it with its exit
// code, and throws Failure when it cannot go on. The output is created only once the input has been found
// convertible, and is there only once it is whole.
ExitCode convertFromExr(const ConvertOptions& options);
ExitCode convertToExr(const ConvertOptions& options);

}  // namespace rimg
