#pragma once

#include <vector>

#include "rawimage/inspect/inspection.h"
#include "rawimage/tools/recover.h"
#include "rawimage/tools/tag_copier.h"
#include "support/pstream.h"

namespace MUtils {
inline namespace v1 {

// The resolution and the channel list for a recovered file whose input has lost them. No reader can show
// pixels without. They come from a sibling, a file of the same render, or from the caller.
class SuppliedFacts {
  public:
    // Finds what the options supply of what `input` lacks by the report, and notes it there. False, with the
    // report's state and cause, when the sibling cannot be used: it cannot be read, lacks the same, or
    // contradicts the pixels of `input`. Throws std::bad_alloc.
    bool load(const Inspection& input, const RecoverOptions& options, RecoverReport& report);

    // Writes the supplied tags, which go before all others.
    ErrorCode write(TagCopier& output);

  private:
    bool loadSibling(const Inspection& input, const RecoverOptions& options, RecoverReport& report);

    PFileStream sibling_;
    Inspection siblingFile_;
    std::vector<INFOTAG> tags_;  // of the sibling
    int width_ = 0;              // of the caller's resolution; 0 when there is none
    int height_ = 0;
};

}  // namespace v1
}  // namespace MUtils
