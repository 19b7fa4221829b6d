#pragma once

#include <string>

#include "rawimage/tools/verify.h"

namespace rimg {

// The forms in which `rimg verify` and `rimg missing` show a report, on standard output. The text is for
// people and shows the first boxes of a list; the JSON object, on a line of its own, has all that the report
// has.

void printVerifyText(const std::string& file, const MUtils::VerifyReport& report);
void printVerifyJson(const std::string& file, const MUtils::VerifyReport& report);

void printMissingText(const std::string& file, const MUtils::VerifyReport& report);
void printMissingJson(const std::string& file, const MUtils::VerifyReport& report);

}  // namespace rimg
