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

// Everything but pixels: the first walk.
class FirstWalk final : public AcceptingCallback {
  public:
    explicit FirstWalk(bool wantThumbnail) : wantThumbnail_(wantThumbnail) {}

    int parseTag(RIF_TAG& tag) override {
        const bool wanted = tag.id == TAG_RESOLUTION || tag.id == TAG_CHANNEL_INFO ||
                            (tag.id == TAG_PREVIEW && wantThumbnail_);
        return wanted ? 1 : 2;
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
        if (w <= 0 || h <= 0) return true;
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
    bool wantThumbnail_;
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

// Copies the thumbnail to the middle of the picture when that is what a rendering would show.
bool takeThumbnail(const FirstWalk& facts, bool keepAspect, Picture& picture) {
    const int w = facts.thumbnailWidth;
    const int h = facts.thumbnailHeight;
    const bool same = w == picture.width && h == picture.height;
    const bool fits = keepAspect && w <= picture.width && h <= picture.height &&
                      (w == picture.width || h == picture.height);
    if (w <= 0 || !(same || fits)) return false;
    const int left = (picture.width - w) / 2;
    const int top = (picture.height - h) / 2;
    for (int y = 0; y < h; ++y) {
        const auto row = facts.thumbnail.begin() + std::int64_t{y} * w;
        std::copy(row, row + w, picture.pixels.begin() + std::int64_t{top + y} * picture.width + left);
    }
    return picture.stored = true;
}

bool soundSize(int width, int height) {
    return width > 0 && height > 0 && width <= kMaxPictureSize && height <= kMaxPictureSize;
}

// The walks after the first: the range of the values where the display needs one, then the drawing.
void drawChannel(RIFile& file, const FirstWalk& facts, const ShownChannel& channel,
                 const PictureRequest& request, Picture& picture) {
    ChannelDisplay display(channel, request.exposure);
    if (display.needsRange()) {
        ChannelRangeCallback range(channel, display);
        file.ParseFile(range);
        display.finishRange();
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

    FirstWalk facts(request.useStored && request.channel.empty() && request.exposure == 0.0f);
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
    picture.pixels.assign(static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height),
                          request.background);
    if (takeThumbnail(facts, request.keepAspect, picture)) return picture;

    const ShownChannel* channel = findChannel(facts.channels, request.channel);
    const bool drawable = facts.width > 0 && facts.height > 0;
    if (channel == nullptr || !drawable) picture.pixels.clear();
    if (!drawable) return ended(PictureState::kNoFrame);
    if (channel == nullptr) return ended(PictureState::kNoChannel);
    drawChannel(file, facts, *channel, request, picture);
    return picture;
}

}  // namespace MUtils
