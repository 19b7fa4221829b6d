#include "rawimage/inspect/channel_check.h"

#include <algorithm>
#include <map>

#include "rawimage/area/tag_box.h"
#include "rawimage/inspect/frame_facts.h"
#include "rawimage/inspect/tag_check.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr int kMostSearches = 64;  // over all tags; one damaged byte needs one

class ChannelCheck {
  public:
    ChannelCheck(const std::vector<INFOTAG>& tags, const std::vector<bool>& proven,
                 std::vector<const char*>& dropped)
        : tags_(tags), proven_(proven), dropped_(dropped) {}

    bool takeLists(PStream& stream);
    void run();

  private:
    struct Count {
        int right = 0;
        int wrong = 0;
        bool wrongIsProven = false;
        std::size_t lastWrong = 0;
    };

    bool listed(std::int32_t channel) const {
        return channel >= 0 && static_cast<std::size_t>(channel) < types_.size();
    }
    bool contradicts(const RIF_TAG& tag) const {
        return listed(tag.p8) && types_[static_cast<std::size_t>(tag.p8)] != tag.p1;
    }
    void count();
    bool listIsDamaged();
    bool belongsElsewhere(std::size_t index);

    const std::vector<INFOTAG>& tags_;
    const std::vector<bool>& proven_;
    std::vector<const char*>& dropped_;
    std::vector<std::int32_t> types_;       // by channel
    std::map<std::int32_t, Count> counts_;  // by channel
    int searches_ = 0;
};

// False when there is no list, or several that differ where they overlap.
bool ChannelCheck::takeLists(PStream& stream) {
    for (const INFOTAG& tag : tags_) {
        if (!isChannelList(tag)) continue;
        std::vector<RIF_CHANNEL> list;
        (void)readChannelList(stream, tag, list);
        for (std::size_t i = 0; i < list.size(); ++i) {
            if (i == types_.size()) types_.push_back(list[i].type);
            if (types_[i] != list[i].type) return false;
        }
    }
    return !types_.empty();
}

void ChannelCheck::count() {
    for (std::size_t i = 0; i < tags_.size(); ++i) {
        if (!isPixelTag(tags_[i].id)) continue;
        Count& count = counts_[tags_[i].p8];
        if (listed(tags_[i].p8) && !contradicts(tags_[i])) {
            ++count.right;
            continue;
        }
        ++count.wrong;
        count.lastWrong = i;
        count.wrongIsProven = count.wrongIsProven || proven_[i];
    }
}

// True when the tag looks like one of another channel: there is one of its type that lacks this bucket.
bool ChannelCheck::belongsElsewhere(std::size_t index) {
    if (++searches_ > kMostSearches) return false;
    const RIF_TAG& tag = tags_[index];
    const PixelBox box = boxOf(tag);
    std::vector<bool> lacks(types_.size());
    for (std::size_t i = 0; i < types_.size(); ++i)
        lacks[i] = types_[i] == tag.p1;
    for (const INFOTAG& other : tags_) {
        if (isPixelTag(other.id) && listed(other.p8) && boxOf(other) == box)
            lacks[static_cast<std::size_t>(other.p8)] = false;
    }
    return std::find(lacks.begin(), lacks.end(), true) != lacks.end();
}

bool ChannelCheck::listIsDamaged() {
    return std::any_of(counts_.begin(), counts_.end(), [this](const auto& entry) {
        const Count& count = entry.second;
        if (!listed(entry.first) || count.wrong == 0) return false;
        if (count.wrongIsProven || count.wrong > std::max(count.right, 1)) return true;
        return count.right == 0 && !belongsElsewhere(count.lastWrong);
    });
}

void ChannelCheck::run() {
    count();
    const bool badList = listIsDamaged();
    for (std::size_t i = 0; i < tags_.size(); ++i) {
        const INFOTAG& tag = tags_[i];
        if (badList && isChannelList(tag)) dropped_[i] = "channel list that contradicts the pixels";
        if (badList || !isPixelTag(tag.id) || proven_[i]) continue;
        const bool alone = !listed(tag.p8) && counts_[tag.p8].wrong == 1;
        if (contradicts(tag) || (alone && belongsElsewhere(i)))
            dropped_[i] = "pixels that contradict the channel list";
    }
}

}  // namespace

void checkChannels(PStream& stream, const std::vector<INFOTAG>& tags, const std::vector<bool>& proven,
                   std::vector<const char*>& dropped) {
    ChannelCheck check(tags, proven, dropped);
    if (check.takeLists(stream)) check.run();
}

}  // namespace v1
}  // namespace MUtils
