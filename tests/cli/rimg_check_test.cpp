#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support/bytes.h"
#include "tests/testing/check.h"
#include "tests/testing/raw_frame.h"
#include "tests/testing/run_program.h"

// verify, missing, recover and merge, as a farm's scripts run them.

namespace {

using namespace testing_tools;
using testing::HasSubstr;
using Json = nlohmann::json;

class RimgCheck : public testing::Test {
  protected:
    RimgCheck() {
        RawFrame frame;
        write("whole", frame);
        const std::string whole = readFile(folder_ / "whole");
        const std::string open = whole.substr(0, wordAt(whole, 12));
        writeFile(folder_ / "unfinished", open);
        writeFile(folder_ / "header", whole.substr(0, 32));
        writeFile(folder_ / "zeros_at_end", open + std::string(99, '\0'));
        writeFile(folder_ / "zeros_at_begin", std::string(72, '\0') + open.substr(72));
        std::string noList = whole.substr(0, 12) + std::string(8, '\0') + whole.substr(20, 12);
        for (const std::string& tag : tagsOf({open.begin(), open.end()}))
            noList += idOf(tag) == TAG_CHANNEL_INFO ? "" : tag;
        writeFile(folder_ / "no_list", noList);
        flip("damaged", whole, whole.size() / 2);  // in the pixels of channel 1
        flip("bad_tag", whole, 36);                // the size of the first tag
        writeFile(folder_ / "frame.1", whole);
        writeFile(folder_ / "text", "something else entirely, of no use to anyone here");
        frame.boxes = {{0, 0, 20, 24}};
        write("left", frame);
        write("frame.3", frame);
        frame.boxes = {{20, 0, 20, 24}};
        write("right", frame);
        frame.channels[2].type = 1;
        write("other", frame);
        frame.boxes = {{0, 0, 40, 24}};
        frame.values = [](int component, int x, int y) {
            if (y == 3 && x == 30 && component == 1) return NAN;
            return y == 9 && x == 21 && component == 0 ? -1.0f : 1.0f;
        };
        write("nan", frame);
    }

    static std::uint32_t wordAt(const std::string& bytes, std::size_t at) {
        return MUtils::loadU32(reinterpret_cast<const unsigned char*>(bytes.data()) + at);
    }
    void write(const std::string& name, const RawFrame& frame) {
        frame.write(folder_ / name);
        inputs_[name] = readFile(folder_ / name);
    }
    void flip(const std::string& name, std::string bytes, std::size_t at) {
        bytes[at] = static_cast<char>(bytes[at] ^ 1);
        writeFile(folder_ / name, inputs_[name] = bytes);
    }

    // "verify --quick @left", in which @ stands for the test's folder.
    ProgramResult run(std::string command, const std::string& before = "") {
        const std::string folder = folder_ / "";
        for (std::size_t at = 0; (at = command.find('@', at)) != std::string::npos; at += folder.size())
            command.replace(at, 1, folder);
        return runProgram("/bin/bash", {"-c", before + "exec '" RIMG_PROGRAM "' " + command});
    }

    // True when the help of the command's verb lists the exit code.
    bool helpHasCode(const std::string& command, int code) {
        std::string& help = help_[command.substr(0, command.find(' '))];
        if (help.empty()) help = run(command.substr(0, command.find(' ')) + " --help").out;
        char row[16];
        std::snprintf(row, sizeof row, "\n  %2d  ", code);
        return help.find(row, help.find("Exit codes:")) != std::string::npos;
    }

    TempFolder folder_;
    std::map<std::string, std::string> help_;
    std::map<std::string, std::string> inputs_;  // that must stay as they are
};

TEST_F(RimgCheck, AnswersWithItsExitCodes) {
    const struct {
        const char* command;
        int status;
        const char* out = "";
        const char* err = "";
    } cases[] = {
        {"verify @whole", 0, "whole: good\n"},
        {"verify @unfinished", 3, "unfinished: unfinished (never closed"},
        {"verify @unfinished", 3, "  no writer has the file open\n  6 of 6 buckets are sound\n"},
        {"verify @unfinished", 3, "  next: rimg recover --in-place "},
        {"verify @left", 3,
         "left: incomplete (pixels are missing)\n  2 of 6 buckets are sound\n  missing in"},
        {"verify @left", 3, "missing in channels 0 color, 1 alpha, 2 id: 20x24+20+0\n  next: rimg missing "},
        {"verify @damaged", 4, "  0 of 6 buckets are sound\n  damaged bucket 40x24+0+0 of channel 1 alpha, "},
        {"verify @damaged", 4, ": pixels do not inflate\n  next: rimg recover "},
        {"verify --quick @damaged", 0, "good"},
        {"verify --quick @bad_tag", 4, "damaged"},
        {"verify @text", 5, "", "not a raw image file\n"},
        {"verify @zeros_at_begin", 5, "", "finds tags of one; next: rimg recover "},
        {"verify @none", 5, "", "none: No such file"},
        {"verify @", 5, "", "Is a directory"},
        {"verify @whole @left @whole", 3, "3 files: 2 good, 1 incomplete\n"},
        {"verify @damaged @left", 4, "2 files: 1 incomplete, 1 damaged\n"},
        {"verify @text @damaged @whole", 5, "3 files: 1 good, 1 damaged, 1 not this format\n",
         "text: not a raw"},
        {"verify -j 3 @damaged", 4, "damaged"},
        {"verify -j 0 @whole", 2, "", "--threads"},
        {"verify", 2, "", "FILE"},
        {"missing @whole", 0, "whole: nothing is missing\n"},
        {"missing @unfinished", 0, "nothing is missing\n"},
        {"missing @left", 3, "missing in channels 0 color, 1 alpha, 2 id: 20x24+20+0\n"},
        {"missing @header", 3, "", "header: "},
        {"missing @no_list", 3, "", "no_list: the channel list is missing"},
        {"missing @bad_tag", 4, "", "bad_tag: offset 32: "},
        {"missing @text", 5, "", "not a raw image file\n"},
        {"missing --json @text", 5, "\"verdict\":\"not this format\"", "not a raw image file\n"},
        {"missing @none", 5, "", "none: No such file"},
        {"missing @whole @left @text", 5, "whole: nothing is missing\n", "text: not a raw image file\n"},
        {"missing @left @whole", 3, "whole: nothing is missing\n"},
        {"verify --frames 1-3 @frame.#", 5, "3 files: 1 good, 1 incomplete, 1 cannot open\n",
         "frame.2: No such file"},
        {"info --json --frames 1,2 @frame.#", 5, "\"verdict\":\"cannot open\"", "frame.2: No such file"},
        {"missing --frames 3-1 @frame.#", 5, "frame.1: nothing is missing\n", "frame.2: No such file"},
        {"missing --buckets --frames 3 @frame.#", 3, "16x16+16+0\n8x16+32+0\n16x8+16+16\n8x8+32+16\n"},
        {"merge --frames 1-3 @frame.# -o @new", 5, "", "frame.2: No such file"},
        {"merge --frames 1,3 --overlap last @frame.# -o @out", 0},
        {"merge --json --files-from @none -o @new", 5, "\"state\":\"cannot open\"",
         "none: cannot be read: No"},
        {"missing @damaged", 0, "nothing is missing\n"},
        {"missing --deep @damaged", 4, "missing in channel 1 alpha: 40x24+0+0\n", "pixels do not inflate\n"},
        {"missing --deep -j 2 @whole", 0, "nothing is missing\n"},
        {"missing -j 2 @whole", 2, "", "--deep"},
        {"missing --buckets @whole", 0},
        {"missing --buckets @left", 3, "16x16+16+0\n8x16+32+0\n16x8+16+16\n8x8+32+16\n"},
        {"missing --buckets @header", 3, "", "header: "},
        {"missing --buckets --json @text", 5, "", "not a raw image file\n"},
        {"stats @whole", 0, "whole: good\n  channel "},
        {"stats --channels 'c*' @left", 3, " 480    -  color.B\n", "left: pixels are missing\n"},
        {"stats @damaged", 4, "     0    -  alpha.R\n", "damaged bucket 40x24+0+0 of channel 1 alpha, "},
        {"stats --fail-on nan,inf @whole", 0},
        {"stats --fail-on nan,inf @nan", 4, "", "NaN at (30, 3) in channel 0 color, component G\n"},
        {"stats --fail-on negative @nan", 4, "",
         "a value below 0 at (21, 9) in channel 0 color, component R\n"},
        {"stats --fail-on odd @whole", 2, "", "--fail-on"},
        {"stats --channels none @whole", 2, "", "\"none\" fits no channel\n"},
        {"stats @text", 5, "", "not a raw image file\n"},
        {"hash @whole", 0, "  /"},
        {"hash --each -j 2 @whole", 0, "whole: channel 2 id\n"},
        {"hash @left", 3, "incomplete:", "left: pixels are missing\n"},
        {"hash @unfinished", 3, "incomplete:", "never closed"},
        {"hash @damaged", 4, "", "damaged bucket 40x24+0+0 of channel 1 alpha, "},
        {"hash @bad_tag", 4, "", "bad_tag: offset 32: "},
        {"hash @text @whole", 5, "whole\n", "not a raw image file\n"},
        {"hash @header", 3, "", "header: "},
        {"recover @damaged -o @out", 3, "lost: bucket 40x24+0+0 of channel 1 alpha, offset "},
        {"recover @unfinished -o @out", 0, "kept: 6 tags, 3 of them pixels"},
        {"recover @header -o @out", 3, "the channel list is missing\nkept: 0 tags"},
        {"recover @zeros_at_end -o @out", 0, "cut off: bytes, offset "},
        {"recover @zeros_at_begin -o @out", 3, "--size WxH or --like SIBLING supplies it\n"},
        {"recover @zeros_at_begin -o @out", 3, "\nnext: rimg recover --size WxH "},
        {"recover @no_list -o @out", 3, "\nnext: rimg recover --like SIBLING "},
        {"recover @left --size 40x24 -o @out", 0, "--size is not used: the file has its resolution\n"},
        {"recover @left --like @whole -o @out", 0, "--like is not used: "},
        {"recover @left -o @out", 0, "\nnext: rimg missing "},
        {"preview @no_list -o @new", 3, "", "its channel list is missing, nothing was drawn"},
        {"recover @text -o @new", 5, "", "text: not a raw image file\n"},
        {"recover @none -o @new", 5, "", "none: No such file"},
        {"recover @whole", 2, "", "--in-place"},
        {"recover --in-place -o @new @whole", 2, "", "--in-place"},
        {"recover @damaged -o @damaged", 2, "", "the same file"},
        {"recover --in-place @damaged", 4, "", "use -o"},
        {"recover --in-place @whole", 0, "nothing to do"},
        {"recover @whole -o @", 1, "", "cannot be written: Is a directory\n"},
        {"recover @whole -o @none/new", 1, "", "new: cannot be written: No such file"},
        {"recover @whole -o /dev/full", 1, "", "No space left on device"},
        {"merge @left @right -o @out", 0},
        {"merge @left @other -o @new", 6, "", "channel 2 is of type 1, not 4\n"},
        {"merge @left @whole -o @new", 6, "", "pixels; --overlap first or last lets one of them count\n"},
        {"merge @left -o @new", 6, "", "has holes: 1, the first 20x24+20+0; --allow-holes leaves them\n"},
        {"merge @left --allow-holes -o @out", 0, "", "out: has holes"},
        {"merge @left @whole --overlap last -o @out", 0},
        {"merge @left @right --overlap both -o @new", 2, "", "--overlap"},
        {"merge @bad_tag @right -o @new", 4, "", "bad_tag: "},
        {"merge @left @text -o @new", 5, "", "text: not a raw image file\n"},
        {"merge @left @none -o @new", 5, "", "none: No such file"},
        {"merge @left @right -o @right", 2, "", "the same file"},
        {"merge @left @right -o @", 1, "", "cannot be written: Is a directory\n"},
        {"merge @left @right -o /dev/full", 1, "", "No space left on device"},
        {"merge @left @right --delete-inputs -o /dev/null", 1, "", "; the inputs are as they were\n"},
        {"merge @left @right @left -o @out", 0, "", "left: 3 pixel tags are taken from "},
        {"merge @bad_tag @whole -o @out", 0, "", "bad_tag: is damaged and not used"},
        {"pieces --size 40x24 --count 2 --bucket 16x16", 0, "0,0,16,24\n16,0,40,24\n"},
        {"pieces --size @whole --count 2", 0, "0,0,16,24\n16,0,40,24\n"},
        {"pieces --size 130x10 --count 9", 0, "64,0,128,10\n128,0,130,10\n", "only 3 pieces, not 9"},
        {"pieces --size 40x24 --bucket 8x8 --count 3 --by-cost @left", 0,
         "0,0,8,24\n8,0,16,24\n16,0,40,24\n"},
        {"pieces --size 40x24 --count 0", 2, "", "--count"},
        {"pieces --size @text --count 2", 5, "", "text: not a raw image file\n"},
        {"pieces --size 40x24 --by-cost @none --count 2", 5, "", "none: No such file"},
        {"pieces --size @header --count 2", 3, "", "header: the resolution is missing\n"},
    };
    for (const auto& c : cases) {
        const ProgramResult result = run(c.command);
        EXPECT_EQ(result.status, c.status) << c.command << '\n' << result.err;
        EXPECT_TRUE(helpHasCode(c.command, result.status)) << c.command << ": " << result.status;
        EXPECT_THAT(result.out, HasSubstr(c.out)) << c.command;
        EXPECT_THAT(result.err, HasSubstr(c.err)) << c.command;
        EXPECT_LE(result.errorLines(), 1) << c.command << '\n' << result.err;
        for (const auto& [name, bytes] : inputs_)
            EXPECT_TRUE(readFile(folder_ / name) == bytes) << c.command << " changed " << name;
        EXPECT_FALSE(std::filesystem::exists(folder_ / "new")) << c.command;
    }
}

TEST_F(RimgCheck, PrintsJsonForScripts) {
    const std::string area = R"({"x": 0, "y": 0, "width": 40, "height": 24})";
    const std::string right =
        R"({"boxes": [{"x": 20, "y": 0, "width": 20, "height": 24}], "truncated": false})";
    Json left = Json::parse(R"({"verdict": "incomplete", "cause": "pixels are missing", "area": )" + area +
                            R"(, "missing": )" + right + R"(, "channels": [
        {"channel": 0, "name": "color", "missing": )" +
                            right + R"(},
        {"channel": 1, "name": "alpha", "missing": )" +
                            right + R"(},
        {"channel": 2, "name": "id", "missing": )" +
                            right + "}]}");
    left["file"] = folder_ / "left";
    const ProgramResult missing = run("missing --json @left");
    EXPECT_EQ(missing.status, 3);
    EXPECT_EQ(Json::parse(missing.out), left);

    const ProgramResult verified = run("verify --json @left @damaged @none");
    EXPECT_EQ(verified.status, 5);
    std::istringstream lines(verified.out);
    std::string line;
    left.update({{"bytes", inputs_["left"].size()}, {"tags", 7}, {"furtherFaults", 0}});
    left.update({{"beingWritten", false}, {"faults", Json::array()}, {"repaired", Json::array()}});
    left["buckets"] = {{"sound", 2}, {"all", 6}};
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(Json::parse(line), left);

    ASSERT_TRUE(std::getline(lines, line));
    const Json damaged = Json::parse(line);
    EXPECT_EQ(damaged["verdict"], "damaged");
    EXPECT_EQ(damaged["missing"]["boxes"], Json::parse("[" + area + "]"));
    Json fault = Json::parse(R"({"tag": "float3 pixels", "channel": 1, "name": "alpha", "box": )" + area +
                             R"(, "cause": "pixels do not inflate"})");
    const auto at = damaged["faults"][0]["offset"].get<std::size_t>();
    fault.update({{"count", 1}, {"offset", at}, {"end", at + wordAt(inputs_["damaged"], at + 4)}});
    EXPECT_EQ(damaged["faults"], Json::array({fault}));

    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(Json::parse(line)["verdict"], "cannot open");
    EXPECT_FALSE(std::getline(lines, line));

    const ProgramResult buckets = run("missing --buckets --json @left");
    EXPECT_EQ(buckets.status, 3);
    EXPECT_EQ(Json::parse(buckets.out.substr(0, buckets.out.find('\n'))),
              Json::parse(R"({"x": 16, "y": 0, "width": 16, "height": 16})"));
}

// Only once the merged file is proved to have what the piece has.
TEST_F(RimgCheck, DeletesThePiecesThatItHasMerged) {
    const auto make = [this] {
        for (const char* name : {"left", "right"})
            writeFile(folder_ / (std::string("my.") + name), inputs_[name]);
        writeFile(folder_ / "my.again", inputs_["left"]);
    };
    const auto exists = [this](const char* name) { return std::filesystem::exists(folder_ / name); };
    make();
    const ProgramResult merged = run("merge --json --delete-inputs @my.left @my.right @my.again -o @out");
    EXPECT_EQ(merged.status, 0) << merged.err;
    EXPECT_EQ(Json::parse(merged.out)["deleted"],
              (std::vector<std::string>{folder_ / "my.left", folder_ / "my.right"}));
    EXPECT_FALSE(exists("my.left") || exists("my.right"));
    EXPECT_TRUE(exists("my.again")) << "its bytes are not in the merged file";
    EXPECT_THAT(merged.err, HasSubstr("my.again: is kept: "));
    EXPECT_EQ(run("verify @out").status, 0);

    make();
    {
        RIFile writer;
        expectOk(writer.Append((folder_ / "my.right").c_str(), nullptr));
        EXPECT_EQ(run("merge --delete-inputs @my.left @my.right -o @out").status, 0);
        EXPECT_TRUE(!exists("my.left") && exists("my.right")) << "it has a writer";
    }

    make();
    std::string damaged = inputs_["left"];
    damaged[damaged.size() / 2] = static_cast<char>(damaged[damaged.size() / 2] ^ 1);
    writeFile(folder_ / "my.left", damaged);
    const ProgramResult refused = run("merge --delete-inputs @my.left @my.right -o @new");
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, HasSubstr("new: is not as it was written: pixels do not inflate"));
    EXPECT_TRUE(exists("my.left") && exists("my.right") && !exists("new"));
}

TEST_F(RimgCheck, MergesOneOutputOnceAtATime) {
    const std::string lock = folder_ / "out.lock";
    {
        PFileStream other;
        ASSERT_EQ(other.Create(lock.c_str(), 0), 0);
        const ProgramResult refused = run("merge @left @right -o @out");
        EXPECT_EQ(refused.status, 5);
        EXPECT_THAT(refused.err, HasSubstr("out: cannot be written: another writer has the file open\n"));
        EXPECT_EQ(run("merge @left @right -o @another").status, 0);
    }
    EXPECT_TRUE(std::filesystem::exists(lock)) << "as a process leaves it that dies";
    EXPECT_EQ(run("merge @left @right -o @out").status, 0);
    EXPECT_FALSE(std::filesystem::exists(lock));
}

TEST_F(RimgCheck, MergesMorePiecesThanItMayOpen) {
    RawFrame frame;
    frame.width = 100, frame.height = 1;
    for (int x = 0; x < frame.width; ++x) {
        frame.boxes = {{x, 0, 1, 1}};
        frame.write(folder_ / ("piece." + std::to_string(x)));
    }
    const ProgramResult merged =
        run("merge --delete-inputs --frames 0-99 @piece.# -o @out", "ulimit -n 24; ");
    EXPECT_EQ(merged.status, 0) << merged.err;
    EXPECT_EQ(run("verify @out").status, 0);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "piece.99"));
}

// Damage in both channels of each bucket of a row; the row below is missing.
TEST_F(RimgCheck, ShowsALineForEachDamagedBucket) {
    RawFrame frame;
    frame.width = 30, frame.height = 2, frame.tile = 1;
    frame.channels = {{2, 126, "color"}, {4, 0, "id"}};
    frame.boxes.clear();
    for (int x = 0; x < 30; ++x)
        frame.boxes.push_back({x, 0, 1, 1});
    write("row", frame);
    std::string bytes = inputs_["row"];
    for (std::size_t at = 32; at < wordAt(bytes, 12); at += wordAt(bytes, at + 4)) {
        if (MUtils::isPixelTag(wordAt(bytes, at))) bytes[at + 50] = static_cast<char>(bytes[at + 50] ^ 0x55);
    }
    writeFile(folder_ / "row", inputs_["row"] = bytes);
    const struct {
        const char* command;
        const char* first;
        const char* last;
        std::ptrdiff_t lines;
    } cases[] = {
        {"verify @row", "damaged bucket 1x1+0+0 of channels 1 id, 0 color, offset ",
         "  and 10 more (--all lists them)\n", 25},
        {"verify --all @row", "damaged bucket 1x1+0+0 of", "damaged bucket 1x1+29+0 of", 34},
        {"recover @row -o @out", "lost: bucket 1x1+0+0 of channels 1 id, 0 color, offset ", "and 10 more",
         23},
        {"recover --all @row -o @out", "lost: bucket 1x1+0+0 of", "lost: bucket 1x1+29+0 of", 32},
    };
    for (const auto& c : cases) {
        const std::string out = run(c.command).out;
        EXPECT_THAT(out, HasSubstr(c.first));
        EXPECT_THAT(out, HasSubstr(c.last));
        EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), c.lines) << out;
    }
    // Once, and not for the buckets that are listed as damaged.
    EXPECT_THAT(run("verify @row").out, HasSubstr("missing in channels 0 color, 1 id: 30x1+0+1\n"));
}

TEST_F(RimgCheck, LeavesSoundFilesBehind) {
    EXPECT_EQ(run("recover @damaged -o @out").status, 3);
    EXPECT_THAT(run("verify @out").out, HasSubstr("missing in channel 1 alpha: 40x24+0+0\n"));
    EXPECT_EQ(run("recover --in-place @unfinished").status, 0);
    EXPECT_TRUE(readFile(folder_ / "unfinished") == inputs_["whole"]);
    EXPECT_EQ(run("merge @right @left -o @out").status, 0) << "over a longer file";
    EXPECT_EQ(run("verify @out").status, 0);
}

TEST_F(RimgCheck, KeepsOffFilesThatAreBeingWritten) {
    RIFile writer;
    expectOk(writer.Append((folder_ / "unfinished").c_str(), nullptr));
    const std::string before = readFile(folder_ / "unfinished");
    const ProgramResult verified = run("verify @unfinished");
    EXPECT_EQ(verified.status, 3) << "readers are free";
    EXPECT_THAT(verified.out, HasSubstr(")\n  a writer has the file open\n"));
    EXPECT_THAT(verified.out, testing::Not(HasSubstr("next:")));
    EXPECT_EQ(Json::parse(run("verify --json @unfinished").out)["beingWritten"], true);
    for (const char* command : {"recover --in-place @unfinished", "recover @left -o @unfinished",
                                "merge @left @right -o @unfinished", "preview @left -o @unfinished"}) {
        const ProgramResult result = run(command);
        EXPECT_EQ(result.status, 5) << command;
        EXPECT_THAT(result.err, HasSubstr("another writer has the file open\n"));
        EXPECT_TRUE(readFile(folder_ / "unfinished") == before) << command;
    }
}

}  // namespace
