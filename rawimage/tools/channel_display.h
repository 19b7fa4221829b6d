#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rawimage/read/accepting_callback.h"
#include "rawimage/tools/picture.h"
#include "rawimage/tools/preview.h"
#include "support/rd_preview.h"

// How the values of any channel become colours, and the callbacks that collect and draw them. Private to
// makePicture.

namespace MUtils {
inline namespace v1 {

// A channel as the file lists it.
struct ShownChannel {
    int index = -1;
    RegionChannelType type = RCT_NONE;
    RegionChannelAlias alias = RCA_NONE;
    std::string name;
};

// Turns a channel's values into three floats each. Colours stay scene-linear and are corrected after scaling;
// everything else is a display value at once. ChannelView describes what is guessed and by which rule.
class ChannelDisplay final : public ColCor {
  public:
    ChannelDisplay(const ShownChannel& channel, ChannelView view, float exposure);

    // True when values must be seen once, with addValues(), before they can be shown.
    bool needsValues() const { return needsRange() || needsIdTest_; }
    void addValues(const MBVTable& data, int count);
    // True when further values change nothing.
    bool hasSeenEnough() const { return !needsRange() && idTest_.values >= kMaxSamples; }
    void finishValues();

    // Sets `rgb` to the colours of the values first .. first + count - 1 of `data`.
    void colours(const MBVTable& data, std::int64_t first, int count, float* rgb) const;

    void correct(float rgb[3]) override;

  private:
    enum class Kind { kColour, kGrey, kRange, kDepth, kVector2, kVector, kId };

    // What is known of the values as pairs of id and coverage.
    struct IdTest {
        std::int64_t values = 0;   // whose first component is not 0
        std::int64_t wild = 0;     // of those: it has the size of no number that a renderer computes,
        std::int64_t large = 0;    // or of too large a one
        std::int64_t outside = 0;  // of those: a coverage that is not between 0 and 1
    };
    static constexpr std::int64_t kMaxSamples = 1 << 16;

    static Kind guess(const ShownChannel& channel);
    static Kind kindOf(const ShownChannel& channel, ChannelView view);
    bool needsRange() const {
        return kind_ == Kind::kRange || kind_ == Kind::kDepth || kind_ == Kind::kVector2;
    }
    float component(const unsigned char* value, int index) const;
    void addToRange(const MBVTable& data, int count);
    void addToIdTest(const MBVTable& data, int count);
    void finishRange();
    void shown(const unsigned char* value, float rgb[3]) const;
    void shownId(const unsigned char* value, float rgb[3]) const;

    int components_ = 1;
    bool integer_ = false;
    Kind kind_;
    bool namedCrypto_;
    bool needsIdTest_ = false;
    bool pairs_ = false;  // of id and coverage
    float gain_;
    IdTest idTest_;
    std::vector<float> samples_;  // of the values, evenly taken
    int stride_ = 1;
    long long seen_ = 0;
    float low_ = 0.0f;
    float high_ = 1.0f;
};

// Decodes the tags of one channel only. A tag whose id implies another value size than the channel list's
// type is not the channel's, and is skipped.
class OneChannelCallback : public AcceptingCallback {
  public:
    int parseTag(RIF_TAG& tag) override;

  protected:
    explicit OneChannelCallback(const ShownChannel& channel) : channel_(channel) {}
    ~OneChannelCallback() = default;

    const ShownChannel& channel_;
};

class ChannelValuesCallback final : public OneChannelCallback {
  public:
    ChannelValuesCallback(const ShownChannel& channel, ChannelDisplay& display)
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
    MakePreviewCallback canvas_;  // places the frame in the picture
    RGB24* out_;
    int outWidth_;
    int outHeight_;
};

}  // namespace v1
}  // namespace MUtils
