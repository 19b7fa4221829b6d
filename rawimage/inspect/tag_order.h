#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "rawimage/format.h"

namespace MUtils {
inline namespace v1 {

// Looks at pixel tags in file order for what a damaged header brings about. Writers store the channels of a
// bucket one behind the other, by ascending or by descending index, with the same place; each channel has one
// type. A tag that breaks this may be sound all the same: whoever meets one has to look closer.
class TagOrder {
  public:
    // True when the tag continues what came before it. A tag that is not taken leaves no trace.
    bool take(const RIF_TAG& tag);
    // From now on only the types are compared: for files that are known to be in another order.
    void ignorePlaces() { ignoresPlaces_ = true; }

    // The channels met so far with the type of their tags.
    std::map<std::int32_t, std::int32_t> channels() const;

  private:
    static constexpr std::int32_t kFewChannels = 4096;

    bool continues(const RIF_TAG& tag);
    std::int32_t& typeOf(std::int32_t channel);

    std::vector<std::int32_t> types_;               // of channels below kFewChannels; 0 for one not met
    std::map<std::int32_t, std::int32_t> further_;  // of the others
    RIF_TAG last_;                                  // with values
    int direction_ = 0;  // of the indices in a bucket: -1 or 1, 0 until it is known
    // From one place to the next, while the direction is not known.
    bool hasGoneUp_ = false;
    bool hasGoneDown_ = false;
    bool ignoresPlaces_ = false;
};

}  // namespace v1
}  // namespace MUtils
