#pragma once

#include <array>
#include <string>

#include "../../rawimage/export.h"
#include "../../rawimage/tools/diff.h"

namespace MUtils {
inline namespace v1 {

struct FileDiffReport : DiffReport {
    std::array<bool, 2> isExr{};
    // Why pixels are missing of a file that should be there; "" when none are. What is there was compared.
    std::array<std::string, 2> incomplete;
};

// Compares two files, each a raw image or an OpenEXR file by its content: diffFrames() of their frames, with
// its states. `throughExr` is also set where one file is OpenEXR and the other is not. `progress` goes
// through the files as they are read, and then through the pixels that are compared.
//
// An OpenEXR file is converted first (makeFromExr), into a file without a name in the folder for temporary
// files (TMPDIR). Its frame is the display window or, when pixels lie outside of that, the union with the
// data windows. Frames of two OpenEXR files that begin at different pixels do not match. Throws
// std::bad_alloc.
RAWIMAGE_EXPORT FileDiffReport diffFiles(const std::string& a, const std::string& b,
                                         const DiffOptions& options);

}  // namespace v1
}  // namespace MUtils
