#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "tests/testing/run_program.h"

namespace testing_tools {

// The chapter "## NAME" of the manual docs/cli.md, whose path is RIMG_MANUAL.
inline std::vector<std::string> manualChapter(const std::string& name) {
    std::istringstream manual(readFile(RIMG_MANUAL));
    std::vector<std::string> lines;
    bool inside = false;
    for (std::string line; std::getline(manual, line);) {
        if (line.rfind("## ", 0) == 0) inside = line == "## " + name;
        if (inside) lines.push_back(line);
    }
    return lines;
}

struct ManualRow {
    std::string key;
    std::string meaning;
};

// The rows of all tables in these lines whose first column has that heading.
inline std::vector<ManualRow> manualTable(const std::vector<std::string>& lines, const std::string& heading) {
    std::vector<ManualRow> rows;
    bool inside = false;
    for (const std::string& line : lines) {
        const std::size_t end = line.find(" | ", 1);
        if (line.rfind("| ", 0) != 0 || end == std::string::npos) {
            inside = inside && line.rfind("|---", 0) == 0;
            continue;
        }
        const std::string key = line.substr(2, end - 2);
        if (key == heading) {
            inside = true;
        } else if (inside) {
            rows.push_back({key, line.substr(end + 3, line.rfind(" |") - end - 3)});
        }
    }
    return rows;
}

}  // namespace testing_tools
