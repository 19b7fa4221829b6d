#include "rawimage/inspect/place_check.h"

#include <algorithm>

#include "rawimage/area/missing_boxes.h"
#include "rawimage/area/tag_box.h"
#include "rawimage/inspect/gap_list.h"

namespace MUtils {
inline namespace v1 {

namespace {

// Each is compared with every tag.
constexpr std::size_t kMostSuspects = 256;
constexpr std::size_t kMostLater = 1000;
constexpr const char* kWrongPlace = "place that differs from the other channels of its bucket";

bool hasPixels(const RIF_TAG& tag) {
    return isPixelTag(tag.id) && tag.p4 > 0 && tag.p5 > 0;
}

bool samePlace(const RIF_TAG& a, const RIF_TAG& b) {
    return a.p2 == b.p2 && a.p3 == b.p3 && a.p4 == b.p4 && a.p5 == b.p5;
}

// Of x, y, width and height, those that differ.
int placeWordsThatDiffer(const RIF_TAG& a, const RIF_TAG& b) {
    return (a.p2 != b.p2 ? 1 : 0) + (a.p3 != b.p3 ? 1 : 0) + (a.p4 != b.p4 ? 1 : 0) + (a.p5 != b.p5 ? 1 : 0);
}

void takePlace(RIF_TAG& tag, const RIF_TAG& of) {
    tag.p2 = of.p2;
    tag.p3 = of.p3;
    tag.p4 = of.p4;
    tag.p5 = of.p5;
}

bool covers(const std::vector<RIF_TAG>& tags, const RIF_TAG& place) {
    std::vector<PixelBox> boxes;
    for (const RIF_TAG& tag : tags)
        boxes.push_back(boxOf(tag));
    const MissingBoxes missing = missingBoxes(boxes, boxOf(place), 1);
    return missing.boxes.empty() && !missing.truncated;
}

}  // namespace

void PlaceCheck::run() {
    if (hasUnconfirmedPixels()) findSuspects();
    if (suspects_.empty() && scan_.gaps.empty()) return;
    (void)readFrameFacts(stream_, scan_.tags, facts_);
    if (!suspects_.empty()) {
        const std::optional<RIF_TAG>& announced = facts_.buckets;
        if (announced && announced->p1 > 0 && announced->p2 > 0 && announced->p3 == 0) grid_ = announced;
        dropWeakNeighbours();
        gatherFacts();
        for (const Suspect& suspect : suspects_)
            judge(suspect);
    }
    repairGaps();
}

bool PlaceCheck::hasUnconfirmedPixels() const {
    for (std::size_t i = 0; i < scan_.tags.size(); ++i) {
        if (!confirmed_[i] && hasPixels(scan_.tags[i])) return true;
    }
    return false;
}

// True when the tag and the one before it may be channels of one bucket, written in one call.
bool PlaceCheck::isRow(std::size_t tag) const {
    if (tag == 0 || tag >= scan_.tags.size()) return false;
    const INFOTAG& before = scan_.tags[tag - 1];
    const INFOTAG& here = scan_.tags[tag];
    return hasPixels(before) && hasPixels(here) && before.p8 > here.p8 && endOf(before) == startOf(here);
}

bool PlaceCheck::agreesBefore(std::size_t tag) const {
    return isRow(tag) && samePlace(scan_.tags[tag - 1], scan_.tags[tag]);
}

void PlaceCheck::findSuspects() {
    for (std::size_t i = 0; i < scan_.tags.size(); ++i) {
        const bool before = isRow(i);
        const bool after = isRow(i + 1);
        if (!before && !after) continue;
        const bool agrees = agreesBefore(i) || agreesBefore(i + 1);
        Channel& channel = channels_[scan_.tags[i].p8];
        ++(agrees ? channel.agree : channel.differ);
        if (before) ++(agreesBefore(i) ? agree_ : differ_);
        if (!agrees && !confirmed_[i]) addSuspect(i, before, after);
    }
}

void PlaceCheck::addSuspect(std::size_t tag, bool before, bool after) {
    if (suspects_.size() == kMostSuspects) return;
    const bool between = before && after;
    if (between && !samePlace(scan_.tags[tag - 1], scan_.tags[tag + 1])) return;
    const bool more = (before && agreesBefore(tag - 1)) || (after && agreesBefore(tag + 2));
    Suspect suspect;
    suspect.tag = tag;
    suspect.neighbour = before ? tag - 1 : tag + 1;
    suspect.outnumbered = between || more;
    suspects_.push_back(suspect);
}

// A neighbour of a suspect that several others outvote differs only from that one.
void PlaceCheck::dropWeakNeighbours() {
    const auto isNextToStrong = [this](const Suspect& suspect) {
        return !suspect.outnumbered &&
               std::any_of(suspects_.begin(), suspects_.end(), [&suspect](const Suspect& other) {
                   return other.outnumbered && other.tag == suspect.neighbour;
               });
    };
    std::vector<Suspect> kept;
    std::remove_copy_if(suspects_.begin(), suspects_.end(), std::back_inserter(kept), isNextToStrong);
    suspects_.swap(kept);
}

void PlaceCheck::gatherFacts() {
    for (std::size_t i = 0; i < scan_.tags.size(); ++i) {
        const INFOTAG& tag = scan_.tags[i];
        if (!hasPixels(tag)) continue;
        for (Suspect& suspect : suspects_) {
            const INFOTAG& own = scan_.tags[suspect.tag];
            const INFOTAG& neighbour = scan_.tags[suspect.neighbour];
            const bool ofOwn = tag.p8 == own.p8;
            if (!ofOwn && tag.p8 != neighbour.p8) continue;
            const bool here = samePlace(tag, own);
            const bool there = samePlace(tag, neighbour);
            if (here) ++(ofOwn ? suspect.ownHere : suspect.neighboursHere);
            if (there) ++(ofOwn ? suspect.ownThere : suspect.neighboursThere);
            if (!ofOwn || i == suspect.tag) continue;
            const bool overPlace = overlaps(boxOf(tag), boxOf(own));
            suspect.overOwn = suspect.overOwn || overPlace;
            const bool later = i > suspect.tag && suspect.later.size() < kMostLater;
            if (later && (overPlace || overlaps(boxOf(tag), boxOf(neighbour)))) suspect.later.push_back(tag);
        }
    }
}

bool PlaceCheck::isOverdrawn(const Suspect& suspect) const {
    return !suspect.later.empty() && covers(suspect.later, scan_.tags[suspect.tag]) &&
           covers(suspect.later, scan_.tags[suspect.neighbour]);
}

// True when the place is none that the writer announced, or another tag of the channel has it.
bool PlaceCheck::isDenied(const Suspect& suspect) const {
    const INFOTAG& tag = scan_.tags[suspect.tag];
    const INFOTAG& neighbour = scan_.tags[suspect.neighbour];
    const auto distance = [](std::int32_t a, std::int32_t b) { return std::int64_t{a} - b; };
    const bool offGrid = grid_ && (distance(tag.p2, neighbour.p2) % grid_->p1 != 0 ||
                                   distance(tag.p3, neighbour.p3) % grid_->p2 != 0);
    const bool outside = facts_.resolution && !overlaps(boxOf(tag), facts_.frame()) &&
                         overlaps(boxOf(neighbour), facts_.frame());
    return offGrid || outside || suspect.overOwn;
}

void PlaceCheck::judge(const Suspect& suspect) {
    const INFOTAG& tag = scan_.tags[suspect.tag];
    const INFOTAG& neighbour = scan_.tags[suspect.neighbour];
    const Channel& channel = channels_[tag.p8];
    const bool irregular = suspect.outnumbered ? differ_ > agree_ : 4 * differ_ > agree_;
    if (irregular || channel.differ > channel.agree || isOverdrawn(suspect)) return;
    if (tag.p4 != neighbour.p4 || tag.p5 != neighbour.p5) {
        RIF_TAG candidate = tag;
        takePlace(candidate, neighbour);
        if (placeWordsThatDiffer(tag, neighbour) == 1 && !probe_.agrees(tag, startOf(tag)) &&
            probe_.agrees(candidate, startOf(tag)))
            repair(suspect);
        return;
    }
    if (suspect.ownHere <= suspect.neighboursHere) return;
    if (!suspect.outnumbered) return judgePair(suspect);
    const bool oneWord = placeWordsThatDiffer(tag, neighbour) == 1;
    if (oneWord && suspect.ownThere < suspect.neighboursThere) {
        repair(suspect);
    } else {
        doubt(suspect);
    }
}

// Two channels that differ from each other only: both are suspects, unless the table confirms one.
void PlaceCheck::judgePair(const Suspect& suspect) {
    const auto other = std::find_if(suspects_.begin(), suspects_.end(), [&suspect](const Suspect& candidate) {
        return candidate.tag == suspect.neighbour && candidate.neighbour == suspect.tag;
    });
    const bool denied = isDenied(suspect);
    const bool otherDenied = other != suspects_.end() && isDenied(*other);
    if (otherDenied && !denied) return;
    const bool oneWord = placeWordsThatDiffer(scan_.tags[suspect.tag], scan_.tags[suspect.neighbour]) == 1;
    if (denied && !otherDenied && oneWord && suspect.ownThere < suspect.neighboursThere) {
        repair(suspect);
    } else {
        doubt(suspect);
    }
}

void PlaceCheck::repair(const Suspect& suspect) {
    INFOTAG& tag = scan_.tags[suspect.tag];
    scan_.repairs.push_back({startOf(tag), tag, kWrongPlace});
    takePlace(tag, scan_.tags[suspect.neighbour]);
}

void PlaceCheck::doubt(const Suspect& suspect) {
    scan_.doubted.push_back(startOf(scan_.tags[suspect.tag]));
}

// True when the frame has no channel list, or the tag has its channel's type there.
bool PlaceCheck::agreesWithList(const RIF_TAG& tag) const {
    const auto channel = static_cast<std::size_t>(tag.p8);
    return facts_.channels.empty() ||
           (tag.p8 >= 0 && channel < facts_.channels.size() && facts_.channels[channel].type == tag.p1);
}

// Width or height of a tag that is a gap, as its payload contradicts them.
void PlaceCheck::repairGaps() {
    std::vector<INFOTAG> restored;
    std::size_t next = 0;
    for (const TagGap& gap : scan_.gaps) {
        while (next < scan_.tags.size() && startOf(scan_.tags[next]) < gap.end)
            ++next;
        if (!isPixelTag(gap.tag.id) || gap.end - gap.offset != gap.tag.size || !agreesWithList(gap.tag))
            continue;
        if (const std::optional<INFOTAG> tag = repaired(gap, next)) {
            restored.push_back(*tag);
            scan_.repairs.push_back({gap.offset, gap.tag, gap.cause});
        }
    }
    restoreTags(scan_, restored);
}

// The gap's tag with the place of its neighbours, the second of which is `next`. None when that does not
// agree with the payload.
std::optional<INFOTAG> PlaceCheck::repaired(const TagGap& gap, std::size_t next) {
    const INFOTAG* before = nullptr;
    const INFOTAG* after = nullptr;
    if (next > 0 && endOf(scan_.tags[next - 1]) == gap.offset && hasPixels(scan_.tags[next - 1]) &&
        scan_.tags[next - 1].p8 > gap.tag.p8)
        before = &scan_.tags[next - 1];
    if (next < scan_.tags.size() && startOf(scan_.tags[next]) == gap.end && hasPixels(scan_.tags[next]) &&
        gap.tag.p8 > scan_.tags[next].p8)
        after = &scan_.tags[next];
    if (before != nullptr && after != nullptr && !samePlace(*before, *after)) return std::nullopt;
    const INFOTAG* neighbour = before != nullptr ? before : after;
    if (neighbour == nullptr || placeWordsThatDiffer(gap.tag, *neighbour) != 1) return std::nullopt;
    // A gap whose header and payload agree was made of a tag for another reason.
    if (gap.tag.p2 != neighbour->p2 || gap.tag.p3 != neighbour->p3 || probe_.agrees(gap.tag, gap.offset))
        return std::nullopt;
    INFOTAG tag;
    static_cast<RIF_TAG&>(tag) = gap.tag;
    tag.offset = static_cast<std::uint64_t>(gap.offset);
    takePlace(tag, *neighbour);
    return probe_.agrees(tag, gap.offset) ? std::optional(tag) : std::nullopt;
}

}  // namespace v1
}  // namespace MUtils
