#include "oiio/missing_color.h"

#include <OpenImageIO/strutil.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace rimg_imageio {

namespace {

constexpr const char* kHint = "oiio:missingcolor";
constexpr std::int64_t kStripeBit = 8;
constexpr float kMostInteger = 2147483520.0f;  // the largest float that fits int32

}  // namespace

MissingColor::MissingColor(const OIIO::ImageSpec& config) {
    std::string text;
    if (const OIIO::ParamValue* hint = config.find_attribute(kHint)) {
        if (hint->type().basetype != OIIO::TypeDesc::STRING) {
            const int count = static_cast<int>(hint->type().basevalues());
            for (int i = 0; i < count; ++i)
                values_.push_back(hint->get_float_indexed(i));
            return;
        }
        text = hint->get_string();
    } else {
        OIIO::getattribute("missingcolor", text);
    }
    if (!text.empty()) values_ = OIIO::Strutil::extract_from_list_string<float>(text);
}

void MissingColor::fill(const MUtils::PixelBox& part, const MUtils::PixelBox& box, std::size_t pixelBytes,
                        const std::vector<OIIO::TypeDesc>& types, int firstChannel,
                        unsigned char* pixels) const {
    std::vector<unsigned char> color;
    for (std::size_t i = 0; i < types.size(); ++i) {
        const std::size_t channel = static_cast<std::size_t>(firstChannel) + i;
        const float value = std::fabs(values_[std::min(channel, values_.size() - 1)]);
        std::vector<unsigned char> bytes(types[i].size());
        if (types[i].is_floating_point()) {
            OIIO::convert_pixel_values(OIIO::TypeFloat, &value, types[i], bytes.data());
        } else {
            // An id as the number it is, not as a share of the largest one.
            const auto integer = static_cast<std::uint32_t>(std::min(value, kMostInteger));
            std::memcpy(bytes.data(), &integer, sizeof integer);
        }
        color.insert(color.end(), bytes.begin(), bytes.end());
    }
    const std::vector<unsigned char> dark(color.size());
    const bool stripes = values_.front() < 0;
    for (std::int64_t y = part.y0; y < part.y1; ++y) {
        const std::int64_t first = (y - box.y0) * box.width() + part.x0 - box.x0;
        unsigned char* at = pixels + static_cast<std::size_t>(first) * pixelBytes;
        for (std::int64_t x = part.x0; x < part.x1; ++x, at += pixelBytes) {
            const bool isDark = stripes && ((x - y) & kStripeBit) != 0;
            std::memcpy(at, (isDark ? dark : color).data(), color.size());
        }
    }
}

}  // namespace rimg_imageio
