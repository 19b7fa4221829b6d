#include "cli/stats_output.h"

#include <cstdio>
#include <vector>

#include "cli/frame_output.h"
#include "cli/safe_text.h"
#include "cli/text_table.h"

namespace rimg {

namespace {

using MUtils::ChannelStatistics;
using MUtils::ValueCount;
using MUtils::ValueStats;

// A component, or a channel without any.
struct Line {
    const ChannelStatistics* channel;
    const ValueStats* values;
};

std::vector<Line> linesOf(const MUtils::StatsReport& found) {
    std::vector<Line> lines;
    for (const ChannelStatistics& channel : found.channels) {
        for (const ValueStats& values : channel.components)
            lines.push_back({&channel, &values});
        if (channel.components.empty()) lines.push_back({&channel, nullptr});
    }
    return lines;
}

std::string numberText(double value, int digits) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*g", digits, value);
    return text;
}

std::string nameText(const Line& line) {
    std::string name = safeText(line.channel->channel.name);
    if (line.values != nullptr && !line.values->name.empty()) name += '.' + line.values->name;
    return name;
}

std::string idsText(const ChannelStatistics& channel) {
    if (!channel.ids) return "-";
    return (channel.ids->more ? "over " : "") + std::to_string(channel.ids->count);
}

TableRow rowOf(const Line& line) {
    const ChannelStatistics& channel = *line.channel;
    const std::string index = std::to_string(channel.channel.index);
    if (line.values == nullptr)
        return {index, "-", "-", "-", "-", "-", "-", "-", "-", "-", "-", "-", nameText(line)};
    const ValueStats& values = *line.values;
    // As many digits as a value has that is stored.
    const int digits = channel.channel.isInteger() ? 10 : 7;
    const auto shown = [&](double value, int most) {
        return values.finite > 0 ? numberText(value, most) : "-";
    };
    return {index,
            shown(values.min, digits),
            shown(values.max, digits),
            shown(values.mean, 7),
            shown(values.deviation, 7),
            std::to_string(values.nan.count),
            std::to_string(values.plusInf.count),
            std::to_string(values.minusInf.count),
            std::to_string(values.negative.count),
            std::to_string(values.zero),
            std::to_string(channel.pixels),
            idsText(channel),
            nameText(line)};
}

Json jsonOf(const ValueCount& values) {
    Json json{{"count", values.count}, {"first", nullptr}};
    if (values.count > 0) json["first"] = {{"x", values.x}, {"y", values.y}};
    return json;
}

Json jsonOf(const ValueStats& values) {
    const auto known = [&](double value) { return values.finite > 0 ? Json(value) : Json(); };
    return {{"name", values.name},
            {"finite", values.finite},
            {"min", known(values.min)},
            {"max", known(values.max)},
            {"mean", known(values.mean)},
            {"deviation", known(values.deviation)},
            {"zero", values.zero},
            {"nan", jsonOf(values.nan)},
            {"plusInf", jsonOf(values.plusInf)},
            {"minusInf", jsonOf(values.minusInf)},
            {"negative", jsonOf(values.negative)}};
}

}  // namespace

void printStatsText(const std::string& file, const MUtils::StatsReport& found) {
    std::printf("%s: %s\n", safeText(file).c_str(), stateName(found.state));
    const std::vector<Line> lines = linesOf(found);
    if (lines.empty()) return;
    printTable(stdout, "rrrrrrrrrrrrl", lines.size() + 1, [&lines](std::size_t i) -> TableRow {
        if (i > 0) return rowOf(lines[i - 1]);
        return {"channel", "min",     "max",  "mean",   "deviation", "NaN", "+Inf",
                "-Inf",    "below 0", "zero", "pixels", "ids",       "name"};
    });
}

void printStatsJson(const std::string& file, const MUtils::StatsReport& found) {
    Json json = frameJson(file, found);
    Json channels = Json::array();
    for (const ChannelStatistics& one : found.channels) {
        Json channel = rimg::jsonOf(one.channel);
        channel["pixels"] = one.pixels;
        channel["ids"] = nullptr;
        if (one.ids) channel["ids"] = {{"count", one.ids->count}, {"more", one.ids->more}};
        Json components = Json::array();
        for (const ValueStats& values : one.components)
            components.push_back(jsonOf(values));
        channel["components"] = components;
        channels.push_back(channel);
    }
    json["channels"] = channels;
    printJson(json);
}

}  // namespace rimg
