#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cmath>
#include <random>
#include <set>

#include "tests/testing/raw_frame.h"
#include "tests/testing/read_png.h"
#include "tests/testing/run_program.h"
#include "tests/testing/sample_file.h"

namespace {

using namespace testing_tools;
using testing::HasSubstr;

// A frame of 16 x 8 pixels in 4 x 4 buckets whose channels are all noise: compressed payloads are larger than
// their values, and readers that drop those would show nothing.
constexpr int kWidth = 16;
constexpr int kHeight = 8;
constexpr int kBucket = 4;

float noiseAt(int component, int x, int y) {
    std::mt19937 random(static_cast<unsigned>((y * kWidth + x) * 4 + component));
    return std::uniform_real_distribution<float>(0.0f, 1.0f)(random);
}

void writeNoise(const std::string& path, bool closed) {
    RawFrame frame;
    frame.width = kWidth;
    frame.height = kHeight;
    frame.tile = kBucket;
    frame.channels = {{2, 126, "beauty"}, {1, 117, "depth"}, {4, 0, "id"},
                      {3, 0, "motion"},   {5, 0, "normals"}, {6, 0, "four"}};
    frame.boxes.clear();
    for (int i = 0; i < kWidth * kHeight; i += kBucket * kBucket)
        frame.boxes.push_back({i / kBucket % kWidth, i / kBucket / kWidth * kBucket, kBucket, kBucket});
    frame.values = noiseAt;
    frame.closed = closed;
    frame.write(path);
}

unsigned char srgbByte(float v) {
    const float display = v <= 0.0031308f ? 12.92f * v : 1.055f * std::pow(v, 1.0f / 2.4f) - 0.055f;
    return static_cast<unsigned char>(std::floor(std::min(display * 256.0f, 255.0f)));
}

class RimgTools : public testing::Test {
  protected:
    RimgTools() {
        writeNoise(folder_ / "noise.rimg", true);
        writeNoise(folder_ / "open.rimg", false);
        const Sample sample = makeSample();
        writeFile(folder_ / "sample.rimg", {sample.bytes.begin(), sample.bytes.end()});
        writeFile(folder_ / "other.rimg", "something else entirely, of no use to anyone here");
    }
    ProgramResult run(const std::string& verb, const std::string& file, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {verb, folder_ / file});
        return runProgram(RIMG_PROGRAM, arguments);
    }

    TempFolder folder_;
};

TEST_F(RimgTools, PreviewShowsEveryPixelOfIncompressibleChannels) {
    for (const char* file : {"noise.rimg", "open.rimg"}) {
        const ProgramResult result = run("preview", file, {"-o", folder_ / "p.png"});
        EXPECT_EQ(result.status, file == std::string("noise.rimg") ? 0 : 3) << result.err;
        const Png png = readPng(folder_ / "p.png");
        ASSERT_EQ(png.width, kWidth);
        ASSERT_EQ(png.height, kHeight);
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x)
                EXPECT_EQ(png.at(x, y).g, srgbByte(noiseAt(1, x, y))) << x << ' ' << y;
        }
    }
}

TEST_F(RimgTools, PreviewShowsChannelsOfEveryType) {
    for (const char* channel : {"beauty", "depth", "id", "motion", "normals", "four"}) {
        const ProgramResult result =
            run("preview", "noise.rimg",
                {"-o", folder_ / "p.png", "--channel", channel, "--background", "ff00ff"});
        ASSERT_EQ(result.status, 0) << channel << result.err;
        const Png png = readPng(folder_ / "p.png");
        ASSERT_EQ(png.pixels.size(), std::size_t{kWidth * kHeight}) << channel;
        std::set<int> colours;
        for (const RGB24& p : png.pixels)
            colours.insert(p.r << 16 | p.g << 8 | p.b);
        EXPECT_GT(colours.size(), 20u) << channel;
        EXPECT_EQ(colours.count(0xff00ff), 0u) << channel;
    }
    EXPECT_EQ(run("preview", "noise.rimg", {"-o", folder_ / "n.png", "--channel", "none"}).status, 1);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "n.png"));
}

TEST_F(RimgTools, PreviewFitsTheFrameIntoTheSizeAskedFor) {
    const struct {
        std::vector<std::string> options;
        bool borders;
    } cases[] = {{{}, true}, {{"--stretch"}, false}};
    for (const auto& c : cases) {
        std::vector<std::string> arguments{"-o",    folder_ / "p.png", "--size",
                                           "32x32", "--background",    "102030"};
        arguments.insert(arguments.end(), c.options.begin(), c.options.end());
        ASSERT_EQ(run("preview", "noise.rimg", arguments).status, 0);
        const Png png = readPng(folder_ / "p.png");
        ASSERT_EQ(png.width, 32);
        for (const int y : {0, 7, 24, 31}) {
            const RGB24 p = png.at(5, y);
            EXPECT_EQ(p.r == 0x10 && p.g == 0x20 && p.b == 0x30, c.borders) << y;
        }
        EXPECT_NE(png.at(5, 8).g, 0x20);
    }
    for (const char* size : {"0x5", "x", "12", "-1x5", "999999x2"}) {
        EXPECT_EQ(run("preview", "noise.rimg", {"-o", folder_ / "s.png", "--size", size}).status, 2) << size;
    }
}

TEST_F(RimgTools, NoteIsPrintedReplacedAndRefused) {
    const std::string longest(1023, 'n');
    for (const std::string& note : {std::string("a new note"), longest, std::string()}) {
        const ProgramResult set = run("note", "sample.rimg", {"--set", note});
        EXPECT_EQ(set.status, 0) << set.err;
        EXPECT_EQ(run("note", "sample.rimg", {}).out, note.empty() ? "" : note + "\n");
    }
    writeFile(folder_ / "text", "from a file\n");
    EXPECT_EQ(run("note", "noise.rimg", {"--set-from", folder_ / "text"}).status, 0);
    EXPECT_EQ(run("note", "noise.rimg", {}).out, "from a file\n");

    const std::string before = readFile(folder_ / "sample.rimg");
    const ProgramResult refused = run("note", "sample.rimg", {"--set", longest + "x"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, HasSubstr("1023"));
    EXPECT_EQ(readFile(folder_ / "sample.rimg"), before);

    const std::string open = readFile(folder_ / "open.rimg");
    EXPECT_EQ(run("note", "open.rimg", {"--set", "too early"}).status, 3);
    EXPECT_EQ(readFile(folder_ / "open.rimg"), open);
    EXPECT_EQ(run("note", "other.rimg", {"--set", "x"}).status, 5);
    EXPECT_EQ(run("note", "missing.rimg", {"--set", "x"}).status, 5);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "missing.rimg"));
}

// A disk that fills up at any place, and a writer at work: the file is as it was, and the reason is reported.
TEST_F(RimgTools, ANoteThatDoesNotFitChangesNothing) {
    const std::string path = folder_ / "noise.rimg";
    const std::string before = readFile(path);
    rlimit previous;
    ::getrlimit(RLIMIT_FSIZE, &previous);
    int refused = 0;
    for (rlim_t size = before.size(); readFile(path) == before && size < 2 * before.size() + 5000;
         size += 97) {
        const rlimit limit{size, previous.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        const ProgramResult set = run("note", "noise.rimg", {"--set", "a note"});
        ::setrlimit(RLIMIT_FSIZE, &previous);
        if (set.status == 0) break;
        ++refused;
        EXPECT_EQ(set.status, 1);
        EXPECT_THAT(set.err, HasSubstr("File too large"));
        EXPECT_TRUE(readFile(path) == before) << size;
    }
    EXPECT_GT(refused, 11) << "a tag of 1064 bytes and an entry of 48";
    EXPECT_EQ(run("note", "noise.rimg", {}).out, "a note\n");
    EXPECT_EQ(run("verify", "noise.rimg", {}).status, 0);

    RIFile writer;
    ASSERT_TRUE(writer.Append(path.c_str(), nullptr).empty());
    const ProgramResult locked = run("note", "noise.rimg", {"--set", "another"});
    EXPECT_EQ(locked.status, 5);
    EXPECT_THAT(locked.err, HasSubstr("another writer has the file open"));
}

TEST_F(RimgTools, SettingsComeOutAsTheyWereStored) {
    EXPECT_EQ(run("settings", "sample.rimg", {"-o", folder_ / "blob"}).status, 0);
    const ProgramResult printed = run("settings", "sample.rimg", {});
    EXPECT_EQ(printed.status, 0);
    EXPECT_FALSE(printed.out.empty());
    EXPECT_EQ(readFile(folder_ / "blob"), printed.out);
    const Sample sample = makeSample();
    const RIF_TAG tag = sample.tag(sample.find(TAG_SETTINGS));
    const auto start =
        sample.bytes.begin() + sample.offset(sample.find(TAG_SETTINGS)) + MUtils::kTagHeaderBytes;
    EXPECT_EQ(printed.out, std::string(start, start + tag.p1));
    EXPECT_EQ(run("settings", "noise.rimg", {}).status, 1);
    EXPECT_EQ(run("settings", "other.rimg", {}).status, 5);
}

}  // namespace
