#pragma once

#include <array>
#include <string>

#include "cli/diff_codes.h"
#include "cli/report.h"
#include "rawimage/tools/diff.h"

namespace rimg {

// "good", "warnings", "failures", "mismatch", else "error".
const char* diffStateName(MUtils::DiffState state);

// For people, on standard output: a line for each channel and record that differs, and one for all.
void printDiffText(const std::array<std::string, 2>& files, const MUtils::DiffReport& report);

// One object on a line of its own. `failure`: why there are no numbers, null when there are.
void printDiffJson(const std::array<std::string, 2>& files, const MUtils::DiffReport& report, ExitCode code,
                   const Failure* failure);

}  // namespace rimg
