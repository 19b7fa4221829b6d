#include "rawimage/tools/preview.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

#include "rawimage/writer.h"

namespace {

// a * b / c without overflow, as far as an int can hold it.
int scaled(int a, int b, int c) {
    return static_cast<int>(std::clamp<std::int64_t>(std::int64_t{a} * b / c, INT_MIN, INT_MAX));
}

int plus(int a, int b) {
    return static_cast<int>(std::clamp<std::int64_t>(std::int64_t{a} + b, INT_MIN, INT_MAX));
}

// Bytes go to the corrector and back by 1/256 and 256, deliberately not by 255.
RGB24 corrected(RGB24 pixel, ColCor* corrector) {
    if (corrector == nullptr) return pixel;
    constexpr float kStep = 1.0f / 256.0f;
    float rgb[3] = {static_cast<float>(pixel.r) * kStep, static_cast<float>(pixel.g) * kStep,
                    static_cast<float>(pixel.b) * kStep};
    corrector->correct(rgb);
    return {MUtils::byteFromDisplay(rgb[0]), MUtils::byteFromDisplay(rgb[1]),
            MUtils::byteFromDisplay(rgb[2])};
}

}  // namespace

ReadPreviewCallback::ReadPreviewCallback(RGB24* out, int W, int H, ColCor* corrector)
    : out_(out), outWidth_(W), outHeight_(H), corrector_(corrector) {}

int ReadPreviewCallback::parseTag(RIF_TAG& tag) {
    const bool wanted = tag.id == TAG_RESOLUTION || tag.id == TAG_PREVIEW || tag.id == TAG_SCENE_INFO ||
                        tag.id == TAG_SETTINGS;
    return wanted ? 1 : 2;
}

bool ReadPreviewCallback::setResolution(int w, int h, float /*aspect*/) {
    width_ = w;
    height_ = h;
    return true;
}

bool ReadPreviewCallback::setPreview(MBVTable& pixels, int /*count*/, int width, int height) {
    foundPreview_ = true;
    const int rows = std::min(height, outHeight_);
    const int columns = std::min(width, outWidth_);
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < columns; ++x) {
            RGB24 pixel;
            std::memcpy(&pixel, pixels.item(y * width + x), sizeof pixel);
            out_[std::int64_t{y} * outWidth_ + x] = corrected(pixel, corrector_);
        }
    }
    return true;
}

bool ReadPreviewCallback::setSceneInfo(RISceneInfo info) {
    scene_ = info;
    return true;
}

bool ReadPreviewCallback::setMirtSettings(PBufStream* /*data*/) {
    foundSettings_ = true;
    return true;
}

MakePreviewCallback::MakePreviewCallback(RGB24* out, int W, int H, bool keepAspect, ColCor* corrector)
    : out_(out), outWidth_(W), outHeight_(H), keepAspect_(keepAspect), corrector_(corrector) {}

int MakePreviewCallback::parseTag(RIF_TAG& tag) {
    return stop_ && MUtils::isPixelTag(tag.id) ? -1 : 1;
}

bool MakePreviewCallback::setResolution(int w, int h, float /*aspect*/) {
    imageWidth_ = canvasWidth_ = w;
    imageHeight_ = canvasHeight_ = h;
    horizontalOffset_ = verticalOffset_ = 0;
    if (!keepAspect_ || outWidth_ <= 0 || outHeight_ <= 0) return true;
    const int fittedHeight = scaled(w, outHeight_, outWidth_);
    if (h < fittedHeight) {
        canvasHeight_ = fittedHeight;
        verticalOffset_ = static_cast<int>((std::int64_t{fittedHeight} - h) / 2);
        return true;
    }
    const int fittedWidth = scaled(h, outWidth_, outHeight_);
    if (w < fittedWidth) {
        canvasWidth_ = fittedWidth;
        horizontalOffset_ = static_cast<int>((std::int64_t{fittedWidth} - w) / 2);
    }
    return true;
}

bool MakePreviewCallback::setChannel(int index, RegionChannelType /*type*/, RegionChannelAlias alias,
                                     const char* /*name*/) {
    if (alias == RCA_IMAGE || alias == RCA_COLOR) {
        channelKept_ = true;
        channel_ = index;
        alias_ = alias;
    }
    return true;
}

bool MakePreviewCallback::setImageData(const MBVTable& data, int /*count*/, int channel, int x, int y,
                                       int width, int height, int /*w28*/, int /*w32*/) {
    if (!channelKept_ || channel != channel_) return true;
    // Mode 1, value type 2, white and filter 2 always, whatever the channel and the caller's background are.
    MUtils::CreateRDPreview(1, 0, RCT_COLOR, alias_, data, nullptr, canvasWidth_, canvasHeight_,
                            plus(x, horizontalOffset_), plus(y, verticalOffset_), width, height, out_,
                            outWidth_, outHeight_, {255, 255, 255}, 2, corrector_, corrector_ != nullptr, 0);
    return true;
}

bool MakePreviewCallback::setSceneInfo(RISceneInfo info) {
    scene_ = info;
    return true;
}

RGB24* MakePreviewCallback::getPreviewBuffer() {
    return out_;
}

bool makeRawImagePreview(const char* fileName, int W, int H, RGB24* out, RawImageInfo* info, bool keepAspect,
                         RGB24 background, ColCor* corrector) {
    RIFile file;
    if (!file.Open(fileName, nullptr).empty()) return false;

    ReadPreviewCallback stored(out, W, H, corrector);
    const bool storedParsed = file.ParseFile(stored) == 0;
    info->hasSettings = stored.foundSettings() ? 1 : 0;
    if (stored.foundPreview()) {
        info->width = stored.width();
        info->height = stored.height();
        info->scene = stored.scene().value;
        info->setName(stored.scene().name);
        return storedParsed;
    }

    if (W > 0 && H > 0) std::fill_n(out, std::int64_t{W} * H, background);
    MakePreviewCallback made(out, W, H, keepAspect, corrector);
    const bool parsed = file.ParseFile(made) == 0;
    (void)file.Close();
    info->width = parsed ? made.imageWidth() : 0;
    info->height = parsed ? made.imageHeight() : 0;
    if (parsed) {
        info->scene = made.scene().value;
        info->setName(made.scene().name);
    }
    return parsed;
}
