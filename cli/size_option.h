#pragma once

#include <string>

namespace rimg {

struct PixelSize {
    int width = 0;
    int height = 0;
};

// "" when `text` is WxH, two whole numbers from 1 to 1000000 with an x between them; else what is wrong with
// it. For CLI11's check().
std::string checkSize(const std::string& text);

// The size in a text that checkSize() accepts.
PixelSize parseSize(const std::string& text);

}  // namespace rimg
