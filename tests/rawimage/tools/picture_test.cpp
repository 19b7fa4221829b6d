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

}  // namespace
