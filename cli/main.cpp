#include <CLI/CLI.hpp>
#include <exception>
#include <new>

#include "cli/exit_codes.h"
#include "cli/interrupt.h"
#include "cli/report.h"
#include "cli/usage_error.h"
#include "cli/verb_help.h"
#include "cli/verbs.h"
#include "rawimage/version.h"

namespace rimg {

namespace {

ExitCode runVerb(int argc, char** argv) {
    CLI::App app("Works on raw images, the files that a renderer writes bucket by bucket.", "rimg");
    setHelpLayout(app);
    app.set_version_flag("--version", "rimg " RAWIMAGE_VERSION, "Show the version");
    app.require_subcommand(1);
    ExitCode result = ExitCode::kGood;
    addConvertVerb(app, result);
    addInfoVerb(app, result);
    addPreviewVerb(app, result);
    addNoteVerb(app, result);
    addSettingsVerb(app, result);
    addVerifyVerb(app, result);
    addMissingVerb(app, result);
    addRecoverVerb(app, result);
    addMergeVerb(app, result);
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

ExitCode runProgram(int argc, char** argv) {
    try {
        return runVerb(argc, argv);
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

}  // namespace

}  // namespace rimg

int main(int argc, char** argv) {
    rimg::catchSignals();
    return static_cast<int>(rimg::runProgram(argc, argv));
}
