#include "rawimage/tools/verify.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cli/file_list.h"
#include "cli/option_checks.h"
#include "cli/report.h"
#include "cli/safe_text.h"
#include "cli/tool_progress.h"
#include "cli/verbs.h"
#include "cli/verify_output.h"

namespace rimg {

namespace {

using MUtils::VerifyReport;

struct VerifyVerbOptions {
    FileList files;
    MUtils::VerifyOptions verify;
    bool json = false;
    bool all = false;
};

VerifyReport verify(const std::string& file, const VerifyVerbOptions& options) {
    const VerifyReport found =
        withProgress("verify " + file, options.verify, [&file](const MUtils::VerifyOptions& verifying) {
            return MUtils::verifyFile(file.c_str(), verifying);
        });
    if (found.stopped) throw Failure(ExitCode::kStopped, file, "stopped");
    return found;
}

// A file that cannot be read has one line, which goes to standard error.
void print(const std::string& file, const VerifyReport& found, const VerifyVerbOptions& options) {
    const bool unreadable = exitCodeOf(found.state) == ExitCode::kUnreadable;
    if (options.json) {
        printVerifyJson(file, found);
    } else if (!unreadable) {
        printVerifyText(file, found, options.all);
    }
    flushOutput();
    const std::string next = found.tags > 0 ? "; next: rimg recover " + shellWord(file) + " -o NEW" : "";
    if (unreadable) report(file, found.cause + next);
}

// "7 files: 5 good, 1 unfinished, 1 damaged".
void printTotals(const std::map<MUtils::FileState, int>& filesOf, std::size_t files) {
    std::printf("%zu files:", files);
    const char* separator = " ";
    for (const auto& [state, count] : filesOf) {
        std::printf("%s%d %s", separator, count, stateName(state));
        separator = ", ";
    }
    std::printf("\n");
    flushOutput();
}

ExitCode runVerify(const VerifyVerbOptions& options) {
    ExitCode result = ExitCode::kGood;
    std::map<MUtils::FileState, int> filesOf;
    const std::vector<std::string> files = options.files.names();
    for (const std::string& file : files) {
        const VerifyReport found = verify(file, options);
        print(file, found, options);
        ++filesOf[found.state];
        result = worse(result, exitCodeOf(found.state));
    }
    if (files.size() > 1 && !options.json) printTotals(filesOf, files.size());
    return result;
}

struct MissingVerbOptions {
    FileList files;
    MUtils::MissingOptions missing;
    bool buckets = false;
    bool json = false;
};

VerifyReport findMissing(const std::string& file, const MissingVerbOptions& options) {
    const VerifyReport found =
        withProgress("missing " + file, options.missing, [&file](const MUtils::MissingOptions& finding) {
            return MUtils::missingPixels(file.c_str(), finding);
        });
    if (found.stopped) throw Failure(ExitCode::kStopped, file, "stopped");
    return found;
}

void printMissing(const std::string& file, const MissingVerbOptions& options, const VerifyReport& found) {
    if (options.buckets) {
        const std::int64_t more = printMissingBuckets(found, options.json);
        if (more > 0) report(file, std::to_string(more) + " more buckets are missing");
    } else if (options.json) {
        printMissingJson(file, found);
    } else if (!found.area.empty()) {
        printMissingText(file, found);
    }
    flushOutput();
}

ExitCode runMissing(const std::string& file, const MissingVerbOptions& options) {
    const VerifyReport found = findMissing(file, options);
    printMissing(file, options, found);
    const ExitCode code = exitCodeOf(found.state);
    if (code == ExitCode::kUnreadable || code == ExitCode::kDamaged) {
        report(file, found.cause, code == ExitCode::kDamaged ? found.causeOffset : Failure::kNoOffset);
        return code;
    }
    // A render that died at once.
    if (found.area.empty()) {
        report(file, "holds neither a frame nor a render region: all is missing");
        return ExitCode::kIncomplete;
    }
    if (found.lacksChannels) {
        report(file, "the channel list is missing: channels without any pixels are not known");
        return ExitCode::kIncomplete;
    }
    return found.missingInAny.boxes.empty() ? ExitCode::kGood : ExitCode::kIncomplete;
}

ExitCode runMissing(const MissingVerbOptions& options) {
    const std::vector<std::string> files = options.files.names();
    if (options.buckets && files.size() > 1)
        throw Failure(ExitCode::kUsage, "missing",
                      "--buckets lists those of one FILE, not of " + std::to_string(files.size()));
    ExitCode result = ExitCode::kGood;
    for (const std::string& file : files)
        result = worse(result, runMissing(file, options));
    return result;
}

}  // namespace

void addVerifyVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<VerifyVerbOptions>();
    CLI::App* verb = app.add_subcommand("verify", "Check whether raw images are sound and whole");
    options->files.addTo(*verb, "Raw images");
    verb->add_flag("--quick", options->verify.quick, "Check headers, table, lists and texts only, no pixels");
    verb->add_flag("--all", options->all, "Print all faults and boxes. Default: the first 20");
    verb->add_flag("--json", options->json, "Print a JSON object for each file, on a line of its own");
    addThreadsOption(*verb, options->verify.threads);
    verb->callback([options, &result] { result = runVerify(*options); });
}

void addMissingVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<MissingVerbOptions>();
    CLI::App* verb = app.add_subcommand("missing", "List the boxes of raw images that are still to render");
    options->files.addTo(*verb, "Raw images");
    CLI::Option* deep = verb->add_flag(
        "--deep", options->missing.deep,
        "Check the pixels, too: buckets with damaged values are missing. Default: headers only");
    verb->add_flag("--buckets", options->buckets,
                   "List the buckets to render again, one on a line, by the grid that the file announces");
    verb->add_flag("--json", options->json,
                   "Print a JSON object for each file, on a line of its own; with --buckets for each bucket");
    addThreadsOption(*verb, options->missing.threads)->needs(deep);
    verb->callback([options, &result] { result = runMissing(*options); });
}

}  // namespace rimg
