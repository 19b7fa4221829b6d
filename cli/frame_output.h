#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "cli/exit_codes.h"
#include "cli/file_list.h"
#include "cli/json_output.h"
#include "rawimage/tools/frame_report.h"

namespace rimg {

// What the verbs that go over the pixels of frames share.
struct FrameVerbOptions {
    FileList files;
    std::vector<std::string> channels;
    int threads = 0;
    bool json = false;
};

void addFrameOptions(CLI::App& verb, FrameVerbOptions& options);

// Throws Failure when it was stopped or a pattern fits no channel.
void refuseStopped(const std::string& file, const MUtils::FrameReport& report);

// Reports on standard error what is wrong with a file, and returns what the program answers for it.
ExitCode reportFrame(const std::string& file, const MUtils::FrameReport& report);

// The beginning of the object of a file.
Json frameJson(const std::string& file, const MUtils::FrameReport& report);
// Index, name and type.
Json jsonOf(const MUtils::FrameChannel& channel);

}  // namespace rimg
