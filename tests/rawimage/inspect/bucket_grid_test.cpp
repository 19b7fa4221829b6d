#include "rawimage/inspect/bucket_grid.h"

#include <gtest/gtest.h>

#include <climits>

// Which buckets a frame has, and which of them lack pixels.

using namespace MUtils;
using Boxes = std::vector<PixelBox>;

namespace {

INFOTAG pixelTag(int x, int y, int width, int height) {
    INFOTAG tag;
    tag.id = TAG_CHAN_INT;
    tag.p2 = x, tag.p3 = y, tag.p4 = width, tag.p5 = height;
    return tag;
}

RIF_TAG sizes(int width, int height, int varies = 0) {
    RIF_TAG tag;
    tag.p1 = width, tag.p2 = height, tag.p3 = varies;
    return tag;
}

TEST(BucketGrid, ListsBucketsThatHavePixelsOfABox) {
    const PixelBox area{3, 2, 20, 12};
    const struct {
        const char* what;
        PixelBox start;  // its corner is some bucket's, its size that of the buckets
        Boxes boxes;
        std::int64_t all;
        Boxes buckets;
    } cases[] = {
        {"nothing", boxAt(0, 0, 8, 8), {}, 6, {}},
        {"outside the area", boxAt(0, 0, 8, 8), {{0, 0, 3, 12}, {20, 0, 40, 12}}, 6, {}},
        {"a pixel, from the frame's corner", boxAt(0, 0, 8, 8), {{7, 7, 8, 8}}, 6, {{3, 2, 8, 8}}},
        {"a pixel, from the area's corner", boxAt(3, 2, 8, 8), {{7, 7, 8, 8}}, 6, {{3, 2, 11, 10}}},
        {"a grid that begins behind the area", boxAt(32, 32, 8, 8), {{7, 7, 8, 8}}, 6, {{3, 2, 8, 8}}},
        {"across a border, twice",
         boxAt(0, 0, 8, 8),
         {{15, 9, 17, 10}, {14, 8, 18, 9}},
         6,
         {{8, 8, 16, 12}, {16, 8, 20, 12}}},
        {"larger than the area", boxAt(0, 0, 64, 64), {{5, 5, 6, 6}}, 1, {area}},
    };
    for (const auto& c : cases) {
        const BucketGrid grid(area, c.start.x0, c.start.y0, c.start.width(), c.start.height());
        EXPECT_EQ(grid.count(), c.all) << c.what;
        EXPECT_EQ(grid.countIn(c.boxes), static_cast<std::int64_t>(c.buckets.size())) << c.what;
        EXPECT_EQ(grid.bucketsIn(c.boxes, 100), c.buckets) << c.what;
    }
}

// Neither the area nor the buckets of a hostile file cost time or memory.
TEST(BucketGrid, CountsAnySize) {
    const PixelBox area = boxAt(INT_MAX, INT_MAX, INT_MAX, INT_MAX);
    for (const std::int64_t size : {1, 2, INT_MAX}) {
        const BucketGrid grid(area, INT_MIN, INT_MIN, size, size);
        EXPECT_GE(grid.count(), INT_MAX / size * (INT_MAX / size));
        EXPECT_EQ(grid.countIn({area}), grid.count());
        EXPECT_LE(grid.bucketsIn({area}, 5).size(), 5u);
    }
}

TEST(BucketGrid, CountsTheBucketsOfAFile) {
    const PixelBox frame = boxAt(0, 0, 16, 8);
    const Boxes right{boxAt(9, 0, 7, 8)};
    const std::vector<INFOTAG> thirds{pixelTag(0, 0, 5, 8), pixelTag(5, 0, 5, 8), pixelTag(0, 0, 5, 8)};
    const struct {
        const char* what;
        PixelBox area;
        std::optional<RIF_TAG> announced;
        std::vector<INFOTAG> tags;
        MissingBoxes missing;
        std::optional<BucketCount> count;
    } cases[] = {
        {"announced", frame, sizes(4, 4), {}, {right, false}, BucketCount{4, 8}},
        {"announced sizes vary", frame, sizes(4, 4, 1), thirds, {right, false}, BucketCount{1, 2}},
        {"no size announced", frame, {}, thirds, {{}, false}, BucketCount{2, 2}},
        {"sizes of no bucket", frame, sizes(0, -4), thirds, {right, false}, BucketCount{1, 2}},
        {"tags on the area's grid",
         boxAt(1, 0, 10, 8),
         sizes(5, 8),
         {pixelTag(6, 0, 5, 8)},
         {right, false},
         BucketCount{1, 2}},
        {"tags on the frame's grid",
         boxAt(1, 0, 10, 8),
         sizes(5, 8),
         {pixelTag(5, 0, 5, 8)},
         {right, false},
         BucketCount{1, 3}},
        {"nothing to render", {}, sizes(4, 4), thirds, {{}, false}, {}},
        {"neither size nor pixels", frame, {}, {}, {{frame}, false}, {}},
        {"more is missing than is known", frame, sizes(4, 4), {}, {right, true}, {}},
    };
    for (const auto& c : cases) {
        Inspection file;
        file.area = c.area;
        file.facts.buckets = c.announced;
        file.tags = c.tags;
        file.missingInAny = c.missing;
        const auto count = countBuckets(file);
        ASSERT_EQ(count.has_value(), c.count.has_value()) << c.what;
        if (!count) continue;
        EXPECT_EQ(count->sound, c.count->sound) << c.what;
        EXPECT_EQ(count->all, c.count->all) << c.what;
    }
}

}  // namespace
