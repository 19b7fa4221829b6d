#include "rawimage/inspect/channel_order.h"

#include <algorithm>

#include "rawimage/area/tag_box.h"
#include "rawimage/inspect/frame_facts.h"
#include "rawimage/inspect/gap_list.h"

namespace MUtils {
inline namespace v1 {

namespace {

// Each is compared with every tag.
constexpr std::size_t kMostSuspects = 256;
constexpr const char* kWrongChannel = "channel that breaks the order of its bucket";

struct Suspect {
    std::size_t tag;
    std::int32_t likely;          // the only index that fits in between
    std::int32_t neighbour = -1;  // the index of a tag next to it
    // Tags in this place, those behind the suspect, too.
    int ofStated = 0;
    int ofLikely = 0;
    int ofNeighbour = 0;
    int statedAnywhere = 0;
    bool statedFollows = false;
    bool likelyFollows = false;
};

class ChannelOrder {
  public:
    ChannelOrder(TagScan& scan, const std::vector<RIF_CHANNEL>& list) : scan_(scan), list_(list) {}

    void find(const std::vector<bool>& confirmed);
    void repair();

  private:
    bool sameBucket(std::size_t tag) const;
    bool isListed(std::int32_t channel) const {
        return channel >= 0 && static_cast<std::size_t>(channel) < list_.size();
    }
    bool findNeighbour(Suspect& suspect) const;
    void gatherFacts();
    bool isWrong(const Suspect& suspect) const;

    TagScan& scan_;
    const std::vector<RIF_CHANNEL>& list_;
    std::vector<Suspect> suspects_;
};

// True when the tag and the one before it have the same place and follow each other.
bool ChannelOrder::sameBucket(std::size_t tag) const {
    if (tag == 0 || tag >= scan_.tags.size()) return false;
    const INFOTAG& before = scan_.tags[tag - 1];
    const INFOTAG& here = scan_.tags[tag];
    return isPixelTag(before.id) && isPixelTag(here.id) && endOf(before) == startOf(here) &&
           boxOf(before) == boxOf(here) && !boxOf(here).empty();
}

void ChannelOrder::find(const std::vector<bool>& confirmed) {
    for (std::size_t i = 0; i < scan_.tags.size() && suspects_.size() < kMostSuspects; ++i) {
        if (confirmed[i] || !isPixelTag(scan_.tags[i].id)) continue;
        const bool before = sameBucket(i);
        const bool after = sameBucket(i + 1);
        if (!before && !after) continue;
        const INFOTAG& tag = scan_.tags[i];
        const std::int64_t upper = before ? scan_.tags[i - 1].p8 : static_cast<std::int64_t>(list_.size());
        const std::int64_t lower = after ? scan_.tags[i + 1].p8 : -1;
        const bool inOrder = lower < tag.p8 && tag.p8 < upper;
        if (inOrder || upper - lower != 2) continue;
        const auto likely = static_cast<std::int32_t>(lower + 1);
        if (!isListed(likely) || list_[static_cast<std::size_t>(likely)].type != tag.p1) continue;
        Suspect suspect;
        suspect.tag = i;
        suspect.likely = likely;
        if (findNeighbour(suspect)) suspects_.push_back(suspect);
    }
}

// The next tag of the bucket, on either side, with another index than the suspect's.
bool ChannelOrder::findNeighbour(Suspect& suspect) const {
    const std::size_t at = suspect.tag;
    const auto take = [&](std::size_t tag) {
        suspect.neighbour = scan_.tags[tag].p8;
        return suspect.neighbour != scan_.tags[at].p8;
    };
    return (sameBucket(at) && (take(at - 1) || (sameBucket(at - 1) && take(at - 2)))) ||
           (sameBucket(at + 1) && (take(at + 1) || (sameBucket(at + 2) && take(at + 2))));
}

void ChannelOrder::gatherFacts() {
    for (std::size_t i = 0; i < scan_.tags.size(); ++i) {
        const INFOTAG& tag = scan_.tags[i];
        if (!isPixelTag(tag.id)) continue;
        for (Suspect& suspect : suspects_) {
            const INFOTAG& wrong = scan_.tags[suspect.tag];
            suspect.statedAnywhere += tag.p8 == wrong.p8 ? 1 : 0;
            if (boxOf(tag) != boxOf(wrong)) continue;
            const bool follows = i > suspect.tag;
            suspect.ofStated += tag.p8 == wrong.p8 ? 1 : 0;
            suspect.ofLikely += tag.p8 == suspect.likely ? 1 : 0;
            suspect.ofNeighbour += tag.p8 == suspect.neighbour ? 1 : 0;
            suspect.statedFollows = suspect.statedFollows || (follows && tag.p8 == wrong.p8);
            suspect.likelyFollows = suspect.likelyFollows || (follows && tag.p8 == suspect.likely);
        }
    }
}

bool ChannelOrder::isWrong(const Suspect& suspect) const {
    const bool listed = isListed(scan_.tags[suspect.tag].p8);
    const bool covered = suspect.likelyFollows && (!listed || suspect.statedFollows);
    return !covered && suspect.ofLikely < suspect.ofNeighbour &&
           (listed ? suspect.ofStated > suspect.ofNeighbour : suspect.statedAnywhere == 1);
}

void ChannelOrder::repair() {
    if (suspects_.empty()) return;
    gatherFacts();
    for (const Suspect& suspect : suspects_) {
        if (!isWrong(suspect)) continue;
        INFOTAG& tag = scan_.tags[suspect.tag];
        scan_.repairs.push_back({startOf(tag), tag, kWrongChannel});
        tag.p8 = suspect.likely;
    }
}

}  // namespace

void repairChannelOrder(PStream& stream, TagScan& scan, const std::vector<bool>& confirmed) {
    const auto last = std::find_if(scan.tags.rbegin(), scan.tags.rend(),
                                   [](const INFOTAG& tag) { return isChannelList(tag); });
    if (last == scan.tags.rend()) return;
    std::vector<RIF_CHANNEL> list;
    if (!readChannelList(stream, *last, list)) return;
    ChannelOrder order(scan, list);
    order.find(confirmed);
    order.repair();
}

}  // namespace v1
}  // namespace MUtils
