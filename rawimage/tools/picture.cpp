#include "rawimage/tools/picture.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <tuple>
#include <utility>

#include "rawimage/frame/raw_frame.h"
#include "rawimage/tools/channel_display.h"

namespace MUtils {
inline namespace v1 {

namespace {

bool soundSize(int width, int height) {
    return width > 0 && height > 0 && width <= kMaxPictureSize && height <= kMaxPictureSize;
}

bool soundRequest(const PictureRequest& request) {
    if (request.fit < 0 || request.fit > kMaxPictureSize) return false;
    return (request.width == 0 && request.height == 0) || soundSize(request.width, request.height);
}

// The width and height of the frame, scaled down to at most `most` pixels in either direction.
std::pair<int, int> sizeWithin(const PixelBox& frame, int most) {
    const auto larger = static_cast<double>(std::max(frame.width(), frame.height()));
    const double scale = std::min(1.0, most / larger);
    const auto scaled = [scale](std::int64_t size) {
        return std::max(1, static_cast<int>(std::lround(static_cast<double>(size) * scale)));
    };
    return {scaled(frame.width()), scaled(frame.height())};
}

// True when a thumbnail of that size is what a rendering would be. Renderers round sizes in their own ways.
bool fits(const PictureRequest& request, const PixelBox& frame, int w, int h) {
    const bool asked =
        !request.channel.empty() || request.view != ChannelView::kGuess || request.exposure != 0.0f;
    if (!request.useStored || asked || !soundSize(w, h)) return false;
    if (request.width == 0) {
        if (request.fit == 0) return true;
        if (std::max(w, h) > request.fit) return false;
        const auto [width, height] = frame.empty() ? std::pair(w, h) : sizeWithin(frame, request.fit);
        return std::abs(w - width) <= 1 && std::abs(h - height) <= 1;
    }
    const bool same = w == request.width && h == request.height;
    return same || (request.keepAspect && w <= request.width && h <= request.height &&
                    (w == request.width || h == request.height));
}

// Reads the progress of a caller, which may be empty, and remembers that it has asked for a stop.
class StopWatch {
  public:
    explicit StopWatch(const PictureRequest& request) : request_(request) {}

    bool stopped() const { return stopped_; }
    std::function<bool(std::int64_t, std::int64_t)> callback(bool withNumbers) {
        if (!request_.progress) return {};
        return [this, withNumbers](std::int64_t done, std::int64_t total) {
            stopped_ = stopped_ || !request_.progress(withNumbers ? done : 0, withNumbers ? total : 0);
            return !stopped_;
        };
    }

  private:
    const PictureRequest& request_;
    bool stopped_ = false;
};

RawFrame openFrame(const char* fileName, const PictureRequest& request, StopWatch& watch) {
    RawFrameOptions options;
    options.inspect = InspectDepth::kRecords;
    options.threads = request.threads;
    options.progress = watch.callback(false);
    return RawFrame(fileName, options);
}

// Makes one picture of a file.
class PictureMaker {
  public:
    PictureMaker(const char* fileName, const PictureRequest& request, Picture& picture)
        : request_(request),
          picture_(picture),
          watch_(request),
          file_(openFrame(fileName, request, watch_)),
          info_(file_.info()) {}

    PictureState make();

  private:
    const FrameChannel* findChannel() const;
    void readThumbnail();
    void chooseSize();
    void placeThumbnail();
    void drawChannel(const FrameChannel& channel);
    void addDamaged(FrameRead read, const FrameChannel& channel);

    const PictureRequest& request_;
    Picture& picture_;
    StopWatch watch_;
    const RawFrame file_;
    const std::shared_ptr<const FrameInfo> info_;
    std::optional<FrameThumbnail> thumbnail_;
};

PictureState PictureMaker::make() {
    if (watch_.stopped()) return PictureState::kStopped;
    picture_.fileState = file_.state();
    picture_.cause = file_.cause();
    picture_.causeOffset = file_.causeOffset();
    if (picture_.fileState == FileState::kCannotOpen) return PictureState::kCannotOpen;
    if (picture_.fileState == FileState::kNotThisFormat) return PictureState::kNotThisFormat;
    picture_.fileHasPixels = info_->hasPixels;
    for (const FrameChannel& channel : info_->channels) {
        if (channel.listed) picture_.channels.push_back(channel.name);
    }
    readThumbnail();
    if (!thumbnail_ && info_->frame.empty()) return PictureState::kNoFrame;
    chooseSize();
    if (!soundSize(picture_.width, picture_.height)) return PictureState::kNoFrame;
    const FrameChannel* channel = findChannel();
    if (!thumbnail_ && channel == nullptr) return PictureState::kNoChannel;
    picture_.pixels.assign(
        static_cast<std::size_t>(picture_.width) * static_cast<std::size_t>(picture_.height),
        request_.background);
    thumbnail_ ? placeThumbnail() : drawChannel(*channel);
    if (!watch_.stopped()) return PictureState::kGood;
    picture_.pixels.clear();
    return PictureState::kStopped;
}

const FrameChannel* PictureMaker::findChannel() const {
    const FrameChannel* found = nullptr;
    for (const FrameChannel& channel : info_->channels) {
        if (!channel.listed) break;
        const bool colour = channel.alias == RCA_IMAGE || channel.alias == RCA_COLOR;
        const bool first = request_.channel.empty() && found == nullptr;
        if (first || (request_.channel.empty() ? colour : channel.name == request_.channel)) found = &channel;
    }
    return found;
}

// Of several thumbnails the last one counts, also when it is not wanted.
void PictureMaker::readThumbnail() {
    const std::vector<INFOTAG> records = file_.recordTags();
    const auto tag = std::find_if(records.rbegin(), records.rend(),
                                  [](const INFOTAG& of) { return of.id == TAG_PREVIEW; });
    if (tag == records.rend() || !fits(request_, info_->frame, tag->p1, tag->p2)) return;
    thumbnail_ = file_.thumbnail();
    if (thumbnail_) return;
    TagGap gap;
    gap.offset = static_cast<std::int64_t>(tag->offset);
    gap.end = gap.offset + tag->size;
    gap.cause = "the thumbnail cannot be read";
    gap.tag = *tag;
    picture_.damaged.push_back(faultOf(gap, {}));
}

void PictureMaker::chooseSize() {
    picture_.width = request_.width;
    picture_.height = request_.height;
    if (request_.width != 0 || request_.height != 0) return;
    if (thumbnail_) {
        picture_.width = thumbnail_->width;
        picture_.height = thumbnail_->height;
        return;
    }
    const int most = request_.fit > 0 ? request_.fit : kDefaultPictureSize;
    std::tie(picture_.width, picture_.height) = sizeWithin(info_->frame, most);
}

// Copies the thumbnail to the middle of the picture.
void PictureMaker::placeThumbnail() {
    const int w = thumbnail_->width;
    const int left = (picture_.width - w) / 2;
    const int top = (picture_.height - thumbnail_->height) / 2;
    for (int y = 0; y < thumbnail_->height; ++y) {
        const auto row = thumbnail_->pixels.begin() + std::int64_t{y} * w;
        std::copy(row, row + w, picture_.pixels.begin() + std::int64_t{top + y} * picture_.width + left);
    }
    picture_.stored = true;
}

// Goes over the channel's buckets twice where the display must know the values before it can show them.
void PictureMaker::drawChannel(const FrameChannel& channel) {
    ChannelDisplay display(channel, request_.view, request_.exposure);
    FrameReadOptions options;
    options.threads = request_.threads;
    options.takeDoubted = true;
    if (display.needsValues()) {
        ChannelValues values(display);
        options.inOrder = true;
        options.progress = watch_.callback(false);
        (void)file_.visit(kEverywhere, {channel.index}, values, options);
        display.finishValues();
    }
    ChannelDrawing drawing(display, info_->frame, request_.keepAspect, picture_);
    options.inOrder = false;
    options.progress = watch_.callback(true);
    if (!watch_.stopped()) addDamaged(file_.visit(kEverywhere, {channel.index}, drawing, options), channel);
    picture_.channel = channel.name;
}

void PictureMaker::addDamaged(FrameRead read, const FrameChannel& channel) {
    std::vector<FileFault>& damaged = picture_.damaged;
    FileFaults faults = file_.faults();
    for (FileFault& lost : faults.lost) {
        if (isPixelTag(lost.tagId) && lost.channel == channel.index) damaged.push_back(std::move(lost));
    }
    for (FileFault& unread : read.damaged) {
        if (findPixelKind(unread.tagId)->valueSize == channel.valueBytes())
            damaged.push_back(std::move(unread));
    }
    std::stable_sort(damaged.begin(), damaged.end(),
                     [](const FileFault& a, const FileFault& b) { return a.offset < b.offset; });
    const std::vector<std::int64_t> inDoubt = file_.doubted();
    for (FileFault& doubt : faults.doubts) {
        const bool isTag = std::binary_search(inDoubt.begin(), inDoubt.end(), doubt.offset);
        if (isTag && doubt.channel == channel.index) picture_.doubts.push_back(std::move(doubt));
    }
}

}  // namespace

Picture makePicture(const char* fileName, const PictureRequest& request) {
    Picture picture;
    picture.state =
        soundRequest(request) ? PictureMaker(fileName, request, picture).make() : PictureState::kBadRequest;
    return picture;
}

}  // namespace v1
}  // namespace MUtils
