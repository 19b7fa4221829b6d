#include "support/rd_preview.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

using namespace MUtils;

namespace {

// Shows colours as they are, and counts the pixels that are drawn.
struct Plain final : ColCor {
    int calls = 0;
    void correct(float*) override { ++calls; }
};

struct Box {
    int x, y, width, height;
};

// A picture of a canvas whose pixels have the red of a function of their position, half green and no blue.
struct Picture {
    int canvasWidth, canvasHeight, width, height;
    std::function<float(int x, int y)> red;
    std::vector<RGB24> pixels = std::vector<RGB24>(static_cast<std::size_t>(width * height), {7, 7, 7});

    void draw(const Box& box, ColCor* corrector, int itemSize = 12, int blockBytes = 64) {
        MBVTable data(itemSize, blockBytes);
        data.setCount(box.width * box.height);
        for (int i = 0; i < data.count; ++i) {
            const float value[] = {red(box.x + i % box.width, box.y + i / box.width), 0.5f, 0.0f, 9.0f};
            std::memcpy(data.item(i), value, static_cast<std::size_t>(itemSize));
        }
        draw(data, box, corrector);
    }
    void draw(const MBVTable& data, const Box& box, ColCor* corrector) {
        EXPECT_TRUE(CreateRDPreview(1, 0, 2, 126, data, nullptr, canvasWidth, canvasHeight, box.x, box.y,
                                    box.width, box.height, pixels.data(), width, height, {255, 255, 255}, 2,
                                    corrector, corrector != nullptr, 0));
    }
};

// Cuts the box in two until the pieces are small enough.
void cut(const Box& box, std::mt19937& random, std::vector<Box>& pieces) {
    const auto pick = [&random](int last) { return std::uniform_int_distribution<int>(1, last)(random); };
    if (box.width > 1 && pick(4) > 1) {
        const int left = pick(box.width - 1);
        cut({box.x, box.y, left, box.height}, random, pieces);
        cut({box.x + left, box.y, box.width - left, box.height}, random, pieces);
    } else if (box.height > 1 && pick(4) > 1) {
        const int top = pick(box.height - 1);
        cut({box.x, box.y, box.width, top}, random, pieces);
        cut({box.x, box.y + top, box.width, box.height - top}, random, pieces);
    } else {
        pieces.push_back(box);
    }
}

// The length that output pixel `o` and canvas pixel `p` share, times 2 * out.
int shared(int canvas, int out, int o, int p) {
    return std::max(std::min(2 * (o + 1) * canvas, 2 * (p + 1) * out) - std::max(2 * o * canvas, 2 * p * out),
                    0);
}

bool centreIsIn(int canvas, int out, int o, int start, int size) {
    return (2 * o + 1) * canvas >= 2 * start * out && (2 * o + 1) * canvas < 2 * (start + size) * out;
}

double averageRed(const Picture& picture, const Box& box, int column, int row) {
    double sum = 0, area = 0;
    for (int y = box.y; y < box.y + box.height; ++y) {
        for (int x = box.x; x < box.x + box.width; ++x) {
            const double weight = static_cast<double>(shared(picture.canvasWidth, picture.width, column, x)) *
                                  shared(picture.canvasHeight, picture.height, row, y);
            sum += weight * static_cast<double>(picture.red(x, y));
            area += weight;
        }
    }
    return sum / area;
}

// Whatever the buckets are and in which order they come: each pixel is drawn exactly once, by the bucket that
// its centre is in.
TEST(RdPreview, DrawsEachPixelOnceFromTheBucketOfItsCentre) {
    std::mt19937 random(11);
    const auto pick = [&random](int last) { return std::uniform_int_distribution<int>(1, last)(random); };
    for (int round = 0; round < 200; ++round) {
        Picture picture{pick(24), pick(24), pick(24), pick(24),
                        [](int x, int y) { return static_cast<float>((x * 37 + y * 59) % 256) / 256.0f; }};
        std::vector<Box> boxes;
        cut({0, 0, picture.canvasWidth, picture.canvasHeight}, random, boxes);
        std::shuffle(boxes.begin(), boxes.end(), random);
        Plain plain;
        for (const Box& box : boxes)
            picture.draw(box, &plain, 12, round % 2 == 0 ? 64 : 1 << 20);
        ASSERT_EQ(plain.calls, picture.width * picture.height);
        for (int i = 0; i < plain.calls; ++i) {
            const int column = i % picture.width;
            const int row = i / picture.width;
            const RGB24 pixel = picture.pixels[static_cast<std::size_t>(i)];
            ASSERT_EQ(pixel.g, 128) << "an even area stays even";
            const auto box = std::find_if(boxes.begin(), boxes.end(), [&](const Box& b) {
                return centreIsIn(picture.canvasWidth, picture.width, column, b.x, b.width) &&
                       centreIsIn(picture.canvasHeight, picture.height, row, b.y, b.height);
            });
            const double red = averageRed(picture, *box, column, row) * 256;
            ASSERT_TRUE(pixel.r <= red + 1e-3 && pixel.r > red - 1 - 1e-3) << int{pixel.r} << " for " << red;
        }
    }
}

TEST(RdPreview, ShowsEveryNumber) {
    struct Fixed final : ColCor {
        float value = 0;
        void correct(float* rgb) override { std::fill_n(rgb, 3, value); }
    };
    const float kInf = INFINITY;
    const struct {
        float value;
        int linear;   // without a corrector
        int display;  // as a corrector's result
    } cases[] = {
        {NAN, 0, 0},       {-NAN, 0, 0},     {kInf, 255, 255},   {-kInf, 255, 0},         {-1.0f, 0, 0},
        {-0.0f, 0, 0},     {1e-45f, 0, 0},   {0.002f, 6, 0},     {0.5f, 188, 128},        {1.0f, 255, 255},
        {3e38f, 255, 255}, {0.25f, 137, 64}, {0.996f, 255, 254}, {0.99609375f, 255, 255},
    };
    for (const auto& c : cases) {
        Picture picture{1, 1, 1, 1, [&c](int, int) { return c.value; }};
        picture.draw({0, 0, 1, 1}, nullptr);
        EXPECT_EQ(picture.pixels[0].r, c.linear) << c.value;
        EXPECT_EQ(picture.pixels[0].g, 188);
        EXPECT_EQ(picture.pixels[0].b, 0);
        Fixed fixed;
        fixed.value = c.value;
        picture.draw({0, 0, 1, 1}, &fixed);
        EXPECT_EQ(picture.pixels[0].b, c.display) << c.value;
    }
    // One spoils its neighbours' average in no other way than this.
    Picture mixed{4, 1, 2, 1, [kInf](int x, int) {
                      return x == 0 ? kInf : x == 1 ? -kInf : x == 2 ? NAN : 1.0f;
                  }};
    mixed.draw({0, 0, 4, 1}, nullptr);
    EXPECT_EQ(mixed.pixels[0].r, 255);
    EXPECT_EQ(mixed.pixels[1].r, 188);
}

TEST(RdPreview, TakesBucketsOfAnyNumbers) {
    const struct {
        Box box;
        int canvas[2], out[2];
        int count, itemSize, drawn;
    } cases[] = {
        {{-1, -1, 3, 3}, {1, 1}, {2, 2}, 9, 12, 4},
        {{-1, 0, 2, 2}, {4, 4}, {4, 4}, 4, 12, 2},
        {{3, 3, 2, 2}, {4, 4}, {4, 4}, 4, 12, 1},
        {{4, 0, 2, 2}, {4, 4}, {4, 4}, 4, 12, 0},
        {{0, -2, 2, 2}, {4, 4}, {4, 4}, 4, 12, 0},
        {{0, 0, 2, 2}, {4, 4}, {4, 4}, 3, 12, 0},
        {{0, 0, 2, 2}, {4, 4}, {4, 4}, 4, 8, 0},
        {{0, 0, 2, 2}, {4, 4}, {4, 4}, 4, 16, 4},
        {{0, 0, 0, 2}, {4, 4}, {4, 4}, 4, 12, 0},
        {{0, 0, -2, -2}, {4, 4}, {4, 4}, 4, 12, 0},
        {{0, 0, 2, 2}, {0, 4}, {4, 4}, 4, 12, 0},
        {{0, 0, 2, 2}, {4, -4}, {4, 4}, 4, 12, 0},
        {{0, 0, 2, 2}, {4, 4}, {0, 4}, 4, 12, 0},
        {{0, 0, 2, 2}, {4, 4}, {4, -1}, 4, 12, 0},
        {{INT_MAX, INT_MIN, 2, 2}, {INT_MAX, INT_MAX}, {4, 4}, 4, 12, 0},
        {{INT_MAX / 2, INT_MAX / 2, 2, 2}, {INT_MAX, INT_MAX}, {1, 1}, 4, 12, 1},
        {{0, 0, INT_MAX, INT_MAX}, {INT_MAX, INT_MAX}, {4, 4}, 4, 12, 0},
        {{0, 0, 1 << 16, 1 << 16}, {4, 4}, {4, 4}, 0, 12, 0},
        {{-(1 << 19), 0, 1 << 20, 1}, {INT_MAX, 1}, {1 << 12, 1}, 1 << 20, 12, 1},
    };
    for (const auto& c : cases) {
        MBVTable data(c.itemSize, 1 << 20);
        data.setCount(c.count);
        for (int i = 0; i < c.count; ++i)
            std::memset(data.item(i), 0, static_cast<std::size_t>(c.itemSize));
        Picture picture{c.canvas[0], c.canvas[1], c.out[0], c.out[1], {}, std::vector<RGB24>(4096)};
        Plain plain;
        picture.draw(data, c.box, &plain);
        EXPECT_EQ(plain.calls, c.drawn) << c.box.x << ' ' << c.box.width << " on " << c.canvas[0];
    }
    Picture nowhere{1, 1, 1, 1, {}, {}};
    nowhere.draw(MBVTable(12, 64), {0, 0, 1, 1}, nullptr);
}

}  // namespace
