#include <gmock/gmock.h>

#include <limits>

#include "tests/exr/exr_fixture.h"

using namespace testing_tools;

TEST(ExrTiles, LieWithinTheRenderRegion) {
    const struct {
        RIRegionInfo region;
        int w, h;
        Imath::Box2i window;
    } cases[] = {
        {{-1, 7, 7, 7, 7}, 300, 150, {{0, 0}, {299, 149}}},
        {{0, 100, 50, 130, 70}, 300, 150, {{100, 50}, {229, 119}}},
        {{1, -10, -20, 64, 65}, 300, 150, {{-10, -20}, {53, 44}}},
    };
    for (const auto& c : cases) {
        const TempFile file;
        Writer writer(1, file.path, c.w, c.h, {{1, "v"}, {6, ""}, {1, "z1", 117}, {1, "z2", 117}}, 32, 4, 64);
        ASSERT_EQ(texts({writer.WTRenderRegion(c.region), writer.announce()}), "");
        const Imath::Box2i box = c.window;
        ASSERT_EQ(writer.writeBuckets(box, 64), "");
        const Part part = readExr(file.path).at(0);
        EXPECT_EQ(layoutOf({part}), "[-] .A:f .B:f .G:f .R:f v:f z1:f z2:f");
        EXPECT_EQ(part.header.dataWindow(), box);
        EXPECT_EQ(part.header.displayWindow(), Imath::Box2i({0, 0}, {299, 149}));
        EXPECT_EQ(errorOf(part, ".A", 1, 3), 0.0);
        EXPECT_EQ(errorOf(part, "v", 0, 0), 0.0);
    }
    // The other kinds know neither buckets nor a render region.
    const TempFile file;
    Writer writer(0, file.path, 9, 8, {{1, "v"}});
    ASSERT_EQ(texts({writer.WTRenderRegion({0, 1, 1, 2, 2}), writer.announce()}), "");
    ASSERT_EQ(texts({writer.write(Region(writer.chans, 0, 0, 9, 8)), writer.Close()}), "");
    EXPECT_EQ(readExr(file.path).at(0).header.dataWindow(), Imath::Box2i({0, 0}, {8, 7}));
}

TEST(ExrTiles, HalfFilesSpendTheRegionAndShareValues) {
    const Chans chans = {{1, "a"}, {1, "b"}, {4, "id"}};
    for (const int blockBytes : {1 << 20, 64}) {
        const TempFile file;
        Writer writer(1, file.path, 16, 16, chans, 16);
        Region region(chans, 0, 0, 16, 16, blockBytes);
        region.channels[1].data = region.channels[0].data;
        ASSERT_EQ(texts({writer.WTRegion(&region, 0, 0, 0), writer.Close()}), "");
        const Part part = readExr(file.path).at(0);
        EXPECT_EQ(errorOf(part, "a", 0, 0) + errorOf(part, "b", 0, 0) + errorOf(part, "id", 2, 0), 0.0);
        std::uint16_t low = 0;
        std::memcpy(&low, region.at(0, 9, 15), 2);
        EXPECT_EQ(low, half(sample(0, 0, 9, 15)).bits());
        unsigned id = 0;
        std::memcpy(&id, region.at(2, 9, 15), 4);
        EXPECT_EQ(id, intSample(2, 9, 15));
    }
}

// The box is what counts; what the buffer has beside and below it is passed over.
TEST(ExrTiles, TakeTheirBoxFromLongerRows) {
    const Chans chans = {{2, "color", 126}, {4, "id"}, {3, "motion"}};
    for (const int blockBytes : {1 << 20, 84}) {
        for (const int bits : {16, 32}) {
            const TempFile file;
            Writer writer(1, file.path, 40, 30, chans, bits);
            const int corners[][2] = {{0, 0}, {16, 0}, {32, 0}, {0, 16}, {16, 16}, {32, 16}};
            for (const auto& [x, y] : corners) {
                const int right = std::min(x + 16, 40), bottom = std::min(y + 16, 30);
                Region region(chans, x, y, right + (x == 16 ? 0 : 7), bottom + (y == 0 ? 3 : 0), blockBytes);
                region.x1 = right, region.y1 = bottom;
                ASSERT_EQ(text(writer.WTRegion(&region, 0, 0, 0)), "") << x << ", " << y;
            }
            ASSERT_EQ(text(writer.Close()), "");
            const Part part = readExr(file.path).at(0);
            EXPECT_EQ(errorOf(part, "B", 0, 2) + errorOf(part, "motion.Y", 2, 1), 0.0);
            EXPECT_EQ(errorOf(part, "id", 1, 0), 0.0);
        }
    }
}

// The main channels have no name in the file, and two channels may have one.
TEST(ExrTiles, KnowTheirChannelsByWhatComesOfThem) {
    const struct {
        Chans announced, given;
        const char* error;
    } cases[] = {
        {{{2, "color", 126}}, {{2, "rgb", 126, 0, Values::kTooFew}}, "channel 0 (rgb) has 255 values"},
        {{{2, "color", 126}}, {{2, "other", 0, 0, Values::kTooFew}}, ""},
        {{{1, "z", 117}}, {{1, "depth", 117, 0, Values::kWrongSize}}, "channel 0 (depth) has values of 3"},
        {{{1, "c"}, {2, "c"}}, {{2, "c"}, {1, "c"}}, ""},
        {{{1, "c"}, {2, "c"}}, {{2, "c"}}, ""},
        {{{1, "c"}, {2, "c", 0, 2}}, {{1, "c"}, {2, "c"}}, ""},
        {{{1, "c"}, {2, "c"}}, {{2, "c"}, {3, "c"}}, "channel 1 (c) is of type 3, announced was 1"},
    };
    for (const auto& c : cases) {
        const TempFile file;
        Writer writer(1, file.path, 16, 16, c.announced);
        const std::string error = text(writer.write(Region(c.given, 0, 0, 16, 16)));
        EXPECT_THAT(error, testing::HasSubstr(c.error));
        EXPECT_EQ(error.empty(), *c.error == 0) << error;
    }
}

TEST(ExrTiles, MustMatchTheirBuckets) {
    const TempFile file;
    Writer writer(1, file.path, 40, 30, {{1, "v"}});
    const char* const kOpenExr = "WTRegion -1 Error writing tile to .exr file";
    const struct {
        int x0, y0, x1, y1, width, height;
        const char* error;
    } cases[] = {
        {0, 0, 8, 8, 8, 8,
         "writeRegion -1 Region data ((0, 0)-(8, 8)) and tile size ((0, 0)-(16, 16)) do not match"},
        {17, 16, 32, 30, 15, 14,
         "writeRegion -1 Region data ((17, 16)-(32, 30)) and tile size ((16, 16)-(32, 30)) do not match"},
        {32, 16, 48, 32, 16, 16,
         "writeRegion -1 Region data ((32, 16)-(48, 32)) and tile size ((32, 16)-(40, 30)) do not match"},
        {0, 0, 16, 16, 8, 16,
         "writeRegion -1 Region data of 8 x 16 pixels is too small for its box of 16 x 16"},
        {16, 16, 32, 30, 99, 13,
         "writeRegion -1 Region data of 99 x 13 pixels is too small for its box of 16 x 14"},
        // Divided towards zero, a start left of the image is in the first tile.
        {-15, 0, 1, 16, 16, 16,
         "writeRegion -1 Region data ((-15, 0)-(1, 16)) and tile size ((0, 0)-(16, 16)) do not match"},
        {-16, 0, 0, 16, 16, 16, kOpenExr},
        {48, 0, 64, 16, 16, 16, kOpenExr},
        {std::numeric_limits<int>::min(), 0, 16, 16, 16, 16, kOpenExr},
        {16, 16, 32, 30, 16, 14, ""},
        {16, 16, 32, 30, 16, 14, kOpenExr},
        {0, 0, 16, 16, 16, 16, ""},
    };
    for (const auto& c : cases) {
        Region region(writer.chans, 0, 0, c.width, c.height);
        region.x0 = c.x0, region.y0 = c.y0, region.x1 = c.x1, region.y1 = c.y1;
        EXPECT_EQ(text(writer.WTRegion(&region, 0, 0, 0)), c.error);
    }
    EXPECT_EQ(text(writer.Close()), "");
}

TEST(ExrTiles, FailuresHaveTheirCodesAndMessages) {
    const Chans chans = {{1, "v"}};
    const TempFile file;
    Writer writer(1, file.path, 16, 16, chans);
    const auto region = [&] { return text(writer.write(Region(chans, 0, 0, 16, 16)), 2); };
    const char* const kNoFile = "writeRegion -1 The OpenExr file could not be created";
    const std::string kCreate = "WTRegion -1 Error creating OpenExr file < create -1 ";

    (void)writer.WTRegionsInfo(16, 16, 1);
    for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(region(), kCreate + "Tiled OpenExr does not support variable bucket size");
    }
    // Bucket sizes that OpenEXR refuses; of size 0 all later buckets pass.
    for (const int size : {0, -16}) {
        (void)writer.WTRegionsInfo(size, 16, 0);
        EXPECT_EQ(region(), kCreate + "Error creating OpenExr file");
        EXPECT_EQ(region(), size == 0 ? "" : kNoFile);
        EXPECT_EQ(texts({writer.Close(), writer.announce()}), "");
        EXPECT_FALSE(file.exists());
    }
    // Attributes that the tile description and the pixels' names stumble over.
    (void)writer.WTRegionsInfo(16, 16, 0);
    EXPECT_EQ(text(writer.WTExtraAttributes("tiles=1")), "");
    EXPECT_EQ(region(), kCreate + "Error creating OpenExr file");
    EXPECT_ANY_THROW((void)writer.WTExtraAttributes("compression=1"));
    EXPECT_EQ(text(writer.Close()), "");

    // Without channels there is no header; an empty name leaves none either.
    const auto withoutHeader = [&] {
        for (int again = 0; again < 2; ++again)
            EXPECT_EQ(region(), kCreate + "Header not created yet");
        EXPECT_EQ(text(writer.WTCameraInfo({})), "setCameraInfo -3 Header not created yet");
        EXPECT_EQ(text(writer.WTStampText("x")), "setStampText -3 Header not created yet");
        EXPECT_EQ(text(writer.WTExtraAttributes("a=1")), "setExtraAttributes -3 Header not created yet");
    };
    withoutHeader();
    EXPECT_EQ(text(writer.announce()), "");
    writer.chans = {{1, "v"}, {1, nullptr}};
    EXPECT_ANY_THROW((void)writer.announce());
    withoutHeader();

    writer.chans = chans;
    EXPECT_EQ(text(writer.announce()), "");
    EXPECT_EQ(text(writer.WTExtraAttributes("a=1; =2")),
              "WriteEXRExtraAttributes -1 attribute name expected at position 5");
    // Other halves than the file's.
    (void)writer.WriteHeader(16);
    EXPECT_EQ(region().substr(0, 43), "WTRegion -1 Error writing tile to .exr file");
    // What failed does not stand in the way; channels that the file does not know are passed over.
    (void)writer.WriteHeader(32);
    EXPECT_EQ(text(writer.write(Region({{1, "v"}, {2, "more"}, {5, "n", 0, 2}}, 0, 0, 16, 16, 64))), "");
    EXPECT_EQ(text(writer.Close()), "");
    EXPECT_EQ(errorOf(readExr(file.path).at(0), "v", 0, 0), 0.0);
}
