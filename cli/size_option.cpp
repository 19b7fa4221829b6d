#include "cli/size_option.h"

#include <charconv>

namespace rimg {

namespace {

constexpr int kLargest = 1000000;

// Parses "WxH"; false when `text` is anything else.
bool parse(const std::string& text, PixelSize& size) {
    const char* end = text.data() + text.size();
    const auto width = std::from_chars(text.data(), end, size.width);
    if (width.ec != std::errc() || width.ptr == end || *width.ptr != 'x') return false;
    const auto height = std::from_chars(width.ptr + 1, end, size.height);
    if (height.ec != std::errc() || height.ptr != end) return false;
    return size.width > 0 && size.height > 0 && size.width <= kLargest && size.height <= kLargest;
}

}  // namespace

std::string checkSize(const std::string& text) {
    PixelSize size;
    return parse(text, size) ? "" : "a size is WIDTHxHEIGHT in pixels, such as 640x360: " + text;
}

PixelSize parseSize(const std::string& text) {
    PixelSize size;
    return parse(text, size) ? size : PixelSize();
}

}  // namespace rimg
