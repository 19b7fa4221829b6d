#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "rawimage/inspect/inspection.h"
#include "support/files.h"

namespace MUtils {
inline namespace v1 {

// A channel and a box of it, or a window, in some order.
using BucketKey = std::array<std::int32_t, 6>;
BucketKey bucketKey(const RIF_TAG& tag);

// Where buckets count: wherever a renderer may put them.
constexpr PixelBox kMergeRange{-(INT32_MAX / 2), -(INT32_MAX / 2), INT32_MAX / 2, INT32_MAX / 2};

// What a merge keeps of an input between the times that it is open. Its pixel tags may be kept, or else are
// listed anew, so that the memory for a piece does not depend on how many it has.
class MergeInput {
  public:
    // The pixels of some channels, as boxes that do not overlap unless these would be too many.
    struct Cover {
        std::vector<std::int32_t> channels;
        std::vector<PixelBox> boxes;
        std::int64_t pixels = 0;
    };

    const std::string& name() const { return name_; }
    const std::vector<Cover>& covers() const { return covers_; }
    // Number and bytes of the pixel tags to copy.
    std::int64_t tags() const { return tags_; }
    std::int64_t bytes() const { return bytes_; }
    // Those of which another input has the bucket.
    const std::vector<BucketKey>& leftOut() const { return leftOut_; }

    // Keeps what is needed of the inspection of the file `name`. The stamp was taken before.
    void keep(const std::string& name, const FileStamp& stamp, const Inspection& file);
    // Has list() look into the file even while it has its stamp, for less memory.
    void dropTags() { std::vector<INFOTAG>().swap(kept_); }
    std::size_t keptTags() const { return kept_.size(); }
    const FileStamp& stamp() const { return stamp_; }
    // Opens the file as `stream` and lists the pixel tags to copy. Returns why it cannot, else "".
    std::string list(PFileStream& stream, std::vector<INFOTAG>& pixels) const;
    // Leaves buckets out; `keys` are sorted. Then recount() is due, with the tags that list() gives.
    void leaveOut(std::vector<BucketKey> keys) { leftOut_ = std::move(keys); }
    void recount(const std::vector<INFOTAG>& pixels);

    PixelBox area;
    std::int32_t regionKind = 0;                            // of a render region that is not the whole frame
    bool isPart = false;                                    // there is such a region
    std::vector<INFOTAG> metadata;                          // to copy
    std::map<std::int32_t, std::vector<PixelBox>> windows;  // by channel
    std::map<std::int32_t, RIF_TAG> windowTags;             // one of each channel that has any
    std::int64_t copiedTo = 0;                              // where in the output its pixel tags begin

  private:
    bool listAnew(PFileStream& stream, std::vector<INFOTAG>& pixels) const;

    std::string name_;
    FileStamp stamp_;
    std::vector<INFOTAG> kept_;       // the pixel tags; empty when they are not kept
    std::int64_t listed_ = 0;         // pixel tags
    std::uint64_t fingerprint_ = 0;   // of these
    std::vector<BucketKey> leftOut_;  // sorted
    std::vector<Cover> covers_;
    std::int64_t tags_ = 0;
    std::int64_t bytes_ = 0;
};

}  // namespace v1
}  // namespace MUtils
