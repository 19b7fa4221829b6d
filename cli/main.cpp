#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <initializer_list>
#include <new>
#include <string>
#include <tuple>

#include "cli/exit_codes.h"
#include "cli/interrupt.h"
#include "cli/parser_tree.h"
#include "cli/report.h"
#include "cli/usage_error.h"
#include "cli/verb_help.h"
#include "cli/verbs.h"
#include "rawimage/version.h"
#include "support/compression.h"

namespace rimg {

namespace {

std::string versionText() {
    using MUtils::Compression;
    return "rimg " RAWIMAGE_VERSION "\ncompression small: " + MUtils::compressorName(Compression::kSmall) +
           "\ncompression balanced: " + MUtils::compressorName(Compression::kBalanced) +
           "\ncompression fast: " + MUtils::compressorName(Compression::kFast) +
           "\ndecompression: " + MUtils::decompressorName();
}

ExitCode runVerb(int argc, char** argv) {
    CLI::App app("Works on raw images, the files that a renderer writes bucket by bucket.", "rimg");
    setHelpLayout(app);
    app.set_version_flag("--version", versionText, "Show the version, and what is built in");
    app.add_flag_callback(
        "--help-json", [&app] { throw CLI::CallForVersion(parserTree(app), 0); },
        "Show the help of all verbs as a JSON object");
    app.require_subcommand(1);
    ExitCode result = ExitCode::kGood;
    addConvertVerb(app, result);
    addInfoVerb(app, result);
    addPreviewVerb(app, result);
    addNoteVerb(app, result);
    addSettingsVerb(app, result);
    addVerifyVerb(app, result);
    addMissingVerb(app, result);
    addStatsVerb(app, result);
    addHashVerb(app, result);
    addRecoverVerb(app, result);
    addMergeVerb(app, result);
    addDiffVerb(app, result);
    addPiecesVerb(app, result);
    addConfigVerb(app, result);
    refuseSlips(app);
    addHelpEnds(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& request) {  // for help or the version
        app.exit(request);
    } catch (const CLI::ParseError& error) {
        report("", usageMessage(app, error));
        return ExitCode::kUsage;
    }
    return result;
}

template <class Work>
ExitCode reported(const Work& work) {
    try {
        return work();
    } catch (const Failure& failure) {
        report(failure);
        return failure.code();
    } catch (const std::bad_alloc&) {
        report("", "out of memory");
    } catch (const std::exception& error) {
        report("", error.what());
    }
    return ExitCode::kFailure;
}

ExitCode runProgram(int argc, char** argv) {
    const ExitCode result = reported([&] { return runVerb(argc, argv); });
    return worse(result, reported([] {
                     flushOutput();
                     return ExitCode::kGood;
                 }));
}

// A file that is opened must not get the number of a standard stream that the caller has closed: what is
// printed would go into it. Opened the wrong way round, these fail as closed ones do.
void occupyStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(stream, F_GETFD) >= 0) continue;
        std::ignore = ::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

}  // namespace

}  // namespace rimg

int main(int argc, char** argv) {
    rimg::occupyStandardStreams();
    rimg::catchSignals();
    return static_cast<int>(rimg::runProgram(argc, argv));
}
