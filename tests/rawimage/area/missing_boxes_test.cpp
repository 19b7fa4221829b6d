#include "rawimage/area/missing_boxes.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>

namespace {

using namespace MUtils;

// How often each pixel of the area is in a box.
std::vector<int> counts(const std::vector<PixelBox>& boxes, const PixelBox& area) {
    std::vector<int> counts;
    for (int y = area.y; y < area.y + area.height; ++y) {
        for (int x = area.x; x < area.x + area.width; ++x) {
            int& count = counts.emplace_back();
            for (const PixelBox& box : boxes)
                count += x >= box.x && x - box.x < box.width && y >= box.y && y - box.y < box.height;
        }
    }
    return counts;
}

}  // namespace

// Against counting pixel by pixel; few enough positions that edges meet often.
TEST(MissingBoxes, AreTheRestOfTheArea) {
    std::mt19937 random(3);
    const auto pick = [&random](int from, int to) {
        return std::uniform_int_distribution<int>(from, to)(random);
    };
    for (int round = 0; round < 2000; ++round) {
        const PixelBox area{pick(-3, 3), pick(-3, 3), pick(0, 12), pick(0, 9)};
        std::vector<PixelBox> boxes(static_cast<std::size_t>(pick(0, 12)));
        for (PixelBox& box : boxes)
            box = {pick(-6, 12), pick(-6, 12), pick(-1, 7), pick(-1, 7)};
        const MissingBoxes missing = missingBoxes(boxes, area);
        const MissingBoxes covered = unitedBoxes(boxes, area);
        EXPECT_FALSE(missing.truncated || covered.truncated);
        const std::vector<int> given = counts(boxes, area);
        const std::vector<int> without = counts(missing.boxes, area);
        const std::vector<int> with = counts(covered.boxes, area);
        for (std::size_t i = 0; i < given.size(); ++i) {
            ASSERT_EQ(without[i], given[i] == 0) << "once, or not at all";
            ASSERT_EQ(with[i], given[i] > 0);
        }
        // What is cut comes from the top and claims nothing that is there.
        const std::size_t limit = static_cast<std::size_t>(pick(0, 4));
        const MissingBoxes first = missingBoxes(boxes, area, limit);
        EXPECT_LE(first.boxes.size(), limit);
        EXPECT_EQ(first.truncated, limit < missing.boxes.size());
        const std::vector<int> some = counts(first.boxes, area);
        for (std::size_t i = 0; i < given.size(); ++i)
            ASSERT_LE(some[i], without[i]);
    }
}

TEST(MissingBoxes, JoinWhatMakesABox) {
    const std::vector<PixelBox> left{{0, 0, 8, 8}, {0, 8, 8, 8}, {8, 8, 8, 8}};
    EXPECT_EQ(missingBoxes(left, {0, 0, 24, 16}).boxes,
              (std::vector<PixelBox>{{8, 0, 16, 8}, {16, 8, 8, 8}}));
    EXPECT_EQ(unitedBoxes({{0, 0, 8, 8}, {8, 0, 8, 8}, {0, 8, 16, 4}}, {0, 0, 100, 100}).boxes,
              (std::vector<PixelBox>{{0, 0, 16, 12}}));
    const PixelBox all{INT_MIN, INT_MIN, INT_MAX, INT_MAX};
    EXPECT_EQ(missingBoxes({{-1, -1, INT_MAX, INT_MAX}}, all).boxes, std::vector<PixelBox>{all});
    EXPECT_EQ(missingBoxes({{INT_MAX, INT_MAX, INT_MAX, INT_MAX}}, {INT_MAX - 1, 0, INT_MAX, 1}).boxes,
              (std::vector<PixelBox>{{INT_MAX - 1, 0, 1, 1}}));
}

// Boxes of which each row of gaps meets all columns: the answer would have millions, the work billions.
TEST(MissingBoxes, EndEarlyWhereThereWouldBeTooMany) {
    std::vector<PixelBox> diagonal;
    for (int i = 0; i < 100000; ++i)
        diagonal.push_back({2 * i, i % 50000, 1, 50000});
    const MissingBoxes missing = missingBoxes(diagonal, {0, 0, 200000, 100000});
    EXPECT_TRUE(missing.truncated);
    EXPECT_LE(missing.boxes.size(), kMaxMissingBoxes);
}
