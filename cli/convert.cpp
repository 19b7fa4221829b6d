#include <OpenEXR/ImfThreading.h>
#include <strings.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "cli/choice_option.h"
#include "cli/convert_output.h"
#include "cli/option_checks.h"
#include "cli/output_file.h"
#include "cli/report.h"
#include "cli/tool_progress.h"
#include "cli/verbs.h"
#include "support/compression.h"
#include "support/job_queue.h"

namespace rimg {

namespace {

using Format = ImageFormat;
using MUtils::Compression;
using MUtils::Conversion;
using MUtils::ConvertReport;
using MUtils::ConvertState;
using MUtils::FrameChoice;

// An option of the other direction would be without effect.
void refuseOptions(const CLI::App& verb, const std::string& group, const char* what) {
    for (const CLI::Option* option : verb.get_options()) {
        if (option->get_group() != group || option->count() == 0) continue;
        throw Failure(ExitCode::kUsage, "", option->get_name() + " is for " + what);
    }
}

constexpr const char* kFromExr = "From OpenEXR";
constexpr const char* kToExr = "To OpenEXR";

const char* nameOf(Format format) {
    return format == Format::kExr ? "an OpenEXR file" : "a raw image";
}

// The format that the ending of the output's name asks for.
Format endingOf(const std::string& path) {
    const std::string ending = std::filesystem::path(path).extension().string();
    if (strcasecmp(ending.c_str(), ".exr") == 0) return Format::kExr;
    return strcasecmp(ending.c_str(), ".rimg") == 0 ? Format::kRaw : Format::kOther;
}

// The output's format is that of --to or of its name, else the one that the input is not.
void checkWanted(const ConvertVerb& verb) {
    const Format ending = endingOf(verb.output);
    if (verb.to != Format::kOther && ending != Format::kOther && verb.to != ending) {
        throw Failure(
            ExitCode::kUsage, verb.output,
            std::string("--to asks for ") + nameOf(verb.to) + ", the name is that of " + nameOf(ending));
    }
    const Format wanted = verb.to != Format::kOther ? verb.to : ending;
    if (wanted != verb.from) return;
    throw Failure(ExitCode::kUsage, verb.output,
                  std::string("nothing to convert: ") + verb.input + " is " + nameOf(verb.from) + " already");
}

// Finds out the input's format, and refuses options that contradict it or each other.
void checkOptions(const CLI::App& app, ConvertVerb& verb) {
    const Format format = formatOf(verb.input);
    OutputFile::refuseInputs(verb.output, {verb.input, verb.toExr.attributesFrom});
    if (format == Format::kOther)
        throw Failure(ExitCode::kUnreadable, verb.input, "neither an OpenEXR file nor a raw image");
    verb.from = format;
    checkWanted(verb);
    const bool toExr = format == Format::kRaw;
    refuseOptions(app, toExr ? kFromExr : kToExr, toExr ? "OpenEXR files as input" : "raw images as input");
}

ExitCode exitCodeOf(ConvertState state) {
    switch (state) {
        case ConvertState::kGood: return ExitCode::kGood;
        case ConvertState::kIncomplete: return ExitCode::kIncomplete;
        case ConvertState::kDamaged: return ExitCode::kDamaged;
        case ConvertState::kCannotOpen:
        case ConvertState::kNotThisFormat:
        case ConvertState::kLocked: return ExitCode::kUnreadable;
        case ConvertState::kOverscan:
        case ConvertState::kOutsideFrame: return ExitCode::kMismatch;
        case ConvertState::kBadOption: return ExitCode::kUsage;
        case ConvertState::kStopped: return ExitCode::kStopped;
        case ConvertState::kUnsupported:
        case ConvertState::kTooLarge:
        case ConvertState::kWriteFailed:
        case ConvertState::kFailed: break;
    }
    return ExitCode::kFailure;
}

// Why there is no output.
Failure failureOf(const ConvertVerb& verb, const ConvertReport& report) {
    const bool ofOption = report.state == ConvertState::kBadOption;
    const std::string file = report.file.empty() && !ofOption ? verb.output : report.file;
    return {exitCodeOf(report.state), file, (ofOption ? "--" : "") + report.cause + hintFor(verb, report),
            report.offset.value_or(Failure::kNoOffset)};
}

void refuseLosses(const ConvertVerb& verb, const ConvertReport& report) {
    if (!verb.strict || report.losses.empty()) return;
    const std::string what = report.losses.size() == 1 ? "this loss" : "these losses";
    throw Failure(ExitCode::kMismatch, verb.input,
                  "--strict does not allow " + what + "; nothing was written");
}

// The output is created only after the input has been found convertible.
ExitCode convertInto(const ConvertVerb& verb, Conversion& conversion, ToolProgress& progress) {
    const ConvertReport& report = conversion.report();
    NotePrinter notes(verb);
    const bool ready = conversion.prepare();
    notes.print(report);
    if (!ready) throw failureOf(verb, report);
    refuseLosses(verb, report);
    OutputFile output(verb.output, OutputFile::Kind::kFile, {verb.input, verb.toExr.attributesFrom});
    const bool written = conversion.run(output.path());
    progress.clear();
    if (!written) {
        const Failure failure = failureOf(verb, report);
        throw Failure(failure.code(), output.named(failure.file()), output.named(failure.what()),
                      failure.offset());
    }
    output.commit();
    notes.print(report);
    return exitCodeOf(report.state);
}

std::unique_ptr<Conversion> makeConversion(ConvertVerb& verb, ToolProgress& progress) {
    verb.fromExr.crop = verb.toExr.crop = verb.crop;
    verb.fromExr.channels = verb.toExr.channels = verb.channels;
    if (verb.from == Format::kExr) {
        verb.fromExr.threads = verb.threads;
        verb.fromExr.progress = progress.callback();
        return MUtils::makeFromExr(verb.input, verb.fromExr);
    }
    verb.toExr.threads = verb.threads > 0 ? verb.threads : MUtils::getNumProcessors();
    verb.toExr.progress = progress.callback();
    Imf::setGlobalThreadCount(verb.toExr.threads);
    return MUtils::makeToExr(verb.input, verb.toExr);
}

ExitCode runConvert(const CLI::App& app, ConvertVerb& verb) {
    std::unique_ptr<Conversion> conversion;
    const auto print = [&](ExitCode code, const Failure* failure) {
        if (!verb.json) return;
        const ConvertReport report = conversion != nullptr ? conversion->report() : ConvertReport();
        printConvertJson(verb, report, code, failure);
    };
    ExitCode code = ExitCode::kGood;
    try {
        checkOptions(app, verb);
        ToolProgress progress("converting");
        conversion = makeConversion(verb, progress);
        code = convertInto(verb, *conversion, progress);
    } catch (const Failure& failure) {
        if (failure.code() != ExitCode::kUsage) print(failure.code(), &failure);
        throw;
    }
    print(code, nullptr);
    flushOutput();
    return code;
}

void addFromExrOptions(CLI::App& app, MUtils::FromExrOptions& options) {
    addSizeOption(app, "--bucket", options.bucketWidth, options.bucketHeight, "bucket size in pixels")
        ->default_str("64x64")
        ->group(kFromExr);
    app.add_option("--level", options.level, "compression of zlib, 1 (fast) to 9 (small)")
        ->check(CLI::Range(1, MUtils::kCompressionLevel))
        ->capture_default_str()
        ->group(kFromExr);
    addChoice(
        app, "--compression-speed",
        {{"small", Compression::kSmall}, {"balanced", Compression::kBalanced}, {"fast", Compression::kFast}},
        options.compression,
        "what compresses: small is zlib at --level, the others take less time for larger files. "
        "Default: small")
        ->group(kFromExr);
    addChoice(app, "--frame",
              {{"display", FrameChoice::kDisplayWindow},
               {"data", FrameChoice::kDataWindow},
               {"union", FrameChoice::kUnion}},
              options.frame,
              "the window that becomes the frame: that of the display, of the data (of all parts), or both "
              "together. Default: display")
        ->group(kFromExr);
    app.add_flag("--crop-overscan", options.cropOverscan,
                 "leave out pixels outside the frame, which are code 6 otherwise")
        ->group(kFromExr);
}

// Sets as many numbers as there are, negative or not, from a text such as "X,Y". Returns what is wrong with
// it, or "".
std::string parseNumbers(const std::string& text, const char* form, const std::vector<int*>& numbers) {
    const char* at = text.data();
    const char* const end = at + text.size();
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const auto read = std::from_chars(at, end, *numbers[i]);
        const bool isLast = i + 1 == numbers.size();
        const bool goesOn = read.ptr != end && *read.ptr == ',';
        if (read.ec != std::errc() || (isLast ? read.ptr != end : !goesOn))
            return "'" + text + "' is not " + form;
        at = read.ptr + (isLast ? 0 : 1);
    }
    return {};
}

std::string parseOrigin(const std::string& text, MUtils::ToExrOptions& options) {
    return parseNumbers(text, "two numbers, X,Y", {&options.originX, &options.originY});
}

std::string parseCrop(const std::string& text, std::optional<MUtils::PixelBox>& crop) {
    int x = 0, y = 0, width = 0, height = 0;
    const char* const form = "a box of pixels, X,Y,W,H";
    std::string wrong = parseNumbers(text, form, {&x, &y, &width, &height});
    if (!wrong.empty()) return wrong;
    if (width < 1 || height < 1) return "'" + text + "' has no pixels";
    crop = MUtils::boxAt(x, y, width, height);
    return {};
}

void addToExrOptions(CLI::App& app, MUtils::ToExrOptions& options) {
    addChoice(
        app, "--kind",
        {{"scanline", ExrFile::kScanline}, {"multipart", ExrFile::kMultiPart}, {"tiled", ExrFile::kTiled}},
        options.kind, "layout of the file. Default: scanline")
        ->group(kToExr);
    addChoice(app, "--bits", {{"16", 16}, {"32", 32}}, options.bits,
              "bits of a floating-point value. Default: 32, which loses nothing")
        ->group(kToExr);
    const std::map<std::string, int> compressions{{"none", 1}, {"rle", 2},   {"zips", 3}, {"zip", 4},
                                                  {"piz", 5},  {"pxr24", 6}, {"b44", 7},  {"b44a", 8},
                                                  {"dwaa", 9}, {"dwab", 10}};
    addChoice(app, "--compression", compressions, options.compression, "compression. Default: zips")
        ->group(kToExr);
    app.add_flag("--auto-data-window", options.autoDataWindow,
                 "data window around the pixels whose alpha is not 0; not for tiles")
        ->group(kToExr);
    app.add_option_function<std::string>(
           "--origin", [&options](const std::string& text) { parseOrigin(text, options); },
           "where the display window begins; the data window moves with it. Default: 0,0")
        ->type_name("X,Y")
        ->check([](const std::string& text) {
            MUtils::ToExrOptions checked;
            return parseOrigin(text, checked);
        })
        ->group(kToExr);
    app.add_option("--attributes-from", options.attributesFrom,
                   "OpenEXR file whose attributes go along, those of its pixels and of the raw image's own "
                   "tags aside")
        ->type_name("FILE.exr")
        ->group(kToExr);
    app.add_option("--attributes", options.attributes, "more header attributes: \"name=value; name=value\"")
        ->type_name("TEXT")
        ->group(kToExr);
}

}  // namespace

void addConvertVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<ConvertVerb>();
    CLI::App* verb = app.add_subcommand(
        "convert",
        "Turn an OpenEXR file into a raw image, bucket by bucket, or a raw image into an OpenEXR file");
    verb->add_option("IN", options->input, "OpenEXR file (scan-line, tiled or multi-part), or raw image")
        ->required();
    verb->add_option("OUT", options->output, "file to write; an existing one is replaced")->required();
    verb->add_option("-j,--threads", options->threads,
                     "Threads that compress, and to OpenEXR decompress. Default: one for each processor")
        ->check(CLI::Range(1, 1024));
    addChoice(
        *verb, "--to", {{"exr", Format::kExr}, {"raw", Format::kRaw}}, options->to,
        "Format of OUT, raw or exr. Default: by its ending, .rimg or .exr, else the other one than IN's");
    verb->add_flag("--strict", options->strict,
                   "Fail with code 6, before anything is written, if OUT would lack anything of IN");
    verb->add_flag("--json", options->json, "Print what was done and lost as a JSON object");
    verb->add_option_function<std::string>(
            "--crop", [options](const std::string& text) { parseCrop(text, options->crop); },
            "only these pixels of the frame, whose size stays: the data window, or the render region")
        ->type_name("X,Y,W,H")
        ->check([](const std::string& text) {
            std::optional<MUtils::PixelBox> checked;
            return parseCrop(text, checked);
        });
    addListOption(*verb, "--channels", options->channels, "GLOB,...",
                  "only channels that one of these patterns fits");
    addFromExrOptions(*verb, options->fromExr);
    addToExrOptions(*verb, options->toExr);
    verb->callback([verb, options, &result] {
        if (options->fromExr.compression != Compression::kSmall && verb->count("--level") > 0)
            throw Failure(ExitCode::kUsage, "", "--level is for --compression-speed small");
        if (options->toExr.autoDataWindow && options->toExr.kind == ExrFile::kTiled)
            throw Failure(ExitCode::kUsage, "", "--auto-data-window is not for tiled files");
        result = runConvert(*verb, *options);
    });
}

}  // namespace rimg
