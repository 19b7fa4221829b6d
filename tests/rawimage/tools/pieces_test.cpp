#include "rawimage/tools/pieces.h"

#include <gtest/gtest.h>

#include "rawimage/area/missing_boxes.h"

using namespace MUtils;

namespace {

PieceOptions frameOf(std::int64_t width, std::int64_t height, std::int64_t bucket, std::int64_t count) {
    PieceOptions options;
    options.width = width, options.height = height;
    options.bucketWidth = options.bucketHeight = bucket;
    options.count = count;
    return options;
}

using Buckets = std::vector<std::pair<PixelBox, std::uint32_t>>;  // with their bytes

Inspection costing(std::int32_t width, std::int32_t height, const Buckets& buckets) {
    Inspection file;
    file.facts.resolution = RIF_TAG{TAG_RESOLUTION, kTagHeaderBytes, width, height};
    for (const auto& [box, bytes] : buckets) {
        INFOTAG tag;
        tag.id = TAG_CHAN_FLOAT;
        tag.size = bytes;
        tag.p2 = static_cast<std::int32_t>(box.x0), tag.p3 = static_cast<std::int32_t>(box.y0);
        tag.p4 = static_cast<std::int32_t>(box.width()), tag.p5 = static_cast<std::int32_t>(box.height());
        file.tags.push_back(tag);
    }
    return file;
}

}  // namespace

TEST(Pieces, TileTheFrameOnItsBucketsInAboutEqualParts) {
    const struct {
        std::int64_t width, height, bucket, count, pieces;
        double largest;  // share times pieces
    } cases[] = {
        {640, 480, 64, 1, 1, 1.01},
        {640, 480, 64, 4, 4, 1.15},
        {1920, 1080, 16, 7, 7, 1.05},
        {7680, 4320, 16, 1000, 1000, 1.3},
        {7680, 4320, 64, 9000, 8160, 1.03},
        {100, 100, 64, 4, 4, 1.65},
        {48, 48, 16, 9, 9, 1.01},
        {48, 48, 16, 8, 8, 1.8},
        {1000000, 1000000, 1, 3, 3, 1.01},
        {1000000, 1, 1, 16, 16, 1.01},
        {1, 1, 64, 5, 1, 1.01},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.width) + 'x' + std::to_string(c.height) + " in " +
                     std::to_string(c.count));
        const PieceOptions options = frameOf(c.width, c.height, c.bucket, c.count);
        const std::vector<FramePiece> pieces = cutFrame(options);
        ASSERT_EQ(static_cast<std::int64_t>(pieces.size()), c.pieces);
        std::vector<PixelBox> boxes;
        std::int64_t pixels = 0;
        double shares = 0, largest = 0;
        for (const FramePiece& piece : pieces) {
            const PixelBox& box = piece.box;
            EXPECT_TRUE(box.x0 % c.bucket == 0 && box.y0 % c.bucket == 0) << boxText(box);
            EXPECT_TRUE(box.x1 % c.bucket == 0 || box.x1 == c.width) << boxText(box);
            EXPECT_TRUE(box.y1 % c.bucket == 0 || box.y1 == c.height) << boxText(box);
            boxes.push_back(box);
            pixels += box.area();
            shares += piece.share;
            largest = std::max(largest, piece.share * static_cast<double>(pieces.size()));
        }
        EXPECT_TRUE(missingBoxes(boxes, {0, 0, c.width, c.height}).boxes.empty());
        EXPECT_EQ(pixels, c.width * c.height) << "nothing twice";
        EXPECT_NEAR(shares, 1, 1e-6);
        EXPECT_LE(largest, c.largest);
    }
}

// The left quarter cost as much as the rest, by a frame of the same size and by one of half of it.
TEST(Pieces, CostWhatTheBucketsOfAnEarlierFrameCost) {
    for (const std::int32_t scale : {1, 2}) {
        Buckets buckets;
        for (std::int32_t x = 0; x < 64 / scale; x += 8)
            buckets.push_back({boxAt(x, 0, 8, 16 / scale), x < 16 / scale ? 30000 : 10000});
        const Inspection costs = costing(64 / scale, 16 / scale, buckets);
        PieceOptions options = frameOf(64, 16, 8, 2);
        options.costs = &costs;
        const std::vector<FramePiece> pieces = cutFrame(options);
        ASSERT_EQ(pieces.size(), 2u);
        EXPECT_EQ(pieces[0].box, (PixelBox{0, 0, 16, 16})) << boxText(pieces[0].box);
        EXPECT_NEAR(pieces[0].share, 0.5, 0.01);
    }
    // A frame without pixels, and one with boxes that lie partly or wholly outside.
    for (const Buckets& buckets :
         {Buckets(), Buckets{{{-100, -100, 10, 10}, 500}, {{5000, 0, 6000, 10}, 500}}}) {
        const Inspection costs = costing(64, 16, buckets);
        PieceOptions options = frameOf(64, 16, 8, 4);
        options.costs = &costs;
        EXPECT_EQ(cutFrame(options).size(), 4u);
    }
}

TEST(Pieces, AreNoneOfSizesBeyondTheLimits) {
    for (const PieceOptions& options :
         {frameOf(0, 10, 8, 2), frameOf(10, -1, 8, 2), frameOf(10, 10, 0, 2), frameOf(10, 10, 8, 0),
          frameOf(kMostPixelsOfASide + 1, 10, 8, 2), frameOf(10, 10, 8, kMostPieces + 1)})
        EXPECT_TRUE(cutFrame(options).empty());
}
