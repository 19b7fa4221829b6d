#include <OpenEXR/ImfBoxAttribute.h>
#include <OpenEXR/ImfFloatAttribute.h>
#include <OpenEXR/ImfIntAttribute.h>
#include <OpenEXR/ImfStringAttribute.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/cli/to_exr_fixture.h"
#include "tests/testing/exr_sample.h"

namespace {

using namespace testing_tools;
using testing::HasSubstr;

// Finite numbers: alpha of scan-line files is computed.
constexpr std::uint32_t kFiniteBits = 0xBBFFBBFF;
const Imath::Box2i kFrame{{0, 0}, {69, 40}};
const char* const kMixed =
    "A:h B:h G:f R:h Z:f c.A:f c.B:h c.G:h c.R:f id:u m.X:f m.Y:h n.X:f n.Y:f n.Z:f v:h x.R:f x.G:f x.B:f";

TEST(ToExr, ExrToRawToExrIsTheSameBitForBit) {
    const Imath::Box2i window{{10, 5}, {61, 33}};
    const ExrSample samples[] = {
        {{{"", kMixed, kFrame}}, kFrame},
        {{{"", kMixed, window}}, kFrame},
        {{{"", "R:h G:h B:h Z:f", window},
          {"same", "R:f G:h B:h A:h", window},
          {"other", "w:f id:u", window}},
         kFrame},
    };
    const TempFolder folder;
    for (ExrSample sample : samples) {
        sample.bits = kFiniteBits;
        sample.write(folder / "in.exr");
        Planes planes = planesOf(folder / "in.exr");
        // Buckets on the grid of tiles, or across it where the window does not begin at one; and one for all.
        for (const char* bucket : {"8x8", "16x5", "1000x1000"}) {
            expectConverted({folder / "in.exr", folder / "raw.rimg", "--bucket", bucket});
            for (const char* kind : kKinds) {
                SCOPED_TRACE(std::string(bucket) + ' ' + kind);
                expectConverted({folder / "raw.rimg", folder / "out.exr", "--kind", kind});
                EXPECT_EQ(expectSamePixels(planes, folder / "out.exr"), planes.size());
            }
        }
    }
}

TEST(ToExr, RealFrame) {
    const char* const given = std::getenv("RAWIMAGE_REAL_FRAME");
    const auto beside = std::filesystem::path(__FILE__).parent_path() / "../../../shared/data/frame20.exr";
    const std::string exr = given != nullptr ? given : beside.string();
    if (!std::filesystem::exists(exr)) GTEST_SKIP() << "no " << exr;
    const TempFolder folder;
    Planes planes = planesOf(exr);
    const ProgramResult result = convert({exr, folder / "raw.rimg"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, testing::EndsWith("copies them from here): multiView\n"));
    EXPECT_EQ(result.errorLines(), 1);
    for (const char* kind : kKinds) {
        SCOPED_TRACE(kind);
        expectConverted({folder / "raw.rimg", folder / "out.exr", "--kind", kind, "--attributes-from", exr});
        EXPECT_EQ(expectSamePixels(planes, folder / "out.exr"), 20u);
        for (const char* compression : {"none", "rle", "zip", "piz"}) {
            SCOPED_TRACE(compression);
            expectConverted({folder / "raw.rimg", folder / "out.exr", "--kind", kind, "--compression",
                             compression, "--channels", "depth,left.Z"});
            EXPECT_EQ(expectSamePixels(planes, folder / "out.exr"), 2u);
        }
    }
}

TEST(ToExr, BucketsComeInAnyOrderAndTheLastOneCounts) {
    const TempFolder folder;
    RawFrame frame;
    frame.boxes = {{16, 0, 24, 24}, {-5, -5, 21, 20, 100}, {3, 4, 20, 3, 200}, {3, 5, 8, 9, 300}};
    frame.write(folder / "raw.rimg");
    for (const char* kind : kKinds) {
        SCOPED_TRACE(kind);
        const ProgramResult result =
            convert({folder / "raw.rimg", folder / "out.exr", "--kind", kind, "--threads", "4"});
        EXPECT_EQ(result.status, 3);
        EXPECT_THAT(result.err, HasSubstr("3 tags have pixels outside"));
        EXPECT_THAT(result.err, HasSubstr("out.exr: these pixels are missing in some channel, and are 0: "
                                          "16x9+0+15\n"));
        Planes planes = planesOf(folder / "out.exr");
        EXPECT_EQ(planes.size(), 5u);
        const auto at = [&](int x, int y) { return floatAt(planes.at("G"), x, y); };
        EXPECT_EQ(at(39, 23), valueAt(0, 0, 1, 39, 23));
        EXPECT_EQ(at(0, 14), valueAt(100, 0, 1, 0, 14));
        EXPECT_EQ(at(22, 6), valueAt(200, 0, 1, 22, 6));
        EXPECT_EQ(at(3, 13), valueAt(300, 0, 1, 3, 13));
        EXPECT_EQ(at(10, 5), valueAt(300, 0, 1, 10, 5));
        EXPECT_EQ(at(11, 5), valueAt(200, 0, 1, 11, 5));
        EXPECT_EQ(at(0, 15), 0.0f);
    }
}

// "part:channel" for every channel, in the file's order.
std::string channelsOf(const std::string& path) {
    Imf::MultiPartInputFile file(path.c_str(), 0);
    std::string names;
    for (int part = 0; part < file.parts(); ++part) {
        const Imf::ChannelList& list = file.header(part).channels();
        for (auto c = list.begin(); c != list.end(); ++c)
            names += (part > 0 ? file.header(part).name() + ':' : "") + c.name() + ' ';
    }
    return names;
}

TEST(ToExr, ChannelsByFlagGlobAndName) {
    RawFrame frame;
    frame.channels = {{2, 126, "color"}, {2, 126, "beauty"}, {1, 0, "R"},
                      {2, 0, "a"},       {1, 0, "a.R"},      {1, 117, "d1"},
                      {1, 117, "d2"},    {0, 0, "empty"},    {1, 0, "hidden", 2}};
    const struct {
        const char* kind;
        const char* globs;
        const char* names;
        const char* told;
    } cases[] = {
        {"tiled", "*", "B G R R~2 a.B a.G a.R a.R~2 beauty.B beauty.G beauty.R d1 d2 ",
         "flagged to be kept out of OpenEXR files: hidden\n"},
        {"tiled", "[!h]*", "B G R R~2 a.B a.G a.R a.R~2 beauty.B beauty.G beauty.R d1 d2 ",
         "channel \"beauty\" is taken; it goes by \"beauty\"\n"},
        {"scanline", "a,d?,a.?", "a.B a.G a.R a.R~2 d1 d2 ",
         "channel \"a.R\" is taken; it goes by \"a.R~2\"\n"},
        {"multipart", "*", "B G R beauty:B beauty:G beauty:R other:R other:d1 other:d2 a:B a:G a:R a:R~2 ",
         "a.R~2"},
        // Alone it is the depth of the frame.
        {"multipart", "d1", "Z ", ""},
    };
    const TempFolder folder;
    frame.write(folder / "raw.rimg");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.names);
        const ProgramResult result =
            convert({folder / "raw.rimg", folder / "out.exr", "--kind", c.kind, "--channels", c.globs});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err.empty(), *c.told == 0);
        EXPECT_THAT(result.err, HasSubstr(c.told));
        EXPECT_EQ(channelsOf(folder / "out.exr"), c.names);
    }
}

TEST(ToExr, SettingsReachTheFile) {
    RawFrame frame;
    frame.boxes = {{5, 7, 10, 3}};
    const TempFolder folder;
    frame.write(folder / "raw.rimg");
    const struct {
        std::vector<std::string> options;
        Imf::Compression compression;
        Imf::PixelType type;
        Imath::Box2i window = {{0, 0}, {39, 23}};
    } cases[] = {
        {{}, Imf::ZIPS_COMPRESSION, Imf::FLOAT},
        {{"--auto-data-window"}, Imf::ZIPS_COMPRESSION, Imf::FLOAT, {{5, 7}, {14, 9}}},
        {{"--bits", "16", "--compression", "none"}, Imf::NO_COMPRESSION, Imf::HALF},
        {{"--bits", "16", "--compression", "dwab", "--kind", "tiled"}, Imf::DWAB_COMPRESSION, Imf::HALF},
        {{"--compression", "pxr24", "--kind", "multipart"}, Imf::PXR24_COMPRESSION, Imf::FLOAT},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.compression);
        std::vector<std::string> arguments = c.options;
        arguments.insert(arguments.begin(), {folder / "raw.rimg", folder / "out.exr"});
        EXPECT_EQ(convert(arguments).status, 3);
        Imf::MultiPartInputFile file((folder / "out.exr").c_str(), 0);
        EXPECT_EQ(file.header(0).dataWindow(), c.window);
        EXPECT_EQ(file.header(0).compression(), c.compression);
        EXPECT_EQ(file.header(0).channels()["R"].type, c.type);
        const int last = file.parts() - 1;
        EXPECT_EQ(file.header(last).channels()["id"].type, Imf::UINT);
    }
}

template <class T>
bool has(const Imf::Header& header, const char* name, const T& value) {
    const auto* attribute = header.findTypedAttribute<Imf::TypedAttribute<T>>(name);
    return attribute != nullptr && attribute->value() == value;
}

TEST(ToExr, MetadataGoesAlong) {
    const Imath::Box2i region{{4, 2}, {33, 21}};
    const TempFolder folder;
    const std::string raw = folder / "raw.rimg", out = folder / "out.exr";
    for (const bool harmless : {true, false}) {
        RawFrame frame;
        frame.boxes = {{4, 2, 30, 20}};
        const std::string stamp = harmless ? "12" : "a=b", scene = harmless ? "the \"garden\"" : "a;b";
        frame.metadata = [&](RIFile& file) {
            const RICameraInfo camera{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16},
                                      -3,
                                      17,
                                      0.75f,
                                      18,
                                      19,
                                      20,
                                      21,
                                      22,
                                      23,
                                      24};
            RISceneInfo info(-3, scene.c_str());
            expectOk(file.WTCameraInfo(camera));
            expectOk(file.WTSceneInfo(info));
            expectOk(file.WTNote("5"));
            expectOk(file.WTStampText(stamp.c_str()));
            expectOk(file.WTRenderRegion({0, 4, 2, 30, 20}));
        };
        frame.write(raw);
        for (const char* kind : kKinds) {
            SCOPED_TRACE(std::string(kind) + stamp);
            const bool tiled = std::string(kind) == "tiled";
            const ProgramResult result =
                convert({raw, out, "--kind", kind, "--attributes", "owner=me; gamma=2.2;"});
            EXPECT_EQ(result.status, 0);
            EXPECT_EQ(result.errorLines(), harmless ? 0 : tiled ? 1 : 2) << result.err;
            EXPECT_THAT(result.err, HasSubstr(harmless ? "" : "text \"scene\" has a '=' or ';'"));
            const Imf::MultiPartInputFile file(out.c_str(), 0);
            const Imf::Header& header = file.header(0);
            EXPECT_EQ(header.dataWindow(), tiled ? region : Imath::Box2i({0, 0}, {39, 23}));
            EXPECT_TRUE(has(header, "note", std::string("5")));
            EXPECT_TRUE(has(header, "sceneValue", -3));
            EXPECT_TRUE(has(header, "renderRegion", region));
            EXPECT_TRUE(has(header, "cameraFov", 0.75f));
            EXPECT_TRUE(has(header, "gamma", 2.2f));
            EXPECT_TRUE(has(header, "owner", std::string("me")));
            EXPECT_EQ(has(header, "scene", scene), harmless);
            EXPECT_EQ(has(header, "stampText", stamp), harmless || tiled);
            // And back again.
            if (!harmless) continue;
            const ProgramResult back = convert({out, folder / "again.rimg"});
            EXPECT_EQ(back.status, 0);
            EXPECT_THAT(back.err,
                        testing::EndsWith(tiled ? ": gamma, owner\n" : ": gamma, owner, renderRegion\n"));
            auto events = parseRaw(folder / "again.rimg");
            EXPECT_EQ(events["setSceneInfo"].at(0), (Event{"setSceneInfo", {-3}, scene}));
            EXPECT_EQ(events["setCameraInfo"], parseRaw(raw)["setCameraInfo"]);
        }
    }
}

}  // namespace
