#pragma once

#include <string>
#include <vector>

#include "cli/report.h"
#include "rawimage/tools/merge.h"

namespace rimg {

// What `rimg merge --json` prints: one object on a line of its own. `failure` is why there is no merged file,
// null when there is one.
void printMergeJson(const std::vector<std::string>& inputs, const std::string& output,
                    const MUtils::MergeReport& merged, const Failure* failure);

}  // namespace rimg
