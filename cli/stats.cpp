#include "rawimage/tools/stats.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "cli/fault_output.h"
#include "cli/frame_output.h"
#include "cli/option_checks.h"
#include "cli/report.h"
#include "cli/stats_output.h"
#include "cli/tool_progress.h"
#include "cli/verbs.h"

namespace rimg {

namespace {

using MUtils::ChannelStatistics;
using MUtils::StatsReport;
using MUtils::ValueCount;
using MUtils::ValueStats;

struct StatsVerbOptions : FrameVerbOptions<MUtils::FrameToolOptions> {
    std::vector<std::string> failOn;

    bool failsOn(const char* kind) const {
        return std::find(failOn.begin(), failOn.end(), kind) != failOn.end();
    }
};

StatsReport statsOf(const std::string& file, const StatsVerbOptions& options) {
    return withProgress("stats " + file, options.tool, [&file](const MUtils::FrameToolOptions& reading) {
        return MUtils::statsOfFile(file.c_str(), reading);
    });
}

// A pixel that has a value which is not wanted.
struct Unwanted {
    const char* kind;
    ValueCount values;
    const ChannelStatistics* channel;
    const ValueStats* component;

    bool isBefore(const Unwanted& other) const {
        return std::tie(values.y, values.x) < std::tie(other.values.y, other.values.x);
    }
    std::string text() const {
        std::string text = std::string(kind) + " at (" + std::to_string(values.x) + ", " +
                           std::to_string(values.y) + ") in channel " +
                           channelText(channel->channel.index, channel->channel.name);
        return component->name.empty() ? text : text + ", component " + component->name;
    }
};

// The first one from the top down and from the left; of one pixel the first channel's.
ExitCode failOnUnwanted(const std::string& file, const StatsReport& found, const StatsVerbOptions& options) {
    std::vector<Unwanted> all;
    for (const ChannelStatistics& channel : found.channels) {
        for (const ValueStats& one : channel.components) {
            const auto add = [&](const char* option, const char* kind, const ValueCount& values) {
                if (options.failsOn(option) && values.count > 0)
                    all.push_back({kind, values, &channel, &one});
            };
            add("nan", "NaN", one.nan);
            add("inf", "+Inf", one.plusInf);
            add("inf", "-Inf", one.minusInf);
            add("negative", "a value below 0", one.negative);
        }
    }
    if (all.empty()) return ExitCode::kGood;
    const auto first = std::min_element(all.begin(), all.end(),
                                        [](const Unwanted& a, const Unwanted& b) { return a.isBefore(b); });
    report(file, first->text());
    return ExitCode::kDamaged;
}

ExitCode runStats(const StatsVerbOptions& options) {
    ExitCode result = ExitCode::kGood;
    for (const std::string& file : options.files.names()) {
        const StatsReport found = statsOf(file, options);
        refuseStopped(file, found);
        if (options.json) {
            printStatsJson(file, found);
        } else if (exitCodeOf(found.state) != ExitCode::kUnreadable) {
            printStatsText(file, found);
        }
        flushOutput();
        result = worse(result, reportFrame(file, found));
        result = worse(result, failOnUnwanted(file, found, options));
    }
    return result;
}

}  // namespace

void addStatsVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<StatsVerbOptions>();
    CLI::App* verb = app.add_subcommand("stats", "Show what the values of each channel are like");
    options->addTo(*verb);
    addListOption(*verb, "--fail-on", options->failOn, "KIND,...",
                  "Fail with code 4 when a chosen channel has such values")
        ->check(oneOf({"nan", "inf", "negative"}));
    verb->callback([options, &result] { result = runStats(*options); });
}

}  // namespace rimg
