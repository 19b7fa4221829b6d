#pragma once

#include <array>
#include <string>
#include <vector>

#include "../rawimage/export.h"
#include "../rawimage/records.h"

// Channels of one value a pixel, as OpenEXR files and other images have them, as the channels of a raw image.
// channel_naming.h is the way back.

namespace MUtils {
inline namespace v1 {

// One channel of an image, as the header of its part lists it.
struct SourceChannel {
    int part = 0;  // index of its part; images of other formats have one
    std::string name;
    bool integer = false;  // 32-bit integers (UINT); else HALF or FLOAT
};

// A render channel and the source channels that give its components.
struct GroupedChannel {
    RegionChannelType type = RCT_NONE;
    RegionChannelAlias alias = RCA_NONE;
    std::string name;                            // at most 63 characters
    int part = 0;                                // the one part that all its components come from
    int components = 0;                          // 32-bit words of a value
    std::array<int, 4> sources{-1, -1, -1, -1};  // a source channel's index for each component
};

// A grouped channel as the writers take it. The channel must live longer.
class RAWIMAGE_EXPORT GroupedDescription final : public RegionChannelCallback {
  public:
    explicit GroupedDescription(const GroupedChannel& channel) : channel_(&channel) {}

    RegionChannelType getType() override { return channel_->type; }
    RegionChannelAlias getAlias() override { return channel_->alias; }
    const char* getName() override { return channel_->name.c_str(); }
    int getFlags() override { return 0; }

  private:
    const GroupedChannel* channel_;
};

struct Grouping {
    std::vector<GroupedChannel> channels;
    // For each channel that could not keep its name: what happened, for the user to read.
    std::vector<std::string> renamed;
};

// Groups the channels of an image into render channels, the inverse of how the OpenEXR writers name these:
//
//   R, G, B            the main colour           x.R, x.G, x.B        a colour x
//   A                  alpha, in three floats    x.R, x.G, x.B, x.A   four floats x
//   Z                  depth                     x.X, x.Y, x.Z        a vector x
//                                                x.X, x.Y             two floats x
//
// UINT channels are integers, everything else is one float under its full name, and so are the members of a
// group that is not whole. Half and float mix within a group, integers never join one.
//
// `partNames` has the name of each part. The channels of a part with a name are called "part.channel", but
// bare R, G, B (or another group of the table's right side) in it make a channel with the part's name. The
// channels of the part "other" have no prefix. The part of a file that has only one is named "" here,
// whatever its header contains. Groups do not span parts.
//
// The main colour, alpha and depth come first, then the others in the given order. No two channels of the
// result would give the same name in an OpenEXR file again: a name that is too long is cut, and one that is
// taken gets "~2", "~3" ... Throws std::bad_alloc.
RAWIMAGE_EXPORT Grouping groupChannels(const std::vector<std::string>& partNames,
                                       const std::vector<SourceChannel>& channels);

}  // namespace v1
}  // namespace MUtils
