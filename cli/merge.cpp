#include "rawimage/tools/merge.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "cli/file_list.h"
#include "cli/json_output.h"
#include "cli/option_checks.h"
#include "cli/output_file.h"
#include "cli/report.h"
#include "cli/tool_progress.h"
#include "cli/verbs.h"

namespace rimg {

namespace {

using MUtils::MergeOverlap;
using MUtils::MergeReport;
using MUtils::MergeState;

struct MergeVerbOptions {
    FileList files;
    std::vector<std::string> inputs;  // of `files`
    std::string output;
    std::string overlap;
    bool allowHoles = false;
    bool json = false;
};

struct StateRow {
    ExitCode code;
    const char* name;       // in JSON
    const char* hint = "";  // behind the cause
};

StateRow rowOf(MergeState state) {
    switch (state) {
        case MergeState::kGood: return {ExitCode::kGood, "good"};
        case MergeState::kCannotOpen: return {ExitCode::kUnreadable, "cannot open"};
        case MergeState::kNotThisFormat: return {ExitCode::kUnreadable, "not this format"};
        case MergeState::kDamaged: return {ExitCode::kDamaged, "damaged"};
        case MergeState::kMismatch: return {ExitCode::kMismatch, "mismatch"};
        case MergeState::kOverlap:
            return {ExitCode::kMismatch, "overlap", "; --overlap first or last lets one of them count"};
        case MergeState::kHoles: return {ExitCode::kMismatch, "holes", "; --allow-holes leaves them"};
        case MergeState::kWriteFailed: return {ExitCode::kFailure, "write failed"};
        case MergeState::kStopped: break;
    }
    return {ExitCode::kStopped, "stopped"};
}

// A failure that the report does not know is one of the output's.
MergeState stateOf(const MergeReport& merged, const Failure* failure) {
    if (failure != nullptr && failure->code() == ExitCode::kStopped) return MergeState::kStopped;
    return failure != nullptr && merged.state == MergeState::kGood ? MergeState::kWriteFailed : merged.state;
}

// `failure` is why there is no merged file, null when there is one.
void printMergeJson(const MergeVerbOptions& options, const MergeReport& merged, const Failure* failure) {
    const ExitCode code = failure != nullptr ? failure->code() : ExitCode::kGood;
    Json json{{"inputs", options.inputs},
              {"output", options.output},
              {"state", rowOf(stateOf(merged, failure)).name},
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

MergeReport merge(const MergeVerbOptions& options, const std::string& output) {
    ToolProgress progress("merge");
    MUtils::MergeOptions merging;
    merging.allowHoles = options.allowHoles;
    if (options.overlap == "first") merging.overlap = MergeOverlap::kFirst;
    if (options.overlap == "last") merging.overlap = MergeOverlap::kLast;
    merging.progress = progress.callback();
    return MUtils::mergeFiles(options.inputs, output, merging);
}

// Throws Failure when there is no merged file in the end.
void mergeInto(MergeReport& merged, const MergeVerbOptions& options) {
    OutputFile output(options.output, OutputFile::Kind::kFile, options.inputs);
    merged = merge(options, output.path());
    for (const std::string& file : merged.unfinished)
        report(file, "was never finished; what is whole in it counts");
    if (merged.state != MergeState::kGood) {
        const std::string cause = merged.error.empty() ? merged.cause : outputCause(merged.error);
        const StateRow row = rowOf(merged.state);
        throw Failure(row.code, output.named(merged.file), output.named(cause) + row.hint);
    }
    output.commit();
    const MUtils::PixelBox& area = merged.area;
    // A piece at the border that was forgotten leaves no hole.
    if (area != merged.frame)
        report(options.output, "covers " + MUtils::boxText(area) + " of a frame of " +
                                   std::to_string(merged.frame.width()) + 'x' +
                                   std::to_string(merged.frame.height()));
    if (!merged.holes.boxes.empty()) report(options.output, "has holes, as allowed: rimg missing lists them");
}

ExitCode runMerge(MergeVerbOptions& options) {
    MergeReport merged;
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
    verb->add_option("-o,--output", options->output, "The raw image to write")->type_name("OUT")->required();
    verb->add_option("--overlap", options->overlap,
                     "Where several pieces have a pixel, the \"first\" or the \"last\" of them counts. "
                     "Default: none does, it is an error")
        ->type_name("NAME")
        ->check(oneOf({"first", "last"}));
    verb->add_flag("--allow-holes", options->allowHoles,
                   "Merge even if pixels are missing afterwards. Default: an error");
    verb->add_flag("--json", options->json, "Print a JSON object, also when it fails");
    verb->callback([options, &result] { result = runMerge(*options); });
}

}  // namespace rimg
