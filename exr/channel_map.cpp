#include "exr/channel_map.h"

#include <ImfChannelList.h>

#include <string>

namespace MUtils {
inline namespace v1 {

namespace {

constexpr int kAnyAlias = -1;

// The first row that fits counts: by type first, then by alias.
constexpr ExrChannelRule kRules[] = {
    {RCT_FLOAT, RCA_DEPTH, ExrNaming::kMain, 1, 1, {"Z"}},
    {RCT_FLOAT, kAnyAlias, ExrNaming::kWhole, 1, 1, {}},
    {RCT_COLOR, RCA_ALPHA, ExrNaming::kMain, 3, 1, {"A"}},
    {RCT_COLOR, RCA_COLOR, ExrNaming::kMain, 3, 3, {"R", "G", "B"}},
    {RCT_COLOR, kAnyAlias, ExrNaming::kSuffixed, 3, 3, {"R", "G", "B"}},
    {RCT_FLOAT2, kAnyAlias, ExrNaming::kSuffixed, 2, 2, {"X", "Y"}},
    {RCT_INT, kAnyAlias, ExrNaming::kWhole, 1, 1, {}},
    {RCT_VECTOR, kAnyAlias, ExrNaming::kSuffixed, 3, 3, {"X", "Y", "Z"}},
    {RCT_FLOAT4, kAnyAlias, ExrNaming::kSuffixed, 4, 4, {"R", "G", "B", "A"}},
};

std::string exrChannelName(const ExrChannelRule& rule, int component, const char* base, EmptyBase emptyBase) {
    switch (rule.naming) {
        case ExrNaming::kMain: return rule.labels[component];
        case ExrNaming::kWhole: return base;
        case ExrNaming::kSuffixed: break;
    }
    const bool labelAlone = *base == 0 && emptyBase == EmptyBase::kLabelAlone;
    return (labelAlone ? std::string() : std::string(base) + ".") + rule.labels[component];
}

}  // namespace

const ExrChannelRule* findExrChannelRule(int type, int alias, bool severalDepthChannels) {
    const int role = severalDepthChannels && alias == RCA_DEPTH ? kAnyAlias : alias;
    for (const ExrChannelRule& rule : kRules) {
        if (rule.type == type && (rule.alias == role || rule.alias == kAnyAlias)) return &rule;
    }
    return nullptr;
}

ExrNames exrChannelNames(const ExrChannelRule& rule, const char* base, EmptyBase emptyBase) {
    ExrNames names;
    for (int i = 0; i < rule.channels; ++i) {
        names[static_cast<std::size_t>(i)] = exrChannelName(rule, i, base, emptyBase).c_str();
    }
    return names;
}

void insertExrChannels(Imf::ChannelList& list, const ExrChannelRule& rule, const ExrNames& names,
                       Imf::PixelType floatType) {
    for (int i = 0; i < rule.channels; ++i) {
        list.insert(names[static_cast<std::size_t>(i)].c_str(),
                    Imf::Channel(rule.pixelType(floatType), 1, 1, false));
    }
}

bool isWrittenToExr(RegionChannelCallback* channel) {
    return channel != nullptr && (channel->getFlags() & kChannelSkippedInExr) == 0;
}

bool hasSeveralDepthChannels(const Table<RegionChannelCallback*, 100>& channels) {
    int depthChannels = 0;
    for (RegionChannelCallback* channel : channels) {
        if (isWrittenToExr(channel) && channel->getAlias() == RCA_DEPTH) ++depthChannels;
    }
    return depthChannels > 1;
}

}  // namespace v1
}  // namespace MUtils
