#pragma once

#include <cstdio>
#include <string>

#include "rawimage/tools/summary.h"

namespace rimg {

// The forms in which `rimg info` shows a summary. `tags` adds the list of tags, which the summary must have
// kept. Neither lets a file drive the terminal: what its texts hold of control characters comes out escaped.

// A block of text for people.
void printInfoText(std::FILE* out, const std::string& file, const MUtils::FileSummary& summary, bool tags);

// One JSON object on one line of ASCII. What the file does not have is null, as are floats that are not
// finite.
void printInfoJson(std::FILE* out, const std::string& file, const MUtils::FileSummary& summary, bool tags);

// "float", "colour", ..., "unknown" for a number that is no channel type.
const char* channelTypeName(int type);

// The shortest decimal that reads back as the same float: "0.1", "1e+20", "inf", "nan".
std::string shortest(float value);

// Bytes that the values take for each byte stored; 0 when nothing is stored.
double compressionRatio(const MUtils::ChannelSummary& channel);

}  // namespace rimg
