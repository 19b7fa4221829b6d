#include "cli/convert.h"

#include <CLI/CLI.hpp>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "cli/files.h"
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

ExitCode convert(const CLI::App& verb, const ConvertOptions& options) {
    const Format format = formatOf(options.input);
    if (sameFile(options.input, options.output)) {
        throw Failure(ExitCode::kUsage, options.output, "input and output are the same file");
    }
    switch (format) {
        case Format::kExr: refuseOptions(verb, kToExr, "raw images as input"); return convertFromExr(options);
        case Format::kRaw:
            refuseOptions(verb, kFromExr, "OpenEXR files as input");
            return convertToExr(options);
        default:
            throw Failure(ExitCode::kUnreadable, options.input, "neither an OpenEXR file nor a raw image");
    }
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
    CLI::App* verb = app.add_subcommand(
        "convert",
        "Turn an OpenEXR file into a raw image, bucket by bucket, or a raw image into an OpenEXR file");
    verb->add_option("IN", options->input, "OpenEXR file (scan-line, tiled or multi-part), or raw image")
        ->required();
    verb->add_option("OUT", options->output, "file to write; an existing one is replaced")->required();
    verb->add_option("-j,--threads", options->threads,
                     "Threads that compress, and to OpenEXR decompress. Default: one for each processor")
        ->check(CLI::Range(1, 1024));
    addFromExrOptions(*verb, *options, *bucket);
    addToExrOptions(*verb, *options);
    verb->callback([verb, options, bucket, &result] {
        if (options->autoDataWindow && options->kind == ExrFile::kTiled)
            throw Failure(ExitCode::kUsage, "", "--auto-data-window is not for tiled files");
        options->bucket = parseSize(*bucket);
        result = convert(*verb, *options);
    });
}

}  // namespace rimg
