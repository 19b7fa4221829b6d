#include "examples/render_frame/options.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <istream>
#include <map>

namespace render_frame {

namespace {

constexpr int kMaxSide = 1 << 16;
constexpr int kMaxSamples = 1 << 16;
constexpr int kMaxFrame = 1000000;
constexpr int64_t kMaxBucketPixels = 1 << 26;  // whose largest channel stays below 2^31 bytes
constexpr int64_t kMaxBuckets = 1 << 22;
constexpr int64_t kMaxWholePixels = (int64_t{1} << 27) - 1;  // likewise, of a frame in one piece

bool isSide(int side) {
    return side >= 1 && side <= kMaxSide;
}

const std::map<std::string, FileKind> kKinds{{"raw", FileKind::kRaw},
                                             {"scanline", FileKind::kScanline},
                                             {"multipart", FileKind::kMultiPart},
                                             {"tiled", FileKind::kTiled}};
const std::map<std::string, int> kCompressions{{"none", 1}, {"rle", 2},   {"zips", 3}, {"zip", 4},
                                               {"piz", 5},  {"pxr24", 6}, {"b44", 7},  {"b44a", 8},
                                               {"dwaa", 9}, {"dwab", 10}};

const std::map<std::string, MUtils::Compression> kSpeeds{{"small", MUtils::Compression::kSmall},
                                                         {"balanced", MUtils::Compression::kBalanced},
                                                         {"fast", MUtils::Compression::kFast}};

void declareOutput(CLI::App& app, Options& options) {
    app.add_option("--output", options.outputs,
                   "file to write, may repeat: X.exr, X.multipart.exr and X.tiled.exr are OpenEXR files, any "
                   "other is a raw image")
        ->type_name("PATH")
        ->capture_default_str();
    app.add_option("--kind", options.kind, "kind of the files, whatever their names")
        ->check(CLI::IsMember(kKinds));
    app.add_option("--bits", options.bits, "bits of OpenEXR's floating-point values")
        ->check(CLI::IsMember({16, 32}))
        ->capture_default_str();
    app.add_option("--compression", options.compression, "compression of OpenEXR files")
        ->check(CLI::IsMember(kCompressions))
        ->capture_default_str();
    app.add_flag("--thumbnail", options.thumbnail, "store a preview picture too");
    app.add_flag("--no-queue", options.noQueue,
                 "one thread writes the buckets and waits for it, instead of handing them to a queue");
    app.add_option("--level", options.level, "compression of raw images by zlib, 1 (fast) to 9 (small)")
        ->check(CLI::Range(1, MUtils::kCompressionLevel))
        ->capture_default_str();
    app.add_option("--compression-speed", options.compressionSpeed,
                   "what compresses raw images: small is zlib at --level, the others take less time")
        ->check(CLI::IsMember(kSpeeds))
        ->capture_default_str();
}

void declareFrame(CLI::App& app, Options& options) {
    app.add_option("--size", options.size, "frame in pixels (640x360)")->type_name("WxH");
    app.add_option("--bucket", options.bucket, "bucket in pixels (64x64)")->type_name("WxH");
    app.add_option(
           "--region", options.region,
           "render these pixels of the frame only, for raw images: the first pixel, and the first to the "
           "right of and below them")
        ->type_name("X0,Y0,X1,Y1");
    app.add_option("--frame", options.frame, "of a shot in which the camera moves")
        ->check(CLI::Range(-kMaxFrame, kMaxFrame))
        ->capture_default_str();
    app.add_option("--samples", options.samples, "paths for each pixel")
        ->check(CLI::Range(1, kMaxSamples))
        ->capture_default_str();
    app.add_option("--seed", options.seed, "start of the random numbers")->capture_default_str();
    app.add_option("-j,--threads", options.threads,
                   "threads that render, and as many that compress raw images")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
}

void declareResume(CLI::App& app, Options& options) {
    CLI::Option* resume =
        app.add_option("--resume", options.resume,
                       "raw image whose render was interrupted: renders what is missing and adds it. Size, "
                       "bucket, region, frame, samples and seed are the file's; when given, they must agree "
                       "with it")
            ->type_name("PATH");
    CLI::Option* either =
        app.add_option(
               "--resume-or-start", options.resume,
               "the same, and starts the file when it is not there or has no bucket yet. While another "
               "writer has it the code is 75")
            ->type_name("PATH");
    resume->excludes(either);
    for (const char* other : {"--output", "--kind", "--bits", "--compression"}) {
        resume->excludes(other);
        either->excludes(other);
    }
    resume->excludes("--thumbnail");  // a file was begun with it, or not
}

std::string faultOf(const Options& options) {
    if (std::string fault = faultOfFrame(options.size, options.bucket, options.samples); !fault.empty())
        return fault;
    if (std::string fault = faultOfArea(options.area(), options.size);
        !fault.empty() && !options.has("--resume"))
        return fault;
    bool raw = false;
    for (const OutputSpec& spec : outputSpecs(options)) {
        const bool whole = spec.kind == FileKind::kScanline || spec.kind == FileKind::kMultiPart;
        if (whole && int64_t{options.size.width} * options.size.height > kMaxWholePixels)
            return "the frame is too large for one piece: " + spec.path;
        if (options.region && spec.kind != FileKind::kRaw) return "--region is for raw images: " + spec.path;
        raw = raw || spec.kind == FileKind::kRaw;
    }
    for (const char* option : {"--level", "--compression-speed"}) {
        if (!raw && options.has(option))
            return option + std::string(" is for raw images, and none is written");
    }
    if (options.has("--level") && options.compressionSpeed != "small")
        return "--level is for --compression-speed small";
    return "";
}

FileKind kindOf(const std::string& path) {
    const auto endsWith = [&path](const std::string& end) {
        return path.size() >= end.size() && path.compare(path.size() - end.size(), end.size(), end) == 0;
    };
    if (endsWith(".multipart.exr")) return FileKind::kMultiPart;
    if (endsWith(".tiled.exr")) return FileKind::kTiled;
    return endsWith(".exr") ? FileKind::kScanline : FileKind::kRaw;
}

}  // namespace

// "640x360". CLI11 reads the options with it.
std::istream& operator>>(std::istream& in, Size& size) {
    char x = 0;
    in >> size.width >> x >> size.height;
    if (x != 'x' || !isSide(size.width) || !isSide(size.height)) in.setstate(std::ios::failbit);
    return in;
}

// "0,64,128,96", for CLI11.
std::istream& operator>>(std::istream& in, Bucket& box) {
    char a = 0, b = 0, c = 0;
    in >> box.x0 >> a >> box.y0 >> b >> box.x1 >> c >> box.y1;
    if (a != ',' || b != ',' || c != ',') in.setstate(std::ios::failbit);
    return in;
}

std::optional<ExitCode> parseOptions(int argc, char** argv, Options& options) {
    CLI::App app(
        "Path-traces a few spheres and writes the frame, channel by channel, as a raw image or an OpenEXR "
        "file.",
        "render_frame");
    app.footer(
        "Stopped by Ctrl-C, it ends with code 75 and leaves files that can be read. A raw image that was "
        "stopped, killed or cut short is finished by --resume. Exit codes: 0 good, 1 failure, 2 usage, 75 "
        "stopped or, of --resume-or-start, another writer has the file; of --resume also 4 damaged, 5 not "
        "readable, 6 another frame.");
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string("render_frame: ") + error.what() + " (--help tells more)\n";
    });
    declareOutput(app, options);
    declareFrame(app, options);
    declareResume(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? ExitCode::kGood : ExitCode::kUsage;
    }
    for (const CLI::Option* option : app.get_options()) {
        if (option->count() > 0) options.given.insert(option->get_name());
    }
    const std::string fault = faultOf(options);
    if (fault.empty()) return {};
    std::fprintf(stderr, "render_frame: %s\n", fault.c_str());
    return ExitCode::kUsage;
}

std::vector<OutputSpec> outputSpecs(const Options& options) {
    const MUtils::Compression speed = kSpeeds.at(options.compressionSpeed);
    const int compression = kCompressions.at(options.compression);
    const auto spec = [&](const std::string& path, FileKind kind) {
        return OutputSpec{path,         kind,        speed,           options.level, options.threads,
                          options.bits, compression, !options.noQueue};
    };
    if (options.resumes()) return {spec(options.resume, FileKind::kRaw)};
    std::vector<OutputSpec> specs;
    for (const std::string& path : options.outputs)
        specs.push_back(spec(path, options.kind.empty() ? kindOf(path) : kKinds.at(options.kind)));
    return specs;
}

std::string faultOfFrame(const Size& size, const Size& bucket, int samples) {
    if (!isSide(size.width) || !isSide(size.height)) return "the frame has no size that can be rendered";
    if (!isSide(bucket.width) || !isSide(bucket.height))
        return "the buckets have no size that can be rendered";
    if (samples < 1 || samples > kMaxSamples) return "the number of samples cannot be rendered";
    const int64_t width = std::min(size.width, bucket.width);
    const int64_t height = std::min(size.height, bucket.height);
    if (width * height > kMaxBucketPixels) return "buckets are too large; take a smaller --bucket";
    const int64_t columns = (size.width - 1) / width + 1;
    const int64_t rows = (size.height - 1) / height + 1;
    return columns * rows > kMaxBuckets ? "too many buckets; take a larger --bucket" : "";
}

std::string faultOfArea(const Bucket& area, const Size& size) {
    const bool inside = area.x0 >= 0 && area.y0 >= 0 && area.x1 <= size.width && area.y1 <= size.height;
    return inside && !area.empty() ? "" : "--region has pixels in the frame only, and at least one";
}

}  // namespace render_frame
