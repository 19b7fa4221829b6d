#include "convert/to_exr/exr_attributes.h"

#include <climits>
#include <cstdint>

namespace MUtils {
inline namespace v1 {

namespace {

void add(ExrAttributes& attributes, const std::string& name, const std::string& value) {
    attributes.text += (attributes.text.empty() ? "" : "; ") + name + '=' + value;
}

// In quotes, as the parser would read a text that looks like a number as one. It keeps inner quotes.
void addText(ExrAttributes& attributes, const std::string& name, const std::string& text) {
    if (text.empty()) return;
    if (text.find_first_of("=;") != std::string::npos) {
        attributes.leftOut.push_back(name);
    } else {
        add(attributes, name, '"' + text + '"');
    }
}

void addRegion(ExrAttributes& attributes, const RIRegionInfo& region) {
    const std::int64_t right = std::int64_t{region.left} + region.width - 1;
    const std::int64_t bottom = std::int64_t{region.top} + region.height - 1;
    const bool sound = region.width > 0 && region.height > 0 && right <= INT_MAX && bottom <= INT_MAX;
    if (region.kind == -1 || !sound) return;
    add(attributes, "renderRegion",
        '(' + std::to_string(region.left) + ',' + std::to_string(region.top) + ',' + std::to_string(right) +
            ',' + std::to_string(bottom) + ')');
}

}  // namespace

ExrAttributes exrAttributes(const FrameRecords& records, bool withStampText) {
    ExrAttributes attributes;
    if (records.note) addText(attributes, "note", records.note->text);
    if (records.scene) {
        addText(attributes, "scene", records.scene->name.text);
        add(attributes, "sceneValue", std::to_string(records.scene->value));
    }
    if (records.region) addRegion(attributes, *records.region);
    if (withStampText && records.stampText) addText(attributes, "stampText", records.stampText->text);
    return attributes;
}

std::string joinAttributes(const std::string& first, const std::string& second) {
    if (first.empty() || second.find_first_not_of(" \t\r\n") == std::string::npos) return first + second;
    return first + "; " + second;
}

}  // namespace v1
}  // namespace MUtils
