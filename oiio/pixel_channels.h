#pragma once

#include <OpenImageIO/imageio.h>

#include <map>
#include <string>
#include <vector>

#include "rawimage/frame/raw_frame.h"

namespace rimg_imageio {

// Types that channels of an image had when it was written, by name: half or int, which the file keeps as
// float and uint.
using ChannelTypes = std::map<std::string, OIIO::TypeDesc>;

// A channel of the file and the channels of the image that its components are.
struct ChannelSource {
    MUtils::FrameChannel channel;
    int first = 0;  // of the image's channels
    int count = 0;  // may be less than channel.components(): alpha is one of three
    OIIO::TypeDesc type;
};

// The channels of an image: main colour, alpha and depth, then the others in the file's order, those last
// that their renderer keeps out of OpenEXR files. The components of a channel are next to each other.
class PixelChannels {
  public:
    PixelChannels() = default;
    PixelChannels(const MUtils::FrameInfo& info, const ChannelTypes& types);

    const std::vector<ChannelSource>& sources() const { return sources_; }
    int count() const { return static_cast<int>(names_.size()); }
    // Puts number, names, formats and roles of the channels into `spec`.
    void describe(OIIO::ImageSpec& spec) const;

  private:
    std::vector<ChannelSource> sources_;
    std::vector<std::string> names_;
};

}  // namespace rimg_imageio
