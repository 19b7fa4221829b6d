#include "cli/convert.h"

#include <CLI/CLI.hpp>
#include <cstring>
#include <memory>
#include <string>

#include "cli/files.h"
#include "cli/report.h"
#include "cli/size_option.h"
#include "cli/verbs.h"
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

ExitCode convert(const ConvertOptions& options) {
    const Format format = formatOf(options.input);
    if (sameFile(options.input, options.output)) {
        throw Failure(ExitCode::kUsage, options.output, "input and output are the same file");
    }
    switch (format) {
        case Format::kExr: return convertFromExr(options);
        case Format::kRaw:
            throw Failure(ExitCode::kFailure, options.input, "raw images cannot be converted to OpenEXR yet");
        default:
            throw Failure(ExitCode::kUnreadable, options.input, "neither an OpenEXR file nor a raw image");
    }
}

}  // namespace

void addConvertVerb(CLI::App& app, ExitCode& result) {
    auto options = std::make_shared<ConvertOptions>();
    CLI::App* verb = app.add_subcommand("convert", "Turn an OpenEXR file into a raw image, bucket by bucket");
    verb->add_option("IN", options->input, "OpenEXR file: scan-line, tiled or multi-part")->required();
    verb->add_option("OUT", options->output, "raw image to write; an existing file is replaced")->required();
    auto bucket = std::make_shared<std::string>("64x64");
    verb->add_option("--bucket", *bucket, "bucket size in pixels")
        ->type_name("WxH")
        ->check(checkSize)
        ->capture_default_str();
    verb->callback([options, bucket, &result] {
        options->bucket = parseSize(*bucket);
        result = convert(*options);
    });
}

}  // namespace rimg
