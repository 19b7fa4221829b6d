#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "cli/report.h"
#include "cli/stream_output.h"
#include "cli/verbs.h"
#include "rawimage/tools/settings.h"
#include "rawimage/tools/summary.h"

namespace rimg {

namespace {

struct SettingsOptions {
    std::string file;
    std::string output = "-";
    bool force = false;
};

ExitCode runSettings(const SettingsOptions& options) {
    StreamOutput output(options.output, {options.file});
    const MUtils::FileSummary summary = MUtils::summariseFile(options.file.c_str(), false);
    if (exitCodeOf(summary.state) == ExitCode::kUnreadable)
        throw Failure(ExitCode::kUnreadable, options.file, summary.cause);
    if (!summary.settingsBytes.has_value())
        throw Failure(ExitCode::kFailure, options.file, "has no render settings");
    if (output.isTerminal() && !options.force) {
        throw Failure(ExitCode::kUsage, options.file,
                      "settings are binary: name a file with -o, or use --force");
    }
    PBufStream settings;
    const bool failed = readMirtSettings(options.file.c_str(), &settings);
    if (failed && settings.Size() == 0)
        throw Failure(ExitCode::kDamaged, options.file, "the settings cannot be read");
    output.write(settings.GetBuf(), static_cast<std::size_t>(settings.Size()));
    output.close();
    return ExitCode::kGood;
}

}  // namespace

void addSettingsVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<SettingsOptions>();
    CLI::App* verb = app.add_subcommand("settings", "Extract the render settings that a raw image carries");
    verb->add_option("FILE", options->file, "The raw image")->required();
    verb->add_option("-o,--output", options->output,
                     "The file to write. Default: - for standard output, unless it is a terminal");
    verb->add_flag("--force", options->force, "Write to a terminal too");
    verb->callback([options, &result] { result = runSettings(*options); });
}

}  // namespace rimg
