#include "cli/json_output.h"

#include <cstdio>

namespace rimg {

Json jsonOf(const MUtils::PixelBox& box) {
    return {{"x", box.x0}, {"y", box.y0}, {"width", box.width()}, {"height", box.height()}};
}

Json jsonOf(const MUtils::MissingBoxes& missing) {
    Json boxes = Json::array();
    for (const MUtils::PixelBox& box : missing.boxes)
        boxes.push_back(jsonOf(box));
    return {{"boxes", boxes}, {"truncated", missing.truncated}};
}

Json faultOf(const Failure* failure) {
    if (failure == nullptr) return nullptr;
    const Json file = failure->file().empty() ? Json() : Json(failure->file());
    return {{"file", file}, {"cause", failure->what()}};
}

std::string asciiText(const Json& json) {
    constexpr bool kAscii = true;
    return json.dump(-1, ' ', kAscii, Json::error_handler_t::replace);
}

void printJson(const Json& json) {
    std::printf("%s\n", asciiText(json).c_str());
}

}  // namespace rimg
