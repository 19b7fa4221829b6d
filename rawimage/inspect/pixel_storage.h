#pragma once

#include <cstdint>

#include "rawimage/inspect/tag_scan.h"
#include "rawimage/inspect/tag_search.h"

namespace MUtils {
inline namespace v1 {

// Finds out how a file stores its pixels when its header may be damaged: the flag is believed until the
// payloads deny it.
class PixelStorage {
  public:
    // `scan` has the file's length and header, `options` as for TagSearch; all must outlive the object.
    PixelStorage(PStream& stream, const TagScan& scan, const InspectOptions& options);

    // Where the header is not to be believed: the place of the first tag before `end`, or `end`. The rules
    // under which a tag comes first replace the flag.
    std::int64_t findFirstTag(std::int64_t end);
    // Looks at pixel tags from the tag at `first` on. True when they deny what was believed.
    bool deniedByTags(std::int64_t first);

    // By the rules that are believed now.
    TagSearch& search() { return *believed_; }
    bool stopped() const { return stated_.stopped() || opposite_.stopped(); }

  private:
    struct Found {
        std::int64_t offset;
        TagSearch* by;
    };
    Found findEither(std::int64_t from, std::int64_t end);

    const TagScan& scan_;
    TagSearch stated_;
    TagSearch opposite_;
    TagSearch* believed_ = &stated_;
    TagSearch* doubted_ = &opposite_;
};

}  // namespace v1
}  // namespace MUtils
