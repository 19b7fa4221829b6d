#include "rawimage/tools/picture.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <system_error>
#include <utility>

#include "rawimage/read/tag_reader.h"
#include "rawimage/tools/channel_display.h"

namespace MUtils {
inline namespace v1 {

namespace {

bool soundSize(int width, int height) {
    return width > 0 && height > 0 && width <= kMaxPictureSize && height <= kMaxPictureSize;
}

class ThumbnailCallback final : public AcceptingCallback {
  public:
    bool setPreview(MBVTable& values, int count, int w, int h) override {
        pixels.resize(static_cast<std::size_t>(count));
        values.storeToBuffer(pixels.data(), 0, count);
        width = w;
        height = h;
        return true;
    }

    std::vector<RGB24> pixels;
    int width = 0;
    int height = 0;
};

// True when a thumbnail of that size is what a rendering would be.
bool fits(const PictureRequest& request, int w, int h) {
    const bool asked =
        !request.channel.empty() || request.view != ChannelView::kGuess || request.exposure != 0.0f;
    if (!request.useStored || asked || !soundSize(w, h)) return false;
    if (request.width == 0) return true;
    const bool same = w == request.width && h == request.height;
    return same || (request.keepAspect && w <= request.width && h <= request.height &&
                    (w == request.width || h == request.height));
}

const ShownChannel* findChannel(const std::vector<ShownChannel>& channels, const std::string& name) {
    const ShownChannel* found = channels.empty() || !name.empty() ? nullptr : &channels.front();
    for (const ShownChannel& channel : channels) {
        const bool colour = channel.alias == RCA_IMAGE || channel.alias == RCA_COLOR;
        if (name.empty() ? colour : channel.name == name) found = &channel;
    }
    return found;
}

// Makes one picture of an open file.
class PictureMaker {
  public:
    PictureMaker(PStream& stream, const PictureRequest& request, Picture& picture)
        : request_(request), picture_(picture), file_(inspect(stream)), reader_(stream, file_.compressed) {}

    PictureState make();

  private:
    static Inspection inspect(PStream& stream);
    void listChannels();
    void readThumbnail();
    void chooseSize();
    void placeThumbnail();
    void drawChannel(const ShownChannel& channel);
    void listFaults(int channel);
    bool isInDoubt(std::int64_t offset) const;
    void addDamaged(const INFOTAG& tag, const char* cause);

    const PictureRequest& request_;
    Picture& picture_;
    const Inspection file_;
    TagReader reader_;
    std::vector<ShownChannel> channels_;
    ThumbnailCallback thumbnail_;
};

Inspection PictureMaker::inspect(PStream& stream) {
    InspectOptions options;
    options.depth = InspectDepth::kRecords;
    options.threads = 1;
    return inspectStream(stream, options);
}

PictureState PictureMaker::make() {
    picture_.fileState = file_.state;
    picture_.cause = file_.cause;
    picture_.causeOffset = file_.causeOffset;
    if (file_.state == FileState::kCannotOpen) return PictureState::kCannotOpen;
    if (file_.state == FileState::kNotThisFormat) return PictureState::kNotThisFormat;
    picture_.fileHasPixels = std::any_of(file_.tags.begin(), file_.tags.end(),
                                         [](const INFOTAG& tag) { return isPixelTag(tag.id); });
    listChannels();
    readThumbnail();
    const bool stored = thumbnail_.width > 0;
    if (!stored && file_.facts.frame().empty()) return PictureState::kNoFrame;
    chooseSize();
    if (!soundSize(picture_.width, picture_.height)) return PictureState::kNoFrame;
    const ShownChannel* channel = findChannel(channels_, request_.channel);
    if (!stored && channel == nullptr) return PictureState::kNoChannel;
    picture_.pixels.assign(
        static_cast<std::size_t>(picture_.width) * static_cast<std::size_t>(picture_.height),
        request_.background);
    stored ? placeThumbnail() : drawChannel(*channel);
    return PictureState::kGood;
}

void PictureMaker::listChannels() {
    for (const RIF_CHANNEL& listed : file_.facts.channels) {
        channels_.push_back({listed.index, static_cast<RegionChannelType>(listed.type),
                             static_cast<RegionChannelAlias>(listed.alias), listed.name});
        picture_.channels.push_back(listed.name);
    }
}

// Of several thumbnails the last one counts, also when it is not wanted.
void PictureMaker::readThumbnail() {
    const auto tag = std::find_if(file_.tags.rbegin(), file_.tags.rend(),
                                  [](const INFOTAG& of) { return of.id == TAG_PREVIEW; });
    if (tag == file_.tags.rend() || !fits(request_, tag->p1, tag->p2)) return;
    if (reader_.read(*tag, thumbnail_) == 0) return;
    thumbnail_ = {};
    addDamaged(*tag, "the thumbnail cannot be read");
}

void PictureMaker::chooseSize() {
    picture_.width = request_.width;
    picture_.height = request_.height;
    if (request_.width != 0 || request_.height != 0) return;
    if (thumbnail_.width > 0) {
        picture_.width = thumbnail_.width;
        picture_.height = thumbnail_.height;
        return;
    }
    const PixelBox frame = file_.facts.frame();
    const auto larger = static_cast<double>(std::max(frame.width(), frame.height()));
    const double scale = std::min(1.0, kDefaultPictureSize / larger);
    const auto scaled = [scale](std::int64_t size) {
        return std::max(1, static_cast<int>(std::lround(static_cast<double>(size) * scale)));
    };
    picture_.width = scaled(frame.width());
    picture_.height = scaled(frame.height());
}

// Copies the thumbnail to the middle of the picture.
void PictureMaker::placeThumbnail() {
    const int w = thumbnail_.width;
    const int left = (picture_.width - w) / 2;
    const int top = (picture_.height - thumbnail_.height) / 2;
    for (int y = 0; y < thumbnail_.height; ++y) {
        const auto row = thumbnail_.pixels.begin() + std::int64_t{y} * w;
        std::copy(row, row + w, picture_.pixels.begin() + std::int64_t{top + y} * picture_.width + left);
    }
    picture_.stored = true;
}

// Goes over the channel's tags twice where the display must know the values before it can show them.
void PictureMaker::drawChannel(const ShownChannel& channel) {
    ChannelDisplay display(channel, request_.view, request_.exposure);
    if (display.needsValues()) {
        ChannelValuesCallback values(channel, display);
        for (const INFOTAG& tag : file_.tags) {
            if (display.hasSeenEnough()) break;
            if (isPixelTag(tag.id)) (void)reader_.read(tag, values);
        }
        display.finishValues();
    }
    ChannelDrawCallback draw(channel, display, picture_.pixels.data(), picture_.width, picture_.height,
                             request_.keepAspect);
    const PixelBox frame = file_.facts.frame();
    draw.setResolution(static_cast<int>(frame.width()), static_cast<int>(frame.height()), 1.0f);
    std::vector<INFOTAG> tags;
    std::copy_if(file_.tags.begin(), file_.tags.end(), std::back_inserter(tags),
                 [](const INFOTAG& tag) { return isPixelTag(tag.id); });
    std::stable_partition(tags.begin(), tags.end(), [this](const INFOTAG& tag) {
        return isInDoubt(static_cast<std::int64_t>(tag.offset));
    });
    listFaults(channel.index);
    for (const INFOTAG& tag : tags) {
        if (const int code = reader_.read(tag, draw); code != 0) addDamaged(tag, pixelCodeText(code));
    }
    std::stable_sort(picture_.damaged.begin(), picture_.damaged.end(),
                     [](const FileFault& a, const FileFault& b) { return a.offset < b.offset; });
    picture_.channel = channel.name;
}

void PictureMaker::listFaults(int channel) {
    FileFaults faults = faultsOf(file_);
    for (FileFault& lost : faults.lost) {
        if (isPixelTag(lost.tagId) && lost.channel == channel) picture_.damaged.push_back(std::move(lost));
    }
    for (FileFault& doubt : faults.doubts) {
        if (doubt.channel == channel && isInDoubt(doubt.offset)) picture_.doubts.push_back(std::move(doubt));
    }
}

bool PictureMaker::isInDoubt(std::int64_t offset) const {
    return std::binary_search(file_.doubted.begin(), file_.doubted.end(), offset);
}

void PictureMaker::addDamaged(const INFOTAG& tag, const char* cause) {
    TagGap gap;
    gap.offset = static_cast<std::int64_t>(tag.offset);
    gap.end = gap.offset + tag.size;
    gap.cause = cause;
    gap.tag = tag;
    picture_.damaged.push_back(faultOf(gap, file_.facts));
}

}  // namespace

Picture makePicture(const char* fileName, const PictureRequest& request) {
    Picture picture;
    const bool chosen = request.width != 0 || request.height != 0;
    PFileStream stream;
    if (chosen && !soundSize(request.width, request.height)) {
        picture.state = PictureState::kBadRequest;
    } else if (const int code = stream.Open(fileName, PFileStream::kRead, 1, PFileStream::kOpenExisting);
               code != 0) {
        picture.state = PictureState::kCannotOpen;
        picture.fileState = FileState::kCannotOpen;
        picture.cause = std::generic_category().message(code);
    } else {
        picture.state = PictureMaker(stream, request, picture).make();
    }
    return picture;
}

}  // namespace v1
}  // namespace MUtils
