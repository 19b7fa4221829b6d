#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "rawimage/area/tag_box.h"
#include "rawimage/frame/overlap_groups.h"
#include "rawimage/frame/place_index.h"

using namespace MUtils;

namespace {

INFOTAG tagAt(const PixelBox& box) {
    INFOTAG tag;
    tag.p2 = static_cast<std::int32_t>(box.x0);
    tag.p3 = static_cast<std::int32_t>(box.y0);
    tag.p4 = static_cast<std::int32_t>(box.width());
    tag.p5 = static_cast<std::int32_t>(box.height());
    return tag;
}

class Random {
  public:
    int upTo(int most) { return std::uniform_int_distribution<int>(0, most)(engine_); }
    PixelBox box(int space, int edge) {
        return boxAt(upTo(space) - space / 4, upTo(space) - space / 4, 1 + upTo(edge), 1 + upTo(edge));
    }

  private:
    std::mt19937 engine_{7};
};

TEST(PlaceIndex, FindsWhatAWalkFinds) {
    Random random;
    for (const int count : {0, 1, 16, 17, 300, 5000}) {
        for (const bool inOrder : {true, false}) {
            std::vector<INFOTAG> tags;
            for (int i = 0; i < count; ++i)
                tags.push_back(tagAt(inOrder ? boxAt(i % 64 * 8, i / 64 * 8, 8, 8)
                                             : random.box(600, i % 50 == 0 ? 500 : 9)));
            std::vector<std::uint32_t> numbers(tags.size());
            std::iota(numbers.begin(), numbers.end(), 0u);
            PlaceIndex index;
            index.build(tags.data(), numbers.data(), tags.size());
            for (int query = 0; query < 50; ++query) {
                const PixelBox box = random.box(600, 60);
                std::vector<std::uint32_t> found, expected;
                index.find(box, found);
                std::sort(found.begin(), found.end());
                for (std::uint32_t i = 0; i < tags.size(); ++i) {
                    if (overlaps(boxOf(tags[i]), box)) expected.push_back(i);
                }
                ASSERT_EQ(found, expected) << count << ' ' << boxText(box);
            }
        }
    }
}

TEST(OverlapGroups, SeparateWhatDoesNotOverlap) {
    Random random;
    for (int round = 0; round < 300; ++round) {
        std::vector<PixelBox> boxes;
        for (int i = random.upTo(60); i-- > 0;)
            boxes.push_back(random.box(60, round % 20));
        const std::vector<std::size_t> groups = groupOverlapping(boxes);
        bool anyOverlap = false;
        for (std::size_t i = 0; i < boxes.size(); ++i) {
            ASSERT_LE(groups[i], i);
            ASSERT_EQ(groups[groups[i]], groups[i]);
            for (std::size_t k = 0; k < i; ++k) {
                if (!overlaps(boxes[i], boxes[k])) continue;
                anyOverlap = true;
                ASSERT_EQ(groups[i], groups[k]) << boxText(boxes[i]) << ' ' << boxText(boxes[k]);
            }
        }
        bool allAlone = true;
        for (std::size_t i = 0; i < boxes.size(); ++i)
            allAlone = allAlone && groups[i] == i;
        ASSERT_EQ(allAlone, !anyOverlap);
    }
}

}  // namespace
