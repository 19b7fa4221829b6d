#include "rawimage/tools/verify.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "cli/option_checks.h"
#include "cli/report.h"
#include "cli/tool_progress.h"
#include "cli/verbs.h"
#include "cli/verify_output.h"

namespace rimg {

namespace {

using MUtils::VerifyReport;

struct CheckOptions {
    std::vector<std::string> files;
    bool quick = false;
    bool json = false;
    int threads = 0;
};

VerifyReport verify(const std::string& file, const CheckOptions& options) {
    ToolProgress progress("verify " + file);
    MUtils::VerifyOptions verifying;
    verifying.quick = options.quick;
    verifying.threads = options.threads;
    verifying.progress = progress.callback();
    return MUtils::verifyFile(file.c_str(), verifying);
}

ExitCode runVerify(const CheckOptions& options) {
    ExitCode result = ExitCode::kGood;
    for (const std::string& file : options.files) {
        const VerifyReport found = verify(file, options);
        if (found.stopped) throw Failure(ExitCode::kStopped, file, "stopped");
        options.json ? printVerifyJson(file, found) : printVerifyText(file, found);
        flushOutput();
        const ExitCode code = exitCodeOf(found.state);
        if (code == ExitCode::kUnreadable) report(file, found.cause);
        result = worse(result, code);
    }
    return result;
}

ExitCode runMissing(const CheckOptions& options) {
    const std::string& file = options.files.front();
    const VerifyReport found = MUtils::missingPixels(file.c_str());
    const ExitCode code = exitCodeOf(found.state);
    const bool areaKnown = !found.area.empty();
    if (options.json) printMissingJson(file, found);
    if (!options.json && areaKnown) printMissingText(file, found);
    flushOutput();
    if (code == ExitCode::kUnreadable) throw Failure(code, file, found.cause);
    if (code == ExitCode::kDamaged) {
        report(file, found.cause, found.faults.front().offset);
        return code;
    }
    // A render that died at once.
    if (!areaKnown) {
        report(file, "holds neither a frame nor a render region: all is missing");
        return ExitCode::kIncomplete;
    }
    return found.missingInAny.boxes.empty() ? ExitCode::kGood : ExitCode::kIncomplete;
}

}  // namespace

void addVerifyVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<CheckOptions>();
    CLI::App* verb = app.add_subcommand("verify", "Check whether raw images are sound and whole");
    verb->add_option("FILE", options->files, "Raw images")->required();
    verb->add_flag("--quick", options->quick, "Check headers, table, lists and texts only, no pixels");
    verb->add_flag("--json", options->json, "Print a JSON object for each file, on a line of its own");
    verb->add_option("-j,--threads", options->threads,
                     "Threads that decompress, 1 to 1024. Default: one for each processor")
        ->type_name("N")
        ->check(wholeNumber(1, kMostThreads));
    verb->callback([options, &result] { result = runVerify(*options); });
}

void addMissingVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<CheckOptions>();
    CLI::App* verb = app.add_subcommand("missing", "List the boxes of a raw image that are still to render");
    verb->add_option("FILE", options->files.emplace_back(), "The raw image")->required();
    verb->add_flag("--json", options->json, "Print a JSON object");
    verb->callback([options, &result] { result = runMissing(*options); });
}

}  // namespace rimg
