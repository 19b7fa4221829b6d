#pragma once

#include "../export.h"
#include "callback.h"

namespace MUtils {
inline namespace v1 {

// A callback that accepts everything and keeps nothing: the base of those that want a tag or two.
class RAWIMAGE_EXPORT AcceptingCallback : public RIFileCallback {
  public:
    bool setResolution(int width, int height, float aspect) override;
    bool setNumChannels(int count) override;
    bool setChannel(int index, RegionChannelType type, RegionChannelAlias alias, const char* name) override;
    bool setImageData(const MBVTable& data, int count, int channel, int x, int y, int width, int height,
                      int w28, int w32) override;

  protected:
    ~AcceptingCallback() = default;
};

}  // namespace v1
}  // namespace MUtils
