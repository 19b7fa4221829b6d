#include "cli/merge_output.h"

#include "cli/json_output.h"

namespace rimg {

namespace {

using MUtils::MergeReport;
using MUtils::MergeState;

// A failure that the report does not know is one of the output's.
MergeState stateOf(const MergeReport& merged, const Failure* failure) {
    if (failure != nullptr && failure->code() == ExitCode::kStopped) return MergeState::kStopped;
    return failure != nullptr && merged.state == MergeState::kGood ? MergeState::kWriteFailed : merged.state;
}

const char* nameOf(MergeState state) {
    switch (state) {
        case MergeState::kGood: return "good";
        case MergeState::kCannotOpen: return "cannot open";
        case MergeState::kNotThisFormat: return "not this format";
        case MergeState::kDamaged: return "damaged";
        case MergeState::kMismatch: return "mismatch";
        case MergeState::kOverlap: return "overlap";
        case MergeState::kHoles: return "holes";
        case MergeState::kWriteFailed: return "write failed";
        case MergeState::kStopped: break;
    }
    return "stopped";
}

}  // namespace

void printMergeJson(const std::vector<std::string>& inputs, const std::string& output,
                    const MergeReport& merged, const Failure* failure) {
    const ExitCode code = failure != nullptr ? failure->code() : ExitCode::kGood;
    Json json{{"inputs", inputs},
              {"output", output},
              {"state", nameOf(stateOf(merged, failure))},
              {"exitCode", static_cast<int>(code)},
              {"fault", faultOf(failure)},
              {"unfinished", merged.unfinished},
              {"frame", nullptr},
              {"area", nullptr},
              {"holes", jsonOf(merged.holes)},
              {"pixelTags", merged.tags}};
    if (merged.frame.width() > 0)
        json["frame"] = {{"width", merged.frame.width()}, {"height", merged.frame.height()}};
    if (merged.area.width() > 0) json["area"] = jsonOf(merged.area);
    printJson(json);
}

}  // namespace rimg
