#include "cli/frame_output.h"

#include <algorithm>
#include <vector>

#include "cli/fault_output.h"
#include "cli/option_checks.h"
#include "cli/report.h"

namespace rimg {

using MUtils::FrameReport;

void addFrameOptions(CLI::App& verb, FrameVerbOptions& options) {
    options.files.addTo(verb, "Raw images");
    verb.add_option("--channels", options.channels,
                    "Only channels whose name one of these patterns fits; quote them from the shell")
        ->type_name("GLOB,...")
        ->delimiter(',')
        ->allow_extra_args(false);
    verb.add_flag("--json", options.json, "Print a JSON object for each file, on a line of its own");
    addThreadsOption(verb, options.threads);
}

void refuseStopped(const std::string& file, const FrameReport& report) {
    if (report.stopped) throw Failure(ExitCode::kStopped, file, "stopped");
    if (report.unmatched.empty()) return;
    throw Failure(ExitCode::kUsage, file, "--channels: \"" + report.unmatched + "\" fits no channel");
}

ExitCode reportFrame(const std::string& file, const FrameReport& found) {
    constexpr std::size_t kShown = 5;
    const std::vector<std::string> lines = faultLines(found.damaged);
    for (std::size_t i = 0; i < std::min(lines.size(), kShown); ++i)
        report(file, "damaged " + lines[i]);
    if (lines.size() > kShown)
        report(file, std::to_string(lines.size() - kShown) + " more are damaged; rimg verify lists them");
    const ExitCode code = exitCodeOf(found.state);
    if (code != ExitCode::kGood && lines.empty()) report(file, found.cause, found.causeOffset);
    if (found.refused.empty()) return code;
    report(file, found.refused);
    return ExitCode::kFailure;
}

Json frameJson(const std::string& file, const FrameReport& found) {
    const bool isRead = exitCodeOf(found.state) != ExitCode::kUnreadable;
    return {{"file", file},
            {"verdict", stateName(found.state)},
            {"cause", found.refused.empty() ? found.cause : found.refused},
            {"area", isRead && !found.area.empty() ? jsonOf(found.area) : Json()}};
}

Json jsonOf(const MUtils::FrameChannel& channel) {
    return {{"channel", channel.index}, {"name", channel.name}, {"type", static_cast<int>(channel.type)}};
}

}  // namespace rimg
