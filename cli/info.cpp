#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "cli/exit_codes.h"
#include "cli/file_list.h"
#include "cli/info_output.h"
#include "cli/interrupt.h"
#include "cli/report.h"
#include "cli/verbs.h"
#include "rawimage/tools/summary.h"

namespace rimg {

namespace {

using MUtils::FileSummary;

struct InfoOptions {
    FileList files;
    bool json = false;
    bool tags = false;
};

ExitCode runInfo(const InfoOptions& options) {
    ExitCode result = ExitCode::kGood;
    bool first = true;
    for (const std::string& file : options.files.names()) {
        if (stopRequested()) return ExitCode::kStopped;
        const FileSummary summary = MUtils::summariseFile(file.c_str(), options.tags);
        const ExitCode code = exitCodeOf(summary.state);
        if (options.json) {
            printInfoJson(stdout, file, summary, options.tags);
        } else if (code != ExitCode::kUnreadable) {
            if (!first) std::fputc('\n', stdout);
            printInfoText(stdout, file, summary, options.tags);
            first = false;
        }
        flushOutput();
        if (code != ExitCode::kGood) report(file, summary.cause, summary.faultOffset);
        result = worse(result, code);
    }
    return result;
}

}  // namespace

void addInfoVerb(CLI::App& app, ExitCode& result) {
    CLI::App* verb = app.add_subcommand("info", "Show what raw images hold: frame, camera, texts, channels");
    auto options = std::make_shared<InfoOptions>();
    options->files.addTo(*verb, "Raw images");
    verb->add_flag("--json", options->json, "Print a JSON object for each file, on a line of its own");
    verb->add_flag("--tags", options->tags, "List every tag, too: offset, id, size in bytes, parameters");
    verb->callback([options, &result] { result = runInfo(*options); });
}

}  // namespace rimg
