#pragma once

#include <vector>

#include "rawimage/tools/frame_report.h"
#include "rawimage/tools/frame_rows.h"

namespace MUtils {
inline namespace v1 {

// What tools that go over the pixels of a frame share: the file is inspected, channels are chosen, rows are
// read, and the report has how that went.
class FrameTool {
  public:
    // Both outlive the object.
    FrameTool(const FrameToolOptions& options, FrameReport& report);

    // Options to open the frame with.
    RawFrameOptions opening();
    // Fills in what is known before pixels are read, and the channels that are wanted, by index. False when
    // that is all that there is to report.
    bool begin(const RawFrame& frame, std::vector<FrameChannel>& channels);
    // False when there is no result.
    bool readRows(const RawFrame& frame, const std::vector<FrameChannel>& channels, bool integersAlone,
                  RowSink& sink);
    // Makes the state that of a damaged file, unless it is that already.
    void setDamaged(const FileFault& fault);

  private:
    bool choose(const FrameInfo& info, std::vector<FrameChannel>& channels);

    const FrameToolOptions& options_;
    FrameReport& report_;
    bool stopped_ = false;  // while it was opened
};

}  // namespace v1
}  // namespace MUtils
