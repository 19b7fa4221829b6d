// The shortest complete reader: prints the frame's size, its channels and every bucket of a raw image.
//
// Usage: read_minimal [PATH]

#include <cstdio>

#include "rawimage/read/callback.h"
#include "rawimage/writer.h"

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : "minimal.rimg";
    // [readme]
    struct Printer : RIFileCallback {
        bool setResolution(int w, int h, float) override { return std::printf("%d x %d\n", w, h) > 0; }
        bool setNumChannels(int count) override { return std::printf("%d channels\n", count) > 0; }
        bool setChannel(int index, RegionChannelType type, RegionChannelAlias, const char* name) override {
            return std::printf("channel %d: type %d, %s\n", index, type, name) > 0;
        }
        bool setImageData(const MBVTable&, int n, int channel, int x, int y, int, int, int, int) override {
            return std::printf("%d values of channel %d at (%d, %d)\n", n, channel, x, y) > 0;
        }
    } printer;
    RIFile file;
    const bool good = !file.Open(path, nullptr) && file.ParseFile(printer) == 0;
    // [readme end]
    if (!good) std::fprintf(stderr, "%s: cannot be read\n", path);
    return good ? 0 : 1;
}
