#pragma once

#include <string>

#include "cli/json_output.h"
#include "rawimage/tools/stats.h"

namespace rimg {

// The forms in which `rimg stats` shows what it found.

// A table with a line for each component.
void printStatsText(const std::string& file, const MUtils::StatsReport& found);

// One JSON object on a line of its own.
void printStatsJson(const std::string& file, const MUtils::StatsReport& found);

}  // namespace rimg
