#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "cli/report.h"
#include "cli/verbs.h"
#include "rawimage/version.h"

namespace rimg {

namespace {

namespace fs = std::filesystem;

struct ConfigOptions {
    bool version = false;
    bool prefix = false;
    bool oiioPluginDir = false;
};

// A folder of the installation. The build gives it as seen from that of the program, so it is found in a tree
// that was moved, too.
fs::path installed(const char* fromProgram) {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    if (error) throw Failure(ExitCode::kFailure, "/proc/self/exe", error.message());
    fs::path folder = (program.parent_path() / fromProgram).lexically_normal();
    return folder.has_filename() ? folder : folder.parent_path();
}

fs::path pluginFolder() {
    constexpr const char* kModule = "rimg.imageio.so";
    fs::path folder = installed(RIMG_OIIO_DIR);
    std::error_code ignored;
    if (!fs::exists(folder / kModule, ignored)) {
        throw Failure(ExitCode::kFailure, folder / kModule,
                      "the OpenImageIO plugin is not installed with this program");
    }
    return folder;
}

std::string answer(const ConfigOptions& options) {
    if (options.version) return RAWIMAGE_VERSION;
    if (options.prefix) return installed(RIMG_PREFIX).string();
    if (options.oiioPluginDir) return pluginFolder().string();
    throw Failure(ExitCode::kUsage, "",
                  "config: name one of --version, --prefix and --oiio-plugin-dir (see rimg config --help)");
}

}  // namespace

void addConfigVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<ConfigOptions>();
    CLI::App* verb = app.add_subcommand("config", "Print where this program's installation is");
    CLI::Option* version = verb->add_flag("--version", options->version, "The version alone");
    CLI::Option* prefix =
        verb->add_flag("--prefix", options->prefix, "The folder that all was installed below");
    CLI::Option* plugin =
        verb->add_flag("--oiio-plugin-dir", options->oiioPluginDir, "The folder of the OpenImageIO plugin");
    version->excludes(prefix)->excludes(plugin);
    prefix->excludes(plugin);
    verb->callback([options, &result] {
        std::printf("%s\n", answer(*options).c_str());
        result = ExitCode::kGood;
    });
}

}  // namespace rimg
