#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "rawimage/inspect/frame_facts.h"
#include "rawimage/inspect/payload_probe.h"
#include "rawimage/inspect/tag_scan.h"

namespace MUtils {
inline namespace v1 {

// Compares the place of each pixel tag with those of the other channels of its bucket. Writers store the
// channels of a bucket one behind the other, from the last to the first, with the same x, y, width and
// height; a tag in such a row that differs from all its neighbours, while those agree with each other, is a
// suspect, and their place is its likely one. Tags that the table confirms are none. The witnesses, in this
// order:
//
//   1. The file: where many tags differ from their neighbours, or most of the channel's do, it is how the
//      writer works, and nothing is reported.
//   2. Later buckets: where they cover both the place and the likely place, nothing is wrong any more.
//   3. The payload, where width or height differ: it decides.
//   4. The other channels, where x or y differ. The channel has a tag more than its neighbour's channel has
//      at the place, and one less at the likely place: the tag is repaired. Only the first: it is doubted.
//   5. Where the row has only two channels, either may be the wrong one: the one that is off the grid of
//      buckets, outside the frame, or over another bucket of its channel. If that does not decide, both are
//      doubted.
class PlaceCheck {
  public:
    // `confirmed`: by tag, the table has the same header. All must outlive the object.
    PlaceCheck(PStream& stream, TagScan& scan, const std::vector<bool>& confirmed, PayloadProbe& probe)
        : stream_(stream), scan_(scan), confirmed_(confirmed), probe_(probe) {}

    // Corrects the tags and gaps of the scan; adds repairs and doubts.
    void run();

  private:
    struct Suspect {
        std::size_t tag;
        std::size_t neighbour;  // that has the likely place
        bool outnumbered;       // at least two neighbours agree
        // Tags of the two channels in the two places.
        int ownHere = 0;
        int neighboursHere = 0;
        int ownThere = 0;
        int neighboursThere = 0;
        bool overOwn = false;        // the place overlaps another tag of the channel
        std::vector<RIF_TAG> later;  // tags of the channel behind it, over one of the two places; bounded
    };
    // Tags of a channel that agree with a neighbour, and that differ from theirs.
    struct Channel {
        int agree = 0;
        int differ = 0;
    };

    bool hasUnconfirmedPixels() const;
    bool isRow(std::size_t tag) const;
    bool agreesBefore(std::size_t tag) const;
    void findSuspects();
    void addSuspect(std::size_t tag, bool before, bool after);
    void dropWeakNeighbours();
    void gatherFacts();
    bool isOverdrawn(const Suspect& suspect) const;
    bool isDenied(const Suspect& suspect) const;
    void judge(const Suspect& suspect);
    void judgePair(const Suspect& suspect);
    void repair(const Suspect& suspect);
    void doubt(const Suspect& suspect);
    bool agreesWithList(const RIF_TAG& tag) const;
    void repairGaps();
    std::optional<INFOTAG> repaired(const TagGap& gap, std::size_t next);

    PStream& stream_;
    TagScan& scan_;
    const std::vector<bool>& confirmed_;
    PayloadProbe& probe_;
    FrameFacts facts_;
    std::optional<RIF_TAG> grid_;  // bucket sizes that do not vary
    std::int64_t agree_ = 0;       // pairs of neighbours
    std::int64_t differ_ = 0;
    std::map<std::int32_t, Channel> channels_;
    std::vector<Suspect> suspects_;  // in file order
};

}  // namespace v1
}  // namespace MUtils
