#include "convert/from_exr/diff_files.h"

#include <CLI/CLI.hpp>
#include <array>
#include <memory>
#include <new>
#include <optional>
#include <string>

#include "cli/diff_output.h"
#include "cli/fault_output.h"
#include "cli/option_checks.h"
#include "cli/png_file.h"
#include "cli/report.h"
#include "cli/stream_output.h"
#include "cli/tool_progress.h"
#include "cli/verbs.h"

namespace rimg {

namespace {

using MUtils::DiffReport;
using MUtils::DiffState;
using MUtils::FileDiffReport;

struct DiffVerbOptions {
    std::array<std::string, 2> files;
    std::string output;
    bool quiet = false;
    bool json = false;
    MUtils::DiffOptions diff;
};

constexpr ExitCode kFileError = exitCodeOf(DiffCode::kFileError);

ExitCode exitCodeOf(DiffState state) {
    switch (state) {
        case DiffState::kGood: return exitCodeOf(DiffCode::kGood);
        case DiffState::kWarnings: return exitCodeOf(DiffCode::kWarnings);
        case DiffState::kFailures: return exitCodeOf(DiffCode::kFailures);
        case DiffState::kMismatch: return exitCodeOf(DiffCode::kMismatch);
        case DiffState::kNoChannel: return ExitCode::kUsage;
        case DiffState::kStopped: return ExitCode::kStopped;
        default: return kFileError;
    }
}

// The program's own codes mean something else here, but for two.
Failure translated(const Failure& failure) {
    const bool own = failure.code() == ExitCode::kUsage || failure.code() == ExitCode::kStopped;
    return {own ? failure.code() : kFileError, failure.file(), failure.what(), failure.offset()};
}

void throwFailures(const DiffVerbOptions& options, const DiffReport& found) {
    const std::string file = found.side >= 0 ? options.files[static_cast<std::size_t>(found.side)] : "";
    LineList lines;
    lines.add("damaged ", faultLines(found.damaged));
    lines.report(file);
    switch (found.state) {
        case DiffState::kGood:
        case DiffState::kWarnings:
        case DiffState::kFailures:
        case DiffState::kMismatch: return;
        case DiffState::kNoChannel: throw Failure(ExitCode::kUsage, "", "--channels: " + found.cause);
        case DiffState::kDamaged:
            throw Failure(kFileError, file, "is damaged, so it was not compared: " + found.cause,
                          found.causeOffset);
        default: throw Failure(exitCodeOf(found.state), file, found.cause, found.causeOffset);
    }
}

void diffInputs(const DiffVerbOptions& options, FileDiffReport& found) {
    found = withProgress("diff", options.diff, [&options](MUtils::DiffOptions& diff) {
        diff.picture = !options.output.empty();
        return MUtils::diffFiles(options.files[0], options.files[1], diff);
    });
    throwFailures(options, found);
    for (std::size_t side = 0; side < 2; ++side) {
        if (!found.incomplete[side].empty())
            report(options.files[side], "what is there was compared: " + found.incomplete[side]);
    }
}

ExitCode diff(const DiffVerbOptions& options, FileDiffReport& found) {
    std::optional<StreamOutput> output;
    if (!options.output.empty()) {
        output.emplace(options.output, std::vector<std::string>(options.files.begin(), options.files.end()));
        if (output->isTerminal() || (options.output == "-" && !options.quiet))
            throw Failure(ExitCode::kUsage, "", "-o - takes -q, and standard output that is no terminal");
    }
    diffInputs(options, found);
    if (!found.picture.empty()) {
        const MUtils::PixelBox& frame = found.frames[0];
        writePng(*output, found.picture, static_cast<int>(frame.width()), static_cast<int>(frame.height()));
    } else if (output) {
        report(output->file().name(), "not written, as there is nothing to draw");
    }
    return exitCodeOf(found.state);
}

ExitCode runDiff(const DiffVerbOptions& options) {
    FileDiffReport found;
    try {
        const ExitCode code = diff(options, found);
        if (options.json) {
            printDiffJson(options.files, found, code, nullptr);
        } else if (!options.quiet) {
            printDiffText(options.files, found);
        }
        flushOutput();
        return code;
    } catch (const Failure& caught) {
        const Failure failure = translated(caught);
        if (options.json && failure.code() != ExitCode::kUsage)
            printDiffJson(options.files, found, failure.code(), &failure);
        throw failure;
    } catch (const std::bad_alloc&) {
        throw Failure(kFileError, "", "out of memory");
    }
}

void addLimits(CLI::App& verb, const std::string& name, MUtils::DiffLimits& limits, const std::string& what) {
    verb.add_option("--" + name, limits.value,
                    "A pixel " + what + " if a value differs by more than X. Default: 0.000001")
        ->type_name("X")
        ->check(amount());
    verb.add_option("--" + name + "percent", limits.percent, "So many percent of the pixels may. Default: 0")
        ->type_name("P")
        ->check(amount());
    verb.add_option("--hard" + name, limits.hard, "But none may differ by more than X. Default: any")
        ->type_name("X")
        ->check(amount());
}

}  // namespace

void addDiffVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<DiffVerbOptions>();
    CLI::App* verb = app.add_subcommand(
        "diff", "Compare two frames, raw images or OpenEXR files: size, channels, pixels and records");
    verb->add_option("A", options->files[0], "Raw image or OpenEXR file")->required();
    verb->add_option("B", options->files[1], "Raw image or OpenEXR file")->required();
    addLimits(*verb, "fail", options->diff.fail, "fails");
    addLimits(*verb, "warn", options->diff.warn, "warns");
    addListOption(*verb, "--channels", options->diff.channels, "GLOB,...",
                  "Only channels that one of these patterns fits");
    verb->add_flag("--metadata", options->diff.records, "Compare the records, too: camera, note ...");
    verb->add_option("-o,--output", options->output, "Draw the difference as a PNG file")
        ->type_name("OUT.png")
        ->check(checkPngEnding);
    CLI::Option* picture = verb->get_option("--output");
    verb->add_flag("-a,--abs", options->diff.absolute,
                   "In the picture show B beyond A, too. Default: only A beyond B")
        ->needs(picture);
    verb->add_option("--scale", options->diff.scale, "In the picture multiply differences by X. Default: 1")
        ->type_name("X")
        ->check(amount())
        ->needs(picture);
    verb->add_flag("-q,--quiet", options->quiet, "Print nothing but errors");
    verb->add_flag("--json", options->json, "Print a JSON object, also when it fails")->excludes("--quiet");
    addThreadsOption(*verb, options->diff.threads);
    verb->callback([options, &result] { result = runDiff(*options); });
}

}  // namespace rimg
