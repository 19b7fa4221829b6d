#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "rawimage/inspect/frame_facts.h"

namespace MUtils {
inline namespace v1 {

// Compares two headers of one tag, the one in its place and the one in the table, by the other tags. The
// first of these that agrees with only one of the two headers decides:
//
//   all tags    parameters that the format leaves unused are 0
//   pixels      the channel list has this type for the channel; the next tags are other channels of the
//               bucket; they have the same two words of the caller's; the bucket overlaps the frame; no other
//               bucket of the channel is in its place
//   resolution, bucket sizes    the extent and the sizes of all buckets; sizes and aspects that frames have
//   other ids   each kind of metadata comes once, a resolution at least once; tables list some kinds only
class HeaderEvidence {
  public:
    // Tags with a cause in `ignored` count only as the next ones. All three must outlive the object.
    HeaderEvidence(const std::vector<INFOTAG>& tags, const std::vector<const char*>& ignored,
                   const FrameFacts& facts)
        : tags_(tags), ignored_(ignored), facts_(facts) {}

    // Whether the header `entry` is right for the tag `index`, and the tag's own is not; or the other way
    // round. Both are false where nothing decides. May look at every tag.
    bool entryIsRight(std::size_t index, const RIF_TAG& entry) { return compare(index, entry) > 0; }
    bool tagIsRight(std::size_t index, const RIF_TAG& entry) { return compare(index, entry) < 0; }

  private:
    int compare(std::size_t index, const RIF_TAG& entry);
    int comparePixels(std::size_t index, const RIF_TAG& entry);
    int compareIds(const RIF_TAG& tag, const RIF_TAG& entry);
    bool agreesWithList(const RIF_TAG& header) const;
    bool agreesWithBucket(std::size_t index, const RIF_TAG& header) const;
    bool agreesWithCaller(std::size_t index, const RIF_TAG& header) const;
    bool leavesOthersFree(std::size_t index, const RIF_TAG& header) const;
    bool agreesWithPixels(const RIF_TAG& header);
    bool agreesWithSizes(const RIF_TAG& header);
    bool isCovered(const RIF_TAG& header);
    bool holdsPixels(const RIF_TAG& header);
    int countOf(std::uint32_t id);
    void survey();

    template <class Agrees>
    static int better(const RIF_TAG& tag, const RIF_TAG& entry, Agrees agrees) {
        return (agrees(entry) ? 1 : 0) - (agrees(tag) ? 1 : 0);
    }

    const std::vector<INFOTAG>& tags_;
    const std::vector<const char*>& ignored_;
    const FrameFacts& facts_;

    bool surveyed_ = false;
    std::map<std::uint32_t, int> counts_;  // tags by id
    // Of all pixels.
    std::int64_t right_ = 0;
    std::int64_t bottom_ = 0;
    std::int32_t widest_ = 0;
    std::int32_t highest_ = 0;
    bool sizesVary_ = false;
};

}  // namespace v1
}  // namespace MUtils
