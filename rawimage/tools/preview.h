#pragma once

#include "../../support/rd_preview.h"
#include "../export.h"
#include "../read/accepting_callback.h"
#include "info.h"

// Fills the W x H pixels of `out` with a preview of the file: the stored thumbnail when there is one, else a
// rendering of the colour channel. The thumbnail is copied to the top left corner, cropped and never scaled;
// what it does not cover is left as it was. A rendering is scaled to W x H, with `keepAspect` centred on the
// background.
//
// Without a corrector values are taken as scene-linear; with one, its results are shown. `info` is required
// and is written once the file is open. Returns true when a preview was made, false when the file cannot be
// opened (nothing is touched) or parsed: the opposite sense of the note tools. Draws nothing when W or H is
// not positive.
RAWIMAGE_EXPORT bool makeRawImagePreview(const char* fileName, int W, int H, RGB24* out, RawImageInfo* info,
                                         bool keepAspect, RGB24 background, ColCor* corrector);

// The first pass: takes the stored thumbnail, and what `info` wants. Reads no pixel payload.
class RAWIMAGE_EXPORT ReadPreviewCallback final : public MUtils::AcceptingCallback {
  public:
    ReadPreviewCallback(RGB24* out, int W, int H, ColCor* corrector);

    int parseTag(RIF_TAG& tag) override;
    bool setResolution(int w, int h, float aspect) override;
    bool setPreview(MBVTable& pixels, int count, int width, int height) override;
    bool setSceneInfo(RISceneInfo info) override;
    bool setMirtSettings(PBufStream* data) override;

    int width() const { return width_; }
    int height() const { return height_; }
    const RISceneInfo& scene() const { return scene_; }
    bool foundPreview() const { return foundPreview_; }
    bool foundSettings() const { return foundSettings_; }

  private:
    RGB24* out_;
    int outWidth_;
    int outHeight_;
    int width_ = 0;
    int height_ = 0;
    ColCor* corrector_;
    RISceneInfo scene_;
    bool foundPreview_ = false;
    bool foundSettings_ = false;
};

// The second pass: draws the colour channel, the last one of alias 1 or 126, bucket by bucket.
class RAWIMAGE_EXPORT MakePreviewCallback final : public MUtils::AcceptingCallback {
  public:
    MakePreviewCallback(RGB24* out, int W, int H, bool keepAspect, ColCor* corrector);

    int parseTag(RIF_TAG& tag) override;
    bool setResolution(int w, int h, float aspect) override;
    bool setChannel(int index, RegionChannelType type, RegionChannelAlias alias, const char* name) override;
    bool setImageData(const MBVTable& data, int count, int channel, int x, int y, int width, int height,
                      int w28, int w32) override;
    bool setSceneInfo(RISceneInfo info) override;
    RGB24* getPreviewBuffer() override;

    int imageWidth() const { return imageWidth_; }
    int imageHeight() const { return imageHeight_; }
    // The image with the border that gives it the aspect of the output, and where the image lies in it.
    int canvasWidth() const { return canvasWidth_; }
    int canvasHeight() const { return canvasHeight_; }
    int horizontalOffset() const { return horizontalOffset_; }
    int verticalOffset() const { return verticalOffset_; }
    const RISceneInfo& scene() const { return scene_; }
    // Set by a caller that has seen enough. Pixel tags are then answered with -1, which readers decode like
    // any other.
    void stop() { stop_ = true; }

  private:
    int canvasWidth_ = 0;
    int canvasHeight_ = 0;
    int imageWidth_ = 0;
    int imageHeight_ = 0;
    RGB24* out_;
    int outWidth_;
    int outHeight_;
    bool keepAspect_;
    int horizontalOffset_ = 0;
    int verticalOffset_ = 0;
    RISceneInfo scene_;
    bool stop_ = false;
    bool channelKept_ = false;
    int channel_ = -1;
    RegionChannelAlias alias_ = RCA_NONE;
    ColCor* corrector_;
};
