#include "rawimage/tools/picture.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>

#include "rawimage/tools/channel_display.h"
#include "rawimage/tools/preview.h"
#include "rawimage/writer.h"

namespace MUtils {

namespace {

bool soundSize(int width, int height) {
    return width > 0 && height > 0 && width <= kMaxPictureSize && height <= kMaxPictureSize;
}

// Everything but pixels: the first walk.
class FirstWalk final : public AcceptingCallback {
  public:
    explicit FirstWalk(const PictureRequest& request) : request_(request) {}

    int parseTag(RIF_TAG& tag) override {
        if (tag.id == TAG_PREVIEW) {
            // Of several the last one counts, also when it is not wanted.
            thumbnail = {};
            thumbnailWidth = thumbnailHeight = 0;
            return wantsThumbnail(tag.p1, tag.p2) ? 1 : 2;
        }
        return tag.id == TAG_RESOLUTION || tag.id == TAG_CHANNEL_INFO ? 1 : 2;
    }
    bool setResolution(int w, int h, float /*aspect*/) override {
        width = w;
        height = h;
        return true;
    }
    bool setNumChannels(int /*count*/) override {
        channels.clear();
        return true;
    }
    bool setChannel(int index, RegionChannelType type, RegionChannelAlias alias, const char* name) override {
        channels.push_back({index, type, alias, name});
        return true;
    }
    bool setPreview(MBVTable& pixels, int count, int w, int h) override {
        thumbnail.resize(static_cast<std::size_t>(count));
        pixels.storeToBuffer(thumbnail.data(), 0, count);
        thumbnailWidth = w;
        thumbnailHeight = h;
        return true;
    }

    int width = 0;
    int height = 0;
    std::vector<ShownChannel> channels;
    std::vector<RGB24> thumbnail;
    int thumbnailWidth = 0;
    int thumbnailHeight = 0;

  private:
    bool wantsThumbnail(int w, int h) const {
        const bool asked =
            !request_.channel.empty() || request_.view != ChannelView::kGuess || request_.exposure != 0.0f;
        if (!request_.useStored || asked || !soundSize(w, h)) return false;
        if (request_.width == 0) return true;
        const bool same = w == request_.width && h == request_.height;
        const bool fits = request_.keepAspect && w <= request_.width && h <= request_.height &&
                          (w == request_.width || h == request_.height);
        return same || fits;
    }

    const PictureRequest& request_;
};

const ShownChannel* findChannel(const std::vector<ShownChannel>& channels, const std::string& name) {
    const ShownChannel* found = channels.empty() || !name.empty() ? nullptr : &channels.front();
    for (const ShownChannel& channel : channels) {
        const bool colour = channel.alias == RCA_IMAGE || channel.alias == RCA_COLOR;
        if (name.empty() ? colour : channel.name == name) found = &channel;
    }
    return found;
}

// The size of a rendering when none is asked for.
void chooseSize(const FirstWalk& facts, Picture& picture) {
    if (facts.thumbnailWidth > 0) {
        picture.width = facts.thumbnailWidth;
        picture.height = facts.thumbnailHeight;
        return;
    }
    const int larger = std::max(facts.width, facts.height);
    const double scale = std::min(1.0, static_cast<double>(kDefaultPictureSize) / larger);
    picture.width = std::max(1, static_cast<int>(std::lround(facts.width * scale)));
    picture.height = std::max(1, static_cast<int>(std::lround(facts.height * scale)));
}

// Copies the thumbnail to the middle of the picture.
void takeThumbnail(const FirstWalk& facts, Picture& picture) {
    const int w = facts.thumbnailWidth;
    const int h = facts.thumbnailHeight;
    const int left = (picture.width - w) / 2;
    const int top = (picture.height - h) / 2;
    for (int y = 0; y < h; ++y) {
        const auto row = facts.thumbnail.begin() + std::int64_t{y} * w;
        std::copy(row, row + w, picture.pixels.begin() + std::int64_t{top + y} * picture.width + left);
    }
    picture.stored = true;
}

// The walks after the first: the values where the display must know them, then the drawing.
void drawChannel(RIFile& file, const FirstWalk& facts, const ShownChannel& channel,
                 const PictureRequest& request, Picture& picture) {
    ChannelDisplay display(channel, request.view, request.exposure);
    if (display.needsValues()) {
        ChannelValuesCallback values(channel, display);
        file.ParseFile(values);
        display.finishValues();
    }
    ChannelDrawCallback draw(channel, display, picture.pixels.data(), picture.width, picture.height,
                             request.keepAspect);
    draw.setResolution(facts.width, facts.height, 1.0f);
    picture.parseCode = file.ParseFile(draw);
    picture.channel = channel.name;
}

}  // namespace

Picture makePicture(const char* fileName, const PictureRequest& request) {
    Picture picture;
    const auto ended = [&picture](PictureState state) {
        picture.state = state;
        return picture;
    };
    const bool chosen = request.width != 0 || request.height != 0;
    if (chosen && !soundSize(request.width, request.height)) return ended(PictureState::kBadRequest);
    RIFile file;
    if (!file.Open(fileName, nullptr).empty()) return ended(PictureState::kCannotOpen);

    FirstWalk facts(request);
    picture.parseCode = file.ParseFile(facts);
    if (picture.parseCode == -2 || picture.parseCode == -3) return ended(PictureState::kNotThisFormat);
    for (const ShownChannel& channel : facts.channels)
        picture.channels.push_back(channel.name);

    picture.width = request.width;
    picture.height = request.height;
    if (!chosen) {
        if (facts.thumbnailWidth <= 0 && (facts.width <= 0 || facts.height <= 0))
            return ended(PictureState::kNoFrame);
        chooseSize(facts, picture);
        if (!soundSize(picture.width, picture.height)) return ended(PictureState::kNoFrame);
    }
    const ShownChannel* channel = findChannel(facts.channels, request.channel);
    const bool stored = facts.thumbnailWidth > 0;
    if (!stored && (facts.width <= 0 || facts.height <= 0)) return ended(PictureState::kNoFrame);
    if (!stored && channel == nullptr) return ended(PictureState::kNoChannel);
    picture.pixels.assign(static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height),
                          request.background);
    if (stored) {
        takeThumbnail(facts, picture);
        return picture;
    }
    drawChannel(file, facts, *channel, request, picture);
    return picture;
}

}  // namespace MUtils
