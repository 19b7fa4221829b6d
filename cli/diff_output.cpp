#include "cli/diff_output.h"

#include <cinttypes>
#include <cstdio>

#include "cli/fault_output.h"
#include "cli/json_output.h"
#include "cli/safe_text.h"

namespace rimg {

namespace {

using MUtils::ChannelDiff;
using MUtils::DiffPlace;
using MUtils::DiffReport;
using MUtils::DiffState;
using MUtils::FrameChannel;

using Files = std::array<std::string, 2>;

std::string numberText(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::string placeText(const FrameChannel& channel, const DiffPlace& place) {
    const std::string component = channel.componentName(place.component);
    return "at (" + std::to_string(place.x) + ", " + std::to_string(place.y) + ")" +
           (component.empty() ? "" : "." + component) + ": " + numberText(place.values[0]) + " and " +
           numberText(place.values[1]);
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ", ") + name;
    return text;
}

void printValues(const std::string& name, const ChannelDiff& pair) {
    std::string text = std::to_string(pair.differing) + " of " + std::to_string(pair.pixels) +
                       " pixels differ, " + std::to_string(pair.failures) + " fail";
    if (pair.warnings != pair.failures) text += ", " + std::to_string(pair.warnings) + " warn";
    if (pair.numbers) {
        text += "; maximum " + numberText(pair.numbers->maximum) + ", mean " +
                numberText(pair.numbers->mean) + ", RMS " + numberText(pair.numbers->rms) + ", PSNR " +
                numberText(pair.numbers->psnr) + " dB";
    }
    if (pair.largest) text += "; most " + placeText(pair.channels[0], *pair.largest);
    std::printf("  %s: %s\n", name.c_str(), text.c_str());
}

void printChannel(const Files& files, const ChannelDiff& pair) {
    const std::string name = safeText(channelText(pair.channels[0].index, pair.channels[0].name));
    if (!pair.differs.empty()) {
        std::printf("  %s: is %s (type %d, alias %d) in %s; differs in %s\n", name.c_str(),
                    safeText(channelText(pair.channels[1].index, pair.channels[1].name)).c_str(),
                    pair.channels[1].type, pair.channels[1].alias, safeText(files[1]).c_str(),
                    joined(pair.differs).c_str());
    }
    for (std::size_t side = 0; side < 2; ++side) {
        const std::vector<MUtils::PixelBox>& boxes = pair.lacks[side].boxes;
        if (boxes.empty()) continue;
        std::printf("  %s: %s lacks %" PRId64 " pixels: %s%s\n", name.c_str(), safeText(files[side]).c_str(),
                    pair.lacksPixels[side], boxText(boxes.front()).c_str(), boxes.size() > 1 ? " ..." : "");
    }
    if (pair.differing > 0) printValues(name, pair);
}

Json sideJson(const ChannelDiff& pair, std::size_t side) {
    const FrameChannel& channel = pair.channels[side];
    return {{"index", channel.index},
            {"name", channel.name},
            {"type", channel.type},
            {"alias", channel.alias},
            {"lacksPixels", pair.lacksPixels[side]},
            {"lacks", jsonOf(pair.lacks[side])["boxes"]}};
}

Json channelJson(const ChannelDiff& pair) {
    Json json{{"a", sideJson(pair, 0)},    {"b", sideJson(pair, 1)},
              {"differs", pair.differs},   {"comparable", pair.comparable},
              {"pixels", pair.pixels},     {"differing", pair.differing},
              {"warnings", pair.warnings}, {"failures", pair.failures},
              {"numbers", nullptr},        {"largest", nullptr}};
    if (pair.numbers) {
        json["numbers"] = {{"maximum", pair.numbers->maximum},
                           {"mean", pair.numbers->mean},
                           {"rms", pair.numbers->rms},
                           {"psnr", pair.numbers->psnr}};
    }
    if (pair.largest) {
        json["largest"] = {{"x", pair.largest->x},
                           {"y", pair.largest->y},
                           {"component", pair.largest->component},
                           {"a", pair.largest->values[0]},
                           {"b", pair.largest->values[1]}};
    }
    return json;
}

Json namesOf(const std::vector<FrameChannel>& channels) {
    Json names = Json::array();
    for (const FrameChannel& channel : channels)
        names.push_back({{"index", channel.index}, {"name", channel.name}});
    return names;
}

Json jsonOfSide(const std::string& file, const DiffReport& report, std::size_t side) {
    const MUtils::PixelBox& frame = report.frames[side];
    return {{"file", file},
            {"width", frame.width()},
            {"height", frame.height()},
            {"onlyHere", namesOf(report.onlyIn[side])}};
}

}  // namespace

const char* diffStateName(DiffState state) {
    switch (state) {
        case DiffState::kGood:
        case DiffState::kWarnings:
        case DiffState::kFailures:
        case DiffState::kMismatch: return stateName(state);
        default: return "error";
    }
}

void printDiffText(const Files& files, const DiffReport& report) {
    std::printf("%s and %s: %s", safeText(files[0]).c_str(), safeText(files[1]).c_str(),
                diffStateName(report.state));
    if (report.cause.empty()) {
        std::printf(", %" PRId64 " pixels compared, %" PRId64 " fail, %" PRId64 " warn\n", report.pixels,
                    report.failures, report.warnings);
    } else {
        std::printf(", %s\n", report.cause.c_str());
    }
    for (const ChannelDiff& pair : report.channels)
        printChannel(files, pair);
    for (std::size_t side = 0; side < 2; ++side) {
        for (const FrameChannel& channel : report.onlyIn[side])
            std::printf("  %s: only in %s\n", safeText(channelText(channel.index, channel.name)).c_str(),
                        safeText(files[side]).c_str());
    }
    for (const MUtils::RecordDiff& record : report.records) {
        const bool both = record.present[0] && record.present[1];
        std::printf("  %s: %s%s\n", record.name.c_str(), both ? "differs" : "only in ",
                    both ? "" : safeText(files[record.present[0] ? 0 : 1]).c_str());
    }
}

void printDiffJson(const Files& files, const DiffReport& report, ExitCode code, const Failure* failure) {
    Json json{{"a", jsonOfSide(files[0], report, 0)},
              {"b", jsonOfSide(files[1], report, 1)},
              {"state", failure != nullptr ? "error" : diffStateName(report.state)},
              {"exitCode", static_cast<int>(code)},
              {"fault", faultOf(failure)},
              {"damaged", jsonOf(report.damaged)},
              {"pixels", report.pixels},
              {"warnings", report.warnings},
              {"failures", report.failures},
              {"channels", Json::array()},
              {"records", Json::array()},
              {"drawn", report.drawn.empty() ? Json() : Json(report.drawn)}};
    for (const ChannelDiff& pair : report.channels)
        json["channels"].push_back(channelJson(pair));
    for (const MUtils::RecordDiff& record : report.records)
        json["records"].push_back(
            {{"name", record.name}, {"a", record.present[0]}, {"b", record.present[1]}});
    printJson(json);
}

}  // namespace rimg
