#include "cli/recover_output.h"

#include <cstdio>

#include "cli/json_output.h"

namespace rimg {

namespace {

using MUtils::RecoverReport;
using MUtils::RecoverState;

// A failure that the report knows nothing of is one of the output's.
RecoverState stateOf(const RecoverReport& found, const Failure* failure) {
    if (failure == nullptr || found.state != RecoverState::kGood) return found.state;
    return failure->code() == ExitCode::kStopped ? RecoverState::kStopped : RecoverState::kWriteFailed;
}

const char* nameOf(RecoverState state) {
    switch (state) {
        case RecoverState::kGood: return "good";
        case RecoverState::kNotThisFormat: return "not this format";
        case RecoverState::kCannotOpen: return "cannot open";
        case RecoverState::kNotInPlace: return "not in place";
        case RecoverState::kWriteFailed: return "write failed";
        case RecoverState::kStopped: break;
    }
    return "stopped";
}

}  // namespace

void printRecoverText(const RecoverReport& found, bool inPlace) {
    for (const MUtils::LostRange& lost : found.lost) {
        std::printf("lost: bytes %lld..%lld: %s\n", static_cast<long long>(lost.offset),
                    static_cast<long long>(lost.end), lost.cause.c_str());
    }
    for (const MUtils::RecoverDoubt& doubt : found.doubts) {
        std::printf("in doubt: offset %lld: %s\n", static_cast<long long>(doubt.offset), doubt.cause.c_str());
    }
    const char* what = inPlace ? "finished" : "kept";
    std::printf("%s: %lld tags, %lld of them pixels, %lld bytes\n", found.changed ? what : "nothing to do",
                static_cast<long long>(found.tagsKept), static_cast<long long>(found.tagsOfPixels),
                static_cast<long long>(found.bytesKept));
}

void printRecoverJson(const std::string& input, const std::string& output, const RecoverReport& found,
                      const Failure* failure) {
    const ExitCode code = failure != nullptr ? failure->code() : ExitCode::kGood;
    const RecoverState state = stateOf(found, failure);
    // In place a write that failed has begun.
    const bool changed =
        failure == nullptr ? found.changed : output.empty() && state == RecoverState::kWriteFailed;
    Json json{{"input", input},
              {"output", output.empty() ? Json() : Json(output)},
              {"inPlace", output.empty()},
              {"state", nameOf(state)},
              {"exitCode", static_cast<int>(code)},
              {"fault", faultOf(failure)},
              {"changed", changed},
              {"tagsKept", found.tagsKept},
              {"pixelTags", found.tagsOfPixels},
              {"bytesKept", found.bytesKept},
              {"lost", Json::array()},
              {"doubts", Json::array()}};
    for (const MUtils::LostRange& lost : found.lost)
        json["lost"].push_back({{"offset", lost.offset}, {"end", lost.end}, {"cause", lost.cause}});
    for (const MUtils::RecoverDoubt& doubt : found.doubts)
        json["doubts"].push_back({{"offset", doubt.offset}, {"cause", doubt.cause}});
    printJson(json);
}

}  // namespace rimg
