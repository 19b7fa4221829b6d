#pragma once

#include <string>
#include <vector>

#include "../exr/exr_file.h"
#include "../rawimage/export.h"
#include "../rawimage/frame/raw_frame.h"

// The channels of a raw image as channels of one value a pixel, as OpenEXR files and other images have them.
// channel_grouping.h is the way back.

namespace MUtils {
inline namespace v1 {

// The name of a channel's component in an image.
struct ComponentName {
    std::string part;  // "" in files of kinds that have one part only
    std::string name;

    friend bool operator<(const ComponentName& a, const ComponentName& b) {
        return a.part != b.part ? a.part < b.part : a.name < b.name;
    }
};

struct NamedChannel {
    // Its name and alias are those under which the OpenEXR writers give the components these names.
    FrameChannel channel;
    // Of the components that are written: alpha has one for three values. Empty for a channel without values.
    std::vector<ComponentName> components;
    // Of a channel that could not keep its place: what happened, for the user to read. Else "".
    std::string renamed;
};

// Names the components of these channels as they are in an OpenEXR file of kind `kind` (ExrFile::Kind). No
// two components get the same name: colours, alpha and depth by role go first, and of other channels the
// first one keeps its name, the next gets "~2", "~3" ... A second channel of the same role goes under its own
// name. Channels that are kept out of OpenEXR files (kChannelSkippedInExr) take names last. The result has
// the channels in the given order. Throws std::bad_alloc.
RAWIMAGE_EXPORT std::vector<NamedChannel> nameChannels(const std::vector<FrameChannel>& channels,
                                                       int kind = ExrFile::kScanline);

// False for a channel without values and for one that its renderer keeps out of OpenEXR files.
RAWIMAGE_EXPORT bool goesIntoExr(const FrameChannel& channel);

}  // namespace v1
}  // namespace MUtils
