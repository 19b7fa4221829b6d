#pragma once

#include <string>
#include <vector>

#include "convert/conversion.h"
#include "rawimage/tools/summary.h"

namespace MUtils {
inline namespace v1 {

// A raw image opened for conversion: its inspection and the frame's records. Damaged and unfinished files
// open too, with what is sound in them.
class RawInput {
  public:
    // Throws ConvertError: kCannotOpen, kNotThisFormat, or kStopped when `progress` returns false. Payloads
    // whose headers are in doubt are looked into on `threads` threads.
    RawInput(const std::string& path, int threads, const ConvertProgress& progress);

    const std::string& path() const { return path_; }
    // To the depth of records: whether the payloads of pixels are sound is not known.
    const Inspection& inspection() const { return inspection_; }
    const FileSummary& records() const { return records_; }

    // The sound tags of pixels whose places are not in doubt, in file order.
    std::vector<const INFOTAG*> pixels() const;
    // The names of the kinds of sound tags that are neither pixels nor among the records.
    std::vector<std::string> otherTags() const;
    // The sound tags of texts that are too long for records().
    std::vector<INFOTAG> longTexts() const;

    // Throws ConvertError: the file has no `what`, because it is damaged or because the render has only
    // begun.
    [[noreturn]] void refuseWithout(const std::string& what) const;

  private:
    const std::string path_;
    Inspection inspection_;
    FileSummary records_;
};

}  // namespace v1
}  // namespace MUtils
