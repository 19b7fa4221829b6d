#include <charconv>
#include <cmath>
#include <optional>

#include "cli/info_output.h"
#include "cli/json_output.h"

namespace rimg {

namespace {

using namespace MUtils;

// A float as the double that is written the shortest: 0.1, not 0.10000000149011612.
Json jsonOf(float value) {
    if (!std::isfinite(value)) return nullptr;
    const std::string text = shortest(value);
    double number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

Json jsonOf(std::int64_t value) {
    return value;
}

Json jsonOf(const StoredText& text) {
    return {{"bytes", text.bytes}, {"text", text.text}};
}

Json jsonOf(const FrameSize& size) {
    return {{"width", size.width}, {"height", size.height}};
}

Json jsonOf(const FrameResolution& resolution) {
    return {
        {"width", resolution.width}, {"height", resolution.height}, {"aspect", jsonOf(resolution.aspect)}};
}

Json jsonOf(const BucketSize& size) {
    return {{"width", size.width}, {"height", size.height}, {"varies", size.varies}};
}

Json jsonOf(const SceneSummary& scene) {
    return {{"value", scene.value}, {"bytes", scene.name.bytes}, {"name", scene.name.text}};
}

Json jsonOf(const RIRegionInfo& region) {
    return {{"kind", region.kind},
            {"left", region.left},
            {"top", region.top},
            {"width", region.width},
            {"height", region.height}};
}

Json jsonOf(const RICameraInfo& camera) {
    Json transform = Json::array();
    for (const float element : camera.transform)
        transform.push_back(jsonOf(element));
    return {{"transform", transform},
            {"projection", camera.projection},
            {"aperture", jsonOf(camera.aperture)},
            {"fov", jsonOf(camera.fov)},
            {"targetDistance", jsonOf(camera.targetDistance)},
            {"nearRange", jsonOf(camera.nearRange)},
            {"farRange", jsonOf(camera.farRange)},
            {"nearClip", jsonOf(camera.nearClip)},
            {"farClip", jsonOf(camera.farClip)},
            {"focalLength", jsonOf(camera.focalLength)},
            {"fNumber", jsonOf(camera.fNumber)}};
}

template <class T>
Json jsonOf(const std::optional<T>& record) {
    return record ? jsonOf(*record) : Json();
}

Json jsonOf(const ChannelSummary& channel, std::int64_t framePixels) {
    const bool listed = channel.listed;
    Json json = {{"index", channel.record.index},
                 {"listed", listed},
                 {"type", channel.record.type},
                 {"typeName", channelTypeName(channel.record.type)},
                 {"alias", listed ? Json(channel.record.alias) : Json()},
                 {"flags", listed ? Json(channel.record.flags) : Json()},
                 {"name", listed ? Json(channel.record.name) : Json()},
                 {"tags", channel.tags},
                 {"storedBytes", channel.storedBytes},
                 {"rawBytes", channel.rawBytes},
                 {"ratio", channel.storedBytes > 0 ? Json(compressionRatio(channel)) : Json()},
                 {"coveredPixels", jsonOf(channel.coveredPixels)},
                 {"coveredPercent", nullptr}};
    if (channel.coveredPixels) {
        json["coveredPercent"] =
            100.0 * static_cast<double>(*channel.coveredPixels) / static_cast<double>(framePixels);
    }
    return json;
}

Json jsonOf(const std::string& file, const FileSummary& summary) {
    const bool readable =
        summary.state != FileState::kCannotOpen && summary.state != FileState::kNotThisFormat;
    Json json = {{"file", file}, {"verdict", stateName(summary.state)}, {"fault", nullptr}};
    if (summary.state != FileState::kGood) {
        const bool placed = summary.faultOffset >= 0;
        json["fault"] = {{"offset", placed ? Json(summary.faultOffset) : Json()}, {"cause", summary.cause}};
    }
    if (!readable) return json;
    json["bytes"] = summary.fileBytes;
    json["finished"] = summary.finished;
    json["tableOffset"] = summary.header.infoTagsOffset;
    json["compressed"] = (summary.header.flags & RIF_COMPRESSED) != 0;
    json["tagCount"] = summary.tagCount;
    json["resolution"] = jsonOf(summary.resolution);
    json["buckets"] = jsonOf(summary.buckets);
    json["camera"] = jsonOf(summary.camera);
    json["region"] = jsonOf(summary.region);
    json["scene"] = jsonOf(summary.scene);
    json["note"] = jsonOf(summary.note);
    json["stampText"] = jsonOf(summary.stampText);
    json["stampBytes"] = jsonOf(summary.stampBytes);
    json["overlayBytes"] = jsonOf(summary.overlayBytes);
    json["settingsBytes"] = jsonOf(summary.settingsBytes);
    json["preview"] = jsonOf(summary.preview);
    json["channels"] = Json::array();
    for (const ChannelSummary& channel : summary.channels) {
        json["channels"].push_back(jsonOf(channel, framePixels(summary)));
    }
    json["furtherChannels"] = summary.furtherChannels;
    return json;
}

// A million tags are more than a tree of values should hold, so they are printed one by one. Names need no
// escapes.
void printTags(std::FILE* out, const std::vector<INFOTAG>& tags) {
    const char* separator = "";
    for (const INFOTAG& tag : tags) {
        std::fprintf(out,
                     "%s{\"offset\":%llu,\"id\":%u,\"name\":\"%s\",\"size\":%u,\"parameters\":[%d,%d,%d,%d,%"
                     "d,%d,%d,%d]}",
                     separator, static_cast<unsigned long long>(tag.offset), tag.id, MUtils::tagName(tag.id),
                     tag.size, tag.p1, tag.p2, tag.p3, tag.p4, tag.p5, tag.p6, tag.p7, tag.p8);
        separator = ",";
    }
}

}  // namespace

void printInfoJson(std::FILE* out, const std::string& file, const FileSummary& summary, bool tags) {
    std::string line = asciiText(jsonOf(file, summary));
    if (tags) {
        line.pop_back();
        std::fprintf(out, "%s,\"tags\":[", line.c_str());
        printTags(out, summary.tags);
        line = "]}";
    }
    std::fprintf(out, "%s\n", line.c_str());
}

}  // namespace rimg
