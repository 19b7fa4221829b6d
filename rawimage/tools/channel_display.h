#pragma once

#include <string>
#include <vector>

#include "rawimage/tools/accepting_callback.h"
#include "rawimage/tools/preview.h"
#include "support/rd_preview.h"

// How the values of any channel become colours, and the two walks over a file that use it. Private to
// makePicture.

namespace MUtils {

// A channel as the file lists it.
struct ShownChannel {
    int index = -1;
    RegionChannelType type = RCT_NONE;
    RegionChannelAlias alias = RCA_NONE;
    std::string name;
};

// Turns a channel's values into three floats each. Colours stay scene-linear and are corrected after scaling;
// everything else is a display value at once.
class ChannelDisplay final : public ColCor {
  public:
    ChannelDisplay(const ShownChannel& channel, float exposure);

    // True when the values must be seen once, with addToRange(), before they can be shown.
    bool needsRange() const {
        return kind_ == Kind::kRange || kind_ == Kind::kDepth || kind_ == Kind::kVector2;
    }
    void addToRange(const MBVTable& data, int count);
    void finishRange();

    // Sets `colours` up with the colours of the first `count` values of `data`.
    void convert(const MBVTable& data, int count, MBVTable& colours) const;

    void correct(float rgb[3]) override;

  private:
    enum class Kind { kColour, kGrey, kRange, kDepth, kVector2, kVector3, kId };

    void shown(const unsigned char* value, float rgb[3]) const;

    Kind kind_;
    float gain_;
    std::vector<float> samples_;  // of the values, evenly taken
    int stride_ = 1;
    long long seen_ = 0;
    float low_ = 0.0f;
    float high_ = 1.0f;
};

// Decodes the tags of one channel only.
class OneChannelCallback : public AcceptingCallback {
  public:
    int parseTag(RIF_TAG& tag) override { return isPixelTag(tag.id) && tag.p8 == channel_.index ? 1 : 2; }

  protected:
    explicit OneChannelCallback(const ShownChannel& channel) : channel_(channel) {}
    ~OneChannelCallback() = default;

    const ShownChannel& channel_;
};

class ChannelRangeCallback final : public OneChannelCallback {
  public:
    ChannelRangeCallback(const ShownChannel& channel, ChannelDisplay& display)
        : OneChannelCallback(channel), display_(display) {}
    bool setImageData(const MBVTable& data, int count, int channel, int x, int y, int width, int height,
                      int w28, int w32) override;

  private:
    ChannelDisplay& display_;
};

class ChannelDrawCallback final : public OneChannelCallback {
  public:
    ChannelDrawCallback(const ShownChannel& channel, ChannelDisplay& display, RGB24* out, int outWidth,
                        int outHeight, bool keepAspect);
    bool setResolution(int w, int h, float aspect) override;
    bool setImageData(const MBVTable& data, int count, int channel, int x, int y, int width, int height,
                      int w28, int w32) override;

  private:
    ChannelDisplay& display_;
    MakePreviewCallback drawer_;
    MBVTable colours_{12, 0x2000000};
};

}  // namespace MUtils
