#include "cli/verify_output.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <map>
#include <vector>

#include "cli/fault_output.h"
#include "cli/safe_text.h"
#include "rawimage/format.h"

namespace rimg {

namespace {

using namespace MUtils;

constexpr std::size_t kShown = LineList::kShown;  // boxes and channels of a line

std::string boxesText(const std::string& title, const MissingBoxes& missing, bool all) {
    const std::size_t shown = all ? missing.boxes.size() : std::min(missing.boxes.size(), kShown);
    std::string text = title + ':';
    for (std::size_t i = 0; i < shown; ++i)
        text += ' ' + boxText(missing.boxes[i]);
    if (shown < missing.boxes.size())
        text += " and " + std::to_string(missing.boxes.size() - shown) + " more";
    return missing.truncated ? text + " and further ones" : text;
}

// Channels that lack the same boxes.
struct MissingLine {
    std::vector<const MissingPixels*> channels;

    const MissingBoxes& boxes() const { return channels.front()->boxes; }
    std::string text(bool all) const {
        const std::size_t shown = all ? channels.size() : std::min(channels.size(), kShown);
        std::string title = channels.size() > 1 ? "missing in channels" : "missing in channel";
        for (std::size_t i = 0; i < shown; ++i)
            title += (i == 0 ? " " : ", ") + channelText(channels[i]->channel, channels[i]->name);
        if (shown < channels.size()) title += " and " + std::to_string(channels.size() - shown) + " more";
        return boxesText(title, boxes(), all);
    }
};

std::vector<MissingLine> missingLines(const std::vector<MissingPixels>& missing) {
    std::vector<MissingLine> lines;
    std::map<std::vector<std::array<std::int64_t, 4>>, std::size_t> lineOf;
    for (const MissingPixels& channel : missing) {
        std::vector<std::array<std::int64_t, 4>> key;
        for (const PixelBox& box : channel.boxes.boxes)
            key.push_back({box.x0, box.y0, box.x1, box.y1});
        const auto [place, isNew] = lineOf.emplace(std::move(key), lines.size());
        if (isNew) lines.emplace_back();
        lines[place->second].channels.push_back(&channel);
    }
    return lines;
}

// Shows what some channel lacks of them all only where no channel lacks just that.
void printMissing(const std::vector<MissingPixels>& missing, const MissingBoxes& inAny, bool all) {
    const std::vector<MissingLine> lines = missingLines(missing);
    const bool repeated = std::any_of(lines.begin(), lines.end(), [&inAny](const MissingLine& line) {
        return line.boxes().boxes == inAny.boxes;
    });
    LineList list;
    if (!repeated && !inAny.boxes.empty()) list.add("", {boxesText("missing", inAny, all)});
    for (const MissingLine& line : lines)
        list.add("", {line.text(all)});
    list.print("  ", all);
}

// What is missing beside the buckets that are listed as damaged or in doubt.
void printMissingBeside(const VerifyReport& report, bool all) {
    std::map<int, std::vector<PixelBox>> listed;
    for (const FileFault& fault : report.faults) {
        if (MUtils::isPixelTag(fault.tagId)) listed[fault.channel].push_back(fault.box);
    }
    if (listed.empty()) return printMissing(report.missing, report.missingInAny, all);
    std::vector<MissingPixels> rest;
    std::vector<PixelBox> inAny;
    for (MissingPixels channel : report.missing) {
        if (const auto boxes = listed.find(channel.channel); boxes != listed.end()) {
            std::vector<PixelBox> covered = missingBoxes(channel.boxes.boxes, report.area).boxes;
            covered.insert(covered.end(), boxes->second.begin(), boxes->second.end());
            channel.boxes.boxes = missingBoxes(covered, report.area).boxes;
        }
        if (channel.boxes.boxes.empty() && !channel.boxes.truncated) continue;
        inAny.insert(inAny.end(), channel.boxes.boxes.begin(), channel.boxes.boxes.end());
        rest.push_back(std::move(channel));
    }
    printMissing(rest, unitedBoxes(inAny, report.area), all);
}

void printFaults(const VerifyReport& report, bool all) {
    std::vector<FileFault> lost, doubts;
    std::partition_copy(report.faults.begin(), report.faults.end(), std::back_inserter(lost),
                        std::back_inserter(doubts),
                        [](const FileFault& fault) { return fault.end > fault.offset; });
    LineList list;
    list.add("damaged ", faultLines(lost));
    list.add("repairable: ", faultLines(report.repaired));
    list.add("in doubt: ", faultLines(doubts));
    list.print("  ", all, report.furtherFaults);
}

// The command to run next; "A render died" of the manual has them in their order.
void printNext(const std::string& file, const VerifyReport& report) {
    const std::string name = shellWord(file);
    const bool lacksPixels = !report.missingInAny.boxes.empty() || report.missingInAny.truncated;
    const bool lacksFrame = report.area.empty() || (lacksPixels && report.missing.empty());
    const bool unfinished = report.state == FileState::kUnfinished;
    // A render that died before its frame was in the file has nothing to go on with.
    if (unfinished && lacksFrame) return;
    if (report.state == FileState::kDamaged || lacksFrame || report.lacksChannels) {
        std::printf("  next: rimg recover %s -o NEW\n", name.c_str());
    } else if (lacksPixels) {
        std::printf("  next: rimg missing %s\n", name.c_str());
    }
    if (unfinished) {
        const char* lead = lacksPixels ? "or, to finish it as it is" : "next";
        std::printf("  %s: rimg recover --in-place %s\n", lead, name.c_str());
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

void printVerifyText(const std::string& file, const VerifyReport& report, bool all) {
    const std::string cause = report.cause.empty() ? "" : " (" + report.cause + ')';
    std::printf("%s: %s%s\n", safeText(file).c_str(), stateName(report.state), cause.c_str());
    if (report.beingWritten) std::printf("  a writer has the file open\n");
    if (report.state == FileState::kGood) return;
    if (!report.beingWritten && report.state == FileState::kUnfinished)
        std::printf("  no writer has the file open\n");
    if (report.buckets)
        std::printf("  %lld of %lld buckets are sound\n", static_cast<long long>(report.buckets->sound),
                    static_cast<long long>(report.buckets->all));
    printFaults(report, all);
    printMissingBeside(report, all);
    if (!report.beingWritten) printNext(file, report);
}

void printVerifyJson(const std::string& file, const VerifyReport& report) {
    Json json = verdictJson(file, report);
    json["beingWritten"] = report.beingWritten;
    json["bytes"] = report.fileBytes;
    json["tags"] = report.tags;
    json["buckets"] = nullptr;
    if (report.buckets) json["buckets"] = {{"sound", report.buckets->sound}, {"all", report.buckets->all}};
    json["faults"] = jsonOf(report.faults);
    json["furtherFaults"] = report.furtherFaults;
    json["repaired"] = jsonOf(report.repaired);
    json.update(missingJson(report));
    printJson(json);
}

void printMissingText(const std::string& file, const VerifyReport& report) {
    constexpr bool kAll = false;
    if (report.missingInAny.boxes.empty()) {
        if (report.lacksChannels) return;
        std::printf("%s: nothing is missing\n", safeText(file).c_str());
    } else {
        std::printf("%s: of %s\n", safeText(file).c_str(), boxText(report.area).c_str());
        printMissing(report.missing, report.missingInAny, kAll);
    }
}

void printMissingJson(const std::string& file, const VerifyReport& report) {
    Json json = verdictJson(file, report);
    json.update(missingJson(report));
    printJson(json);
}

std::int64_t printMissingBuckets(const VerifyReport& report, bool json) {
    constexpr std::size_t kMost = 1'000'000;
    const std::vector<PixelBox>& missing = report.missingInAny.boxes;
    const std::vector<PixelBox> buckets = report.grid ? report.grid->bucketsIn(missing, kMost) : missing;
    for (const PixelBox& bucket : buckets)
        json ? printJson(jsonOf(bucket)) : void(std::printf("%s\n", boxText(bucket).c_str()));
    return report.grid ? report.grid->countIn(missing) - static_cast<std::int64_t>(buckets.size()) : 0;
}

}  // namespace rimg
