#include "convert/to_exr/exr_channels.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "convert/channel_globs.h"
#include "exr/exr_file.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr std::size_t kMaxNameLength = MUtils::kChannelNameBytes - 1;
// The library looks for a part's name among all parts.
constexpr std::size_t kMaxChannels = 10000;

// A part's name and a channel's name in it.
using ExrName = std::pair<std::string, std::string>;

// The names that the writers give a channel's components.
class Naming {
  public:
    Naming(const std::vector<ExrChannel>& channels, int kind) : kind_(kind) {
        const auto isDepth = [](const ExrChannel& channel) {
            return channel.alias == RCA_DEPTH && (channel.flags & kChannelSkippedInExr) == 0;
        };
        severalDepths_ = std::count_if(channels.begin(), channels.end(), isDepth) > 1;
    }

    // "RGB", "A" or "Z" for a channel that is one of the main image by its role, else "".
    std::string mainLetters(const ExrChannel& channel) const {
        if (channel.type == RCT_FLOAT && channel.alias == RCA_DEPTH && !severalDepths_) return "Z";
        if (channel.type != RCT_COLOR) return "";
        return channel.alias == RCA_ALPHA ? "A" : channel.alias == RCA_COLOR ? "RGB" : "";
    }

    std::vector<ExrName> names(const ExrChannel& channel) const {
        static const char* const kLetters[] = {"", "", "RGB", "XY", "", "XYZ", "RGBA"};
        std::vector<ExrName> result;
        const std::string main = mainLetters(channel);
        for (const char letter : main)
            result.emplace_back("", std::string(1, letter));
        if (!main.empty()) return result;
        const std::string letters = kLetters[channel.type];
        const ExrName place = split(channel.name, letters.empty());
        if (letters.empty()) result.push_back(place);
        const bool letterAlone = place.second.empty() && kind_ != ExrFile::kTiled;
        for (const char letter : letters)
            result.emplace_back(place.first,
                                letterAlone ? std::string(1, letter) : place.second + '.' + letter);
        return result;
    }

  private:
    // Only files of several parts split names: at the first dot, when something follows it.
    ExrName split(const std::string& name, bool whole) const {
        if (kind_ != ExrFile::kMultiPart) return {"", name};
        const std::size_t dot = name.find('.');
        if (dot != std::string::npos && dot + 1 < name.size())
            return {name.substr(0, dot), name.substr(dot + 1)};
        return whole ? ExrName("other", name) : ExrName(name, "");
    }

    const int kind_;
    bool severalDepths_ = false;
};

// Hands out names until all channels have their own.
class Claims {
  public:
    explicit Claims(const Naming& naming) : naming_(naming) {}

    void claim(ExrChannel& channel, std::vector<std::string>& renamed) {
        if (take(channel)) return;
        const std::string wanted = channel.name;
        if (!naming_.mainLetters(channel).empty()) channel.alias = RCA_NONE;
        for (int& n = tries_[wanted]; !take(channel);) {
            const std::string suffix = '~' + std::to_string(++n + 1);
            channel.name = wanted.substr(0, kMaxNameLength - suffix.size()) + suffix;
        }
        renamed.push_back("the OpenEXR name of the channel \"" + wanted + "\" is taken; it goes by \"" +
                          channel.name + "\"");
    }

  private:
    bool take(const ExrChannel& channel) {
        const std::vector<ExrName> names = naming_.names(channel);
        const auto taken = [this](const ExrName& name) { return taken_.count(name) != 0; };
        if (std::any_of(names.begin(), names.end(), taken)) return false;
        taken_.insert(names.begin(), names.end());
        return true;
    }

    const Naming& naming_;
    std::set<ExrName> taken_;
    std::map<std::string, int> tries_;  // numbers used up for a name
};

}  // namespace

ExrChannel::ExrChannel(const FrameChannel& channel)
    : index(channel.index),
      type(channel.type),
      alias(channel.alias),
      name(channel.name),
      flags(channel.flags) {}

bool ExrChannel::isWritten() const {
    return findChannelKind(type) != nullptr && (flags & kChannelSkippedInExr) == 0;
}

int ExrChannel::valueSize() const {
    return MUtils::findChannelKind(type)->valueSize;
}

ExrChannels selectExrChannels(const RawInput& input, const std::vector<std::string>& globs, int kind) {
    const std::string& file = input.path;
    ExrChannels result;
    const std::vector<FrameChannel>& all = input.info->channels;
    std::vector<ExrChannel>& channels = result.channels;
    channels = std::vector<ExrChannel>(all.begin(), all.end());
    if (all.empty() || !all.front().listed) input.refuseWithout("channel list");
    const auto isWritten = [](const ExrChannel& channel) { return channel.isWritten(); };
    keepFitting(globs, file, "channel that goes into OpenEXR files", channels, isWritten);
    if (std::none_of(channels.begin(), channels.end(), isWritten))
        throw ConvertError(ConvertState::kUnsupported, file, "has no channel that goes into OpenEXR files");
    if (channels.size() > kMaxChannels) {
        throw ConvertError(ConvertState::kUnsupported, file,
                           "has " + std::to_string(channels.size()) + " channels; at most " +
                               std::to_string(kMaxChannels) + " go into one file");
    }
    const Naming naming(channels, kind);
    Claims claims(naming);
    std::vector<ExrChannel*> inOrder;
    for (ExrChannel& channel : channels) {
        if (channel.isWritten()) inOrder.push_back(&channel);
    }
    std::stable_partition(inOrder.begin(), inOrder.end(), [&naming](const ExrChannel* channel) {
        return !naming.mainLetters(*channel).empty();
    });
    for (ExrChannel* channel : inOrder)
        claims.claim(*channel, result.renamed);
    return result;
}

}  // namespace v1
}  // namespace MUtils
