#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "rawimage/writer.h"

namespace testing_tools {

inline void expectOk(const ErrorCode& error) {
    EXPECT_EQ(error.describe(), "");
}

struct RawChannel {
    int type;
    int alias;
    const char* name;
    int flags = 0;
};

// A box of pixels; component c of channel i at (x, y) is `first` + 8 * i + c + x / 64 + y / 32.
struct RawBox {
    int x, y, width, height;
    float first = 0;
};

inline float valueAt(float first, int channel, int component, int x, int y) {
    return first + static_cast<float>(8 * channel + component) + static_cast<float>(x) / 64 +
           static_cast<float>(y) / 32;
}

// A raw image for a test, with values that tell where they belong.
struct RawFrame {
    int width = 40, height = 24;
    int tile = 16;  // edge of the announced buckets
    std::vector<RawChannel> channels{{2, 126, "color"}, {2, 125, "alpha"}, {4, 0, "id"}};
    std::vector<RawBox> boxes{{0, 0, 40, 24}};
    std::function<void(RIFile&)> metadata{};
    // The values, when they are not those of the boxes.
    std::function<float(int component, int x, int y)> values{};
    bool closed = true;

    void write(const std::string& path) const {
        RIFile file;
        file.setSyncOnClose(false);
        MRRegionData region;
        describe({}, region);
        expectOk(file.Create(path.c_str(), nullptr));
        expectOk(file.WriteHeader(32));
        expectOk(file.WTResolution(width, height, 1.0f));
        expectOk(file.WTRegionsInfo(tile, tile, 0));
        expectOk(file.WTChannelInfo(&region));
        if (metadata) metadata(file);
        for (const RawBox& box : boxes)
            writeBox(file, box);
        if (closed) expectOk(file.Close());
    }

  private:
    void describe(const RawBox& box, MRRegionData& region) const {
        region.x0 = box.x, region.x1 = box.x + box.width, region.width = box.width;
        region.y0 = box.y, region.y1 = box.y + box.height, region.height = box.height;
        for (const RawChannel& channel : channels) {
            RegionChannel entry;
            entry.type = static_cast<RegionChannelType>(channel.type);
            entry.alias = static_cast<RegionChannelAlias>(channel.alias);
            entry.flags = channel.flags;
            std::snprintf(entry.name, sizeof entry.name, "%s", channel.name);
            region.channels.Add(entry);
        }
    }

    void writeBox(RIFile& file, const RawBox& box) const {
        MRRegionData region;
        describe(box, region);
        std::vector<std::unique_ptr<MBVTable>> tables;
        for (int i = 0; i < region.channels.Count(); ++i) {
            const MUtils::RIF_PIXEL_KIND* kind = MUtils::findChannelKind(region.channels[i].type);
            if (kind == nullptr) continue;
            tables.push_back(std::make_unique<MBVTable>(kind->valueSize, 1 << 20));
            tables.back()->setCount(box.width * box.height);
            for (int p = 0; p < box.width * box.height; ++p) {
                for (int c = 0; c < kind->valueSize / 4; ++c) {
                    const int x = box.x + p % box.width, y = box.y + p / box.width;
                    const float value = values ? values(c, x, y) : valueAt(box.first, i, c, x, y);
                    std::memcpy(tables.back()->item(p) + 4 * c, &value, 4);
                }
            }
            region.channels[i].data = tables.back().get();
        }
        expectOk(file.WTRegion(&region, 0, 0, 0));
    }
};

}  // namespace testing_tools
