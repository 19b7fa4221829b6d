#include "rawimage/tools/merge.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "cli/file_list.h"
#include "cli/json_output.h"
#include "cli/option_checks.h"
#include "cli/output_file.h"
#include "cli/report.h"
#include "cli/tool_progress.h"
#include "cli/verbs.h"
#include "support/files.h"

namespace rimg {

namespace {

using MUtils::MergeOverlap;
using MUtils::MergeReport;
using MUtils::MergeState;

struct MergeVerbOptions {
    FileList files;
    std::vector<std::string> inputs;  // of `files`
    std::string output;
    MUtils::MergeOptions merge;
    bool deleteInputs = false;
    bool json = false;
};

struct Merged : MergeReport {
    std::vector<std::string> deleted;
};

struct StateRow {
    ExitCode code;
    const char* hint = "";  // behind the cause
};

StateRow rowOf(MergeState state) {
    switch (state) {
        case MergeState::kGood: return {ExitCode::kGood};
        case MergeState::kCannotOpen: return {ExitCode::kUnreadable};
        case MergeState::kNotThisFormat: return {ExitCode::kUnreadable};
        case MergeState::kDamaged: return {ExitCode::kDamaged};
        case MergeState::kMismatch: return {ExitCode::kMismatch};
        case MergeState::kOverlap:
            return {ExitCode::kMismatch, "; --overlap first or last lets one of them count"};
        case MergeState::kHoles: return {ExitCode::kMismatch, "; --allow-holes leaves them"};
        case MergeState::kWriteFailed: return {ExitCode::kFailure};
        case MergeState::kNotVerified: return {ExitCode::kFailure, "; the inputs are as they were"};
        case MergeState::kStopped: break;
    }
    return {ExitCode::kStopped};
}

// A failure that the report does not know is one of the output's.
MergeState stateOf(const Merged& merged, const Failure* failure) {
    if (failure != nullptr && failure->code() == ExitCode::kStopped) return MergeState::kStopped;
    return failure != nullptr && merged.state == MergeState::kGood ? MergeState::kWriteFailed : merged.state;
}

// `failure` is why there is no merged file, null when there is one.
void printMergeJson(const MergeVerbOptions& options, const Merged& merged, const Failure* failure) {
    const ExitCode code = failure != nullptr ? failure->code() : ExitCode::kGood;
    Json json{{"inputs", options.inputs},
              {"output", options.output},
              {"state", stateName(stateOf(merged, failure))},
              {"exitCode", static_cast<int>(code)},
              {"fault", faultOf(failure)},
              {"unfinished", merged.unfinished},
              {"setAside", Json::array()},
              {"repeats", Json::array()},
              {"deleted", merged.deleted},
              {"frame", nullptr},
              {"area", nullptr},
              {"holes", jsonOf(merged.holes)},
              {"pixelTags", merged.tags}};
    for (const MUtils::MergeSetAside& input : merged.setAside)
        json["setAside"].push_back({{"file", input.file}, {"cause", input.cause}});
    for (const MUtils::MergeRepeat& repeat : merged.repeats) {
        json["repeats"].push_back({{"file", repeat.file},
                                   {"takenFrom", repeat.takenFrom},
                                   {"pixelTags", repeat.tags},
                                   {"damaged", repeat.damaged}});
    }
    if (merged.frame.width() > 0)
        json["frame"] = {{"width", merged.frame.width()}, {"height", merged.frame.height()}};
    if (merged.area.width() > 0) json["area"] = jsonOf(merged.area);
    printJson(json);
}

MergeReport merge(const MergeVerbOptions& options, const std::string& output) {
    return withProgress("merge", options.merge, [&](MUtils::MergeOptions& merging) {
        merging.verify = options.deleteInputs;
        return MUtils::mergeFiles(options.inputs, output, merging);
    });
}

// The inputs of a merge as they were before it.
class InputsToDelete {
  public:
    explicit InputsToDelete(const std::vector<std::string>& names) {
        for (const std::string& name : names)
            before_.emplace(name, name.c_str());
    }

    // Deletes those of which the output has all pixels; the others are named.
    void deleteMerged(Merged& merged) const {
        const std::set<std::string> contained(merged.contained.begin(), merged.contained.end());
        for (const auto& [name, stamp] : before_) {
            if (contained.count(name) == 0) {
                report(name, "is kept: the merged file does not have all of it");
            } else if (MUtils::isBeingWritten(name.c_str()) ||
                       !stamp.isSame(MUtils::FileStamp(name.c_str()))) {
                report(name, "is kept: it is written to");
            } else if (::unlink(name.c_str()) != 0) {
                report(name, "cannot be deleted: " + systemMessage(errno));
            } else {
                merged.deleted.push_back(name);
            }
        }
    }

  private:
    std::map<std::string, MUtils::FileStamp> before_;
};

// What --overlap chooses is no news.
void reportInputs(const MergeVerbOptions& options, const MergeReport& merged) {
    for (const std::string& file : merged.unfinished)
        report(file, "was never finished; what is whole in it counts");
    for (const MUtils::MergeSetAside& input : merged.setAside)
        report(input.file, "is damaged and not used, the other pieces have its area: " + input.cause);
    if (options.merge.overlap != MergeOverlap::kRefuse) return;
    for (const MUtils::MergeRepeat& repeat : merged.repeats) {
        const std::string damaged =
            repeat.damaged > 0 ? ", " + std::to_string(repeat.damaged) + " of them damaged here" : "";
        report(repeat.file, std::to_string(repeat.tags) + " pixel tags are taken from " + repeat.takenFrom +
                                ", which has them too" + damaged);
    }
}

void reportArea(const MergeVerbOptions& options, const MergeReport& merged) {
    const MUtils::PixelBox& area = merged.area;
    // A piece at the border that was forgotten leaves no hole.
    if (area != merged.frame)
        report(options.output, "covers " + MUtils::boxText(area) + " of a frame of " +
                                   std::to_string(merged.frame.width()) + 'x' +
                                   std::to_string(merged.frame.height()));
    if (!merged.holes.boxes.empty()) report(options.output, "has holes, as allowed: rimg missing lists them");
}

// Throws Failure when there is no merged file in the end.
void mergeInto(Merged& merged, const MergeVerbOptions& options) {
    OutputFile output(options.output, OutputFile::Kind::kFile, options.inputs);
    output.lockName();
    const InputsToDelete inputs(options.deleteInputs ? options.inputs : std::vector<std::string>());
    static_cast<MergeReport&>(merged) = merge(options, output.path());
    reportInputs(options, merged);
    if (merged.state != MergeState::kGood) {
        const std::string cause = merged.error.empty() ? merged.cause : MUtils::outputErrorText(merged.error);
        const StateRow row = rowOf(merged.state);
        throw Failure(row.code, output.named(merged.file), output.named(cause) + row.hint);
    }
    const bool lasts = output.commit();
    reportArea(options, merged);
    if (lasts) {
        inputs.deleteMerged(merged);
    } else if (options.deleteInputs) {
        report(options.output, "may not outlive a power cut, so the inputs are kept");
    }
}

ExitCode runMerge(MergeVerbOptions& options) {
    Merged merged;
    try {
        merged.state = MergeState::kCannotOpen;
        options.inputs = options.files.names();
        merged.state = MergeState::kGood;
        mergeInto(merged, options);
    } catch (const Failure& failure) {
        const bool begun = failure.code() != ExitCode::kUsage;
        if (options.json && begun) printMergeJson(options, merged, &failure);
        flushOutput();
        throw;
    }
    if (options.json) printMergeJson(options, merged, nullptr);
    flushOutput();
    return ExitCode::kGood;
}

}  // namespace

void addMergeVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<MergeVerbOptions>();
    CLI::App* verb = app.add_subcommand(
        "merge",
        "Make one raw image out of pieces of the same frame, by copying. Does not look into pixels: verify "
        "the pieces, or the result");
    options->files.addTo(*verb, "The pieces: raw images that agree in size and channels");
    verb->add_option("-o,--output", options->output, "The raw image to write")
        ->type_name("OUT.rimg")
        ->required();
    verb->add_option_function<std::string>(
            "--overlap",
            [options](const std::string& name) {
                options->merge.overlap = name == "first" ? MergeOverlap::kFirst : MergeOverlap::kLast;
            },
            "Where several pieces have a pixel, the \"first\" or the \"last\" of them counts. "
            "Default: none does, it is an error")
        ->type_name("NAME")
        ->check(oneOf({"first", "last"}));
    verb->add_flag("--allow-holes", options->merge.allowHoles,
                   "Merge even if pixels are missing afterwards. Default: an error");
    verb->add_flag("--delete-inputs", options->deleteInputs,
                   "Delete the pieces once OUT is on the disk, has been read again and is sound, and has "
                   "every pixel tag of them byte for byte. Others are kept and named");
    addThreadsOption(*verb, options->merge.threads);
    verb->add_flag("--json", options->json, "Print a JSON object, also when it fails");
    verb->callback([options, &result] { result = runMerge(*options); });
}

}  // namespace rimg
