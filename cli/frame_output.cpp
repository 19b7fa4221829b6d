#include "cli/frame_output.h"

#include "cli/fault_output.h"
#include "cli/report.h"

namespace rimg {

using MUtils::FrameReport;

void refuseStopped(const std::string& file, const FrameReport& report) {
    if (report.stopped) throw Failure(ExitCode::kStopped, file, "stopped");
    if (report.unmatched.empty()) return;
    throw Failure(ExitCode::kUsage, file, "--channels: \"" + report.unmatched + "\" fits no channel");
}

ExitCode reportFrame(const std::string& file, const FrameReport& found) {
    LineList lines;
    lines.add("damaged ", faultLines(found.damaged));
    if (const std::size_t more = lines.report(file); more > 0)
        report(file, std::to_string(more) + " more are damaged; rimg verify lists them");
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
