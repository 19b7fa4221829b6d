#include "rawimage/tools/diff_picture.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "support/bytes.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr RGB24 kBlack{0, 0, 0};
constexpr RGB24 kWhite{255, 255, 255};
constexpr RGB24 kMagenta{255, 0, 255};

}  // namespace

DiffPicture::DiffPicture(const PixelBox& frame, const ChannelDiff& channel, const DiffOptions& options)
    : frame_(frame),
      pixelBytes_(bytesOfPixels(channel)),
      components_(std::min(channel.channels[0].components(), channel.channels[1].components())),
      integer_(channel.channels[0].isInteger()),
      options_(options),
      pixels_(static_cast<std::size_t>(frame.area()), kBlack) {}

RGB24& DiffPicture::at(std::int64_t x, std::int64_t y) {
    return pixels_[static_cast<std::size_t>((y - frame_.y0) * frame_.width() + (x - frame_.x0))];
}

void DiffPicture::draw(const ValuePair& pair) {
    std::array<const unsigned char*, 2> pixel = pair.values;
    for (std::int64_t y = pair.box.y0; y < pair.box.y1; ++y) {
        RGB24* drawn = &at(pair.box.x0, y);
        for (std::int64_t x = pair.box.x0; x < pair.box.x1; ++x) {
            *drawn++ = colourOf(pixel);
            pixel[0] += pixelBytes_[0];
            pixel[1] += pixelBytes_[1];
        }
    }
}

void DiffPicture::markLacking(const MissingBoxes& boxes) {
    for (const PixelBox& box : boxes.boxes) {
        for (std::int64_t y = box.y0; y < box.y1; ++y)
            std::fill_n(&at(box.x0, y), box.width(), kMagenta);
    }
}

// Two floats are red and green, of four the last one is not shown.
RGB24 DiffPicture::colourOf(const std::array<const unsigned char*, 2>& pixel) const {
    if (integer_) return std::memcmp(pixel[0], pixel[1], 4) == 0 ? kBlack : kWhite;
    unsigned char shades[3] = {};
    for (int i = 0; i < std::min(components_, 3); ++i)
        shades[i] = shadeOf(pixel[0] + 4 * i, pixel[1] + 4 * i);
    if (components_ == 1) shades[1] = shades[2] = shades[0];
    return {shades[0], shades[1], shades[2]};
}

unsigned char DiffPicture::shadeOf(const unsigned char* a, const unsigned char* b) const {
    double difference = signedDifference(loadF32(a), loadF32(b));
    if (options_.absolute) difference = std::fabs(difference);
    // An infinite difference times 0 is none.
    const double shown = difference == 0 || options_.scale == 0 ? 0 : difference * options_.scale;
    return static_cast<unsigned char>(std::lround(std::clamp(shown, 0.0, 1.0) * 255));
}

}  // namespace v1
}  // namespace MUtils
