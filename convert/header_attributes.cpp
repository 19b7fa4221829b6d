#include "convert/header_attributes.h"

#include <set>

#include "exr/header_facts.h"

namespace MUtils {
inline namespace v1 {

bool isStructural(const std::string& name) {
    static const std::set<std::string> kNames{"channels",
                                              "chunkCount",
                                              "compression",
                                              "dataWindow",
                                              "deepImageState",
                                              "displayWindow",
                                              "lineOrder",
                                              "name",
                                              "dwaCompressionLevel",
                                              "maxSamplesPerPixel",
                                              "pixelAspectRatio",
                                              "tiles",
                                              "type",
                                              "version",
                                              "screenWindowCenter",
                                              "screenWindowWidth"};
    return kNames.count(name) > 0;
}

bool standsForTag(const std::string& name) {
    static const std::set<std::string> kNames{"note", "renderRegion", "scene", "sceneValue", "stampText"};
    return isCameraAttribute(name.c_str()) || kNames.count(name) > 0;
}

}  // namespace v1
}  // namespace MUtils
