#include <gtest/gtest.h>

#include <sstream>

#include "tests/testing/run_program.h"

// The names that a verb makes of its arguments. None of the files exists, so that each is reported by name.

namespace {

using namespace testing_tools;

std::string namesOf(const std::string& messages) {
    const std::string begin = "rimg: ", end = ": No such file or directory";
    std::istringstream lines(messages);
    std::string names;
    for (std::string line; std::getline(lines, line);) {
        if (line.size() < begin.size() + end.size()) return messages;
        names += (names.empty() ? "" : "|") + line.substr(begin.size(), line.find(end) - begin.size());
    }
    return names;
}

TEST(RimgFiles, AreNamedByFramesAndLists) {
    const struct {
        const char* arguments;
        const char* names;
    } cases[] = {
        {"f.#", "f.#"},
        {"--frames 3 f.#", "f.3"},
        {"--frames 8-11 f.##", "f.08|f.09|f.10|f.11"},
        {"--frames 1-10x4,2 f.%04d", "f.0001|f.0005|f.0009|f.0002"},
        {"--frames 3-1 f.%d", "f.3|f.2|f.1"},
        {"--frames 5-2x2 f.#", "f.5|f.3"},
        {"--frames 5-2x-2 f.#", "f.5|f.3"},
        {"--frames 1-1x-1 f.#", "f.1"},
        {"--frames -2-0 f.###", "f.-02|f.-01|f.000"},
        {"--frames -1--2 f.%02d", "f.-1|f.-2"},
        {"--frames=1-2x2147483647,2147483647,-2147483648 '#'", "1|2147483647|-2147483648"},
        {"--frames 3-5,1-4 f#", "f3|f4|f5|f1|f2"},
        {"--frames 1-2 a# b#", "a1|a2|b1|b2"},
        {"--frames 7 s##/f#.%03d.x", "s07/f7.007.x"},
        {"--frames 7 '%4d %0d %00d %+d %#%d%'", "%4d %0d %00d %+d %77%"},
        {"a# --files-from <(printf 'b\\n\\nc d\\r\\n%%d') z", "a#|z|b|c d|%d"},
        {"--files-from - -0 < <(printf 'a\\nb\\0\\0c\\r')", "a\\nb|c\\x0d"},
        {"a# --frames 1-2 --files-from <(echo b%d)", "a1|a2|b1|b2"},
    };
    for (const auto& c : cases) {
        const ProgramResult result =
            runProgram("/bin/bash", {"-c", std::string("exec '" RIMG_PROGRAM "' info ") + c.arguments});
        EXPECT_EQ(result.status, 5) << c.arguments;
        EXPECT_EQ(namesOf(result.err), c.names) << c.arguments;
    }
}

}  // namespace
