#include "cli/recover_output.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <vector>

#include "cli/fault_output.h"
#include "cli/safe_text.h"

namespace rimg {

namespace {

using MUtils::RecoverReport;
using MUtils::RecoverState;

// A failure that the report knows nothing of is one of the output's.
RecoverState stateOf(const RecoverReport& found, const Failure* failure) {
    if (failure == nullptr || found.state != RecoverState::kGood) return found.state;
    return failure->code() == ExitCode::kStopped ? RecoverState::kStopped : RecoverState::kWriteFailed;
}

Json namesOf(const std::vector<std::uint32_t>& tagIds) {
    Json names = Json::array();
    for (const std::uint32_t tagId : tagIds)
        names.push_back(MUtils::tagName(tagId));
    return names;
}

bool lacksFacts(const RecoverReport& found) {
    return found.lacksResolution || found.lacksChannels;
}

// What is missing of what readers need. Options can supply it where there are pixels to show.
void printLacking(const RecoverReport& found) {
    const bool helps = found.tagsOfPixels > 0;
    if (found.lacksResolution)
        std::printf("the resolution is missing%s\n",
                    helps ? ": --size WxH or --like SIBLING supplies it" : "");
    if (found.lacksChannels)
        std::printf("the channel list is missing%s\n", helps ? ": --like SIBLING supplies it" : "");
}

void printNext(const std::string& input, const std::string& output, const RecoverReport& found) {
    if (lacksFacts(found)) {
        const char* option = found.lacksChannels ? "--like SIBLING" : "--size WxH";
        if (found.tagsOfPixels > 0)
            std::printf("next: rimg recover %s %s -o NEW\n", option, shellWord(input).c_str());
    } else if (found.lacksPixels) {
        std::printf("next: rimg missing %s\n", shellWord(output.empty() ? input : output).c_str());
    }
}

}  // namespace

ExitCode exitCodeOf(const RecoverReport& found) {
    switch (found.state) {
        case RecoverState::kGood:
            return found.lacks || lacksFacts(found) ? ExitCode::kIncomplete : ExitCode::kGood;
        case RecoverState::kNotThisFormat:
        case RecoverState::kCannotOpen: return ExitCode::kUnreadable;
        case RecoverState::kMismatch: return ExitCode::kMismatch;
        case RecoverState::kNotInPlace: return ExitCode::kDamaged;
        case RecoverState::kStopped: return ExitCode::kStopped;
        case RecoverState::kWriteFailed: break;
    }
    return ExitCode::kFailure;
}

void printRecoverText(const std::string& input, const std::string& output, const RecoverReport& found,
                      bool all) {
    std::vector<MUtils::FileFault> lost, cut;
    std::partition_copy(found.lost.begin(), found.lost.end(), std::back_inserter(cut),
                        std::back_inserter(lost),
                        [&found](const MUtils::FileFault& fault) { return fault.offset == found.cutFrom; });
    LineList list;
    list.add("lost: ", faultLines(lost));
    list.add("cut off: ", faultLines(cut));
    list.add("repaired: ", faultLines(found.repaired));
    list.add("in doubt: ", faultLines(found.doubts));
    list.print("", all);
    for (const std::uint32_t tagId : found.supplied)
        std::printf("supplied: %s\n", MUtils::tagName(tagId));
    printLacking(found);
    const char* what = output.empty() ? "finished" : "kept";
    std::printf("%s: %lld tags, %lld of them pixels, %lld bytes\n", found.changed ? what : "nothing to do",
                static_cast<long long>(found.tagsKept), static_cast<long long>(found.tagsOfPixels),
                static_cast<long long>(found.bytesKept));
    printNext(input, output, found);
}

void printRecoverJson(const std::string& input, const std::string& output, const RecoverReport& found,
                      const Failure* failure) {
    const ExitCode code = failure != nullptr ? failure->code() : exitCodeOf(found);
    const RecoverState state = stateOf(found, failure);
    // In place a write that failed has begun.
    const bool changed =
        failure == nullptr ? found.changed : output.empty() && state == RecoverState::kWriteFailed;
    Json json{{"input", input},
              {"output", output.empty() ? Json() : Json(output)},
              {"inPlace", output.empty()},
              {"state", stateName(state)},
              {"exitCode", static_cast<int>(code)},
              {"fault", faultOf(failure)},
              {"changed", changed},
              {"tagsKept", found.tagsKept},
              {"pixelTags", found.tagsOfPixels},
              {"bytesKept", found.bytesKept},
              {"lacks", found.lacks},
              {"lacksResolution", found.lacksResolution},
              {"lacksChannels", found.lacksChannels},
              {"lacksPixels", found.lacksPixels},
              {"supplied", namesOf(found.supplied)},
              {"lost", jsonOf(found.lost)},
              {"cutFrom", found.cutFrom >= 0 ? Json(found.cutFrom) : Json()},
              {"repaired", jsonOf(found.repaired)},
              {"doubts", jsonOf(found.doubts)}};
    printJson(json);
}

}  // namespace rimg
