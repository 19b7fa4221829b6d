#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/testing/run_program.h"
#include "tests/testing/sample_file.h"

namespace {

using namespace testing_tools;
using nlohmann::json;
using testing::HasSubstr;

std::string textOf(const std::vector<unsigned char>& bytes) {
    return {bytes.begin(), bytes.end()};
}

// A folder with a file of each kind.
class RimgInfo : public testing::Test {
  protected:
    RimgInfo() {
        sample_ = makeSample();
        save("good", sample_.bytes);
        save("cut", {sample_.bytes.begin(), sample_.bytes.end() - 60});
        std::vector<unsigned char> damaged = sample_.bytes;
        damaged[static_cast<std::size_t>(sample_.offset(3)) + 4] = 7;
        save("damaged", damaged);
        save("other", Bytes().text("something else entirely, of no use here"));
    }

    void save(const std::string& name, const std::vector<unsigned char>& bytes) {
        writeFile(folder_ / name, textOf(bytes));
    }
    ProgramResult info(std::vector<std::string> arguments, const std::vector<std::string>& files) {
        for (const std::string& file : files)
            arguments.push_back(folder_ / file);
        arguments.insert(arguments.begin(), "info");
        return runProgram(RIMG_PROGRAM, arguments);
    }
    // What --json prints, a value for each line.
    std::vector<json> infoJson(std::vector<std::string> arguments, const std::vector<std::string>& files) {
        arguments.push_back("--json");
        std::istringstream lines(info(arguments, files).out);
        std::vector<json> values;
        for (std::string line; std::getline(lines, line);)
            values.push_back(json::parse(line));
        return values;
    }

    TempFolder folder_;
    Sample sample_;
};

TEST_F(RimgInfo, AnswersWithTheWorstOfItsFiles) {
    const struct {
        std::vector<std::string> files;
        int status;
    } cases[] = {
        {{"good"}, 0},
        {{"cut"}, 3},
        {{"damaged"}, 4},
        {{"other"}, 5},
        {{"missing"}, 5},
        {{"damaged", "cut", "good"}, 4},
        {{"good", "missing", "cut"}, 5},
    };
    for (const auto& c : cases) {
        for (const std::vector<std::string>& form : {std::vector<std::string>{}, {"--json"}, {"--tags"}}) {
            const ProgramResult result = info(form, c.files);
            EXPECT_EQ(result.status, c.status) << c.files[0];
            const auto good = std::count(c.files.begin(), c.files.end(), "good");
            EXPECT_EQ(result.errorLines(), static_cast<std::ptrdiff_t>(c.files.size()) - good) << result.err;
        }
    }
    EXPECT_EQ(runProgram(RIMG_PROGRAM, {"info"}).status, 2);
    const std::string full = RIMG_PROGRAM " info '" + folder_ / "good' > /dev/full";
    EXPECT_EQ(runProgram("/bin/sh", {"-c", full}).status, 1);
}

TEST_F(RimgInfo, NamesFileOffsetAndCauseOfAFault) {
    const ProgramResult result = info({}, {"damaged"});
    const std::string offset = std::to_string(sample_.offset(3));
    EXPECT_THAT(result.err, HasSubstr("rimg: " + folder_ / "damaged" + ": offset " + offset + ": "));
    EXPECT_THAT(result.out, HasSubstr("damaged at offset " + offset + ": "));
    EXPECT_EQ(info({}, {"other"}).out, "");
}

TEST_F(RimgInfo, PrintsAJsonObjectForEachFile) {
    const std::vector<json> values = infoJson({"--tags"}, {"good", "cut", "other"});
    ASSERT_EQ(values.size(), 3u);
    const json& good = values[0];
    EXPECT_EQ(good["file"], folder_ / "good");
    EXPECT_EQ(good["verdict"], "good");
    EXPECT_EQ(good["tableOffset"], sample_.offsets.back());
    EXPECT_EQ(good["resolution"]["width"], 10);
    EXPECT_EQ(good["scene"]["name"], "scene");
    EXPECT_EQ(good["channels"][1]["alias"], 126);
    EXPECT_EQ(good["channels"][1]["coveredPercent"], 100.0);
    EXPECT_EQ(good["channels"][1]["rawBytes"], 360);
    ASSERT_EQ(good["tags"].size(), sample_.offsets.size());
    for (int i = 0; i < sample_.tagCount(); ++i) {
        const json& tag = good["tags"][static_cast<std::size_t>(i)];
        const RIF_TAG expected = sample_.tag(i);
        EXPECT_EQ(tag["offset"], sample_.offset(i));
        EXPECT_EQ(tag["id"], expected.id);
        EXPECT_EQ(tag["size"], expected.size);
        EXPECT_EQ(tag["parameters"], (json{expected.p1, expected.p2, expected.p3, expected.p4, expected.p5,
                                           expected.p6, expected.p7, expected.p8}));
    }
    EXPECT_EQ(values[1]["verdict"], "unfinished");
    EXPECT_EQ(values[1]["fault"]["offset"], sample_.offsets.back());
    EXPECT_EQ(values[2]["verdict"], "not this format");
}

// Columns end where their headings end, the text column begins where its heading begins.
TEST_F(RimgInfo, AlignsItsColumns) {
    std::istringstream lines(info({"--tags"}, {"good"}).out);
    std::string heading;
    while (std::getline(lines, heading) && heading.find("offset   id") == std::string::npos) {
    }
    ASSERT_FALSE(heading.empty());
    for (int i = 0; i < sample_.tagCount(); ++i) {
        std::string line;
        std::getline(lines, line);
        EXPECT_EQ(line.size(), heading.size());
        EXPECT_EQ(line.find(MUtils::tagName(sample_.tag(i).id)), heading.find("tag")) << line;
    }
}

// Names and notes of a file reach neither the terminal as commands nor the JSON as broken text.
TEST_F(RimgInfo, TakesTheSpellOutOfHostileTexts) {
    const std::string note = "a\x1b[2J\n\xc2\x9b\xff\xe2\x80\xae\xc3\xa9\\";
    Bytes bytes;
    bytes.fileHeader(0).tag(TAG_NOTE, 1024).text(note).zeros(1024 - note.size());
    bytes.tag(TAG_CHANNEL_INFO, 80, {1, 80}).i32s({0, 1, 2, 3}).text("x\ry\x07").zeros(60);
    bytes.tag(TAG_CAMERA_INFO, 104).zeros(60).f32(std::numeric_limits<float>::quiet_NaN()).zeros(4);
    bytes.f32(std::numeric_limits<float>::infinity()).f32(0.1f).zeros(28);
    save("hostile", bytes);

    const std::string text = info({}, {"hostile"}).out;
    EXPECT_THAT(text, HasSubstr("\"a\\x1b[2J\\n\\u{9b}\\xff\\u{202e}\xc3\xa9\\\\\"\n"));
    EXPECT_THAT(text, HasSubstr("  x\\x0dy\\x07\n"));
    EXPECT_THAT(text, HasSubstr("aperture inf"));

    const json value = infoJson({}, {"hostile"}).at(0);
    EXPECT_EQ(value["note"]["text"], "a\x1b[2J\n\xc2\x9b\xef\xbf\xbd\xe2\x80\xae\xc3\xa9\\");
    EXPECT_EQ(value["channels"][0]["flags"], 3);
    EXPECT_TRUE(value["camera"]["transform"][15].is_null());
    EXPECT_TRUE(value["camera"]["aperture"].is_null());
    EXPECT_EQ(value["camera"]["fov"], 0.1);
    const std::string line = info({"--json"}, {"hostile"}).out;
    EXPECT_TRUE(
        std::all_of(line.begin(), line.end(), [](char c) { return c == '\n' || (c >= 0x20 && c < 0x7f); }));
}

}  // namespace
