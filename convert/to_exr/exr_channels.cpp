#include "convert/to_exr/exr_channels.h"

#include <algorithm>

#include "convert/channel_globs.h"
#include "convert/channel_naming.h"

namespace MUtils {
inline namespace v1 {

namespace {

// The library looks for a part's name among all parts.
constexpr std::size_t kMaxChannels = 10000;

}  // namespace

ExrChannel::ExrChannel(const FrameChannel& channel)
    : index(channel.index),
      type(channel.type),
      alias(channel.alias),
      name(channel.name),
      flags(channel.flags),
      written_(goesIntoExr(channel)) {}

int ExrChannel::valueSize() const {
    return MUtils::findChannelKind(type)->valueSize;
}

ExrChannels selectExrChannels(const RawInput& input, const std::vector<std::string>& globs, int kind) {
    const std::string& file = input.path;
    std::vector<FrameChannel> kept = input.info->channels;
    if (kept.empty() || !kept.front().listed) input.refuseWithout("channel list");
    keepFitting(globs, file, "channel that goes into OpenEXR files", kept, goesIntoExr);
    if (std::none_of(kept.begin(), kept.end(), goesIntoExr))
        throw ConvertError(ConvertState::kUnsupported, file, "has no channel that goes into OpenEXR files");
    if (kept.size() > kMaxChannels) {
        throw ConvertError(ConvertState::kUnsupported, file,
                           "has " + std::to_string(kept.size()) + " channels; at most " +
                               std::to_string(kMaxChannels) + " go into one file");
    }
    ExrChannels result;
    for (const NamedChannel& named : nameChannels(kept, kind)) {
        result.channels.emplace_back(named.channel);
        if (!named.renamed.empty() && goesIntoExr(named.channel)) result.renamed.push_back(named.renamed);
    }
    return result;
}

}  // namespace v1
}  // namespace MUtils
