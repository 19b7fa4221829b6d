#include "rawimage/frame/raw_frame.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <thread>

#include "rawimage/read/tag_reader.h"
#include "support/half_float.h"
#include "tests/testing/check.h"
#include "tests/testing/raw_frame.h"

using namespace MUtils;
using testing_tools::Bytes;
using testing_tools::Contents;
using testing_tools::MemoryFile;
using testing_tools::RawBox;
using testing_tools::Sample;

namespace {

using Frame = MUtils::RawFrame;
using Written = testing_tools::RawFrame;

// Buckets of 16 x 8 with overlaps, one that reaches beyond the frame, and a hole.
Written bucketsOf(int width, int height) {
    Written frame;
    frame.width = width;
    frame.height = height;
    frame.boxes.clear();
    for (int y = 0; y < height; y += 8) {
        for (int x = 0; x < width; x += 16) {
            if (x != 32 || y != 8) frame.boxes.push_back({x, y, 16, 8});
        }
    }
    frame.boxes.push_back({10, 3, 9, 7, 1000});
    frame.boxes.push_back({14, 5, 4, 2, 2000});
    return frame;
}

// What a pixel of the frame is to be; false when no bucket has it.
bool expectedAt(const Written& frame, int channel, int component, std::int64_t x, std::int64_t y,
                float& value) {
    bool found = false;
    for (const RawBox& box : frame.boxes) {
        if (x < box.x || y < box.y || x >= box.x + box.width || y >= box.y + box.height) continue;
        value =
            testing_tools::valueAt(box.first, channel, component, static_cast<int>(x), static_cast<int>(y));
        found = true;
    }
    return found;
}

std::string pathOf(const Written& frame, const MemoryFile& file) {
    frame.write(file.path());
    return file.path();
}

TEST(RawFrame, ReadsBoxesIntoAnyMemory) {
    constexpr float kFill = -3.5f;
    Written written = bucketsOf(70, 40);
    MemoryFile file;
    const Frame frame(pathOf(written, file).c_str());
    const std::shared_ptr<const FrameInfo> info = frame.info();
    ASSERT_EQ(info->frame, boxAt(0, 0, 70, 40));
    ASSERT_EQ(info->channels.size(), 3u);
    const struct {
        PixelBox box;
        int channel;
        std::ptrdiff_t pixelStride;
        ValueFormat format;
        int threads;
    } cases[] = {
        {{0, 0, 70, 40}, 0, 0, ValueFormat::kStored, 1},   {{0, 0, 70, 40}, 1, 0, ValueFormat::kStored, 3},
        {{13, 4, 20, 9}, 0, 20, ValueFormat::kStored, 2},  {{17, 5, 18, 6}, 2, 0, ValueFormat::kStored, 1},
        {{-9, -3, 90, 60}, 0, 0, ValueFormat::kStored, 2}, {{30, 2, 50, 20}, 1, 16, ValueFormat::kHalf, 2},
        {{1, 1, 2, 2}, 0, 0, ValueFormat::kHalf, 1},       {{5, 5, 5, 9}, 0, 0, ValueFormat::kHalf, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(boxText(c.box));
        ChannelTarget target(info->channels[static_cast<std::size_t>(c.channel)], nullptr, c.format);
        target.pixelStride = c.pixelStride;
        target.fill = static_cast<double>(kFill);
        const int components = target.components(), size = target.componentBytes();
        const std::ptrdiff_t pixel = c.pixelStride != 0 ? c.pixelStride : components * size;
        std::vector<unsigned char> memory(static_cast<std::size_t>(pixel * c.box.area() + pixel), 0xAB);
        target.data = memory.data();
        FrameReadOptions options;
        options.threads = c.threads;
        const FrameRead read = frame.read(c.box, {target}, options);
        EXPECT_TRUE(read.damaged.empty());
        bool complete = true;
        for (std::int64_t i = 0; i < c.box.area(); ++i) {
            const std::int64_t x = c.box.x0 + i % c.box.width(), y = c.box.y0 + i / c.box.width();
            for (int k = 0; k < components; ++k) {
                float value = kFill;
                const bool there = expectedAt(written, c.channel, k, x, y, value);
                const bool inside = contains(info->frame, boxAt(x, y, 1, 1));
                complete = complete && (there || !inside);
                const unsigned char* at = memory.data() + i * pixel + k * size;
                const std::int32_t filled = -4;
                if (c.format == ValueFormat::kHalf) {
                    const std::uint16_t half = halfFromFloat(value);
                    ASSERT_EQ(std::memcmp(at, &half, 2), 0) << x << ' ' << y << ' ' << k;
                } else if (c.channel == 2 && !there) {
                    ASSERT_EQ(std::memcmp(at, &filled, 4), 0) << x << ' ' << y;
                } else {
                    ASSERT_EQ(std::memcmp(at, &value, 4), 0) << x << ' ' << y << ' ' << k;
                }
            }
        }
        EXPECT_EQ(memory.back(), 0xAB);
        EXPECT_EQ(read.complete(), complete);
        EXPECT_EQ(read.missing.size(), complete ? 0u : 1u);
    }
}

}  // namespace
