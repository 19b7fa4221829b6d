#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "convert/convert_error.h"
#include "support/name_globs.h"

namespace MUtils {
inline namespace v1 {

// Takes out of `channels`, which have a name each, those that no pattern fits; none where there are no
// patterns. Throws ConvertError (kBadOption) for a pattern that fits no channel for which `counts` is true;
// `what` are the words for these.
template <class Channel, class Counts>
void keepFitting(const std::vector<std::string>& globs, const std::string& file, const std::string& what,
                 std::vector<Channel>& channels, Counts counts) {
    const auto fits = [](const std::string& glob, const Channel& channel) {
        return fitsGlob(glob, channel.name);
    };
    for (const std::string& glob : globs) {
        const bool any = std::any_of(channels.begin(), channels.end(), [&](const Channel& channel) {
            return counts(channel) && fits(glob, channel);
        });
        if (any) continue;
        throw ConvertError(ConvertState::kBadOption, file, "channels: \"" + glob + "\" fits no " + what);
    }
    keepFitting(globs, channels, fits);
}

}  // namespace v1
}  // namespace MUtils
