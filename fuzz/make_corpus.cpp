#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/testing/sample_file.h"

// Writes the fuzzers' seed files with the project's own writer: make_corpus FILES_FOLDER TEXTS_FOLDER.

namespace {

using testing_tools::Bytes;
using testing_tools::SampleOptions;

void store(const std::filesystem::path& path, const void* data, std::size_t size) {
    std::ofstream out(path, std::ios::binary);
    out.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    if (!out.flush()) std::perror(path.c_str());
}

void storeImages(const std::filesystem::path& folder) {
    for (int bits = 0; bits < 16; ++bits) {
        SampleOptions options;
        options.closed = (bits & 1) != 0;
        options.compressed = (bits & 2) != 0;
        options.metadata = (bits & 4) != 0;
        options.buckets = (bits & 8) != 0 ? 2 : 1;
        const Bytes bytes = testing_tools::makeSample(options).bytes;
        store(folder / ("image" + std::to_string(bits)), bytes.data(), bytes.size());
    }
}

void storeTexts(const std::filesystem::path& folder) {
    const char* const texts[] = {
        "",
        "a=12",
        "a=2.2; b = -1.5e-2",
        "p=(1,2); q=(1,2,3); r=(0,0,639,479)",
        "m=(1,0,0,0,1,0,0,0,1)",
        "m=(1,0,0,0,0,1,0,0,0,0,1,0,0,0,0,1.5)",
        "s='a b'; t=\"c d\"; u=plain text",
        "a==1",
        "a=;b",
        "displayWindow=1; pixelAspectRatio=0",
    };
    int index = 0;
    for (const std::string text : texts)
        store(folder / ("text" + std::to_string(index++)), text.data(), text.size());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    std::filesystem::create_directories(argv[1]);
    std::filesystem::create_directories(argv[2]);
    storeImages(argv[1]);
    storeTexts(argv[2]);
    return 0;
}
