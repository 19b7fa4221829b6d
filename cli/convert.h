#pragma once

#include <string>
#include <vector>

#include "cli/exit_codes.h"
#include "cli/size_option.h"
#include "rawimage/format.h"

namespace rimg {

class ConvertLog;

// What of an OpenEXR file becomes the frame of a raw image.
enum class FrameChoice { kDisplayWindow, kDataWindow, kUnion };

struct ConvertOptions {
    std::string input;
    std::string output;
    int threads = 0;  // below 1: one for each processor
    bool strict = false;
    bool json = false;
    // From OpenEXR.
    PixelSize bucket;
    int level = kCompressionLevel;
    FrameChoice frame = FrameChoice::kDisplayWindow;
    bool cropOverscan = false;
    // To OpenEXR.
    int kind = 0;         // ExrFile::Kind
    int bits = 32;        // of a value that is no integer
    int compression = 3;  // as ExrFile numbers them: ZIPS
    bool autoDataWindow = false;
    int originX = 0;
    int originY = 0;
    std::string attributes;
    std::string attributesFrom;         // a file
    std::vector<std::string> channels;  // globs; none for all channels
};

// The directions of the verb "convert". Each enters what it loses on the way in the log, answers for it with
// its exit code, and throws Failure when it cannot go on. The output is created only once the input has been
// found convertible, and is there only once it is whole.
ExitCode convertFromExr(const ConvertOptions& options, ConvertLog& log);
ExitCode convertToExr(const ConvertOptions& options, ConvertLog& log);

}  // namespace rimg
