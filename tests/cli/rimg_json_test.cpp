#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "tests/cli/cli_manual.h"
#include "tests/testing/raw_frame.h"
#include "tests/testing/sample_file.h"

// The objects that --json prints, against what the manual says of them: the chapter of each verb ends with a
// part "### JSON", a table of all keys and an example.

namespace {

using namespace testing_tools;
using Json = nlohmann::json;
using testing::HasSubstr;

struct VerbObjects {
    const char* verb;
    // Its --json of files of RimgJson is the manual's example.
    const char* example;
    // With the example these have every key at least once.
    std::vector<const char*> commands;
};

// A verb joins with one line.
const VerbObjects kVerbs[] = {
    {"convert",
     "convert --json left.rimg left.exr",
     {"convert --json sample.rimg sample.exr", "convert --json text.txt text.exr",
      "convert --json none none.exr"}},
    {"info",
     "info --json --tags small.rimg",
     {"info --json --tags sample.rimg", "info --json left.rimg unfinished.rimg", "info --json damaged.rimg",
      "info --json text.txt", "info --json none"}},
    {"verify",
     "verify --json damaged.rimg",
     {"verify --json sample.rimg left.rimg", "verify --json unfinished.rimg bad_tag.rimg",
      "verify --json --quick begun.rimg text.txt", "verify --json none"}},
    {"missing",
     "missing --json left.rimg",
     {"missing --json small.rimg", "missing --json begun.rimg", "missing --json bad_tag.rimg",
      "missing --json text.txt", "missing --json none"}},
    {"stats",
     "stats --json --channels id left.rimg",
     {"stats --json special.rimg damaged.rimg", "stats --json text.txt none"}},
    {"hash",
     "hash --json left.rimg",
     {"hash --json small.rimg", "hash --json damaged.rimg", "hash --json begun.rimg text.txt none"}},
    {"recover",
     "recover --json damaged.rimg -o saved.rimg",
     {"recover --json doubtful.rimg -o new1.rimg", "recover --json --in-place unfinished.rimg",
      "recover --json --in-place small.rimg", "recover --json --in-place damaged.rimg",
      "recover --json text.txt -o new2.rimg", "recover --json none -o new3.rimg",
      "recover --json small.rimg -o none/new.rimg", "recover --json small.rimg -o /dev/full"}},
    {"merge",
     "merge --json --allow-holes left.rimg right.rimg -o frame.rimg",
     {"merge --json left.rimg right.rimg -o new4.rimg", "merge --json left.rimg small.rimg -o new5.rimg",
      "merge --json left.rimg text.txt -o new6.rimg", "merge --json none -o new7.rimg",
      "merge --json small.rimg -o none/new.rimg", "merge --json small.rimg -o /dev/full",
      "merge --json sample.rimg small.rimg -o new8.rimg",
      "merge --json small.rimg small.rimg bad_tag.rimg -o new9.rimg"}},
    {"diff",
     "diff --json small.rimg left.rimg",
     {"diff --json --metadata sample.rimg small.rimg", "diff --json small.rimg damaged.rimg",
      "diff --json small.rimg spot.rimg", "diff --json left.rimg small.rimg", "diff --json text.txt none"}},
    {"pieces", "pieces --json --size small.rimg --count 2", {}},
};

class RimgJson : public testing::Test {
  protected:
    RimgJson() {
        RawFrame frame;
        frame.channels = {{2, 126, "color"}, {4, 0, "id"}};
        frame.metadata = [](RIFile& file) {
            expectOk(file.WTRenderRegion({1, 0, 0, 40, 24}));
            expectOk(file.WTNote("take 3"));
        };
        frame.write(folder_ / "small.rimg");
        const std::string small = readFile(folder_ / "small.rimg");
        spoil("damaged.rimg", small, small.size() - 400);  // in the pixels of channel 0
        spoil("bad_tag.rimg", small, 36);
        writeFile(folder_ / "begun.rimg", small.substr(0, 32));
        frame.boxes.push_back({3, 4, 1, 1, 0.5f});
        frame.write(folder_ / "spot.rimg");
        frame.values = [](int component, int x, int) {
            constexpr float kInf = std::numeric_limits<float>::infinity();
            return component > 0 ? 0.5f : x % 3 == 0 ? NAN : x % 3 == 1 ? kInf : -kInf;
        };
        frame.write(folder_ / "special.rimg");
        frame.values = {};
        frame.boxes = {{0, 0, 16, 24}};
        frame.write(folder_ / "left.rimg");
        frame.boxes = {{24, 0, 16, 24}};
        frame.closed = false;
        frame.write(folder_ / "right.rimg");
        frame.write(folder_ / "unfinished.rimg");
        std::string headless = readFile(folder_ / "unfinished.rimg");
        writeFile(folder_ / "headless.rimg", headless.replace(0, 72, 72, '\0'));
        const Sample sample = makeSample();
        const std::string bytes(sample.bytes.begin(), sample.bytes.end());
        writeFile(folder_ / "sample.rimg", bytes);
        // The aspect is not the one that the table has.
        spoil("doubtful.rimg", bytes, static_cast<std::size_t>(sample.offset(0)) + 16);
        writeFile(folder_ / "text.txt", "something else entirely, of no use to anyone here");
    }

    void spoil(const std::string& name, std::string bytes, std::size_t at) {
        bytes[at] = static_cast<char>(bytes[at] ^ 1);
        writeFile(folder_ / name, bytes);
    }
    ProgramResult run(const std::string& command) {
        return runProgram("/bin/bash",
                          {"-c", "cd '" + folder_ / "" + "' && exec '" RIMG_PROGRAM "' " + command});
    }
    // What a command prints, an object for each line; all of it is ASCII.
    std::vector<Json> objectsOf(const std::string& command) {
        std::istringstream lines(run(command).out);
        std::vector<Json> objects;
        for (std::string line; std::getline(lines, line);)
            objects.push_back(Json::parse(line));
        EXPECT_FALSE(objects.empty()) << command;
        return objects;
    }

    TempFolder folder_;
};

// Lists whose entries are those of "faults", which verify's table has.
bool isFaultList(const std::string& key) {
    return key == "lost" || key == "repaired" || key == "doubts" || key == "damaged";
}

// "channels[].name" and the like.
void addKeys(const Json& value, const std::string& path, std::set<std::string>& keys) {
    if (value.is_array()) {
        for (const Json& element : value)
            addKeys(element, path + "[]", keys);
    }
    if (!value.is_object()) return;
    for (const auto& [key, inner] : value.items()) {
        const std::string name = path.empty() ? key : path + "." + key;
        keys.insert(name);
        if (!isFaultList(key)) addKeys(inner, name, keys);
    }
}

// The keys in backticks in a table's first column.
void addKeys(const ManualRow& row, std::set<std::string>& keys) {
    std::istringstream cell(row.key);
    std::string key;
    while (std::getline(cell, key, '`') && std::getline(cell, key, '`'))
        EXPECT_TRUE(keys.insert(key).second) << key << " twice";
}

std::string textOf(const std::set<std::string>& keys) {
    std::string text;
    for (const std::string& key : keys)
        text += key + '\n';
    return text;
}

std::vector<std::string> jsonPart(const std::string& verb) {
    const std::vector<std::string> chapter = manualChapter(verb);
    return {std::find(chapter.begin(), chapter.end(), "### JSON"), chapter.end()};
}

std::string exampleIn(const std::vector<std::string>& lines) {
    std::string text;
    bool inside = false;
    for (const std::string& line : lines) {
        if (line == "```") inside = false;
        if (inside) text += line + '\n';
        inside = inside || line == "```json";
    }
    return text;
}

TEST_F(RimgJson, IsAsTheManualShowsIt) {
    for (const VerbObjects& verb : kVerbs) {
        const std::string example = exampleIn(jsonPart(verb.verb));
        ASSERT_TRUE(Json::accept(example)) << verb.verb;
        const std::vector<Json> printed = objectsOf(verb.example);
        ASSERT_EQ(printed.size(), 1u) << verb.example;
        EXPECT_EQ(printed[0], Json::parse(example)) << verb.example;
    }
}

TEST_F(RimgJson, HasTheKeysThatTheManualExplainsAndNoOthers) {
    for (const VerbObjects& verb : kVerbs) {
        std::set<std::string> documented, printed;
        for (const ManualRow& row : manualTable(jsonPart(verb.verb), "key"))
            addKeys(row, documented);
        std::vector<std::string> commands(verb.commands.begin(), verb.commands.end());
        commands.push_back(verb.example);
        for (const std::string& command : commands) {
            for (const Json& object : objectsOf(command))
                addKeys(object, "", printed);
        }
        EXPECT_EQ(textOf(printed), textOf(documented)) << verb.verb;
    }
}

TEST_F(RimgJson, ShowsEachFaultInTheSameForm) {
    std::set<std::string> documented;
    for (const ManualRow& row : manualTable(jsonPart("verify"), "key"))
        addKeys(row, documented);
    std::map<std::string, std::set<std::string>> printed;  // by list
    for (const char* command :
         {"verify --json damaged.rimg bad_tag.rimg doubtful.rimg", "recover --json damaged.rimg -o new1",
          "recover --json doubtful.rimg -o new2", "recover --json bad_tag.rimg -o new3"}) {
        for (const Json& object : objectsOf(command)) {
            for (const auto& [key, inner] : object.items()) {
                if (isFaultList(key)) addKeys(inner, "faults", printed[key]);
            }
        }
    }
    EXPECT_TRUE(printed["lost"].count("faults[].box.x"));
    for (const auto& [list, keys] : printed) {
        for (const std::string& key : keys)
            EXPECT_TRUE(documented.count(key)) << list << ": " << key;
    }
}

// The object has the state; all else is as without --json.
TEST_F(RimgJson, ReportsFailuresToo) {
    const struct {
        const char* command;
        const char* state;
        int status;
    } cases[] = {
        {"recover small.rimg -o new", "good", 0},
        {"recover text.txt -o new", "not this format", 5},
        {"recover none -o new", "cannot open", 5},
        {"recover --in-place damaged.rimg", "not in place", 4},
        {"recover headless.rimg --size 4x4 -o new", "mismatch", 6},
        {"recover small.rimg -o /dev/full", "write failed", 1},
        {"recover small.rimg -o none/new", "write failed", 1},
        {"merge small.rimg -o new", "good", 0},
        {"merge text.txt small.rimg -o new", "not this format", 5},
        {"merge none -o new", "cannot open", 5},
        {"merge bad_tag.rimg -o new", "damaged", 4},
        {"merge sample.rimg small.rimg -o new", "mismatch", 6},
        {"merge small.rimg left.rimg -o new", "overlap", 6},
        {"merge left.rimg -o new", "holes", 6},
        {"merge small.rimg -o /dev/full", "write failed", 1},
    };
    for (const auto& c : cases) {
        const ProgramResult text = run(c.command);
        const ProgramResult json = run(std::string(c.command) + " --json");
        EXPECT_EQ(json.status, c.status) << c.command;
        EXPECT_EQ(text.status, c.status) << c.command;
        EXPECT_EQ(json.err, text.err) << c.command;
        ASSERT_TRUE(Json::accept(json.out)) << c.command << json.out;
        const Json object = Json::parse(json.out);
        EXPECT_EQ(object["state"], c.state) << c.command;
        EXPECT_EQ(object["exitCode"], c.status) << c.command;
        EXPECT_EQ(object["fault"].is_null(), c.status == 0) << c.command;
        if (c.status == 0) continue;
        EXPECT_THAT(json.err, HasSubstr(object["fault"]["cause"].get<std::string>())) << c.command;
        EXPECT_EQ(text.out, "") << c.command;
    }
    const Json holes = objectsOf("merge --json left.rimg -o new").at(0)["holes"];
    EXPECT_EQ(holes["boxes"], Json::parse(R"([{"x": 16, "y": 0, "width": 24, "height": 24}])"));
    EXPECT_EQ(run("recover --json small.rimg -o small.rimg").out, "") << "nothing was begun";
    EXPECT_EQ(run("recover --json small.rimg -o new > /dev/full").status, 1);
}

}  // namespace
