#pragma once

#include <string>
#include <vector>

#include "rawimage/frame/frame_records.h"

namespace MUtils {
inline namespace v1 {

// Records of a raw image as a text of extra attributes.
struct ExrAttributes {
    std::string text;
    // Names of the attributes whose text has a '=' or ';': nothing protects these there.
    std::vector<std::string> leftOut;
};

// "note", "scene" and "sceneValue", "renderRegion" (box2i, when one is set), and, `withStampText`,
// "stampText": those that the file has.
ExrAttributes exrAttributes(const FrameRecords& records, bool withStampText);

// Joins two texts, either of which may be empty or end in a semicolon.
std::string joinAttributes(const std::string& first, const std::string& second);

}  // namespace v1
}  // namespace MUtils
