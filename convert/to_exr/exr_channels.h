#pragma once

#include <string>
#include <vector>

#include "convert/to_exr/raw_input.h"
#include "rawimage/format.h"

namespace MUtils {
inline namespace v1 {

// A channel of a raw image, as the OpenEXR writers take it.
class ExrChannel final : public RegionChannelCallback {
  public:
    explicit ExrChannel(const FrameChannel& channel);

    RegionChannelType getType() override { return type; }
    RegionChannelAlias getAlias() override { return alias; }
    const char* getName() override { return name.c_str(); }
    int getFlags() override { return flags; }

    // False for a channel without values and for one that its renderer keeps out of OpenEXR files.
    bool isWritten() const { return written_; }
    int valueSize() const;  // of a written channel, in bytes

    int index;  // in the raw image
    RegionChannelType type;
    RegionChannelAlias alias;
    std::string name;
    int flags;

  private:
    bool written_;
};

struct ExrChannels {
    std::vector<ExrChannel> channels;
    // For each channel that could not keep its place: what happened, for the user to read.
    std::vector<std::string> renamed;
};

// The channels of the file's list for which one of `globs` fits the name, all of them when there are no
// globs, under the names and aliases that nameChannels() gives them in a file of kind `kind` (ExrFile::Kind).
//
// Throws ConvertError: kBadOption when a glob fits no channel that is written, kUnsupported when nothing
// would be written or there are too many channels, and for a file without a channel list.
ExrChannels selectExrChannels(const RawInput& input, const std::vector<std::string>& globs, int kind);

}  // namespace v1
}  // namespace MUtils
