#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rawimage/tools/merge.h"
#include "rawimage/tools/merge_input.h"
#include "rawimage/tools/tag_copier.h"

namespace MUtils {
inline namespace v1 {

// A pixel tag of a channel and the window that it has to state.
struct MergeWindow {
    RIF_TAG tag;
    PixelBox box;
};

// Writes the merged file, and reads it again. The outcome is in the report.
class MergeOutput {
  public:
    MergeOutput(std::vector<MergeInput>& inputs, const MergeOptions& options, bool compressed,
                MergeReport& report);

    // Writes the file. `region` replaces the box of the render region when it is not null.
    void write(const std::string& output, const std::vector<MergeWindow>& windows,
               const RIRegionInfo* region);
    // Inflates the pixels of the written file, compares it with the inputs, and lists those it contains.
    void verify(const std::string& output);

  private:
    ErrorCode openAgain(const MergeInput& input, PFileStream& stream, std::vector<INFOTAG>& pixels);
    ErrorCode writeMetadata(const RIRegionInfo* region);
    ErrorCode writeWindows(const std::vector<MergeWindow>& windows);
    ErrorCode copyPixels();
    ErrorCode copyPixelsOf(MergeInput& input);
    bool going(std::int64_t done);
    bool contains(const PFileStream& output, const MergeInput& input);
    bool isSound(const std::string& output);
    void fail(MergeState state, const std::string& file, std::string cause);

    std::vector<MergeInput>& inputs_;
    const MergeOptions& options_;
    const bool compressed_;
    MergeReport& report_;
    std::int64_t total_ = 0;   // bytes to copy, and to read again
    std::int64_t before_ = 0;  // of these, done before the step that counts now
    std::string failedInput_;  // that writing failed for
    TagCopier copier_;
};

}  // namespace v1
}  // namespace MUtils
