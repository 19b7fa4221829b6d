#include "cli/convert.h"

#include <strings.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "cli/convert_log.h"
#include "cli/output_file.h"
#include "cli/report.h"
#include "cli/size_option.h"
#include "cli/verbs.h"
#include "exr/exr_file.h"
#include "rawimage/writer.h"
#include "support/pstream.h"

namespace rimg {

namespace {

enum class Format { kOther, kExr, kRaw };

// By the file's content; its name tells nothing.
Format formatOf(const std::string& path) {
    constexpr unsigned char kExrMagic[4] = {0x76, 0x2f, 0x31, 0x01};
    PFileStream stream;
    unsigned char magic[4] = {};
    int got = 0;
    int code = stream.Open(path.c_str(), PFileStream::kRead, 1, PFileStream::kOpenExisting);
    if (code == 0) code = stream.Read(magic, sizeof magic, got);
    if (code != 0) throw Failure(ExitCode::kUnreadable, path, systemMessage(code));
    if (got == sizeof magic && std::memcmp(magic, kExrMagic, sizeof magic) == 0) return Format::kExr;
    return RIFile::isRIFile(path.c_str()) ? Format::kRaw : Format::kOther;
}

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

// What the ending of the output's name stands for.
Format endingOf(const std::string& path) {
    const std::string ending = std::filesystem::path(path).extension().string();
    if (strcasecmp(ending.c_str(), ".exr") == 0) return Format::kExr;
    return strcasecmp(ending.c_str(), ".rimg") == 0 ? Format::kRaw : Format::kOther;
}

// The output's format, by --to and by its name. Where neither says anything it is the other one.
void checkWanted(Format input, Format to, const ConvertOptions& options) {
    const Format ending = endingOf(options.output);
    if (to != Format::kOther && ending != Format::kOther && to != ending) {
        throw Failure(ExitCode::kUsage, options.output,
                      std::string("--to asks for ") + nameOf(to) + ", the name is that of " + nameOf(ending));
    }
    const Format wanted = to != Format::kOther ? to : ending;
    if (wanted != input) return;
    throw Failure(ExitCode::kUsage, options.output,
                  std::string("nothing to convert: ") + options.input + " is " + nameOf(input) + " already");
}

// Refuses what cannot be meant, and answers the input's format.
Format checkedFormat(const CLI::App& verb, Format to, const ConvertOptions& options) {
    const Format format = formatOf(options.input);
    OutputFile::refuseInputs(options.output, {options.input, options.attributesFrom});
    if (format == Format::kOther)
        throw Failure(ExitCode::kUnreadable, options.input, "neither an OpenEXR file nor a raw image");
    checkWanted(format, to, options);
    const bool toExr = format == Format::kRaw;
    refuseOptions(verb, toExr ? kFromExr : kToExr, toExr ? "OpenEXR files as input" : "raw images as input");
    return format;
}

ExitCode convertTelling(const CLI::App& verb, Format to, const ConvertOptions& options) {
    ConvertLog log(options);
    try {
        const bool toExr = checkedFormat(verb, to, options) == Format::kRaw;
        log.setDirection(toExr ? "exr" : "raw");
        const ExitCode code = toExr ? convertToExr(options, log) : convertFromExr(options, log);
        if (options.json) log.print(code, nullptr);
        return code;
    } catch (const Failure& failure) {
        if (options.json && failure.code() != ExitCode::kUsage) {
            log.print(failure.code(), &failure);
        }
        throw;
    }
}

ExitCode convert(const CLI::App& verb, Format to, const ConvertOptions& options) {
    const ExitCode code = convertTelling(verb, to, options);
    flushOutput();
    return code;
}

void addFromExrOptions(CLI::App& verb, ConvertOptions& options, std::string& bucket) {
    verb.add_option("--bucket", bucket, "bucket size in pixels")
        ->type_name("WxH")
        ->check(checkSize)
        ->capture_default_str()
        ->group(kFromExr);
    verb.add_option("--level", options.level, "compression, 1 (fast) to 9 (small)")
        ->check(CLI::Range(1, kCompressionLevel))
        ->capture_default_str()
        ->group(kFromExr);
    static const std::map<std::string, FrameChoice> kFrames{{"display", FrameChoice::kDisplayWindow},
                                                            {"data", FrameChoice::kDataWindow},
                                                            {"union", FrameChoice::kUnion}};
    verb.add_option_function<std::string>(
            "--frame", [&options](const std::string& name) { options.frame = kFrames.at(name); },
            "the window that becomes the frame: that of the display, of the data (of all parts), or both "
            "together. Default: display")
        ->type_name("NAME")
        ->check(CLI::IsMember(kFrames))
        ->group(kFromExr);
    verb.add_flag("--crop-overscan", options.cropOverscan,
                  "leave out pixels outside the frame, which are code 6 otherwise")
        ->group(kFromExr);
}

// "X,Y", either of them negative or not.
std::string parseOrigin(const std::string& text, ConvertOptions& options) {
    const char* const end = text.data() + text.size();
    const auto x = std::from_chars(text.data(), end, options.originX);
    if (x.ec == std::errc() && x.ptr != end && *x.ptr == ',') {
        const auto y = std::from_chars(x.ptr + 1, end, options.originY);
        if (y.ec == std::errc() && y.ptr == end) return {};
    }
    return "'" + text + "' is not two numbers, X,Y";
}

// CLI11's transformers tell numbers where it is to tell names, so the names are looked up here.
template <class Names>
void addChoice(CLI::App& verb, const std::string& name, const Names& names, int& value,
               const std::string& standard, const std::string& help) {
    verb.add_option_function<std::string>(
            name, [&names, &value](const std::string& chosen) { value = names.at(chosen); },
            help + ". Default: " + standard)
        ->type_name("NAME")
        ->check(CLI::IsMember(names))
        ->group(kToExr);
}

void addToExrOptions(CLI::App& verb, ConvertOptions& options) {
    static const std::map<std::string, int> kKinds{
        {"scanline", ExrFile::kScanline}, {"multipart", ExrFile::kMultiPart}, {"tiled", ExrFile::kTiled}};
    static const std::map<std::string, int> kBits{{"16", 16}, {"32", 32}};
    static const std::map<std::string, int> kCompressions{{"none", 1}, {"rle", 2},   {"zips", 3}, {"zip", 4},
                                                          {"piz", 5},  {"pxr24", 6}, {"b44", 7},  {"b44a", 8},
                                                          {"dwaa", 9}, {"dwab", 10}};
    addChoice(verb, "--kind", kKinds, options.kind, "scanline", "layout of the file");
    addChoice(verb, "--bits", kBits, options.bits, "32, which loses nothing",
              "bits of a floating-point value");
    addChoice(verb, "--compression", kCompressions, options.compression, "zips", "compression");
    verb.add_flag("--auto-data-window", options.autoDataWindow,
                  "data window around the pixels whose alpha is not 0; not for tiles")
        ->group(kToExr);
    verb.add_option_function<std::string>(
            "--origin", [&options](const std::string& text) { parseOrigin(text, options); },
            "where the display window begins; the data window moves with it. Default: 0,0")
        ->type_name("X,Y")
        ->check([](const std::string& text) {
            ConvertOptions checked;
            return parseOrigin(text, checked);
        })
        ->group(kToExr);
    verb.add_option("--attributes-from", options.attributesFrom,
                    "OpenEXR file whose attributes go along, those of its pixels and of the raw image's own "
                    "tags aside")
        ->type_name("FILE.exr")
        ->group(kToExr);
    verb.add_option("--attributes", options.attributes, "more header attributes: \"name=value; name=value\"")
        ->type_name("TEXT")
        ->group(kToExr);
    verb.add_option("--channels", options.channels, "only channels that one of these patterns fits")
        ->type_name("GLOB,...")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->group(kToExr);
}

}  // namespace

void addConvertVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<ConvertOptions>();
    auto bucket = std::make_shared<std::string>("64x64");
    auto to = std::make_shared<Format>(Format::kOther);
    CLI::App* verb = app.add_subcommand(
        "convert",
        "Turn an OpenEXR file into a raw image, bucket by bucket, or a raw image into an OpenEXR file");
    verb->add_option("IN", options->input, "OpenEXR file (scan-line, tiled or multi-part), or raw image")
        ->required();
    verb->add_option("OUT", options->output, "file to write; an existing one is replaced")->required();
    verb->add_option("-j,--threads", options->threads,
                     "Threads that compress, and to OpenEXR decompress. Default: one for each processor")
        ->check(CLI::Range(1, 1024));
    static const std::map<std::string, Format> kFormats{{"exr", Format::kExr}, {"raw", Format::kRaw}};
    verb->add_option_function<std::string>(
            "--to", [to](const std::string& name) { *to = kFormats.at(name); },
            "Format of OUT, raw or exr. Default: by its ending, .rimg or .exr, else the other one than IN's")
        ->type_name("NAME")
        ->check(CLI::IsMember(kFormats));
    verb->add_flag("--strict", options->strict,
                   "Fail with code 6, before anything is written, if OUT would lack anything of IN");
    verb->add_flag("--json", options->json, "Print what was done and lost as a JSON object");
    addFromExrOptions(*verb, *options, *bucket);
    addToExrOptions(*verb, *options);
    verb->callback([verb, options, bucket, to, &result] {
        if (options->autoDataWindow && options->kind == ExrFile::kTiled)
            throw Failure(ExitCode::kUsage, "", "--auto-data-window is not for tiled files");
        options->bucket = parseSize(*bucket);
        result = convert(*verb, *to, *options);
    });
}

}  // namespace rimg
