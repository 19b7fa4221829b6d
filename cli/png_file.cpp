#include "cli/png_file.h"

#include <png.h>

#include <cerrno>
#include <cstdio>

#include "cli/report.h"

namespace rimg {

void writePng(const std::string& file, const std::vector<RGB24>& pixels, int width, int height) {
    std::FILE* out = std::fopen(file.c_str(), "wb");
    if (out == nullptr) throw Failure(ExitCode::kFailure, file, "cannot be written: " + systemMessage(errno));
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = PNG_FORMAT_RGB;
    std::string cause;
    if (png_image_write_to_stdio(&image, out, 0, pixels.data(), 0, nullptr) == 0) cause = image.message;
    if (std::fclose(out) != 0 && cause.empty()) cause = systemMessage(errno);
    if (cause.empty()) return;
    std::remove(file.c_str());
    throw Failure(ExitCode::kFailure, file, "cannot be written: " + cause);
}

}  // namespace rimg
