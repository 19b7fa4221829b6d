#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "cli/report.h"
#include "rawimage/area/missing_boxes.h"

namespace rimg {

// What the JSON objects of several verbs share. Keys keep the order in which they are set.
using Json = nlohmann::ordered_json;

Json jsonOf(const MUtils::PixelBox& box);
Json jsonOf(const MUtils::MissingBoxes& missing);
// The file that a failure is about, null when that is no one file, and the cause; null without a failure.
Json faultOf(const Failure* failure);

// An object on one line of ASCII. Bytes that are no UTF-8 are replaced.
std::string asciiText(const Json& json);
// Prints it on standard output.
void printJson(const Json& json);

}  // namespace rimg
