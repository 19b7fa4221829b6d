#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rawimage/frame/raw_frame.h"
#include "rawimage/tools/picture.h"
#include "rawimage/tools/preview.h"
#include "support/rd_preview.h"

// How the values of any channel become colours, and the visitors that collect and draw them. Private to
// makePicture.

namespace MUtils {
inline namespace v1 {

// Turns a channel's values into three floats each. Colours stay scene-linear and are corrected after scaling;
// everything else is a display value at once. ChannelView describes what is guessed and by which rule.
class ChannelDisplay final : public ColCor {
  public:
    ChannelDisplay(const FrameChannel& channel, ChannelView view, float exposure);

    int components() const { return components_; }

    // True when values must be seen once, with addValues(), before they can be shown.
    bool needsValues() const { return needsRange() || needsIdTest_; }
    void addValues(const unsigned char* values, std::int64_t count);
    // True when further values change nothing.
    bool hasSeenEnough() const { return !needsRange() && idTest_.values >= kMaxSamples; }
    void finishValues();

    // Sets `rgb` to the colours of `count` values.
    void colours(const unsigned char* values, int count, float* rgb) const;

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

    static Kind guess(const FrameChannel& channel);
    static Kind kindOf(const FrameChannel& channel, ChannelView view);
    bool needsRange() const {
        return kind_ == Kind::kRange || kind_ == Kind::kDepth || kind_ == Kind::kVector2;
    }
    float component(const unsigned char* value, int index) const;
    void addToRange(const unsigned char* values, std::int64_t count);
    void addToIdTest(const unsigned char* values, std::int64_t count);
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

// Shows a display the values of its channel; for a visit in order. Buckets with values of another size are
// not the channel's.
class ChannelValues final : public BucketVisitor {
  public:
    explicit ChannelValues(ChannelDisplay& display) : display_(display) {}
    bool visit(const FrameBucket& bucket) override;

  private:
    ChannelDisplay& display_;
};

// Draws a channel's buckets. Those that do not overlap may come at the same time: they have no pixel of the
// picture in common.
class ChannelDrawing final : public BucketVisitor {
  public:
    ChannelDrawing(ChannelDisplay& display, const PixelBox& frame, bool keepAspect, Picture& picture);
    bool visit(const FrameBucket& bucket) override;

  private:
    ChannelDisplay& display_;
    MakePreviewCallback canvas_;  // places the frame in the picture
    Picture& picture_;
};

}  // namespace v1
}  // namespace MUtils
