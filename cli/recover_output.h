#pragma once

#include <string>

#include "cli/report.h"
#include "rawimage/tools/recover.h"

namespace rimg {

// What the verb answers; of a recovered file 3 when it lacks something of the input, or what it takes to show
// pixels.
ExitCode exitCodeOf(const MUtils::RecoverReport& found);

// The forms in which `rimg recover` shows what it did, on standard output.

// Shows the first faults, or all; those of one bucket share a line. Then what is missing, and the next
// command where there is one. `output` is empty for a recovery in place.
void printRecoverText(const std::string& input, const std::string& output, const MUtils::RecoverReport& found,
                      bool all);

// One JSON object on a line of its own. `output` is empty for a recovery in place, `failure` why there is no
// recovered file, null when there is one.
void printRecoverJson(const std::string& input, const std::string& output, const MUtils::RecoverReport& found,
                      const Failure* failure);

}  // namespace rimg
