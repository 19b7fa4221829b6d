#include <filesystem>
#include <tuple>

#include "exr/visible_box.h"
#include "tests/exr/exr_fixture.h"
#include "tests/testing/sanitized.h"

// Frames whose channels take more than 2^31 bytes. What no test writes to is never touched, and costs
// nothing.

using namespace testing_tools;

namespace {

constexpr int kSide = 16384;
constexpr int kColourBytes = 12;
// The row that byte 2^31 of a channel lies in.
constexpr int kFarRow = static_cast<int>((std::int64_t{1} << 31) / kColourBytes / kSide);

struct LargeRegion : MUtils::MRRegionData {
    explicit LargeRegion(const Chans& chans) {
        x1 = y1 = width = height = kSide;
        for (const Chan& chan : chans) {
            tables.push_back(std::make_unique<MBVTable>(kColourBytes, 1));
            tables.back()->initNotResizable(kSide * kSide, kColourBytes, 0x2000000);
            MUtils::RegionChannel entry;
            entry.type = static_cast<RegionChannelType>(chan.type);
            entry.alias = static_cast<RegionChannelAlias>(chan.alias);
            entry.data = tables.back().get();
            channels.Add(entry);
        }
    }
    float* at(int channel, int x, int y) {
        return reinterpret_cast<float*>(channels[channel].data->item(y * kSide + x));
    }
    std::vector<std::unique_ptr<MBVTable>> tables;
};

// One row of a file of one part, by channel.
std::map<std::string, std::vector<float>> readRow(Imf::InputPart& part, int y) {
    const Imath::Box2i window = part.header().dataWindow();
    const Imath::Box2i row({window.min.x, y}, {window.max.x, y});
    std::map<std::string, std::vector<float>> planes;
    Imf::FrameBuffer frame;
    for (auto it = part.header().channels().begin(); it != part.header().channels().end(); ++it) {
        std::vector<float>& plane = planes[it.name()];
        plane.resize(static_cast<std::size_t>(row.max.x - row.min.x + 1));
        frame.insert(it.name(), Imf::Slice::Make(Imf::FLOAT, plane.data(), row, 4));
    }
    part.setFrameBuffer(frame);
    part.readPixels(y);
    return planes;
}

}  // namespace

TEST(ExrLarge, AWholeFrameBeyondTwoGigabytes) {
    if (kSanitized) GTEST_SKIP() << "would take minutes";
    const Chans chans = {{2, "color", 126}};
    const TempFile file;
    Writer writer(0, file.path, kSide, kSide, chans, 16, 2);
    LargeRegion region(chans);
    ASSERT_EQ(region.channels[0].data->count, kSide * kSide);
    const std::tuple<int, int, float> pixels[] = {{0, 0, 1.0f},           {kSide - 1, 0, 2.0f},
                                                  {0, kFarRow, 3.0f},     {kSide - 1, kFarRow, 4.0f},
                                                  {9, kFarRow + 1, 5.0f}, {kSide - 1, kSide - 1, 6.0f}};
    for (const auto& [x, y, value] : pixels) {
        for (int c = 0; c < 3; ++c)
            region.at(0, x, y)[c] = value + static_cast<float>(c) / 8.0f;
    }
    ASSERT_EQ(texts({writer.WTRegion(&region, 0, 0, 0), writer.Close()}), "");
    Imf::MultiPartInputFile input(file.path.c_str());
    ASSERT_TRUE(input.partComplete(0));
    Imf::InputPart part(input, 0);
    for (const int y : {0, 1, kFarRow - 1, kFarRow, kFarRow + 1, kFarRow + 2, kSide - 2, kSide - 1}) {
        const auto row = readRow(part, y);
        const char* const names[] = {"R", "G", "B"};
        for (int c = 0; c < 3; ++c) {
            std::vector<float> expected(kSide);
            for (const auto& [px, py, value] : pixels) {
                if (py == y) expected[static_cast<std::size_t>(px)] = value + static_cast<float>(c) / 8.0f;
            }
            EXPECT_TRUE(row.at(names[c]) == expected) << y;
        }
    }
}

// Only the box is written, so this one is quick.
TEST(ExrLarge, TheVisiblePixelsOfAFrameBeyondTwoGigabytes) {
    if (kSanitized) GTEST_SKIP() << "memory is not zero until it is written";
    const Chans chans = {{2, "alpha", 125}, {2, "color", 126}};
    const TempFile file;
    Writer writer(0, file.path, kSide, kSide, chans, 32, 4);
    writer.setAutoDataWindow(1);
    LargeRegion region(chans);
    const int pixels[][2] = {{40, kFarRow + 1}, {70, kFarRow + 60}, {55, kFarRow + 99}};
    float value = 1.0f;
    for (const auto& [x, y] : pixels) {
        for (int c = 0; c < 3; ++c)
            region.at(0, x, y)[c] = region.at(1, x, y)[c] = value += 0.25f;
    }
    ASSERT_EQ(texts({writer.WTRegion(&region, 0, 0, 0), writer.Close()}), "");
    const Part part = readExr(file.path).at(0);
    EXPECT_EQ(text(part.header.dataWindow()),
              "40," + std::to_string(kFarRow + 1) + " 70," + std::to_string(kFarRow + 99));
    for (const auto& [x, y] : pixels) {
        EXPECT_EQ(part.floats.at("G")[part.at(x, y)], region.at(1, x, y)[1]);
        EXPECT_GT(part.floats.at("A")[part.at(x, y)], 0.0f);
    }
    EXPECT_EQ(part.floats.at("G")[part.at(41, kFarRow + 1)], 0.0f);
}
