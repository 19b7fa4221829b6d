#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "rawimage/area/coverage.h"
#include "rawimage/format.h"
#include "support/pstream.h"

namespace MUtils {

// What the sound tags of a file say of its frame. Of several tags of a kind the last one counts, as for a
// reader that is handed one after the other.
struct FrameFacts {
    std::optional<RIF_TAG> resolution;
    std::optional<RIRegionInfo> region;
    std::vector<RIF_CHANNEL> channels;  // in the order of the list; none when there is no list

    // The pixels [0, width) x [0, height); none without a resolution.
    PixelBox frame() const;
    // The pixels to render: the render region when the file carries one that has any, else the frame.
    PixelBox area() const;
    // "" for a channel that is not listed.
    std::string channelName(int index) const;
};

// Throws std::bad_alloc.
FrameFacts readFrameFacts(PStream& stream, const std::vector<INFOTAG>& tags);

// The records of a channel list; none when it cannot be read.
std::vector<RIF_CHANNEL> readChannelList(PStream& stream, const INFOTAG& tag);

}  // namespace MUtils
