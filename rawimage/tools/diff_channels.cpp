#include "rawimage/tools/diff_channels.h"

#include <algorithm>

#include "support/name_globs.h"

namespace MUtils {
inline namespace v1 {

namespace {

using Channels = std::vector<FrameChannel>;

bool sameName(const FrameChannel& a, const FrameChannel& b) {
    return a.listed == b.listed && (a.listed ? a.name == b.name : a.index == b.index);
}

// The roles that OpenEXR files have names of their own for.
bool sameRole(const FrameChannel& a, const FrameChannel& b) {
    return a.alias == b.alias && (a.alias == RCA_COLOR || a.alias == RCA_ALPHA || a.alias == RCA_DEPTH);
}

// OpenEXR files have one number of an alpha, and it comes back as three.
bool comparable(const FrameChannel& a, const FrameChannel& b, bool throughExr) {
    if (a.components() == 0 || b.components() == 0 || a.isInteger() != b.isInteger()) return false;
    const bool alpha = throughExr && a.alias == RCA_ALPHA && b.alias == RCA_ALPHA;
    return alpha || a.components() == b.components();
}

ChannelDiff pairOf(const FrameChannel& a, const FrameChannel& b, bool throughExr) {
    ChannelDiff pair;
    pair.channels = {a, b};
    if (a.index != b.index) pair.differs.push_back("index");
    if (a.name != b.name) pair.differs.push_back("name");
    if (a.type != b.type) pair.differs.push_back("type");
    if (a.alias != b.alias) pair.differs.push_back("alias");
    pair.comparable = comparable(a, b, throughExr);
    return pair;
}

// Takes pairs for which `fits` is true out of `left`.
template <class Fits>
void takePairs(std::array<Channels, 2>& left, bool throughExr, std::vector<ChannelDiff>& pairs, Fits fits) {
    Channels& others = left[1];
    const auto taken = [&](const FrameChannel& channel) {
        const auto other = std::find_if(others.begin(), others.end(),
                                        [&](const FrameChannel& b) { return fits(channel, b); });
        if (other == others.end()) return false;
        pairs.push_back(pairOf(channel, *other, throughExr));
        others.erase(other);
        return true;
    };
    Channels unpaired;
    for (const FrameChannel& channel : left[0]) {
        if (!taken(channel)) unpaired.push_back(channel);
    }
    left[0] = std::move(unpaired);
}

// Channels that have no place in OpenEXR files.
bool notForExr(const FrameChannel& channel) {
    return channel.components() == 0 || (channel.flags & kChannelSkippedInExr) != 0;
}

bool fits(const std::string& pattern, const FrameChannel& channel) {
    return fitsGlob(pattern, channel.name);
}

bool fits(const std::string& pattern, const ChannelDiff& pair) {
    return fits(pattern, pair.channels[0]) || fits(pattern, pair.channels[1]);
}

template <class Item>
bool anyFits(const std::string& pattern, const std::vector<Item>& items) {
    return std::any_of(items.begin(), items.end(), [&](const Item& item) { return fits(pattern, item); });
}

}  // namespace

const std::string* matchChannels(const FrameInfo& a, const FrameInfo& b, const DiffOptions& options,
                                 DiffReport& report) {
    std::array<Channels, 2>& left = report.onlyIn;
    left = {a.channels, b.channels};
    if (options.throughExr) {
        for (Channels& channels : left)
            channels.erase(std::remove_if(channels.begin(), channels.end(), notForExr), channels.end());
    }
    takePairs(left, options.throughExr, report.channels, sameName);
    if (options.throughExr) takePairs(left, options.throughExr, report.channels, sameRole);
    const auto place = [&a](const ChannelDiff& pair) {
        const auto found =
            std::find_if(a.channels.begin(), a.channels.end(), [&](const FrameChannel& channel) {
                return channel.index == pair.channels[0].index && sameName(channel, pair.channels[0]);
            });
        return found - a.channels.begin();
    };
    std::stable_sort(report.channels.begin(), report.channels.end(),
                     [&](const ChannelDiff& x, const ChannelDiff& y) { return place(x) < place(y); });
    for (const std::string& pattern : options.channels) {
        if (!anyFits(pattern, report.channels) && !anyFits(pattern, left[0]) && !anyFits(pattern, left[1]))
            return &pattern;
    }
    const auto fitsItem = [](const std::string& pattern, const auto& item) { return fits(pattern, item); };
    keepFitting(options.channels, report.channels, fitsItem);
    keepFitting(options.channels, left[0], fitsItem);
    keepFitting(options.channels, left[1], fitsItem);
    return nullptr;
}

}  // namespace v1
}  // namespace MUtils
