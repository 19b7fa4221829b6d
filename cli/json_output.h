#pragma once

#include <nlohmann/json.hpp>

#include "cli/report.h"
#include "rawimage/area/missing_boxes.h"

namespace rimg {

// What the JSON objects of several verbs share. Keys keep the order in which they are set.
using Json = nlohmann::ordered_json;

Json jsonOf(const MUtils::PixelBox& box);
Json jsonOf(const MUtils::MissingBoxes& missing);
// The file that a failure is about, null when that is no one file, and the cause; null without a failure.
Json faultOf(const Failure* failure);

// Prints an object on a line of ASCII on standard output. Bytes that are no UTF-8 are replaced.
void printJson(const Json& json);

}  // namespace rimg
