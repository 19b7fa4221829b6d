// Reads a window of the colour channel of a raw image into an array of floats, and prints its first pixel.
//
// Usage: read_window [PATH]

#include <cstdio>
#include <vector>

#include "rawimage/frame/raw_frame.h"

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : "minimal.rimg";
    // [readme]
    const MUtils::RawFrame frame(path);
    const auto info = frame.info();
    const MUtils::FrameChannel* colour = info->find(RCA_COLOR);
    if (colour == nullptr || colour->components() != 3) return std::puts(frame.cause().c_str()), 1;
    std::vector<float> values(3 * 64 * 64);
    const auto read = frame.read({0, 0, 64, 64}, {{*colour, values.data()}});
    for (const MUtils::FileFault& fault : read.damaged)
        std::printf("damaged: %s at %s\n", fault.cause.c_str(), boxText(fault.box).c_str());
    std::printf("%g %g %g\n", values[0], values[1], values[2]);
    // [readme end]
    return read.complete() ? 0 : 1;
}
