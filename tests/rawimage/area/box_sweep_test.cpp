#include <gtest/gtest.h>

#include <climits>
#include <numeric>
#include <random>

#include "rawimage/area/coverage.h"
#include "rawimage/area/missing_boxes.h"

namespace {

using namespace MUtils;

// How often each pixel of the area is in a box.
std::vector<int> counts(const std::vector<PixelBox>& boxes, const PixelBox& area) {
    std::vector<int> counts;
    for (std::int64_t y = area.y0; y < area.y1; ++y) {
        for (std::int64_t x = area.x0; x < area.x1; ++x) {
            int& count = counts.emplace_back();
            for (const PixelBox& box : boxes)
                count += x >= box.x0 && x < box.x1 && y >= box.y0 && y < box.y1;
        }
    }
    return counts;
}

}  // namespace

// Against counting pixel by pixel; few enough positions that edges meet often.
TEST(BoxSweep, AgreesWithCountingPixels) {
    std::mt19937 random(3);
    const auto pick = [&random](int from, int to) {
        return std::uniform_int_distribution<int>(from, to)(random);
    };
    for (int round = 0; round < 2000; ++round) {
        const PixelBox area = boxAt(pick(-3, 3), pick(-3, 3), pick(0, 14), pick(0, 11));
        std::vector<PixelBox> boxes(static_cast<std::size_t>(pick(0, 12)));
        for (PixelBox& box : boxes)
            box = boxAt(pick(-6, 15), pick(-6, 12), pick(-2, 9), pick(-2, 7));
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
        ASSERT_EQ(coveredPixels(boxes, area), std::accumulate(with.begin(), with.end(), 0));
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

TEST(BoxSweep, JoinsWhatMakesABox) {
    const std::vector<PixelBox> left{{0, 0, 8, 8}, {0, 8, 8, 16}, {8, 8, 16, 16}};
    EXPECT_EQ(missingBoxes(left, {0, 0, 24, 16}).boxes,
              (std::vector<PixelBox>{{8, 0, 24, 8}, {16, 8, 24, 16}}));
    EXPECT_EQ(unitedBoxes({{0, 0, 8, 8}, {8, 0, 16, 8}, {0, 8, 16, 12}}, {0, 0, 100, 100}).boxes,
              (std::vector<PixelBox>{{0, 0, 16, 12}}));
}

TEST(BoxSweep, TakesBoxesOfAnyNumbers) {
    constexpr std::int64_t kLargest = std::int64_t{INT_MAX} * INT_MAX;
    const PixelBox frame{0, 0, INT_MAX, INT_MAX};
    const PixelBox most = boxAt(INT_MIN, INT_MIN, INT_MAX, INT_MAX);
    const PixelBox far = boxAt(INT_MAX, INT_MAX, INT_MAX, INT_MAX);
    const PixelBox everything{INT64_MIN, INT64_MIN, INT64_MAX, INT64_MAX};
    const struct {
        PixelBox box;
        PixelBox area;
        std::int64_t pixels;
    } cases[] = {
        {frame, frame, kLargest},
        {everything, frame, kLargest},
        {frame, everything, kLargest},
        {everything, everything, INT64_MAX},
        {most, frame, 0},
        {far, frame, 0},
        {boxAt(-1, -1, INT_MAX, INT_MAX), frame, std::int64_t{INT_MAX - 1} * (INT_MAX - 1)},
        {boxAt(INT_MAX - 1, INT_MAX - 2, INT_MAX, INT_MAX), frame, 2},
        {boxAt(5, 5, INT_MIN, INT_MAX), frame, 0},
        {{0, 0, 9, 9}, boxAt(0, 0, INT_MIN, 9), 0},
        {boxAt(INT_MIN, INT_MIN, 4, 4), boxAt(INT_MIN, INT_MIN + 1, INT_MAX, INT_MAX), 12},
    };
    for (const auto& c : cases)
        EXPECT_EQ(coveredPixels({c.box, c.box}, c.area), c.pixels) << boxText(c.area);
    EXPECT_EQ(missingBoxes({boxAt(-1, -1, INT_MAX, INT_MAX)}, most).boxes, std::vector<PixelBox>{most});
    EXPECT_EQ(missingBoxes({far}, boxAt(INT_MAX - 1, 0, INT_MAX, 1)).boxes,
              (std::vector<PixelBox>{{INT_MAX - 1, 0, INT_MAX, 1}}));
}

// Boxes of which each row of gaps meets all columns: the answer would have millions, the work billions.
TEST(BoxSweep, EndsEarlyWhereThereWouldBeTooMany) {
    std::vector<PixelBox> diagonal;
    for (int i = 0; i < 100000; ++i)
        diagonal.push_back(boxAt(2 * i, i % 50000, 1, 50000));
    const MissingBoxes missing = missingBoxes(diagonal, {0, 0, 200000, 100000});
    EXPECT_TRUE(missing.truncated);
    EXPECT_LE(missing.boxes.size(), kMaxMissingBoxes);
}
