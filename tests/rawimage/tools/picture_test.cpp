#include "rawimage/tools/picture.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/testing/memory_file.h"
#include "tests/testing/raw_frame.h"

using namespace MUtils;

namespace {

bool samePixels(const Picture& a, const Picture& b) {
    return a.pixels.size() == b.pixels.size() && !a.pixels.empty() &&
           std::memcmp(a.pixels.data(), b.pixels.data(), a.pixels.size() * sizeof(RGB24)) == 0;
}

// Buckets that overlap, and more values than a range takes samples of: their order counts twice.
TEST(MakePicture, IsTheSameOnAnyThreadsAndStops) {
    testing_tools::RawFrame frame;
    frame.width = 400;
    frame.height = 300;
    frame.channels = {{2, 126, "color"}, {1, 117, "depth"}, {3, 0, "motion"}, {6, 0, "ids"}};
    frame.boxes.clear();
    for (int i = 0; i < 70; ++i)
        frame.boxes.push_back({i % 10 * 40, i / 10 * 40, 44, 44, static_cast<float>(i * i % 37) - 9});
    testing_tools::MemoryFile file;
    frame.write(file.path());
    for (const testing_tools::RawChannel& channel : frame.channels) {
        SCOPED_TRACE(channel.name);
        PictureRequest request;
        request.channel = channel.name;
        request.width = 97;
        request.height = 91;
        request.threads = 1;
        const Picture alone = makePicture(file.path(), request);
        EXPECT_EQ(alone.state, PictureState::kGood);
        for (request.threads = 2; request.threads <= 5; ++request.threads)
            EXPECT_TRUE(samePixels(makePicture(file.path(), request), alone));
        for (const bool early : {false, true}) {
            request.progress = [early](std::int64_t, std::int64_t total) { return !early && total == 0; };
            const Picture stopped = makePicture(file.path(), request);
            EXPECT_EQ(stopped.state, PictureState::kStopped);
            EXPECT_TRUE(stopped.pixels.empty());
        }
    }
}

// The frame's aspect, never more than the frame has; of thumbnails only one that is as large.
TEST(MakePicture, FitsWithinASquare) {
    const struct {
        int fit, thumbnailWidth, thumbnailHeight;
        int width, height;  // of the picture, 0 for none
        bool stored;
    } cases[] = {
        {128, 0, 0, 128, 96, false},     {32768, 0, 0, 400, 300, false},  {1, 0, 0, 1, 1, false},
        {128, 128, 96, 128, 96, true},   {128, 128, 95, 128, 95, true},   {128, 64, 48, 128, 96, false},
        {64, 128, 96, 64, 48, false},    {128, 128, 128, 128, 96, false}, {0, 64, 48, 64, 48, true},
        {500, 400, 300, 400, 300, true}, {-1, 0, 0, 0, 0, false},         {32769, 0, 0, 0, 0, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.fit << ": " << c.thumbnailWidth << 'x' << c.thumbnailHeight);
        testing_tools::RawFrame frame;
        frame.width = 400;
        frame.height = 300;
        std::vector<RGB24> pixels(static_cast<std::size_t>(c.thumbnailWidth * c.thumbnailHeight));
        if (!pixels.empty())
            frame.metadata = [&](RIFile& file) {
                testing_tools::expectOk(file.WTPreview(pixels.data(), c.thumbnailWidth, c.thumbnailHeight));
            };
        testing_tools::MemoryFile file;
        frame.write(file.path());
        PictureRequest request;
        request.fit = c.fit;
        const Picture picture = makePicture(file.path(), request);
        EXPECT_EQ(picture.state, c.width > 0 ? PictureState::kGood : PictureState::kBadRequest);
        EXPECT_EQ(picture.width, c.width);
        EXPECT_EQ(picture.height, c.height);
        EXPECT_EQ(picture.stored, c.stored);
    }
}

}  // namespace
