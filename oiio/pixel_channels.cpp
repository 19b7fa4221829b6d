#include "oiio/pixel_channels.h"

#include <algorithm>

#include "convert/channel_naming.h"

namespace rimg_imageio {

namespace {

using MUtils::NamedChannel;
using OIIO::TypeDesc;

int turnOf(const NamedChannel& named) {
    if (!MUtils::goesIntoExr(named.channel)) return 4;
    const std::string& name = named.components.front().name;
    return name == "R" ? 0 : name == "A" ? 1 : name == "Z" ? 2 : 3;
}

// All components of a channel have one type.
TypeDesc typeOf(const NamedChannel& named, const ChannelTypes& types) {
    const TypeDesc stored(named.channel.isInteger() ? TypeDesc::UINT32 : TypeDesc::FLOAT);
    const TypeDesc other(named.channel.isInteger() ? TypeDesc::INT32 : TypeDesc::HALF);
    const auto wasOther = [&](const MUtils::ComponentName& component) {
        const auto found = types.find(component.name);
        return found != types.end() && found->second == other;
    };
    const auto& components = named.components;
    return std::all_of(components.begin(), components.end(), wasOther) ? other : stored;
}

}  // namespace

PixelChannels::PixelChannels(const MUtils::FrameInfo& info, const ChannelTypes& types) {
    std::vector<MUtils::FrameChannel> listed;
    std::copy_if(info.channels.begin(), info.channels.end(), std::back_inserter(listed),
                 [](const MUtils::FrameChannel& channel) { return channel.listed; });
    std::vector<NamedChannel> named = MUtils::nameChannels(listed);
    named.erase(std::remove_if(named.begin(), named.end(),
                               [](const NamedChannel& channel) { return channel.components.empty(); }),
                named.end());
    std::stable_sort(named.begin(), named.end(),
                     [](const NamedChannel& a, const NamedChannel& b) { return turnOf(a) < turnOf(b); });
    for (const NamedChannel& channel : named) {
        sources_.push_back(
            {channel.channel, count(), static_cast<int>(channel.components.size()), typeOf(channel, types)});
        for (const MUtils::ComponentName& component : channel.components)
            names_.push_back(component.name);
    }
}

void PixelChannels::describe(OIIO::ImageSpec& spec) const {
    spec.nchannels = count();
    spec.channelnames = names_;
    spec.format = sources_.front().type;
    spec.channelformats.clear();
    bool mixed = false;
    for (const ChannelSource& source : sources_) {
        mixed = mixed || source.type != sources_.front().type;
        // The format that can hold them all, for readers that ask for one.
        if (source.type == OIIO::TypeFloat || (mixed && spec.format != source.type))
            spec.format = OIIO::TypeFloat;
        spec.channelformats.insert(spec.channelformats.end(), static_cast<std::size_t>(source.count),
                                   source.type);
    }
    if (!mixed) spec.channelformats.clear();
    const auto indexOf = [this](const char* name) {
        const auto found = std::find(names_.begin(), names_.end(), name);
        return found != names_.end() ? static_cast<int>(found - names_.begin()) : -1;
    };
    spec.alpha_channel = indexOf("A");
    spec.z_channel = indexOf("Z");
}

}  // namespace rimg_imageio
