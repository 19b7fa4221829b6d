#pragma once

#include <png.h>

#include <string>
#include <vector>

#include "support/rgb24.h"

namespace testing_tools {

struct Png {
    int width = 0;
    int height = 0;
    std::vector<MUtils::RGB24> pixels;

    MUtils::RGB24 at(int x, int y) const { return pixels[static_cast<std::size_t>(y * width + x)]; }
};

// Of 0 x 0 pixels when there is no such picture.
inline Png readPng(const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    Png png;
    if (png_image_begin_read_from_file(&image, path.c_str()) == 0) return png;
    image.format = PNG_FORMAT_RGB;
    png.width = static_cast<int>(image.width);
    png.height = static_cast<int>(image.height);
    png.pixels.resize(static_cast<std::size_t>(png.width * png.height));
    png_image_finish_read(&image, nullptr, png.pixels.data(), 0, nullptr);
    return png;
}

}  // namespace testing_tools
