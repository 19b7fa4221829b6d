#include "rawimage/inspect/tag_order.h"

namespace MUtils {
inline namespace v1 {

std::int32_t& TagOrder::typeOf(std::int32_t channel) {
    if (channel < 0 || channel >= kFewChannels) return further_[channel];
    const auto at = static_cast<std::size_t>(channel);
    if (at >= types_.size()) types_.resize(at + 1);
    return types_[at];
}

bool TagOrder::take(const RIF_TAG& tag) {
    std::int32_t& type = typeOf(tag.p8);
    if (type != 0 && type != tag.p1) return false;
    if (tag.p4 != 0 && tag.p5 != 0 && !ignoresPlaces_) {
        if (!continues(tag)) return false;
        last_ = tag;
    }
    type = tag.p1;
    return true;
}

bool TagOrder::continues(const RIF_TAG& tag) {
    if (last_.id == 0) return true;
    const int step = tag.p8 > last_.p8 ? 1 : tag.p8 < last_.p8 ? -1 : 0;
    const bool samePlace =
        tag.p2 == last_.p2 && tag.p3 == last_.p3 && tag.p4 == last_.p4 && tag.p5 == last_.p5;
    if (!samePlace) {
        if (direction_ == 0) (step < 0 ? hasGoneDown_ : hasGoneUp_) |= step != 0;
        return direction_ == 0 || step != direction_;
    }
    if (step == 0 || step == -direction_) return false;
    direction_ = step;
    return !(step < 0 ? hasGoneDown_ : hasGoneUp_);
}

std::map<std::int32_t, std::int32_t> TagOrder::channels() const {
    std::map<std::int32_t, std::int32_t> all = further_;
    for (std::size_t i = 0; i < types_.size(); ++i) {
        if (types_[i] != 0) all[static_cast<std::int32_t>(i)] = types_[i];
    }
    return all;
}

}  // namespace v1
}  // namespace MUtils
