#pragma once

#include <string>

#include "rawimage/tools/verify.h"

namespace rimg {

// The forms in which `rimg verify` and `rimg missing` show a report, on standard output. The text is for
// people and shows the first entries of a list, or all; a JSON object, on a line of its own, has all that the
// report has.

// Of a file that can be read.
void printVerifyText(const std::string& file, const MUtils::VerifyReport& report, bool all);
void printVerifyJson(const std::string& file, const MUtils::VerifyReport& report);

void printMissingText(const std::string& file, const MUtils::VerifyReport& report);
void printMissingJson(const std::string& file, const MUtils::VerifyReport& report);

// The buckets to be rendered again, one on a line; where the file announces no grid, the missing boxes.
// Returns how many there are beyond those that are listed.
std::int64_t printMissingBuckets(const MUtils::VerifyReport& report, bool json);

}  // namespace rimg
