#include "rawimage/tools/hash.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "cli/fault_output.h"
#include "cli/frame_output.h"
#include "cli/report.h"
#include "cli/safe_text.h"
#include "cli/tool_progress.h"
#include "cli/verbs.h"

namespace rimg {

namespace {

using MUtils::ChannelHash;
using MUtils::HashReport;

struct HashVerbOptions : FrameVerbOptions<MUtils::HashOptions> {
    bool each = false;
};

HashReport hashOf(const std::string& file, const HashVerbOptions& options) {
    return withProgress("hash " + file, options.tool, [&file](const MUtils::HashOptions& hashing) {
        return MUtils::hashFile(file.c_str(), hashing);
    });
}

// The hash of what is there of a frame must not pass for that of the frame.
std::string shownHash(const HashReport& found, const std::string& hash) {
    return found.state == MUtils::FileState::kGood ? hash : "incomplete:" + hash;
}

void printText(const std::string& file, const HashReport& found, bool each) {
    if (found.hash.empty()) return;
    const std::string name = safeText(file);
    std::printf("%s  %s\n", shownHash(found, found.hash).c_str(), name.c_str());
    if (!each) return;
    for (const ChannelHash& one : found.channels) {
        std::printf("%s  %s: channel %s\n", shownHash(found, one.hash).c_str(), name.c_str(),
                    channelText(one.channel.index, one.channel.name).c_str());
    }
}

void printHashJson(const std::string& file, const HashReport& found) {
    Json json = frameJson(file, found);
    json["hash"] = found.hash.empty() ? Json() : Json(shownHash(found, found.hash));
    Json channels = Json::array();
    for (const ChannelHash& one : found.channels) {
        Json channel = jsonOf(one.channel);
        channel["hash"] = shownHash(found, one.hash);
        channels.push_back(channel);
    }
    json["channels"] = channels;
    printJson(json);
}

ExitCode runHash(const HashVerbOptions& options) {
    ExitCode result = ExitCode::kGood;
    for (const std::string& file : options.files.names()) {
        const HashReport found = hashOf(file, options);
        refuseStopped(file, found);
        options.json ? printHashJson(file, found) : printText(file, found, options.each);
        flushOutput();
        result = worse(result, reportFrame(file, found));
    }
    return result;
}

}  // namespace

void addHashVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<HashVerbOptions>();
    CLI::App* verb =
        app.add_subcommand("hash", "Print a hash of what raw images show, however they are stored");
    options->addTo(*verb);
    verb->add_flag("--each", options->each, "Print a line for each channel, too");
    verb->add_flag("--metadata", options->tool.metadata, "Hash camera, texts, settings and thumbnail, too");
    verb->callback([options, &result] { result = runHash(*options); });
}

}  // namespace rimg
