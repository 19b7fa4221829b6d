#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "rawimage/inspect/frame_facts.h"

namespace MUtils {

// Judges between two headers of one tag, that in its place and that in the table, by what the other tags of
// the file say.
class HeaderEvidence {
  public:
    // Tags with a cause in `dropped` count only for what is next to them. All three must outlive the object
    // and stay as they are.
    HeaderEvidence(const std::vector<INFOTAG>& tags, const std::vector<const char*>& dropped,
                   const FrameFacts& facts)
        : tags_(tags), dropped_(dropped), facts_(facts) {}

    // True when the header `entry` is right for the tag `index` and the tag's own is not. False also when
    // nobody can tell. May look at every tag.
    bool entryIsRight(std::size_t index, const RIF_TAG& entry);

  private:
    bool agreesWithList(const RIF_TAG& header) const;
    bool agreesWithBucket(std::size_t index, const RIF_TAG& header) const;
    bool agreesWithCaller(std::size_t index, const RIF_TAG& header) const;
    bool leavesOthersFree(std::size_t index, const RIF_TAG& header) const;
    bool agreesWithPixels(const RIF_TAG& header);
    int countOf(std::uint32_t id);
    void survey();

    template <class Agrees>
    static int compare(const RIF_TAG& tag, const RIF_TAG& entry, Agrees agrees) {
        return (agrees(entry) ? 1 : 0) - (agrees(tag) ? 1 : 0);
    }

    const std::vector<INFOTAG>& tags_;
    const std::vector<const char*>& dropped_;
    const FrameFacts& facts_;

    bool surveyed_ = false;
    std::map<std::uint32_t, int> counts_;  // tags by id
    // Of all pixels.
    std::int64_t right_ = 0;
    std::int64_t bottom_ = 0;
    std::int32_t widest_ = 0;
    std::int32_t highest_ = 0;
};

}  // namespace MUtils
