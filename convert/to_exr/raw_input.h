#pragma once

#include <memory>
#include <string>
#include <vector>

#include "convert/conversion.h"
#include "rawimage/frame/raw_frame.h"

namespace MUtils {
inline namespace v1 {

// A raw image that is open for conversion, inspected to the depth of records: whether the payloads of pixels
// are sound is not known. Damaged and unfinished files open too, with what is sound in them.
struct RawInput {
    // Throws ConvertError: kCannotOpen, kNotThisFormat, or kStopped when `progress` returns false. Payloads
    // whose headers are in doubt are looked into on `threads` threads.
    RawInput(const std::string& path, int threads, const ConvertProgress& progress);

    // The names of the kinds of sound tags that are neither pixels nor go into OpenEXR files.
    std::vector<std::string> otherTags() const;
    // The sound tags of texts that are too long for `records`.
    std::vector<INFOTAG> longTexts() const;

    // Throws ConvertError: the file has no `what`, because it is damaged or because the render has only
    // begun.
    [[noreturn]] void refuseWithout(const std::string& what) const;

    const std::string path;
    const RawFrame frame;
    const std::shared_ptr<const FrameInfo> info;
    const FrameRecords records;
};

}  // namespace v1
}  // namespace MUtils
