#include "cli/verify_output.h"

#include <array>
#include <cstdio>
#include <map>
#include <vector>

#include "cli/fault_output.h"
#include "cli/safe_text.h"
#include "rawimage/format.h"

namespace rimg {

namespace {

using namespace MUtils;

constexpr std::size_t kShown = 20;  // boxes of a list, channels of a line

void printBoxes(const std::string& title, const MissingBoxes& missing) {
    std::printf("  %s:", title.c_str());
    for (std::size_t i = 0; i < missing.boxes.size() && i < kShown; ++i)
        std::printf(" %s", boxText(missing.boxes[i]).c_str());
    if (missing.boxes.size() > kShown) std::printf(" and %zu more", missing.boxes.size() - kShown);
    std::printf("%s\n", missing.truncated ? " and further ones" : "");
}

using BoxesKey = std::vector<std::array<std::int64_t, 4>>;

BoxesKey keyOf(const MissingBoxes& missing) {
    BoxesKey key;
    for (const PixelBox& box : missing.boxes)
        key.push_back({box.x0, box.y0, box.x1, box.y1});
    return key;
}

// Channels that lack the same share a line.
void printMissing(const VerifyReport& report) {
    if (report.missing.empty() && report.missingInAny.boxes.empty()) return;
    printBoxes("missing", report.missingInAny);
    struct Line {
        std::string title = "missing in channel";
        std::size_t channels = 0;
        const MissingBoxes* boxes = nullptr;
    };
    std::vector<Line> lines;
    std::map<BoxesKey, std::size_t> lineOf;
    for (const MissingPixels& channel : report.missing) {
        const auto [place, isNew] = lineOf.emplace(keyOf(channel.boxes), lines.size());
        if (isNew) lines.push_back({});
        Line& line = lines[place->second];
        line.boxes = &channel.boxes;
        if (++line.channels > kShown) continue;
        line.title += (line.channels > 1 ? ", " : " ") + channelText(channel.channel, channel.name);
    }
    for (Line& line : lines) {
        if (line.channels > kShown) line.title += " and " + std::to_string(line.channels - kShown) + " more";
        printBoxes(line.title, *line.boxes);
    }
}

Json verdictJson(const std::string& file, const VerifyReport& report) {
    return {{"file", file}, {"verdict", stateName(report.state)}, {"cause", report.cause}};
}

Json missingJson(const VerifyReport& report) {
    Json channels = Json::array();
    for (const MissingPixels& channel : report.missing) {
        channels.push_back(
            {{"channel", channel.channel}, {"name", channel.name}, {"missing", jsonOf(channel.boxes)}});
    }
    return {{"area", jsonOf(report.area)}, {"missing", jsonOf(report.missingInAny)}, {"channels", channels}};
}

}  // namespace

void printVerifyText(const std::string& file, const VerifyReport& report) {
    std::printf("%s: %s", safeText(file).c_str(), stateName(report.state));
    if (!report.cause.empty()) std::printf(" (%s)", report.cause.c_str());
    std::printf("\n");
    for (const FileFault& fault : report.faults)
        std::printf("  %s\n", faultText(fault).c_str());
    if (report.furtherFaults > 0)
        std::printf("  and %lld more faults\n", static_cast<long long>(report.furtherFaults));
    printMissing(report);
}

void printVerifyJson(const std::string& file, const VerifyReport& report) {
    Json json = verdictJson(file, report);
    json["bytes"] = report.fileBytes;
    json["tags"] = report.tags;
    json["faults"] = Json::array();
    for (const FileFault& fault : report.faults)
        json["faults"].push_back(jsonOf(fault));
    json["furtherFaults"] = report.furtherFaults;
    json.update(missingJson(report));
    printJson(json);
}

void printMissingText(const std::string& file, const VerifyReport& report) {
    if (report.missingInAny.boxes.empty()) {
        std::printf("%s: nothing is missing\n", safeText(file).c_str());
    } else {
        std::printf("%s: of %s\n", safeText(file).c_str(), boxText(report.area).c_str());
        printMissing(report);
    }
}

void printMissingJson(const std::string& file, const VerifyReport& report) {
    Json json = verdictJson(file, report);
    json.update(missingJson(report));
    printJson(json);
}

}  // namespace rimg
