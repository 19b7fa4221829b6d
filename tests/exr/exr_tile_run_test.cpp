#include <ImfThreading.h>
#include <gmock/gmock.h>

#include <fstream>
#include <iterator>

#include "rawimage/output_queue.h"
#include "tests/exr/exr_fixture.h"

// Tiles that are packed together: the file is the one that has them one by one.

using namespace testing_tools;

namespace {

// Hands out a list of regions that are all there from the start.
struct ListFeed final : RegionFeed {
    bool next(bool /*wait*/, Call& call) override {
        if (taken == regions.size()) return false;
        call.region = regions[taken++].get();
        return true;
    }
    void written() override { ++done; }
    void end() override { taken = regions.size(); }

    std::vector<std::unique_ptr<Region>> regions;
    std::size_t taken = 0;
    std::size_t done = 0;
};

std::vector<char> bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

using Corner = std::pair<int, int>;

constexpr int kWidth = 70, kHeight = 40, kTile = 16;

std::vector<Corner> rowsOfTiles() {
    std::vector<Corner> corners;
    for (int y = 0; y < kHeight; y += kTile) {
        for (int x = 0; x < kWidth; x += kTile)
            corners.emplace_back(x, y);
    }
    return corners;
}

// As a renderer goes around a frame: right, down, left, up.
std::vector<Corner> ringOfTiles() {
    std::vector<Corner> corners = {{0, 0}, {16, 0}, {32, 0}, {48, 0}, {64, 0}, {64, 16}, {64, 32}, {48, 32}};
    corners.insert(corners.end(), {{32, 32}, {16, 32}, {0, 32}, {0, 16}, {16, 16}, {32, 16}, {48, 16}});
    return corners;
}

std::unique_ptr<Region> tileAt(const Chans& chans, const Corner& corner, int more = 0) {
    const int right = std::min(corner.first + kTile, kWidth),
              bottom = std::min(corner.second + kTile, kHeight);
    auto region = std::make_unique<Region>(chans, corner.first, corner.second, right + more, bottom + more);
    region->x1 = right;
    region->y1 = bottom;
    return region;
}

class TileRuns : public testing::Test {
  protected:
    TileRuns() : threads_(Imf::globalThreadCount()) { Imf::setGlobalThreadCount(2); }
    ~TileRuns() override { Imf::setGlobalThreadCount(threads_); }

    const Chans chans_ = {{2, "color", 126}, {4, "id"}, {3, "motion"}, {1, "z", 117}, {6, "none", 0, 2}};
    const TempFile one_, many_;

  private:
    const int threads_;
};

}  // namespace

TEST_F(TileRuns, MakeTheSameFileAsSingleTiles) {
    std::vector<Corner> backwards = rowsOfTiles();
    std::reverse(backwards.begin(), backwards.end());
    for (const std::vector<Corner>& order : {rowsOfTiles(), backwards, ringOfTiles()}) {
        for (const int bits : {16, 32}) {
            for (const int more : {0, 3}) {
                Writer one(1, one_.path, kWidth, kHeight, chans_, bits);
                Writer many(1, many_.path, kWidth, kHeight, chans_, bits);
                ListFeed feed;
                for (const Corner& corner : order) {
                    ASSERT_EQ(text(one.WTRegion(tileAt(chans_, corner, more).get(), 0, 0, 0)), "");
                    feed.regions.push_back(tileAt(chans_, corner, corner.first == 32 ? 0 : more));
                }
                EXPECT_EQ(texts({one.Close(), many.WTRegions(feed), many.Close()}), "");
                EXPECT_EQ(feed.done, order.size());
                EXPECT_TRUE(bytesOf(one_.path) == bytesOf(many_.path)) << bits << ' ' << more;
                const Part part = readExr(many_.path).at(0);
                EXPECT_EQ(errorOf(part, "G", 0, 1) + errorOf(part, "id", 1, 0) + errorOf(part, "Z", 3, 0),
                          0.0);
            }
        }
    }
}

// A region without one of the channels leaves it black there, and nowhere else.
TEST_F(TileRuns, KeepChannelsApartThatSomeRegionsLack) {
    Chans lacking = chans_;
    lacking[1].values = Values::kMissing;
    Writer one(1, one_.path, kWidth, kHeight, chans_);
    Writer many(1, many_.path, kWidth, kHeight, chans_);
    ListFeed feed;
    for (const Corner& corner : rowsOfTiles()) {
        feed.regions.push_back(tileAt(corner.first == 16 ? lacking : chans_, corner));
        ASSERT_EQ(text(one.WTRegion(feed.regions.back().get(), 0, 0, 0)), "");
    }
    EXPECT_EQ(texts({one.Close(), many.WTRegions(feed), many.Close()}), "");
    EXPECT_TRUE(bytesOf(one_.path) == bytesOf(many_.path));
}

TEST_F(TileRuns, EndBeforeARegionThatCannotBeWritten) {
    Chans few = chans_;
    few[0].values = Values::kTooFew;
    struct {
        std::unique_ptr<Region> bad;
        const char* error;
    } cases[] = {
        {std::make_unique<Region>(chans_, 48, 0, 60, 16), "do not match"},
        {tileAt(few, {48, 0}), "channel 0 (color) has 255 values"},
        {tileAt(chans_, {16, 0}), "already written"},
        {std::make_unique<Region>(chans_, 160, 0, 176, 16), ""},
    };
    for (auto& c : cases) {
        Writer writer(1, many_.path, kWidth, kHeight, chans_);
        ListFeed feed;
        for (const int x : {0, 16, 32})
            feed.regions.push_back(tileAt(chans_, {x, 0}));
        feed.regions.push_back(std::move(c.bad));
        feed.regions.push_back(tileAt(chans_, {0, 16}));
        const ErrorCode error = writer.WTRegions(feed);
        EXPECT_THAT(error.describe(), testing::HasSubstr(c.error));
        EXPECT_TRUE(error);
        EXPECT_EQ(feed.done, 3u);
        EXPECT_EQ(text(writer.Close()), "");
    }
}

TEST_F(TileRuns, TakeSeveralRowsFromOneBuffer) {
    Writer one(1, one_.path, kWidth, kHeight, chans_, 16);
    ASSERT_EQ(one.writeBuckets({{0, 0}, {kWidth - 1, kHeight - 1}}, kTile), "");
    Writer many(1, many_.path, kWidth, kHeight, chans_, 16);
    Region upper(chans_, 0, 0, kWidth, 32), wrong(chans_, 0, 8, kWidth, 32),
        lower(chans_, 0, 32, kWidth, kHeight);
    EXPECT_EQ(text(many.WTTiles(&upper)), "");
    EXPECT_EQ(text(many.WTTiles(&wrong)),
              "writeRegion -1 Region data ((0, 8)-(70, 32)) and tile size ((0, 0)-(70, 32)) do not match");
    EXPECT_NE(text(many.WTTiles(&upper)), "");
    EXPECT_EQ(texts({many.WTTiles(&lower), many.Close()}), "");
    EXPECT_TRUE(bytesOf(one_.path) == bytesOf(many_.path));
    Writer scanline(0, one_.path, kWidth, kHeight, chans_);
    EXPECT_EQ(text(scanline.WTTiles(&upper)), "writeTiles -1 Operation not supported");
}

// What is flushed has left the process, also of a file that is not whole yet.
TEST_F(TileRuns, ComeOutOfAQueue) {
    for (const int kind : {0, 1, 2}) {
        Writer file(kind, many_.path, kWidth, kHeight, chans_);
        OutputQueue queue(file);
        if (kind == 1) {
            for (const Corner& corner : ringOfTiles())
                EXPECT_EQ(text(queue.WTRegion(tileAt(chans_, corner).get(), 0, 0, 0)), "");
        } else {
            Region whole(chans_, 0, 0, kWidth, kHeight);
            EXPECT_EQ(text(queue.WTRegion(&whole, 0, 0, 0)), "");
        }
        EXPECT_EQ(text(queue.flush()), "");
        EXPECT_GT(bytesOf(many_.path).size(), std::size_t{1000});
        EXPECT_EQ(text(queue.Close()), "");
        const std::vector<Part> parts = readExr(many_.path);
        EXPECT_EQ(errorOf(parts.at(0), "G", 0, 1), 0.0);
    }
}
