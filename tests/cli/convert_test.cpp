#include <OpenEXR/ImfFloatAttribute.h>
#include <OpenEXR/ImfStringAttribute.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/testing/exr_control.h"
#include "tests/testing/exr_sample.h"
#include "tests/testing/run_program.h"

namespace {

using namespace testing_tools;
using testing::HasSubstr;

ProgramResult convert(const std::string& in, const std::string& out, const std::string& bucket = "64x64") {
    return runProgram(RIMG_PROGRAM, {"convert", in, out, "--bucket", bucket});
}

struct GroupingCase {
    std::vector<ExrSamplePart> parts;
    std::string expected;  // the channels as name:type:alias, without an alias of 0
    const char* told = "";
};

TEST(Convert, ChannelsGroupByTheirNames) {
    const std::string stem(62, 'n');
    const GroupingCase cases[] = {
        {{{"", "A:h B:h G:f R:h Z:f"}}, "color:2:126 alpha:2:125 depth:1:117 "},
        {{{"", "id:u m.X:f m.Y:h n.X:f n.Y:f n.Z:f v:h x.B:h x.G:f x.R:h y.A:h y.B:h y.G:h y.R:f"}},
         "id:4 m:3 n:5 v:1 x:2 y:6 "},
        // Groups that are not whole, for want of a member or because one is an integer.
        {{{"", ".Q:h A:u B:h R:h X:f Y:f Z:u a.:f n.Y:f n.Z:f x.A:h x.B:h x.R:h y.B:u y.G:h y.R:h"}},
         ".Q:1 A:4 B:1 R:1 X:1 Y:1 Z:4 a.:1 n.Y:1 n.Z:1 x.A:1 x.B:1 x.R:1 y.B:4 y.G:1 y.R:1 "},
        {{{"", "l.x:f l.y:f x.A:f x.B:f x.G:f x.R:f x.X:f x.Y:f x.Z:u"}}, "l.x:1 l.y:1 x:6 x:3 x.Z:4 "},
        {{{"", "A:h B:h G:f R:h Z:f alpha.B:f alpha.G:f alpha.R:f color:f depth:u"}},
         "color~2:2:126 alpha~2:2:125 depth~2:1:117 alpha:2 color:1 depth:4 "},
        // The parts of a file: main image, a part for a channel, one for several, the one for the rest.
        {{{"rgba", "B:h G:h R:h"}}, "color:2:126 "},
        {{{"", "B:h G:h R:h Z:f"}, {"diffuse", "B:h G:h R:h"}, {"lights", "key.B:h key.G:h key.R:h mask:h"}},
         "color:2:126 depth:1:117 diffuse:2 lights.key:2 lights.mask:1 "},
        {{{"other", "A:f coverage:f"}, {"n", "X:f Y:f Z:f id:u"}, {"left", "A:h Z:f"}},
         "A:1 coverage:1 n:5 n.id:4 left.A:1 left.Z:1 "},
        // Names that cannot stay as they are.
        {{{"", "a.b.B:h a.b.G:h a.b.R:h"}, {"a", "b.B:h b.G:h b.R:h"}}, "a.b:2 a.b~2:2 ", "is taken"},
        {{{"", stem + "yyy:f " + stem + "yzz:f"}}, stem + "y:1 " + stem.substr(1) + "~2:1 ", "is too long"},
    };
    const TempFolder folder;
    for (const GroupingCase& c : cases) {
        SCOPED_TRACE(c.expected);
        ExrSample{c.parts}.write(folder / "in.exr");
        const ProgramResult result = convert(folder / "in.exr", folder / "out.rimg");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err.empty(), *c.told == 0) << result.err;
        EXPECT_THAT(result.err, HasSubstr(c.told));
        std::string found;
        auto events = parseRaw(folder / "out.rimg");
        for (const Event& channel : events["setChannel"]) {
            found += channel.bytes + ':' + std::to_string(channel.numbers[1]);
            found += channel.numbers[2] != 0 ? ':' + std::to_string(channel.numbers[2]) + ' ' : " ";
        }
        EXPECT_EQ(found, c.expected);
    }
}

struct PixelCase {
    const char* name;
    ExrSample sample;
    int bucket = 16;
    std::vector<std::int64_t> region{};  // the render region's record, when there is one
    bool cut = false;                    // pixels outside the frame
};

void PrintTo(const PixelCase& pixelCase, std::ostream* out) {
    *out << pixelCase.name;
}

ExrSample oneImage(const Imath::Box2i& display, const Imath::Box2i& window, int tile = 0) {
    const char* const channels =
        "A:h B:h G:f R:h Z:f c.A:f c.B:h c.G:h c.R:f id:u m.X:f m.Y:h n.X:f n.Y:f n.Z:f v:h x.R:f x.G:f "
        "x.B:f";
    return {{{"", channels, window}}, display, tile};
}

const Imath::Box2i kFrame{{0, 0}, {69, 40}};
const Imath::Box2i kMoved{{100, -50}, {169, -10}};

ExrSample downwards() {
    ExrSample sample = oneImage(kFrame, kFrame);
    sample.lineOrder = Imf::DECREASING_Y;
    sample.compression = Imf::PIZ_COMPRESSION;
    return sample;
}

const ExrSample kParts{{{"", "R:h G:h B:h Z:f", {{10, 0}, {69, 40}}},
                        {"same", "R:f G:h B:h A:h", {{10, 0}, {69, 40}}},
                        {"small", "id:u v:f", {{20, 20}, {30, 22}}},
                        {"beside", "w:f", {{70, 0}, {71, 1}}},
                        {"wide", "X:f Y:f", {{-5, 10}, {69, 50}}}},
                       kFrame};

const PixelCase kPixelCases[] = {
    {"scan_lines", oneImage(kFrame, kFrame)},
    {"one_bucket", oneImage(kFrame, kFrame), 1000},
    {"smaller_window", oneImage(kFrame, {{10, 5}, {40, 30}}), 16, {0, 10, 5, 31, 26}},
    {"moved_display", oneImage(kMoved, {{117, -40}, {169, -10}}), 8, {0, 17, 10, 53, 31}},
    {"overscan", oneImage(kMoved, {{90, -60}, {180, 0}}), 16, {}, true},
    {"overscan_left", oneImage(kFrame, {{-9, 3}, {33, 44}}), 16, {0, 0, 3, 34, 38}, true},
    {"tiles", oneImage(kFrame, {{3, 2}, {66, 38}}, 24), 16, {0, 3, 2, 64, 37}},
    {"small_tiles", oneImage(kMoved, kMoved, 5)},
    {"large_tile", oneImage(kFrame, kFrame, 128), 7},
    {"downwards", downwards()},
    {"parts", kParts, 16, {}, true},
};

class ConvertPixels : public testing::TestWithParam<PixelCase> {};

TEST_P(ConvertPixels, AreTheSameBitForBit) {
    const PixelCase& c = GetParam();
    const TempFolder folder;
    const std::string exr = folder / "in.exr", raw = folder / "out.rimg", edge = std::to_string(c.bucket);
    c.sample.write(exr);
    const ProgramResult result =
        runProgram(RIMG_PROGRAM, {"convert", exr, raw, "--bucket", edge + 'x' + edge, "--crop-overscan"});
    EXPECT_EQ(result.status, 0) << result.err;
    const bool moved = c.sample.display.min != Imath::V2i(0, 0);
    EXPECT_EQ(result.errorLines(), (c.cut ? 1 : 0) + (moved ? 1 : 0)) << result.err;
    EXPECT_THAT(result.err, HasSubstr(c.cut ? "outside the display window left out" : ""));
    EXPECT_THAT(result.err, HasSubstr(moved ? "begins at (100, -50), which is not kept" : ""));
    expectSamePixels(raw, exr, c.bucket);
    // What was rendered is all there, in every part.
    EXPECT_EQ(runProgram(RIMG_PROGRAM, {"verify", raw}).out, raw + ": good\n");
    const std::vector<Event> regions = parseRaw(raw)["setRenderRegion"];
    EXPECT_EQ(regions.empty() ? std::vector<std::int64_t>() : regions[0].numbers, c.region);
}

INSTANTIATE_TEST_SUITE_P(Layouts, ConvertPixels, testing::ValuesIn(kPixelCases),
                         testing::PrintToStringParamName());

TEST(Convert, AttributesGoBackIntoTags) {
    const TempFolder folder;
    for (const std::size_t noteLength : {3u, 511u, 512u, 1023u, 1500u}) {
        SCOPED_TRACE(noteLength);
        ExrSample sample{{{"", "R:h G:h B:h"}, {"part", "v:f"}}};
        sample.edit = [&](Imf::Header& header) {
            if (header.name() != "part") return;
            header.insert("cameraFov", Imf::FloatAttribute(1));  // alone, no camera
            header.insert("stampText", Imf::StringAttribute("frame 7"));
            header.insert("note", Imf::StringAttribute(std::string(noteLength, 'o')));
            header.insert("scene", Imf::StringAttribute("garden"));
        };
        sample.write(folder / "in.exr");
        const ProgramResult result = convert(folder / "in.exr", folder / "out.rimg");
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.errorLines(), noteLength > 1023 ? 2 : 1) << result.err;
        EXPECT_THAT(result.err, HasSubstr("from here): cameraFov\n"));
        auto events = parseRaw(folder / "out.rimg");
        EXPECT_EQ(events["setNote"].at(0).bytes, std::string(std::min<std::size_t>(noteLength, 1023), 'o'));
        EXPECT_EQ(events["setSceneInfo"].at(0), (Event{"setSceneInfo", {0}, "garden"}));
        EXPECT_THAT(readFile(folder / "out.rimg"), HasSubstr(std::string("frame 7\0", 8)));
        EXPECT_EQ(events["setCameraInfo"], std::vector<Event>());
    }
}

struct DamageCase {
    const char* name;
    int tile;
    int omitted;            // rows never written
    std::ptrdiff_t change;  // place of a byte that is changed, from the end
    std::ptrdiff_t cut;     // bytes cut off the end
    int status;
    const char* told;
    bool (*lost)(int x, int y);
};

TEST(Convert, UnreadablePixelsAreLeftOutAndTold) {
    const auto lastRow = [](int, int y) { return y >= 32; };
    const auto lastTile = [](int x, int y) { return x >= 64 && y >= 32; };
    const DamageCase cases[] = {
        {"unfinished lines", 0, 20, 0, 0, 3, "between the rows 16 and 40",
         [](int, int y) { return y >= 16; }},
        {"unfinished tiles", 16, 1, 0, 0, 3, "5 blocks of pixels", lastRow},
        {"damaged lines", 0, 0, 3, 0, 4, ": offset ", lastRow},
        {"damaged tile", 16, 0, 3, 0, 4, ": offset ", lastTile},
        {"cut lines", 0, 0, 0, 9, 4, "end of file", lastRow},
        {"cut tiles", 16, 0, 0, 9, 4, "end of file", lastTile},
    };
    const TempFolder folder;
    for (const DamageCase& c : cases) {
        SCOPED_TRACE(c.name);
        ExrSample sample = oneImage(kFrame, kFrame, c.tile);
        sample.bits = 0x00070007;
        sample.write(folder / "whole.exr");
        sample.omitted = c.omitted;
        sample.write(folder / "in.exr");
        std::string bytes = readFile(folder / "in.exr");
        if (c.change > 0) bytes.end()[-c.change] ^= 0x55;
        bytes.resize(bytes.size() - static_cast<std::size_t>(c.cut));
        writeFile(folder / "in.exr", bytes);
        const ProgramResult result = convert(folder / "in.exr", folder / "out.rimg", "16x16");
        EXPECT_EQ(result.status, c.status) << result.err;
        EXPECT_THAT(result.err, HasSubstr(c.told));
        expectSamePixels(folder / "out.rimg", folder / "whole.exr", 16, c.lost);
    }
}

TEST(Convert, ThreadsChangeNothingAndCompressionOnlyTheSize) {
    const TempFolder folder;
    const std::string in = folder / "in.exr", raw = folder / "out.rimg";
    oneImage(kFrame, kFrame).write(in);
    ASSERT_EQ(convert(in, raw, "16x16").status, 0);
    const std::string bytes = readFile(raw);
    const auto events = parseRaw(raw);
    const auto bytesWith = [&](const char* threads, const char* option, const char* value) {
        const std::vector<std::string> all{"convert", in,      raw,    "--bucket", "16x16",
                                           "-j",      threads, option, value};
        EXPECT_EQ(runProgram(RIMG_PROGRAM, all).status, 0);
        EXPECT_EQ(parseRaw(raw), events);
        return readFile(raw);
    };
    for (const char* threads : {"1", "2", "5"})
        EXPECT_TRUE(bytesWith(threads, "--level", "9") == bytes) << threads;
    EXPECT_NE(bytesWith("5", "--level", "1").size(), bytes.size());
    EXPECT_TRUE(bytesWith("5", "--compression-speed", "small") == bytes);
    for (const char* speed : {"balanced", "fast"}) {
        const std::string one = bytesWith("1", "--compression-speed", speed);
        EXPECT_NE(one.size(), bytes.size());
        EXPECT_TRUE(bytesWith("5", "--compression-speed", speed) == one);
    }
}

TEST(Convert, FailuresHaveOneLineAndTheirExitCode) {
    const TempFolder folder;
    const std::string in = folder / "in.exr", out = folder / "out.rimg", raw = folder / "raw.rimg";
    ExrSample sample{{{"", "R:h G:h B:h"}}};
    sample.write(in);
    std::filesystem::create_hard_link(in, folder / "link.exr");
    writeFile(folder / "text", "neither one nor the other");
    writeFile(folder / "head.exr", readFile(in).substr(0, 100));
    writeFile(raw, std::string("RIMG\1\0\0\0\3\0\0\0", 12) + std::string(20, '\0'));
    sample.edit = [](Imf::Header& header) { header.channels().insert("BY", Imf::Channel(Imf::HALF, 2, 2)); };
    sample.write(folder / "subsampled.exr");
    sample.edit = [](Imf::Header& header) { header.displayWindow().max = {1 << 29, 1 << 29}; };
    sample.write(folder / "wide.exr");
    sample.edit = [](Imf::Header& header) {
        header.dataWindow().max = header.displayWindow().max = {19999, 19999};
    };
    sample.omitted = 20000;
    sample.write(folder / "large.exr");

    const struct {
        std::vector<std::string> arguments;
        int status;
        const char* told;
    } cases[] = {
        {{}, 2, ""},
        {{"convert", in}, 2, "OUT"},
        {{"transmogrify", in, out}, 2, ""},
        {{"convert", in, out, "--bucket", "64"}, 2, "bucket"},
        {{"convert", in, out, "--bucket", "0x64"}, 2, "bucket"},
        {{"convert", in, out, "--crop", "1,2,3"}, 2, "X,Y,W,H"},
        {{"convert", in, out, "--crop", "1,2,3,0"}, 2, "no pixels"},
        {{"convert", in, out, "--crop", "-9,0,9,5"}, 2, "--crop: has no pixel"},
        {{"convert", in, out, "--level", "0"}, 2, "--level: Value 0 not in range 1 to 9"},
        {{"convert", in, out, "--level", "10"}, 2, "--level"},
        {{"convert", in, out, "--level", "fast"}, 2, "--level"},
        {{"convert", in, out, "--compression-speed", "9"}, 2, "--compression-speed"},
        {{"convert", in, out, "--level", "9", "--compression-speed", "fast"}, 2, "--compression-speed small"},
        {{"convert", raw, folder / "out.exr", "--level", "1"}, 2, "--level is for OpenEXR files as input"},
        {{"convert", in, out, "--threads", "0"}, 2, "--threads"},
        {{"convert", in, out, "-j", "1025"}, 2, "--threads"},
        {{"convert", in, in}, 2, "same file"},
        {{"convert", in, folder / "link.exr"}, 2, "same file"},
        {{"convert", folder / "none.exr", out}, 5, "none.exr: No such file"},
        {{"convert", folder / "", out}, 5, "Is a directory"},
        {{"convert", folder / "text", out}, 5, "text: neither"},
        {{"convert", "/dev/null", out}, 5, "null: neither"},
        {{"convert", folder / "head.exr", out}, 4, "head.exr: offset 100: "},
        {{"convert", folder / "subsampled.exr", out}, 1, "\"BY\" is subsampled"},
        {{"convert", folder / "large.exr", out, "--bucket", "20000x3000"}, 1, "MiB"},
        {{"convert", folder / "large.exr", out, "--bucket", "20000x20000"}, 1, "too large"},
        {{"convert", raw, folder / "out.exr"}, 3, "has no channel list"},
        {{"convert", in, folder / "none/out.rimg"}, 1, "none/out.rimg: cannot be written: No such file"},
        {{"convert", in, "/dev/full"}, 1, "/dev/full: offset 0: No space left on device: "},
    };
    for (const auto& c : cases) {
        const ProgramResult result = runProgram(RIMG_PROGRAM, c.arguments);
        SCOPED_TRACE(result.err);
        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(result.errorLines(), 1);
        EXPECT_EQ(result.err.substr(0, 6), "rimg: ");
        EXPECT_THAT(result.err, HasSubstr(c.told));
        EXPECT_EQ(result.out, "");
        EXPECT_FALSE(std::filesystem::exists(out)) << "made before the input was known to be good";
    }
    for (const char* option : {"--help", "--version"}) {
        const ProgramResult result = runProgram(RIMG_PROGRAM, {option});
        EXPECT_EQ(result.status, 0);
        EXPECT_THAT(result.out, HasSubstr("rimg"));
        EXPECT_EQ(result.out.find("balanced: ") != std::string::npos, option[2] == 'v');
        EXPECT_EQ(result.err, "");
    }
    // A frame far larger than what is rendered of it costs nothing.
    EXPECT_EQ(convert(folder / "wide.exr", out, "1000000x1000000").status, 0);
    EXPECT_EQ(parseRaw(out)["setImageData"].size(), 1u);
}

}  // namespace
