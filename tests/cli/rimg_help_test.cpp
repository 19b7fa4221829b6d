#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "tests/cli/cli_manual.h"

// The help of the program and its verbs, as someone reads it who has just got the program.

namespace {

using namespace testing_tools;
using testing::HasSubstr;
using testing::Not;

std::vector<std::string> helpLines(const std::string& verb) {
    std::vector<std::string> arguments{"--help"};
    if (!verb.empty()) arguments.insert(arguments.begin(), verb);
    const ProgramResult help = runProgram(RIMG_PROGRAM, arguments);
    EXPECT_EQ(help.status, 0) << verb;
    std::istringstream text(help.out);
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

// Under a heading, up to the next empty line: first words and the rest of each line.
std::vector<ManualRow> rowsUnder(const std::string& heading, const std::vector<std::string>& lines) {
    std::vector<ManualRow> rows;
    bool inside = false;
    for (const std::string& line : lines) {
        if (inside && line.empty()) break;
        const std::size_t word = line.find_first_not_of(' ');
        if (inside) {
            const std::size_t end = line.find(' ', word);
            const std::size_t rest = line.find_first_not_of(' ', end);
            rows.push_back({line.substr(word, end - word), rest < line.size() ? line.substr(rest) : ""});
        }
        inside = inside || line == heading;
    }
    return rows;
}

std::vector<std::string> verbs() {
    std::vector<std::string> names;
    for (const std::string& line : helpLines("")) {
        const bool row = line.size() > 3 && line.rfind("  ", 0) == 0 && line[2] >= 'a' && line[2] <= 'z';
        if (row && line.rfind("  rimg", 0) != 0) names.push_back(line.substr(2, line.find(' ', 2) - 2));
    }
    return names;
}

TEST(RimgHelp, EndsWithTheExitCodesThatTheManualHas) {
    std::vector<std::string> all = verbs();
    ASSERT_GE(all.size(), 9u);
    all.insert(all.begin(), "");
    for (const std::string& verb : all) {
        std::set<std::string> expected, found;
        const auto manual = manualTable(manualChapter(verb.empty() ? "Exit codes" : verb), "code");
        for (const ManualRow& row : manual)
            expected.insert(row.key);
        const std::vector<std::string> help = helpLines(verb);
        for (const ManualRow& row : rowsUnder("Exit codes:", help)) {
            found.insert(row.key);
            // The manual may say more.
            EXPECT_TRUE(std::any_of(manual.begin(), manual.end(),
                                    [&row](const ManualRow& other) {
                                        return other.key == row.key &&
                                               other.meaning.rfind(row.meaning, 0) == 0;
                                    }))
                << verb << ": " << row.key << " " << row.meaning;
        }
        EXPECT_EQ(found, expected) << verb;
        EXPECT_THAT(help, testing::Contains("Examples:")) << verb;
    }
}

TEST(RimgHelp, FitsATerminal) {
    std::vector<std::string> all = verbs();
    all.insert(all.begin(), "");
    for (const std::string& verb : all) {
        for (const std::string& line : helpLines(verb)) {
            EXPECT_LE(line.size(), 80u) << verb << ": " << line;
            for (const char* internal :
                 {" INT", " FLOAT", "TEXT:", "NAME:", "REQUIRED", "Excludes", "SUBCOMMAND"})
                EXPECT_THAT(line, Not(HasSubstr(internal))) << verb;
        }
    }
}

// What completion offers must be taken, and be what the help shows.
TEST(RimgHelp, IsTheSameAsJson) {
    const ProgramResult printed = runProgram(RIMG_PROGRAM, {"--help-json"});
    ASSERT_EQ(printed.status, 0);
    const auto tree = nlohmann::json::parse(printed.out);
    std::vector<std::string> names;
    std::size_t choices = 0;
    for (const auto& verb : tree["verbs"]) {
        names.push_back(verb["name"]);
        const std::string help = runProgram(RIMG_PROGRAM, {names.back(), "--help"}).out;
        for (const auto& option : verb["options"]) {
            const std::string name = option["names"].back();
            EXPECT_THAT(help, HasSubstr(name)) << names.back();
            for (const std::string choice : option["choices"]) {
                const ProgramResult taken = runProgram(RIMG_PROGRAM, {names.back(), name, choice});
                EXPECT_THAT(taken.err, Not(HasSubstr(name + ":"))) << choice;
                ++choices;
            }
        }
    }
    EXPECT_EQ(names, verbs());
    EXPECT_GT(choices, 20u);
}

}  // namespace
