#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imageio.h>

#include <cstdio>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

// What OpenImageIO's Python module does not offer: proxies, rectangles, and the writer's refusals.
// Usage: oiio_check RAW_IMAGE FOLDER

namespace {

using OIIO::ImageInput;
using OIIO::ImageOutput;
using OIIO::ImageSpec;

int failures = 0;

void check(bool good, const std::string& what) {
    if (good) return;
    std::fprintf(stderr, "oiio_check: %s: %s\n", what.c_str(), OIIO::geterror().c_str());
    ++failures;
}

std::vector<unsigned char> contentOf(const std::string& path) {
    std::vector<unsigned char> bytes(OIIO::Filesystem::file_size(path));
    check(OIIO::Filesystem::read_bytes(path, bytes.data(), bytes.size()) == bytes.size(), path);
    return bytes;
}

// All pixels in the native layout.
std::vector<unsigned char> pixelsOf(ImageInput* input) {
    check(input != nullptr, "open");
    if (input == nullptr) return {};
    std::vector<unsigned char> pixels(input->spec().image_bytes(true));
    check(input->read_image(0, 0, 0, input->spec().nchannels, OIIO::TypeUnknown, pixels.data()),
          input->geterror());
    return pixels;
}

void testProxies(const std::string& path, const std::string& folder) {
    const auto byName = ImageInput::open(path);
    const std::vector<unsigned char> pixels = pixelsOf(byName.get());
    const std::vector<unsigned char> file = contentOf(path);
    OIIO::Filesystem::IOMemReader memory(const_cast<unsigned char*>(file.data()), file.size());
    check(pixelsOf(ImageInput::open(path, nullptr, &memory).get()) == pixels, "reading from memory");
    OIIO::Filesystem::IOMemReader half(const_cast<unsigned char*>(file.data()), file.size() / 2);
    const auto cut = ImageInput::open(path, nullptr, &half);
    check(cut != nullptr && cut->spec().get_string_attribute("rawimage:state") != "good",
          "half a file in memory");

    const std::string copy = folder + "/proxy.rimg";
    const auto write = [&](OIIO::Filesystem::IOProxy* proxy) {
        const auto output = ImageOutput::create(copy, proxy);
        check(output->open(copy, byName->spec()) && output->write_image(OIIO::TypeUnknown, pixels.data()) &&
                  output->close(),
              "writing: " + output->geterror());
    };
    OIIO::Filesystem::IOVecOutput written;
    write(&written);
    check(!OIIO::Filesystem::exists(copy), "a proxy's file");
    write(nullptr);
    check(written.buffer() == contentOf(copy), "what a proxy gets");
    check(pixelsOf(ImageInput::open(copy).get()) == pixels, "reading what was written");
}

void testRectangles(const std::string& folder) {
    const std::string path = folder + "/rectangles.rimg";
    ImageSpec spec(150, 90, 1, OIIO::TypeFloat);
    spec.x = -20;
    std::vector<float> pixels(150 * 90);
    for (std::size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<float>(i);
    const auto output = ImageOutput::create(path);
    check(output->open(path, spec), output->geterror());
    const int xs[] = {-20, 7, 100, 130};
    for (int i = 2; i >= 0; --i) {
        check(output->write_rectangle(xs[i], xs[i + 1], 0, 90, 0, 1, OIIO::TypeFloat,
                                      pixels.data() + xs[i] + 20, sizeof(float), 150 * sizeof(float)),
              output->geterror());
    }
    check(!output->write_rectangle(100, 131, 0, 1, 0, 1, OIIO::TypeFloat, pixels.data()),
          "a rectangle outside");
    check(!output->geterror().empty() && output->close(), "its error");
    const std::vector<unsigned char> back = pixelsOf(ImageInput::open(path).get());
    const auto* bytes = reinterpret_cast<const unsigned char*>(pixels.data());
    check(back == std::vector<unsigned char>(bytes, bytes + back.size()), "what rectangles wrote");
}

void testRefusals(const std::string& folder) {
    const struct {
        const char* what;
        std::function<void(ImageSpec&)> change;
    } cases[] = {
        {"a volume", [](ImageSpec& spec) { spec.depth = 2; }},
        {"deep pixels", [](ImageSpec& spec) { spec.deep = true; }},
        {"no pixels", [](ImageSpec& spec) { spec.width = 0; }},
        {"no channels", [](ImageSpec& spec) { spec.nchannels = 0; }},
        {"a place out of reach", [](ImageSpec& spec) { spec.x = 2147483600; }},
        {"a large tile", [](ImageSpec& spec) { spec.tile_width = spec.tile_height = 1 << 20; }},
    };
    for (const auto& c : cases) {
        ImageSpec spec(8, 8, 3, OIIO::TypeFloat);
        c.change(spec);
        const auto output = ImageOutput::create("rimg");
        check(!output->open(folder + "/refused.rimg", spec) && !output->geterror().empty(), c.what);
    }
    const auto output = ImageOutput::create("rimg");
    check(!output->open(folder + "/no/such/folder.rimg", ImageSpec(8, 8, 3, OIIO::TypeFloat)), "no folder");
    check(!output->geterror().empty(), "its error");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    testProxies(argv[1], argv[2]);
    testRectangles(argv[2]);
    testRefusals(argv[2]);
    return failures == 0 ? 0 : 1;
}
