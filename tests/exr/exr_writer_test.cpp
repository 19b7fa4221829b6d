#include <ImfFloatAttribute.h>
#include <ImfIntAttribute.h>
#include <ImfMatrixAttribute.h>
#include <ImfStringAttribute.h>
#include <ImfThreading.h>
#include <ImfTileDescriptionAttribute.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <limits>
#include <tuple>

#include "exr/visible_box.h"
#include "rawimage/read/accepting_callback.h"
#include "rawimage/writer.h"
#include "tests/exr/exr_fixture.h"
#include "tests/testing/sanitized.h"

using namespace testing_tools;

namespace {

const Chans kFrameChannels = {{2, "color", 126}, {2, "alpha", 125}, {1, "depth", 117},
                              {4, "object id"},  {2, "diffuse"},    {5, "normal"},
                              {3, "motion"},     {6, "glow.all"},   {1, "cover"}};
const char* kSingleLayout =
    "[] A:h B:h G:h R:h Z:h cover:h diffuse.B:h diffuse.G:h diffuse.R:h glow.all.A:h glow.all.B:h "
    "glow.all.G:h "
    "glow.all.R:h motion.X:h motion.Y:h normal.X:h normal.Y:h normal.Z:h object id:u";
const std::string kTiledLayout = "[-]" + std::string(kSingleLayout).substr(2);
const char* kMultiLayout =
    "[] A:h B:h G:h R:h Z:h [other] cover:h object id:u [diffuse] B:h G:h R:h [normal] X:h Y:h Z:h [motion] "
    "X:h Y:h "
    "[glow] all.A:h all.B:h all.G:h all.R:h";
const Chans kOne = {{1, "v"}};
const char* const kOpenFailed = "createFile -1 Error creating OpenExr file";
const char* const kWriteFailed = "WTRegion -1 Error writing .exr file";

std::string layoutFor(int kind, const Chans& chans) {
    const TempFile file;
    Writer writer(kind, file.path, 4, 3, chans, 16);
    const std::string error = text(writer.write(Region(chans, 0, 0, 4, 3)));
    EXPECT_EQ(text(writer.Close()), "");
    EXPECT_NE(file.exists(), !error.empty());
    return error.empty() ? layoutOf(readExr(file.path)) : error;
}

}  // namespace

TEST(ExrChannels, NamesPartsAndTypes) {
    const struct {
        int kind;
        Chans chans;
        std::string layout;
    } cases[] = {
        {0, kFrameChannels, kSingleLayout},
        {7, kFrameChannels, kSingleLayout},
        {1, kFrameChannels, kTiledLayout},
        {2, kFrameChannels, kMultiLayout},
        // The type decides before the alias.
        {0, {{1, "a", 125}, {6, "c", 126}, {4, "z", 117}}, "[] a:h c.A:h c.B:h c.G:h c.R:h z:u"},
        // Several depth channels, of whatever type, all keep their names; a skipped one does not count.
        {2, {{1, "z1", 117}, {1, "l.z2", 117}}, "[other] z1:h [l] z2:h"},
        {0, {{1, "z1", 117}, {3, "m", 117}}, "[] m.X:h m.Y:h z1:h"},
        {0, {{1, "z1", 117}, {1, "z2", 117, 2}, {-1, nullptr}}, "[] Z:h"},
        {0, {{1, "on"}, {1, "off", 0, 3}, {1, "other", 0, 4}, {0, "none"}, {7, "high"}}, "[] on:h other:h"},
        {2, {{1, "a.b"}, {1, "a."}, {2, "a."}, {1, "a.b.c"}}, "[a] b:h b.c:h [other] a.:h [a.] B:h G:h R:h"},
        // What stands before a leading dot is the main part's name.
        {2, {{1, ".b"}, {2, "color", 126}}, "[] B:h G:h R:h b:h"},
        {0, {{3, ""}, {5, nullptr}, {1, "lights.key"}}, "[] X:h Y:h Z:h lights.key:h"},
        {2, {{2, ""}, {3, nullptr}}, "[] B:h G:h R:h X:h Y:h"},
        {1, {{-1, nullptr}, {1, "off", 0, 2}, {0, "none"}, {3, nullptr}, {4, "z", 117}}, "[-] .X:h .Y:h z:u"},
        {0, {{1, "twice"}, {1, "twice"}}, "[] twice:h"},
        {0, {{1, ""}}, kWriteFailed},
        {0, {{0, "none"}}, kOpenFailed},
        {0, {}, kOpenFailed},
        {2, {{7, "none"}}, kOpenFailed},
        {2, {}, "createFile -1 Header not created yet"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(layoutFor(c.kind, c.chans), c.layout) << "kind " << c.kind;
}

class ExrCompression : public testing::TestWithParam<std::tuple<int, int, int>> {};

std::string nameOf(const testing::TestParamInfo<ExrCompression::ParamType>& of) {
    const auto [kind, setting, bits] = of.param;
    const char* const kinds[] = {"Scanline", "Tiled", "MultiPart"};
    return std::string(kinds[kind]) + "_Setting" + (setting < 0 ? "Negative" : std::to_string(setting)) +
           "_" + std::to_string(bits) + "Bits";
}

INSTANTIATE_TEST_SUITE_P(All, ExrCompression,
                         testing::Combine(testing::Values(0, 1, 2), testing::Range(-1, 12),
                                          testing::Values(16, 17)),
                         nameOf);

TEST_P(ExrCompression, KeepsEveryPixel) {
    const auto [kind, setting, bits] = GetParam();
    const bool tiled = kind == 1;
    const struct {
        const char *single, *multi;  // the names in one part, and in one of several
        std::size_t part;
        int channel, component;
    } planes[] = {
        {"R", "R", 0, 0, 0},
        {"B", "B", 0, 0, 2},
        {"A", "A", 0, 1, tiled ? 0 : kMean},
        {"Z", "Z", 0, 2, 0},
        {"diffuse.G", "G", 2, 4, 1},
        {"object id", "object id", 1, 3, 0},
        {"normal.Z", "Z", 3, 5, 2},
        {"motion.Y", "Y", 4, 6, 1},
        {"glow.all.R", "all.R", 5, 7, 0},
        {"cover", "cover", 1, 8, 0},
        {"glow.all.A", "all.A", 5, 7, 3},
    };
    // One block, and blocks of a few values, so that rows begin and end within them.
    for (const int blockBytes : {1 << 20, 84}) {
        const TempFile file;
        Writer writer(kind, file.path, 40, 37, kFrameChannels, bits, setting);
        ASSERT_EQ(writer.writeBuckets({{0, 0}, {39, 36}}, tiled ? 16 : 40, blockBytes), "");
        const std::vector<Part> parts = readExr(file.path);
        for (const Part& part : parts) {
            EXPECT_EQ(part.header.compression(),
                      setting >= 1 && setting <= 10 ? setting - 1 : Imf::ZIP_COMPRESSION);
            EXPECT_EQ(part.header.type(), tiled ? "tiledimage" : "scanlineimage");
            EXPECT_EQ(part.header.lineOrder(), Imf::INCREASING_Y);
            if (!tiled) continue;
            EXPECT_EQ(part.header.tileDescription(),
                      Imf::TileDescription(16, 16, Imf::ONE_LEVEL, Imf::ROUND_DOWN));
        }
        // PXR24 loses bits of floats only.
        const bool lossy = (setting >= 7 && setting <= 10) || (setting == 6 && bits > 16);
        for (const auto& plane : planes) {
            const Part& part = parts.at(kind == 2 ? plane.part : 0);
            const char* name = kind == 2 ? plane.multi : plane.single;
            EXPECT_LE(errorOf(part, name, plane.channel, plane.component), lossy ? 0.05 : 0.0)
                << plane.single;
        }
    }
}

TEST(ExrPixels, WhatARegionDoesNotGiveReadsZero) {
    const Chans chans = {{-1, nullptr}, {1, "off", 0, 2}, {1, "missing", 0, 0, Values::kMissing},
                         {2, "none"},   {4, "high"},      {1, "skipped"},
                         {1, "good"},   {1, "beyond"}};
    for (const int kind : {0, 1, 2}) {
        const TempFile file;
        Writer writer(kind, file.path, 16, 16, chans);
        Region region(chans, 0, 0, 16, 16);
        region.channels[3].type = RCT_NONE;
        region.channels[4].type = static_cast<RegionChannelType>(7);
        region.channels[5].flags = MUtils::kChannelSkippedInExr;
        region.channels.setCount(7);
        ASSERT_EQ(texts({writer.WTRegion(&region, 0, 0, 0), writer.Close()}), "") << kind;
        for (const Part& part : readExr(file.path)) {
            for (const auto& [name, plane] : part.floats) {
                EXPECT_EQ(plane[part.at(5, 7)], name == "good" ? sample(6, 0, 5, 7) : 0.0f)
                    << kind << " " << name;
            }
            for (const auto& [name, plane] : part.ints)
                EXPECT_EQ(plane[part.at(5, 7)], 0u) << kind << " " << name;
        }
    }
}

// Not black with success; and the region can be given again as it should be.
TEST(ExrPixels, AreRefusedWhenTheyAreNotTheAnnouncedOnes) {
    const struct {
        Chan given, announced;
        const char* error;
    } cases[] = {
        {{2, "c", 0, 0, Values::kTooFew}, {2, "c"}, "has 255 values, its region 256"},
        {{3, "c", 0, 0, Values::kWrongSize}, {3, "c"}, "has values of 7 bytes, its type has 8"},
        {{1, "c"}, {4, "c"}, "is of type 1, announced was 4"},
        {{5, "c", 126}, {2, "c", 126}, "is of type 5, announced was 2"},
        {{2, "c"}, {6, "c"}, "is of type 2, announced was 6"},
    };
    for (const auto& c : cases) {
        for (const int kind : {0, 1, 2}) {
            const TempFile file;
            Writer writer(kind, file.path, 16, 16, {{1, "v"}, c.announced}, 16);
            EXPECT_EQ(text(writer.write(Region({{1, "v"}, c.given}, 0, 0, 16, 16))),
                      "writeRegion -1 Region channel 1 (c) " + std::string(c.error));
            EXPECT_EQ(file.exists(), kind == 1) << "only tiled files are opened before the region is seen";
            ASSERT_EQ(texts({writer.write(Region(writer.chans, 0, 0, 16, 16)), writer.Close()}), "");
            EXPECT_EQ(errorOf(readExr(file.path).at(0), "v", 0, 0), 0.0);
        }
    }
}

// The middle component goes first, and the sum is multiplied: (c1 + c0 + c2) * 0.33333334. The alias decides;
// a vector has the mean in all three of its channels.
TEST(ExrPixels, AlphaIsTheMeanToTheLastBit) {
    const struct {
        int type, alias;
        std::map<std::string, float> expected;
    } cases[] = {
        {2, 125, {{"A", 1.66666675f}}},
        {5, 125, {{"alpha.X", 1.66666675f}, {"alpha.Y", 1.66666675f}, {"alpha.Z", 1.66666675f}}},
        {5, 124, {{"alpha.X", 1e8f}, {"alpha.Y", -1e8f}, {"alpha.Z", 5.0f}}},
    };
    for (const auto& c : cases) {
        const Chans chans = {{c.type, "alpha", c.alias}};
        const TempFile file;
        Writer writer(0, file.path, 2, 1, chans);
        Region region(chans, 0, 0, 2, 1);
        const float values[] = {1e8f, -1e8f, 5.0f};
        std::memcpy(region.at(0, 1, 0), values, sizeof values);
        ASSERT_EQ(texts({writer.WTRegion(&region, 0, 0, 0), writer.Close()}), "");
        const Part part = readExr(file.path).at(0);
        for (const auto& [name, value] : c.expected)
            EXPECT_EQ(part.floats.at(name)[1], value) << name;
        EXPECT_EQ(part.floats.size(), c.expected.size());
    }
}

TEST(ExrDataWindow, FollowsTheVisiblePixels) {
    using Pixels = std::vector<std::tuple<int, int, float>>;
    const struct {
        int alphaType, firstAlias, on;
        Pixels visible;
        const char* window;
    } cases[] = {
        {2, 0, 0, {{5, 7, 1.0f}}, "0,0 19,12"},
        {2, 0, 1, {}, "0,0 19,12"},
        {2, 0, 1, {{5, 7, 1.0f}}, "5,7 5,7"},
        {5, 0, 1, {{0, 0, -1e-11f}, {19, 12, 3.0f}}, "0,0 19,12"},
        {2, 0, 1, {{0, 3, 1.0f}, {11, 9, 1.0f}, {4, 1, 1.0f}}, "0,1 11,9"},
        {2, 0, 1, {{19, 2, 1.0f}, {7, 12, 1.0f}}, "7,2 19,12"},
        {2, 0, 1, {{5, 7, 1e-12f}, {6, 7, std::nanf("")}, {9, 8, -1.1e-12f}}, "9,8 9,8"},
        {1, 0, 1, {{5, 7, 1.0f}}, "0,0 19,12"},
        // Only the region's first alpha channel counts, whatever it holds.
        {2, 125, 1, {{5, 7, 1.0f}}, "0,0 19,12"},
    };
    for (const auto& c : cases) {
        for (int component = 0; component < (c.alphaType == 1 ? 1 : 3); ++component) {
            const Chans chans = {{1, "before", c.firstAlias}, {c.alphaType, "alpha", 125}, {1, "v"}};
            const TempFile file;
            Writer writer(0, file.path, 20, 13, chans);
            writer.setAutoDataWindow(c.on);
            Region region(chans, 0, 0, 20, 13, 7 * 12);
            for (int i = 0; i < 20 * 13; ++i)
                std::memset(region.at(1, i % 20, i / 20), 0, c.alphaType == 1 ? 4 : 12);
            for (const auto& [x, y, value] : c.visible)
                region.at(1, x, y)[component] = value;
            ASSERT_EQ(texts({writer.WTRegion(&region, 0, 0, 0), writer.Close()}), "");
            const Part part = readExr(file.path).at(0);
            EXPECT_EQ(text(part.header.dataWindow()), c.window);
            EXPECT_EQ(text(part.header.displayWindow()), "0,0 19,12");
            EXPECT_EQ(errorOf(part, "v", 2, 0), 0.0) << c.window;
        }
    }
}

TEST(ExrDataWindow, FindsEverySinglePixel) {
    MBVTable alpha(12, 7 * 12);
    alpha.setCount(20 * 13);
    for (int i = 0; i < alpha.count; ++i)
        std::memset(alpha.item(i), 0, 12);
    for (int i = 0; i < alpha.count; ++i) {
        alpha.item(i)[3] = 0x3f;
        const MUtils::PixelBox box = MUtils::findVisibleBox(alpha, 20, 13);
        EXPECT_TRUE(box.x0 == i % 20 && box.y0 == i / 20 && box.width() == 1 && box.height() == 1) << i;
        alpha.item(i)[3] = 0;
    }
}

// Chunks are about 2 MiB of a part's rows: of one line with RLE, of whole blocks of 16 or 32 with ZIP and
// PIZ.
TEST(ExrDataWindow, ComesInSeveralChunks) {
    const Chans chans = {{2, "alpha", 125}, {4, "id"}, {1, "late.v"}};
    for (const auto& [kind, setting] : {std::pair(0, 2), std::pair(2, 0), std::pair(2, 5)}) {
        const TempFile file;
        Writer writer(kind, file.path, 2010, 560, chans, 16, setting);
        writer.setAutoDataWindow(1);
        Region region(chans, 0, 0, 2010, 560, 1 << 20);
        for (int y = 0; y < 560; ++y) {
            for (int x = 0; x < 2010; ++x) {
                if (x < 4 || x >= 2004 || y < 11 || y >= 551) std::memset(region.at(0, x, y), 0, 12);
            }
        }
        ASSERT_EQ(texts({writer.WTRegion(&region, 0, 0, 0), writer.Close()}), "");
        // What is not zero was converted in a copy.
        EXPECT_EQ(region.at(0, 9, 300)[1], sample(0, 1, 9, 300));
        const std::vector<Part> parts = readExr(file.path);
        EXPECT_EQ(text(parts[0].header.dataWindow()), "4,11 2003,550");
        EXPECT_EQ(errorOf(parts[0], "A", 0, kMean), 0.0);
        EXPECT_EQ(errorOf(parts[kind == 2 ? 1 : 0], "id", 1, 0), 0.0);
        EXPECT_EQ(errorOf(parts.back(), kind == 2 ? "v" : "late.v", 2, 0), 0.0);
    }
}

TEST(ExrParts, TheMainPartIsWrittenFirstWhereverItStands) {
    const Chans chans = {{2, "diffuse"}, {2, "light"}, {2, "color", 126}};
    const TempFile file;
    Writer writer(2, file.path, 8, 6, chans);
    ASSERT_EQ(texts({writer.write(Region(chans, 0, 0, 8, 6)), writer.Close()}), "");
    const std::vector<Part> parts = readExr(file.path);
    EXPECT_EQ(layoutOf(parts), "[diffuse] B:f G:f R:f [light] B:f G:f R:f [] B:f G:f R:f");
    for (int p = 0; p < 3; ++p)
        EXPECT_EQ(errorOf(parts[static_cast<std::size_t>(p)], "G", p, 1), 0.0);
    // A chunk begins with its part's number; the first one follows the three tables of six offsets, and is
    // what the first offset of its part leads to.
    std::string bytes(std::filesystem::file_size(file.path), '\0');
    std::FILE* raw = std::fopen(file.path.c_str(), "rb");
    ASSERT_EQ(std::fread(bytes.data(), 1, bytes.size(), raw), bytes.size());
    std::fclose(raw);
    std::uint64_t table[18] = {};
    std::size_t start = 0;
    for (; start + sizeof table < bytes.size() && table[12] != start - 1 + sizeof table; ++start) {
        std::memcpy(table, bytes.data() + start, sizeof table);
    }
    EXPECT_TRUE(table[12] < table[6] && table[6] < table[0]);
    EXPECT_EQ(bytes.substr(table[12], 4), std::string("\2\0\0\0", 4));
}

TEST(ExrAttributes, ReachTheFirstPartWithTheirTypes) {
    RICameraInfo camera = {};
    for (int i = 0; i < 16; ++i)
        camera.transform[i] = static_cast<float>(i) + 0.5f;
    for (int i = 0; i < 9; ++i)
        (&camera.aperture)[i] = static_cast<float>(i) / 3.0f;
    camera.projection = -3;
    for (const int kind : {0, 1, 2}) {
        const TempFile file;
        const Chans chans = {{2, "a"}, {2, "b"}};
        Writer writer(kind, file.path, 8, 6, chans, 16, 3, 8);
        EXPECT_EQ(texts({writer.WTResolution(8, 6, 2.0f), writer.announce(), writer.WTCameraInfo(camera),
                         writer.WTExtraAttributes("lost=1"), writer.WTExtraAttributes("shot=12; who=me"),
                         writer.WTExtraAttributes(""), writer.WTExtraAttributes(nullptr),
                         writer.WTStampText(""), writer.WTStampText(nullptr)}),
                  "");
        EXPECT_EQ(text(writer.WTStampText("mark")),
                  kind == 1 ? "" : "setStampText -3 Header not created yet");
        // A data window that is not the pixels' does not go through; a tiled file would have no tile for the
        // region.
        if (kind != 1) (void)writer.WTExtraAttributes("dataWindow=(-9,-9,99,99); shot=12; who=me");
        ASSERT_EQ(texts({writer.write(Region(chans, 0, 0, 8, 6)), writer.Close()}), "");
        const std::vector<Part> parts = readExr(file.path);
        const Imf::Header& header = parts[0].header;
        EXPECT_EQ(header.pixelAspectRatio(), 2.0f);
        EXPECT_EQ(text(header.dataWindow()), "0,0 7,5");
        const auto& transform = header.typedAttribute<Imf::M44fAttribute>("cameraTransform").value();
        EXPECT_EQ(std::memcmp(transform.x, camera.transform, sizeof camera.transform), 0);
        EXPECT_EQ(header.typedAttribute<Imf::IntAttribute>("cameraProjection").value(), -3);
        const float* field = &camera.aperture;
        for (const std::string name : {"Aperture", "Fov", "TargetDistance", "NearRange", "FarRange",
                                       "NearClip", "FarClip", "FocalLength", "FNumber"}) {
            EXPECT_EQ(header.typedAttribute<Imf::FloatAttribute>("camera" + name).value(), *field++);
        }
        EXPECT_EQ(header.typedAttribute<Imf::IntAttribute>("shot").value(), 12);
        EXPECT_EQ(header.typedAttribute<Imf::StringAttribute>("who").value(), "me");
        // Texts add up in a tiled file, elsewhere the last one counts.
        EXPECT_EQ(header.findTypedAttribute<Imf::IntAttribute>("lost") != nullptr, kind == 1);
        EXPECT_EQ(header.findTypedAttribute<Imf::StringAttribute>("stampText") != nullptr, kind == 1);
        if (kind == 2) {
            EXPECT_EQ(parts[1].header.findTypedAttribute<Imf::IntAttribute>("shot"), nullptr);
            EXPECT_EQ(parts[1].header.findTypedAttribute<Imf::M44fAttribute>("cameraTransform"), nullptr);
        }
    }
}

TEST(ExrFailures, HaveTheirCodesAndMessages) {
    struct : MUtils::AcceptingCallback {
    } callback;
    RISceneInfo scene;
    for (const int kind : {0, 1, 2, -1}) {
        const TempFile file;
        Writer writer(kind, file.path, 4, 3, kOne);
        EXPECT_EQ(text(writer.Open("x.exr", nullptr)), "Open -1 Operation not supported");
        EXPECT_EQ(writer.ParseFile(callback), -1);
        EXPECT_EQ(text(writer.WTChannelInfo(static_cast<decltype(&writer.table)>(nullptr))),
                  "setChannels -1 No channels specified");
        for (const auto& [w, h] : {std::pair(0, 3), std::pair(4, 0)}) {
            (void)writer.WTResolution(w, h, 1.0f);
            EXPECT_EQ(text(writer.announce()), "setChannels -2 No resolution specified yet");
        }
        // These do nothing, and nothing so far makes a file.
        EXPECT_EQ(texts({writer.WTRegion(nullptr, 0, 0, 0), writer.WTSceneInfo(scene),
                         writer.WTChannelInfo(static_cast<MUtils::MRRegionData*>(nullptr)), writer.Close(),
                         writer.Close()}),
                  "");
        EXPECT_FALSE(file.exists());
    }
}

// One text for whatever writes to it, and the system's words for all other causes.
TEST(ExrFailures, AFailedOpenHasItsReason) {
    const TempFile file;
    RIFile raw, second;
    ASSERT_EQ(texts({raw.Create(file.path.c_str(), nullptr)}), "");
    const ErrorCode locked = second.Create(file.path.c_str(), nullptr);
    EXPECT_STREQ(locked.message(1), "another writer has the file open");
    const struct {
        std::string name, reason;
        int code;
    } cases[] = {{"/nowhere/x.exr", "No such file or directory", ENOENT},
                 {testing::TempDir(), "Is a directory", EISDIR},
                 {file.path, locked.message(1), EWOULDBLOCK}};
    for (const auto& c : cases) {
        for (const int kind : {0, 1}) {
            Writer writer(kind, c.name, 4, 3, kOne);
            const ErrorCode error = writer.write(Region(kOne, 0, 0, 4, 3));
            const std::string all = error.describe();
            EXPECT_NE(all.find("Cannot open \"" + c.name + "\": " + c.reason), std::string::npos) << all;
            EXPECT_EQ(error.getError(kind == 1 ? 2 : 1), c.code) << all;
        }
    }
}

// Whole frames that OpenEXR or the system does not let through.
TEST(ExrFailures, AFailedOpenIsToldOnceAndCanBeRepaired) {
    const TempFile file;
    const struct {
        std::string name;
        int w;
        float aspect;
        const char *extra, *error;
    } cases[] = {
        {"", 4, 1.0f, "", kOpenFailed},
        {"/nowhere/x.exr", 4, 1.0f, "", kOpenFailed},
        {file.path, 0, 1.0f, "", kOpenFailed},
        {file.path, std::numeric_limits<int>::min(), 1.0f, "", kOpenFailed},
        {file.path, 4, 0.0f, "", kOpenFailed},
        {file.path, 4, std::nanf(""), "", kOpenFailed},
        {file.path, 4, 1.0f, "displayWindow=(9,9,0,0)", kOpenFailed},
        {file.path, 4, 1.0f, "type=tiledimage", kOpenFailed},
        {file.path, 4, 1.0f, "compression=3", kWriteFailed},
        {file.path, 4, 1.0f, "type=deepscanline", kWriteFailed},
    };
    for (const auto& c : cases) {
        const bool open = c.error == kOpenFailed;
        Writer writer(0, c.name, 4, 3, kOne);
        (void)writer.WTResolution(c.w, 3, c.aspect);
        (void)writer.WTExtraAttributes(c.extra);
        Region region(kOne, 0, 0, 4, 3);
        region.width = c.w;
        const ErrorCode error = writer.WTRegion(&region, 0, 0, 0);
        EXPECT_EQ(text(error), c.error) << c.extra;
        EXPECT_NE(error.cause(), nullptr);
        EXPECT_EQ(text(writer.WTRegion(&region, 0, 0, 0)),
                  open ? "writeRegion -1 The OpenExr file could not be created" : c.error);
        EXPECT_TRUE(!open || !file.exists()) << c.extra;
        // The object is as new after Close, its text aside.
        const TempFile good;
        EXPECT_EQ(texts({writer.Close(), writer.Create(good.path.c_str(), nullptr),
                         writer.WTResolution(4, 3, 1.0f), writer.WTExtraAttributes("a=1"), writer.announce(),
                         writer.write(Region(kOne, 0, 0, 4, 3)), writer.Close()}),
                  "");
        EXPECT_EQ(errorOf(readExr(good.path).at(0), "v", 0, 0), 0.0);
    }
}

TEST(ExrFailures, AFinishedFileSurvivesWhatComesAfterIt) {
    const TempFile file;
    Writer writer(0, file.path, 4, 3, kOne);
    ASSERT_EQ(texts({writer.write(Region(kOne, 0, 0, 4, 2)), writer.write(Region(kOne, 0, 0, 4, 3))}), "");
    // A second frame finds its scan lines written, one of another shape an open file that is not its own.
    EXPECT_EQ(text(writer.write(Region(kOne, 0, 0, 4, 3))), kWriteFailed);
    (void)writer.WTResolution(90, 80, 1.0f);
    EXPECT_EQ(text(writer.write(Region(kOne, 0, 0, 90, 80))), kWriteFailed);
    ASSERT_EQ(text(writer.Close()), "");
    // Channels are gone after Close, so nothing can be opened, and nothing is lost by it.
    EXPECT_EQ(text(writer.write(Region(kOne, 0, 0, 90, 80))), kOpenFailed);
    ASSERT_EQ(text(writer.Close()), "");
    EXPECT_EQ(errorOf(readExr(file.path).at(0), "v", 0, 0), 0.0);
}

namespace {

// Writes a frame that fills the stream's buffer several times and tells whether any call gave an error; after
// one of a region, the next attempt must give one too.
bool writeTells(int kind, const std::string& name) {
    constexpr int kSize = 400;
    const int side = kind == 1 ? kSize / 2 : kSize;
    const Chans chans = {{2, "color", 126}, {1, "v"}};
    Writer writer(kind, name, kSize, kSize, chans, 32, 1, side);
    bool told = false;
    for (int i = 0; i < (kind == 1 ? 4 : 1); ++i) {
        const int x = i % 2 * side, y = i / 2 * side;
        const auto write = [&] { return !writer.write(Region(chans, x, y, x + side, y + side)).empty(); };
        const bool failed = write();
        if (failed && !write()) return false;
        told = told || failed;
    }
    const std::string closing = text(writer.Close());
    return closing.empty() ? told : closing == "close -1 Error closing OpenExr file";
}

// In a process of its own, whose files cannot grow beyond `limit` bytes; OpenEXR has threads there.
bool tellsAtLimit(int kind, const std::string& name, std::uintmax_t limit) {
    const pid_t child = fork();
    if (child == 0) {
        const rlimit most = {limit, limit};
        alarm(60);  // a write that waits for ever
        signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &most);
        Imf::setGlobalThreadCount(2);
        _exit(writeTells(kind, name) ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0;
}

}  // namespace

TEST(ExrFullDisk, IsToldWhereverItStrikes) {
    for (const int kind : {0, 1, 2}) {
        EXPECT_TRUE(writeTells(kind, "/dev/full"));
        const TempFile file;
        ASSERT_FALSE(writeTells(kind, file.path)) << "nothing fails with room enough";
        const std::uintmax_t size = std::filesystem::file_size(file.path);
        for (std::uintmax_t limit = 0; limit < size; limit += size / (kSanitized ? 6 : 24))
            EXPECT_TRUE(tellsAtLimit(kind, file.path, limit)) << kind << ", " << limit << " of " << size;
        EXPECT_TRUE(tellsAtLimit(kind, file.path, size - 1));
        EXPECT_FALSE(tellsAtLimit(kind, file.path, size));
    }
}
