#include "rawimage/tools/recover.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/option_checks.h"
#include "cli/output_file.h"
#include "cli/recover_output.h"
#include "cli/report.h"
#include "cli/tool_progress.h"
#include "cli/verbs.h"

namespace rimg {

namespace {

using MUtils::RecoverReport;
using MUtils::RecoverState;

struct RecoverVerbOptions {
    std::string file;
    std::string output;
    MUtils::RecoverOptions recover;
    bool inPlace = false;
    bool json = false;
    bool all = false;
};

// `output` is the file to write, unless it is to be done in place.
RecoverReport recover(const RecoverVerbOptions& options, const std::string& output) {
    const auto run = [&](const MUtils::RecoverOptions& recovering) {
        return options.inPlace ? MUtils::recoverInPlace(options.file.c_str(), recovering)
                               : MUtils::recoverFile(options.file.c_str(), output.c_str(), recovering);
    };
    return withProgress("recover " + options.file, options.recover, run);
}

// Throws Failure when there is no recovered file in the end.
void recoverInto(RecoverReport& found, const RecoverVerbOptions& options) {
    if (!options.inPlace && options.output.empty())
        throw Failure(ExitCode::kUsage, "recover", "name a new file with -o, or use --in-place");
    std::optional<OutputFile> output;
    if (!options.inPlace) output.emplace(options.output, OutputFile::Kind::kFile, std::vector{options.file});
    found = recover(options, output ? output->path() : "");
    if (found.state == RecoverState::kGood) {
        if (output) output->commit();
        return;
    }
    const bool ofOutput = found.state == RecoverState::kWriteFailed && !options.inPlace;
    const std::string hint =
        found.state == RecoverState::kNotInPlace ? "cannot be mended in place, use -o: " : "";
    const std::string cause = found.error.empty() ? found.cause : MUtils::outputErrorText(found.error);
    throw Failure(exitCodeOf(found), ofOutput ? options.output : options.file,
                  hint + (output ? output->named(cause) : cause));
}

// The options that were not needed.
void printUnused(const RecoverVerbOptions& options, const RecoverReport& found) {
    const auto supplied = [&found](std::uint32_t tagId) {
        return std::count(found.supplied.begin(), found.supplied.end(), tagId) > 0;
    };
    if (options.recover.width > 0 && !supplied(TAG_RESOLUTION))
        std::puts("--size is not used: the file has its resolution");
    if (!options.recover.like.empty() && !supplied(TAG_RESOLUTION) && !supplied(TAG_CHANNEL_INFO))
        std::puts("--like is not used: the file has its resolution and its channel list");
}

ExitCode runRecover(const RecoverVerbOptions& options) {
    RecoverReport found;
    try {
        recoverInto(found, options);
    } catch (const Failure& failure) {
        const bool begun = failure.code() != ExitCode::kUsage;
        if (options.json && begun) printRecoverJson(options.file, options.output, found, &failure);
        flushOutput();
        throw;
    }
    if (options.json) {
        printRecoverJson(options.file, options.output, found, nullptr);
    } else {
        printUnused(options, found);
        printRecoverText(options.file, options.output, found, options.all);
    }
    flushOutput();
    return exitCodeOf(found);
}

}  // namespace

void addRecoverVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<RecoverVerbOptions>();
    CLI::App* verb = app.add_subcommand(
        "recover", "Save what is sound of a damaged or unfinished raw image, and report what is lost");
    verb->add_option("FILE", options->file, "The raw image")->required();
    CLI::Option* output =
        verb->add_option(
                "-o,--output", options->output,
                "The new file, which gets every sound tag as it stands; this or --in-place is needed")
            ->type_name("OUT.rimg");
    verb->add_flag(
            "--in-place", options->inPlace,
            "Instead of -o: cut a torn end off FILE and add the table; refused when that is not enough")
        ->excludes(output);
    verb->add_option(
            "--like", options->recover.like,
            "Another raw image of the same render, for the resolution and the channels that FILE has "
            "lost")
        ->type_name("SIBLING")
        ->excludes("--in-place");
    addSizeOption(*verb, "--size", options->recover.width, options->recover.height,
                  "The resolution, WxH, when FILE has lost it")
        ->excludes("--in-place");
    verb->add_flag("--all", options->all, "Print all that is lost, repaired or in doubt. Default: 20 lines");
    verb->add_flag("--json", options->json, "Print a JSON object, also when it fails");
    addThreadsOption(*verb, options->recover.threads);
    verb->callback([options, &result] { result = runRecover(*options); });
}

}  // namespace rimg
