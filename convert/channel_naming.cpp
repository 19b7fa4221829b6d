#include "convert/channel_naming.h"

#include <algorithm>
#include <map>
#include <set>

#include "rawimage/format.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::size_t kMaxNameLength = MUtils::kChannelNameBytes - 1;

// The names that the writers give a channel's components.
class Naming {
  public:
    Naming(const std::vector<FrameChannel>& channels, int kind) : kind_(kind) {
        const auto isDepth = [](const FrameChannel& channel) {
            return channel.alias == RCA_DEPTH && (channel.flags & kChannelSkippedInExr) == 0;
        };
        severalDepths_ = std::count_if(channels.begin(), channels.end(), isDepth) > 1;
    }

    // "RGB", "A" or "Z" for a channel that is one of the main image by its role, else "".
    std::string mainLetters(const FrameChannel& channel) const {
        if (channel.type == RCT_FLOAT && channel.alias == RCA_DEPTH && !severalDepths_) return "Z";
        if (channel.type != RCT_COLOR) return "";
        return channel.alias == RCA_ALPHA ? "A" : channel.alias == RCA_COLOR ? "RGB" : "";
    }

    std::vector<ComponentName> names(const FrameChannel& channel) const {
        static const char* const kLetters[] = {"", "", "RGB", "XY", "", "XYZ", "RGBA"};
        std::vector<ComponentName> result;
        const std::string main = mainLetters(channel);
        for (const char letter : main)
            result.push_back({"", std::string(1, letter)});
        if (!main.empty()) return result;
        const std::string letters = kLetters[channel.type];
        const ComponentName place = split(channel.name, letters.empty());
        if (letters.empty()) result.push_back(place);
        const bool letterAlone = place.name.empty() && kind_ != ExrFile::kTiled;
        for (const char letter : letters)
            result.push_back({place.part, letterAlone ? std::string(1, letter) : place.name + '.' + letter});
        return result;
    }

  private:
    // Only files of several parts split names: at the first dot, when something follows it.
    ComponentName split(const std::string& name, bool whole) const {
        if (kind_ != ExrFile::kMultiPart) return {"", name};
        const std::size_t dot = name.find('.');
        if (dot != std::string::npos && dot + 1 < name.size())
            return {name.substr(0, dot), name.substr(dot + 1)};
        return whole ? ComponentName{"other", name} : ComponentName{name, ""};
    }

    const int kind_;
    bool severalDepths_ = false;
};

// Hands out names until all channels have their own.
class Claims {
  public:
    explicit Claims(const Naming& naming) : naming_(naming) {}

    void claim(NamedChannel& named) {
        FrameChannel& channel = named.channel;
        if (take(named)) return;
        const std::string wanted = channel.name;
        if (!naming_.mainLetters(channel).empty()) channel.alias = RCA_NONE;
        for (int& n = tries_[wanted]; !take(named);) {
            const std::string suffix = '~' + std::to_string(++n + 1);
            channel.name = wanted.substr(0, kMaxNameLength - suffix.size()) + suffix;
        }
        named.renamed = "the OpenEXR name of the channel \"" + wanted + "\" is taken; it goes by \"" +
                        channel.name + "\"";
    }

  private:
    bool take(NamedChannel& named) {
        std::vector<ComponentName> names = naming_.names(named.channel);
        const auto taken = [this](const ComponentName& name) { return taken_.count(name) != 0; };
        if (std::any_of(names.begin(), names.end(), taken)) return false;
        taken_.insert(names.begin(), names.end());
        named.components = std::move(names);
        return true;
    }

    const Naming& naming_;
    std::set<ComponentName> taken_;
    std::map<std::string, int> tries_;  // numbers used up for a name
};

}  // namespace

bool goesIntoExr(const FrameChannel& channel) {
    return findChannelKind(channel.type) != nullptr && (channel.flags & kChannelSkippedInExr) == 0;
}

std::vector<NamedChannel> nameChannels(const std::vector<FrameChannel>& channels, int kind) {
    const Naming naming(channels, kind);
    std::vector<NamedChannel> result;
    for (const FrameChannel& channel : channels)
        result.push_back({channel, {}, {}});
    std::vector<NamedChannel*> inOrder;
    for (NamedChannel& named : result) {
        if (findChannelKind(named.channel.type) != nullptr) inOrder.push_back(&named);
    }
    const auto turn = [&naming](const NamedChannel* named) {
        return !goesIntoExr(named->channel) ? 2 : naming.mainLetters(named->channel).empty() ? 1 : 0;
    };
    std::stable_sort(inOrder.begin(), inOrder.end(),
                     [&turn](const NamedChannel* a, const NamedChannel* b) { return turn(a) < turn(b); });
    Claims claims(naming);
    for (NamedChannel* named : inOrder)
        claims.claim(*named);
    return result;
}

}  // namespace v1
}  // namespace MUtils
