#include "cli/png_file.h"

#include <png.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <memory>

#include "cli/report.h"

namespace rimg {

namespace {

// How libpng reaches the output: its own error text does not contain the system's reason.
ssize_t passOn(void* output, const char* bytes, std::size_t size) {
    return static_cast<StreamOutput*>(output)->write(bytes, size) ? static_cast<ssize_t>(size) : 0;
}

}  // namespace

// Endings that are known to mean another format: whoever names such an output would get a file that lies.
std::string checkPngEnding(const std::string& output) {
    constexpr const char* kOther[] = {".avif", ".bmp", ".dds", ".dng", ".dpx",  ".exr",  ".gif", ".hdr",
                                      ".heic", ".ico", ".jp2", ".jpe", ".jpeg", ".jpg",  ".jxl", ".pbm",
                                      ".pdf",  ".pfm", ".pgm", ".pic", ".pnm",  ".ppm",  ".psd", ".qoi",
                                      ".rimg", ".svg", ".tga", ".tif", ".tiff", ".webp", ".xpm"};
    std::string ending = std::filesystem::path(output).extension().string();
    for (char& c : ending)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const bool other = std::find(std::begin(kOther), std::end(kOther), ending) != std::end(kOther);
    return other ? "a picture is a PNG file, and " + ending + " is another format: " + output : "";
}

void writePng(StreamOutput& output, const std::vector<RGB24>& pixels, int width, int height) {
    cookie_io_functions_t functions{};
    functions.write = passOn;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(::fopencookie(&output, "wb", functions),
                                                         std::fclose);
    if (file == nullptr) throw Failure(ExitCode::kFailure, output.file().name(), systemMessage(errno));
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = PNG_FORMAT_RGB;
    const bool made = png_image_write_to_stdio(&image, file.get(), 0, pixels.data(), 0, nullptr) != 0;
    file.reset();
    if (!made && !output.failed()) {
        throw Failure(ExitCode::kFailure, output.file().name(),
                      std::string("cannot be written: ") + image.message);
    }
    output.close();
}

}  // namespace rimg
