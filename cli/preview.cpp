#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "cli/fault_output.h"
#include "cli/option_checks.h"
#include "cli/png_file.h"
#include "cli/report.h"
#include "cli/stream_output.h"
#include "cli/tool_progress.h"
#include "cli/verbs.h"
#include "rawimage/tools/picture.h"

namespace rimg {

namespace {

struct PreviewOptions {
    std::string file;
    std::string output;
    std::string background = "000000";
    bool stretch = false;
    bool noStored = false;
    MUtils::PictureRequest request;
};

// "RRGGBB" in hexadecimal; CLI11 has checked the form.
RGB24 parseColour(const std::string& text) {
    const unsigned long value = std::stoul(text, nullptr, 16);
    return {static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 8 & 0xff),
            static_cast<unsigned char>(value & 0xff)};
}

std::string checkColour(const std::string& text) {
    const bool sound =
        text.size() == 6 && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    return sound ? "" : "a colour is six hexadecimal digits, RRGGBB: " + text;
}

// Of a file in which there is nothing to draw, as it lacks `what`. A render that has only begun is not
// damaged.
[[noreturn]] void refuseEmpty(const PreviewOptions& options, const MUtils::Picture& picture,
                              const std::string& what) {
    using MUtils::FileState;
    const ExitCode code = exitCodeOf(picture.fileState);
    if (picture.fileState == FileState::kDamaged)
        throw Failure(code, options.file, picture.cause, picture.causeOffset);
    if (picture.fileHasPixels && code != ExitCode::kGood)
        throw Failure(
            code, options.file,
            "its " + what + " is missing, nothing was drawn; rimg recover --like SIBLING supplies it");
    if (picture.fileState == FileState::kUnfinished)
        throw Failure(code, options.file,
                      "the render has only begun, there is no " + what + " yet: nothing was drawn");
    throw Failure(code == ExitCode::kGood ? ExitCode::kFailure : code, options.file,
                  "has no " + what + " that can be drawn");
}

void refuse(const PreviewOptions& options, const MUtils::Picture& picture) {
    using MUtils::PictureState;
    switch (picture.state) {
        case PictureState::kGood: return;
        case PictureState::kBadRequest:
            throw Failure(
                ExitCode::kUsage, "",
                "a picture is 1 to " + std::to_string(MUtils::kMaxPictureSize) + " pixels in each direction");
        case PictureState::kNoFrame: refuseEmpty(options, picture, "resolution");
        case PictureState::kNoChannel: {
            if (picture.channels.empty()) refuseEmpty(options, picture, "channel list");
            throw Failure(ExitCode::kFailure, options.file,
                          "has no channel \"" + options.request.channel + "\"; it has " +
                              CLI::detail::join(picture.channels, ", "));
        }
        case PictureState::kStopped: throw Failure(ExitCode::kStopped, options.file, "stopped");
        case PictureState::kCannotOpen:
        case PictureState::kNotThisFormat: throw Failure(ExitCode::kUnreadable, options.file, picture.cause);
    }
}

// Reports what the picture lacks, and returns what the program answers for it.
ExitCode reportState(const PreviewOptions& options, const MUtils::Picture& picture) {
    LineList lines;
    lines.add("damaged ", faultLines(picture.damaged));
    lines.add("in doubt: ", faultLines(picture.doubts));
    if (const std::size_t more = lines.report(options.file); more > 0)
        report(options.file, std::to_string(more) + " more are damaged or in doubt; rimg verify lists them");
    if (!lines.empty()) return ExitCode::kDamaged;
    if (picture.fileState != MUtils::FileState::kGood)
        report(options.file, "the picture shows what is there: " + picture.cause, picture.causeOffset);
    return exitCodeOf(picture.fileState);
}

ExitCode runPreview(PreviewOptions& options) {
    options.request.background = parseColour(options.background);
    options.request.keepAspect = !options.stretch;
    options.request.useStored = !options.noStored;
    StreamOutput output(options.output, {options.file});
    if (output.isTerminal())
        throw Failure(ExitCode::kUsage, "", "a picture is binary: redirect it, or name a file with -o");
    const MUtils::Picture picture =
        withProgress("drawing", options.request, [&](const MUtils::PictureRequest& request) {
            return MUtils::makePicture(options.file.c_str(), request);
        });
    refuse(options, picture);
    writePng(output, picture.pixels, picture.width, picture.height);
    return reportState(options, picture);
}

}  // namespace

void addPreviewVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<PreviewOptions>();
    CLI::App* verb = app.add_subcommand("preview", "Make a PNG picture of a raw image, finished or not");
    verb->add_option("FILE", options->file, "The raw image")->required();
    verb->add_option("-o,--output", options->output, "The PNG file to write; - for standard output")
        ->type_name("OUT.png")
        ->required()
        ->check(checkPngEnding);
    CLI::Option* size = addSizeOption(*verb, "--size", options->request.width, options->request.height,
                                      "Width and height of the picture. Default: those of the stored "
                                      "thumbnail, else of the frame, at most 1024");
    verb->add_option("--fit", options->request.fit,
                     "Instead of a size: the frame's, scaled down to at most N pixels in each direction")
        ->type_name("N")
        ->check(wholeNumber(1, MUtils::kMaxPictureSize))
        ->excludes(size);
    verb->add_flag("--stretch", options->stretch, "Fill the picture instead of keeping the frame's aspect");
    verb->add_option("--channel", options->request.channel,
                     "The channel to show, by name: colours, depth, vectors, ids, anything. Default: "
                     "the main colour")
        ->type_name("CHANNEL");
    static const std::map<std::string, MUtils::ChannelView> kViews{{"id", MUtils::ChannelView::kId},
                                                                   {"colour", MUtils::ChannelView::kColour},
                                                                   {"vector", MUtils::ChannelView::kVector},
                                                                   {"depth", MUtils::ChannelView::kDepth}};
    verb->add_option_function<std::string>(
            "--as", [options](const std::string& name) { options->request.view = kViews.at(name); },
            "Shows the channel as id (a colour for each), colour, vector or depth. Default: guessed by type, "
            "name and values")
        ->check(oneOf({"id", "colour", "vector", "depth"}))
        ->type_name("VIEW");
    verb->add_option("--exposure", options->request.exposure,
                     "Brightens colours and luminance by this many stops (-100 to 100)")
        ->check(numberWithin(100));
    verb->add_option("--background", options->background, "What shows where there are no pixels")
        ->type_name("RRGGBB")
        ->check(checkColour)
        ->capture_default_str();
    verb->add_flag("--no-stored", options->noStored, "Draw from the pixels even if the file has a thumbnail");
    addThreadsOption(*verb, options->request.threads);
    verb->callback([options, &result] { result = runPreview(*options); });
}

}  // namespace rimg
