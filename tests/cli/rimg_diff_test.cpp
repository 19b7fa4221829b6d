#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "tests/testing/exr_sample.h"
#include "tests/testing/raw_frame.h"
#include "tests/testing/read_png.h"
#include "tests/testing/run_program.h"

// rimg diff, on frames whose difference is known.

namespace {

using namespace testing_tools;
using testing::HasSubstr;
using Json = nlohmann::json;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

class RimgDiff : public testing::Test {
  protected:
    RimgDiff() {
        const RawFrame whole;
        whole.write(folder_ / "whole");
        RawFrame frame = whole;
        frame.boxes = {{20, 12, 20, 12}, {0, 12, 20, 12}, {20, 0, 20, 12}, {0, 0, 20, 12}};
        frame.write(folder_ / "buckets");
        writeSpot("near", 0.5f);
        writeSpot("nan", kNan);
        writeSpot("inf", kInf);
        writeSpot("minus", -kInf);
        frame.boxes = {{0, 0, 20, 24}};
        frame.write(folder_ / "left");
        frame.boxes = {{20, 0, 20, 24}};
        frame.write(folder_ / "right");
        frame.boxes.clear();
        frame.write(folder_ / "empty");
        frame = whole;
        frame.width = 41;
        frame.write(folder_ / "wide");
        change("fewer", [](RawFrame& f) { f.channels.pop_back(); });
        change("kind", [](RawFrame& f) { f.channels[2].type = 1; });
        change("alias", [](RawFrame& f) { f.channels[2].alias = 7; });
        change("vector", [](RawFrame& f) { f.channels[1].type = 5; });
        change("note", [](RawFrame& f) { f.metadata = [](RIFile& file) { expectOk(file.WTNote("x")); }; });
        std::string bytes = readFile(folder_ / "whole");
        bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 1);
        writeFile(folder_ / "damaged", bytes);
        writeFile(folder_ / "text", "something else entirely, of no use to anyone here");
        // Of an alpha with several values OpenEXR keeps their mean.
        change("opaque", [](RawFrame& f) { f.channels.erase(f.channels.begin() + 1); });
        EXPECT_EQ(run("convert @opaque @exr --to exr").status, 0);
    }

    template <class Edit>
    void change(const std::string& name, Edit edit) {
        RawFrame frame;
        edit(frame);
        frame.write(folder_ / name);
    }
    // The pixel (3, 4) has other values: `first` more.
    void writeSpot(const std::string& name, float first) {
        change(name, [first](RawFrame& frame) { frame.boxes.push_back({3, 4, 1, 1, first}); });
    }
    // @ stands for the test's folder.
    ProgramResult run(std::string command) {
        const std::string folder = folder_ / "";
        for (std::size_t at = 0; (at = command.find('@', at)) != std::string::npos; at += folder.size())
            command.replace(at, 1, folder);
        return runProgram("/bin/bash", {"-c", "exec '" RIMG_PROGRAM "' " + command});
    }
    Json jsonOf(const std::string& arguments) { return Json::parse(run("diff --json " + arguments).out); }

    TempFolder folder_;
};

TEST_F(RimgDiff, AnswersWithItsExitCodes) {
    const struct {
        const char* arguments;
        int status;
        const char* out = "";
        const char* err = "";
    } cases[] = {
        {"@whole @buckets", 0, "good, 960 pixels compared, 0 fail, 0 warn\n"},
        {"-j 2 @buckets @whole", 0},
        {"@whole @near", 2, "0 color: 1 of 960 pixels differ, 1 fail; maximum 0.5, mean 0.00052"},
        {"@whole @near", 2, "; most at (3, 4).R: 0.171875 and 0.671875\n"},
        {"@whole @near", 2, "  2 id: 1 of 960 pixels differ, 1 fail; most at (3, 4): "},
        {"--fail 0.5 --warn 0.5 --channels color,alpha @whole @near", 0},
        {"--fail 0.5 --channels 'a*' @whole @near", 1, ": warnings, 960"},
        {"--fail 0.5 @whole @near", 2, "2 id: 1 of"},
        {"--failpercent 0.2 --warnpercent 0.2 @whole @near", 0},
        {"--failpercent 0.2 @whole @near", 1},
        {"--failpercent 0.1 @whole @near", 2},
        {"--failpercent 1 --hardfail 0.4 @whole @near", 2},
        {"--failpercent 1 --warnpercent 1 --hardwarn 0.4 @whole @near", 1},
        {"-q @whole @near", 2},
        {"@nan @nan", 0},
        {"@inf @inf", 0},
        {"@nan @whole", 2, "maximum inf"},
        {"@inf @minus", 2, "maximum inf"},
        {"@inf @nan", 2, "maximum inf"},
        {"@whole @left", 2, "0 color: ", "left: what is there was compared: pixels are missing"},
        {"@left @left", 0, "480 pixels compared"},
        {"@left @right", 2, "right lacks 480 pixels: 20x24+0+0\n"},
        {"@empty @empty", 1, "0 pixels compared"},
        {"@whole @wide", 3, "the frames are 40x24 and 41x24 pixels\n"},
        {"@fewer @whole", 3, "  2 id: only in /"},
        {"@whole @kind", 3, "differs in type\n"},
        {"@whole @alias", 1, "differs in alias\n"},
        {"@whole @vector", 1, "differs in type\n"},
        {"@whole @note", 0},
        {"--metadata @whole @note", 2, "  note: only in /"},
        {"--metadata @note @note", 0},
        {"@damaged @whole", 4, "", "damaged: offset "},
        {"@whole @damaged", 4, "", "damaged bucket 40x24+0+0 of channel 1 alpha, "},
        {"@damaged @damaged", 4},
        {"--channels color @whole @damaged", 0},
        {"@whole @text", 4, "", "neither an OpenEXR file nor a raw image\n"},
        {"@none @whole", 4, "", "none: No such file"},
        {"@whole @near -o @none/out.png", 4, "", "out.png: "},
        {"@whole @near > /dev/full", 4, "", "No space left"},
        {"@whole", 2, "", "B"},
        {"--channels depth @whole @near", 2, "", "--channels: \"depth\" fits no channel\n"},
        {"--fail nan @whole @near", 2, "", "a number from 0 up"},
        {"--abs @whole @near", 2, "", "--output"},
        {"@whole @near -o @whole", 2},
        {"@whole @near -o @d.jpg", 2, "", ".jpg is another format"},
        {"--channels 'c*' @whole @exr", 0, "good, 960"},
        {"--channels color @exr @near", 2, "maximum 0.5"},
        {"@exr @exr", 0},
        {"@exr @left", 3, "left lacks 480 pixels"},
        {"@exr @left", 3, "1 alpha: only in /"},
    };
    for (const auto& c : cases) {
        const ProgramResult result = run(std::string("diff ") + c.arguments);
        EXPECT_EQ(result.status, c.status) << c.arguments << result.err << result.out;
        EXPECT_THAT(result.out, HasSubstr(c.out)) << c.arguments;
        EXPECT_THAT(result.err, HasSubstr(c.err)) << c.arguments;
        EXPECT_TRUE(result.status != 4 || result.out.empty()) << c.arguments;
    }
    EXPECT_EQ(run("diff -q @whole @near").out, "");
}

TEST_F(RimgDiff, MeasuresWhatDiffers) {
    const Json color = jsonOf("@near @whole")["channels"][0];
    const double values = 3 * 960, difference = 0.5;
    EXPECT_DOUBLE_EQ(color["numbers"]["mean"], 3 * difference / values);
    const double rms = std::sqrt(3 * difference * difference / values);
    EXPECT_DOUBLE_EQ(color["numbers"]["rms"], rms);
    EXPECT_DOUBLE_EQ(color["numbers"]["psnr"], 20 * std::log10(1 / rms));
    // Numbers of damaged files would pass for sound.
    const Json damaged = jsonOf("@whole @damaged");
    EXPECT_EQ(damaged["state"], "error");
    EXPECT_EQ(damaged["channels"], Json::array());
    EXPECT_EQ(damaged["damaged"][0]["name"], "alpha");
}

// The bits of an id may be any float, however small.
TEST_F(RimgDiff, ComparesIdsInFloatsByTheirBits) {
    for (const char* channel : {"crypto00", "Crypto.R", "four", "two"}) {
        const bool pairs = channel[0] != 'C';
        for (const float id : {1e-30f, 2e-30f}) {
            RawFrame frame;
            frame.channels = {{!pairs ? 1 : 6, 0, channel}};
            frame.values = [id](int component, int, int) { return component % 2 == 0 ? id : 1.0f; };
            frame.write(folder_ / (id < 1.5e-30f ? "ids" : "others"));
        }
        EXPECT_EQ(run("diff @ids @others").status, std::strstr(channel, "rypto") != nullptr ? 2 : 0)
            << channel;
    }
}

TEST_F(RimgDiff, DrawsTheDifference) {
    const struct {
        const char* arguments;
        unsigned char spot;  // in green
    } cases[] = {{"@whole @near", 0},
                 {"@near @whole", 128},
                 {"--abs @whole @near", 128},
                 {"--abs --scale 4 @whole @near", 255},
                 {"--channels id @whole @near", 255}};
    for (const auto& c : cases) {
        EXPECT_EQ(run("diff -o @d.png " + std::string(c.arguments)).status, 2) << c.arguments;
        const Png png = readPng(folder_ / "d.png");
        ASSERT_EQ(png.width, 40);
        EXPECT_EQ(png.at(3, 4).g, c.spot) << c.arguments;
        EXPECT_EQ(png.at(4, 4).g, 0) << c.arguments;
    }
    EXPECT_EQ(run("diff -o @d.png @whole @left").status, 2);
    const Png png = readPng(folder_ / "d.png");
    EXPECT_EQ(png.at(20, 0).r, 255) << "lacking pixels are magenta";
    EXPECT_EQ(png.at(20, 0).g, 0);
    EXPECT_EQ(png.at(19, 0).r, 0);
    std::filesystem::remove(folder_ / "d.png");
    EXPECT_EQ(run("diff -o @d.png @whole @damaged").status, 4);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "d.png"));
}

// Channels that lose their names, and pixels that lie outside of the display window.
TEST_F(RimgDiff, MatchesWhatWentThroughOpenExr) {
    RawFrame frame;
    frame.channels = {{2, 126, "beauty"}, {1, 117, "distance"}, {4, 0, "id"}, {0, 0, "none"}};
    frame.write(folder_ / "named");
    EXPECT_EQ(run("convert @named @named.exr").status, 0);
    const ProgramResult same = run("diff @named @named.exr");
    EXPECT_EQ(same.status, 0) << same.out;
    EXPECT_THAT(same.out, HasSubstr("differs in "));
    const Imath::Box2i display{{0, 0}, {7, 5}};
    const ExrSample inside{{{"", "R:f G:f B:f", display}}, display};
    const ExrSample outside{{{"", "R:f G:f B:f", {{-2, 0}, {7, 5}}}}, display};
    const ExrSample moved{{{"", "R:f G:f B:f", {{1, 1}, {8, 6}}}}, {{1, 1}, {8, 6}}};
    inside.write(folder_ / "inside");
    outside.write(folder_ / "outside");
    moved.write(folder_ / "moved");
    EXPECT_EQ(run("diff @outside @outside").status, 0);
    EXPECT_EQ(run("diff @outside @inside").status, 3);
    EXPECT_THAT(run("diff @inside @moved").out, HasSubstr("the frames begin at (0, 0) and (1, 1)\n"));
    std::string bytes = readFile(folder_ / "inside");
    bytes[bytes.size() - 20] = static_cast<char>(bytes[bytes.size() - 20] ^ 0x55);
    writeFile(folder_ / "broken", bytes.substr(0, bytes.size() - 40));
    const ProgramResult broken = run("diff @inside @broken");
    EXPECT_NE(broken.status, 0) << broken.out;
}

}  // namespace
