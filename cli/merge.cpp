#include "rawimage/tools/merge.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "cli/file_list.h"
#include "cli/merge_output.h"
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

ExitCode exitCodeOf(MergeState state) {
    switch (state) {
        case MergeState::kGood: return ExitCode::kGood;
        case MergeState::kCannotOpen:
        case MergeState::kNotThisFormat: return ExitCode::kUnreadable;
        case MergeState::kDamaged: return ExitCode::kDamaged;
        case MergeState::kMismatch:
        case MergeState::kOverlap:
        case MergeState::kHoles: return ExitCode::kMismatch;
        case MergeState::kStopped: return ExitCode::kStopped;
        case MergeState::kWriteFailed: break;
    }
    return ExitCode::kFailure;
}

const char* hintFor(MergeState state) {
    if (state == MergeState::kOverlap) return "; --overlap first or last lets one of them count";
    if (state == MergeState::kHoles) return "; --allow-holes leaves them";
    return "";
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
        throw Failure(exitCodeOf(merged.state), output.named(merged.file),
                      output.named(cause) + hintFor(merged.state));
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
        if (options.json && begun) printMergeJson(options.inputs, options.output, merged, &failure);
        flushOutput();
        throw;
    }
    if (options.json) printMergeJson(options.inputs, options.output, merged, nullptr);
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
