#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "cli/exit_codes.h"
#include "cli/file_list.h"
#include "cli/json_output.h"
#include "cli/option_checks.h"
#include "rawimage/tools/frame_report.h"

namespace rimg {

// What the verbs that go over the pixels of frames share; `ToolOptions` are those of the library's function.
template <class ToolOptions>
struct FrameVerbOptions {
    FileList files;
    ToolOptions tool;
    bool json = false;

    void addTo(CLI::App& verb) {
        files.addTo(verb, "Raw images");
        addListOption(verb, "--channels", tool.channels, "GLOB,...",
                      "Only channels whose name one of these patterns fits; quote them from the shell");
        verb.add_flag("--json", json, "Print a JSON object for each file, on a line of its own");
        addThreadsOption(verb, tool.threads);
    }
};

// Throws Failure when it was stopped or a pattern fits no channel.
void refuseStopped(const std::string& file, const MUtils::FrameReport& report);

// Reports on standard error what is wrong with a file, and returns what the program answers for it.
ExitCode reportFrame(const std::string& file, const MUtils::FrameReport& report);

// The beginning of the object of a file.
Json frameJson(const std::string& file, const MUtils::FrameReport& report);
// Index, name and type.
Json jsonOf(const MUtils::FrameChannel& channel);

}  // namespace rimg
