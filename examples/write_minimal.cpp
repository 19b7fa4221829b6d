// The shortest complete writer: a raw image of 4 x 3 pixels with one channel, its main colour.
//
// Usage: write_minimal [PATH]

#include <cstdio>

#include "rawimage/writer.h"

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : "minimal.rimg";
    const float colors[4 * 3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    MBVTable pixels(sizeof colors[0], sizeof colors);
    pixels.setCount(4 * 3);
    pixels.loadFromBuffer(colors, 4 * 3);

    // [readme]
    MRRegionData region;
    region.channels.Add({RCT_COLOR, "color", RCA_COLOR, &pixels, 0});
    region.width = region.x1 = 4;
    region.height = region.y1 = 3;
    RIFile file;
    ErrorCode error = file.Create(path, nullptr);
    if (!error) error = file.WriteHeader(0);
    if (!error) error = file.WTResolution(4, 3, 1.0f);
    if (!error) error = file.WTChannelInfo(&region);
    if (!error) error = file.WTRegion(&region, 0, 0, 0);
    if (!error) error = file.Close();
    if (error) std::fprintf(stderr, "%s\n", error.describe().c_str());
    // [readme end]
    return error ? 1 : 0;
}
