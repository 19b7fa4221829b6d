#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

#include "cli/report.h"
#include "cli/verbs.h"
#include "rawimage/tools/settings.h"
#include "rawimage/tools/summary.h"

namespace rimg {

namespace {

using MUtils::FileVerdict;

struct SettingsOptions {
    std::string file;
    std::string output;
    bool force = false;
};

void writeTo(std::FILE* out, const std::string& name, const PBufStream& settings) {
    const auto size = static_cast<std::size_t>(settings.Size());
    const bool whole = std::fwrite(settings.GetBuf(), 1, size, out) == size && std::fflush(out) == 0;
    if (!whole) throw Failure(ExitCode::kFailure, name, "cannot be written: " + systemMessage(errno));
}

ExitCode runSettings(const SettingsOptions& options) {
    const MUtils::FileSummary summary = MUtils::summariseFile(options.file.c_str(), false);
    if (summary.verdict == FileVerdict::kCannotOpen || summary.verdict == FileVerdict::kNotThisFormat) {
        throw Failure(ExitCode::kUnreadable, options.file, summary.cause);
    }
    if (!summary.settingsBytes.has_value())
        throw Failure(ExitCode::kFailure, options.file, "has no render settings");
    if (options.output.empty() && !options.force && isatty(STDOUT_FILENO) != 0) {
        throw Failure(ExitCode::kUsage, options.file,
                      "settings are binary: name a file with -o, or use --force");
    }
    PBufStream settings;
    const bool failed = readMirtSettings(options.file.c_str(), &settings);
    if (failed && settings.Size() == 0)
        throw Failure(ExitCode::kDamaged, options.file, "the settings cannot be read");
    if (options.output.empty()) {
        writeTo(stdout, "standard output", settings);
        return ExitCode::kGood;
    }
    std::FILE* out = std::fopen(options.output.c_str(), "wb");
    if (out == nullptr)
        throw Failure(ExitCode::kFailure, options.output, "cannot be written: " + systemMessage(errno));
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> closer(out, std::fclose);
    writeTo(out, options.output, settings);
    return ExitCode::kGood;
}

}  // namespace

void addSettingsVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<SettingsOptions>();
    CLI::App* verb = app.add_subcommand("settings", "Extract the render settings that a raw image carries");
    verb->add_option("FILE", options->file, "The raw image")->required();
    verb->add_option("-o,--output", options->output,
                     "The file to write. Default: standard output, unless it is a terminal");
    verb->add_flag("--force", options->force, "Write to a terminal too");
    verb->callback([options, &result] { result = runSettings(*options); });
}

}  // namespace rimg
