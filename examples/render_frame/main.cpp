// A small renderer that writes its frame as a production renderer would: bucket by bucket, as they are
// finished, with all its channels and the frame's metadata.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <istream>
#include <map>
#include <string>
#include <thread>

#include "examples/render_frame/output.h"
#include "examples/render_frame/render_pool.h"

namespace render_frame {

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitSignal = 128;  // plus the signal's number
constexpr int kMaxSide = 1 << 16;
constexpr int64_t kMaxBucketPixels = 1 << 26;  // whose largest channel stays below 2^31 bytes
constexpr int64_t kMaxBuckets = 1 << 22;
constexpr int64_t kMaxWholePixels = (int64_t{1} << 27) - 1;  // likewise, of a frame in one piece

std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");
volatile std::sig_atomic_t stopSignal = 0;

extern "C" void onSignal(int number) {
    stopSignal = number;
    stopRequested = true;
}

// The first signal ends the frame in good order, a second one ends the program.
void catchSignals() {
    struct sigaction action {};
    action.sa_handler = onSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

struct Size {
    int width = 0;
    int height = 0;
};

// "640x360", each side 1 to kMaxSide.
std::istream& operator>>(std::istream& in, Size& size) {
    char x = 0;
    in >> size.width >> x >> size.height;
    const auto good = [](int side) { return side >= 1 && side <= kMaxSide; };
    if (x != 'x' || !good(size.width) || !good(size.height)) in.setstate(std::ios::failbit);
    return in;
}

struct Options {
    std::vector<std::string> outputs{"out/frame.rimg"};
    std::string kind;
    int bits = 32;
    std::string compression = "zips";
    Size size{640, 360};
    Size bucket{64, 64};
    int samples = RenderSettings{}.samples;
    int threads = static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 256u));
    bool thumbnail = false;
    uint64_t seed = RenderSettings{}.seed;
};

const std::map<std::string, FileKind> kKinds{{"raw", FileKind::kRaw},
                                             {"scanline", FileKind::kScanline},
                                             {"multipart", FileKind::kMultiPart},
                                             {"tiled", FileKind::kTiled}};
const std::map<std::string, int> kCompressions{{"none", 1}, {"rle", 2},   {"zips", 3}, {"zip", 4},
                                               {"piz", 5},  {"pxr24", 6}, {"b44", 7},  {"b44a", 8},
                                               {"dwaa", 9}, {"dwab", 10}};

void declare(CLI::App& app, Options& options) {
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
    app.add_option("--size", options.size, "frame in pixels (640x360)")->type_name("WxH");
    app.add_option("--bucket", options.bucket, "bucket in pixels (64x64)")->type_name("WxH");
    app.add_option("--samples", options.samples, "paths for each pixel")
        ->check(CLI::Range(1, 1 << 16))
        ->capture_default_str();
    app.add_option("--threads", options.threads, "rendering threads")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
    app.add_flag("--thumbnail", options.thumbnail, "store a preview picture too");
    app.add_option("--seed", options.seed, "start of the random numbers")->capture_default_str();
}

int fail(const std::string& text) {
    std::fprintf(stderr, "render_frame: %s\n", text.c_str());
    return kExitFailure;
}

unsigned char toSrgbByte(float linear) {
    const float v = std::clamp(linear, 0.0f, 1.0f);
    const float encoded = v <= 0.0031308f ? 12.92f * v : 1.055f * std::pow(v, 1 / 2.4f) - 0.055f;
    return static_cast<unsigned char>(std::lround(encoded * 255));
}

// Renders the frame small and fast.
void makeThumbnail(const Scene& scene, FrameInfo& info) {
    constexpr int kLongSide = 160;
    RenderSettings small = info.render;
    small.samples = 8;
    const int longSide = std::max(small.width, small.height);
    small.width = std::max(1, small.width * kLongSide / longSide);
    small.height = std::max(1, small.height * kLongSide / longSide);
    BucketPixels pixels;
    if (!Tracer(scene, small).render({0, small.width, 0, small.height}, pixels, stopRequested)) return;
    for (size_t i = 0; i < pixels.color.size(); i += 3)
        info.thumbnail.push_back(
            {toSrgbByte(pixels.color[i]), toSrgbByte(pixels.color[i + 1]), toSrgbByte(pixels.color[i + 2])});
    info.thumbnailWidth = small.width;
    info.thumbnailHeight = small.height;
}

// A line on a terminal that says how far the frame is; nothing anywhere else.
class Progress {
  public:
    explicit Progress(size_t total) : shown_(isatty(STDERR_FILENO) != 0), total_(total) {}
    ~Progress() {
        if (shown_) std::fputs("\r\33[K", stderr);
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(size_t done) const {
        if (shown_)
            std::fprintf(stderr, "\rrendering: %zu of %zu buckets (%zu %%)", done, total_,
                         done * 100 / total_);
    }

  private:
    const bool shown_;
    const size_t total_;
};

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

FileKind kindOf(const std::string& path) {
    if (endsWith(path, ".multipart.exr")) return FileKind::kMultiPart;
    if (endsWith(path, ".tiled.exr")) return FileKind::kTiled;
    return endsWith(path, ".exr") ? FileKind::kScanline : FileKind::kRaw;
}

std::vector<OutputSpec> outputSpecs(const Options& options) {
    std::vector<OutputSpec> specs;
    for (const std::string& path : options.outputs) {
        const FileKind kind = options.kind.empty() ? kindOf(path) : kKinds.at(options.kind);
        specs.push_back({path, kind, options.bits, kCompressions.at(options.compression)});
    }
    return specs;
}

// Renders the buckets and writes each; `written` counts them. Gives what FrameOutputs gives.
std::string renderBuckets(const Tracer& tracer, const std::vector<Bucket>& buckets, int threads,
                          FrameOutputs& outputs, size_t& written) {
    const Progress progress(buckets.size());
    RenderPool pool(tracer, buckets, threads, stopRequested);
    while (const BucketPixels* pixels = pool.next()) {
        if (std::string error = outputs.write(*pixels); !error.empty()) return error;
        progress.show(++written);
    }
    return "";
}

int renderFrame(const Options& options) {
    const Scene scene = Scene::demo();
    FrameInfo info;
    info.render = {options.size.width, options.size.height, options.samples, options.seed};
    info.bucketWidth = options.bucket.width;
    info.bucketHeight = options.bucket.height;
    info.camera = scene.camera;
    if (options.thumbnail) makeThumbnail(scene, info);

    for (const std::string& path : options.outputs) {
        const std::filesystem::path folder = std::filesystem::path(path).parent_path();
        std::error_code ignored;  // Create tells what is wrong with the path
        if (!folder.empty()) std::filesystem::create_directories(folder, ignored);
    }

    const Tracer tracer(scene, info.render);
    const std::vector<Bucket> buckets =
        spiralOrder(info.render.width, info.render.height, info.bucketWidth, info.bucketHeight);
    size_t written = 0;
    FrameOutputs outputs(info, outputSpecs(options));
    std::string error = outputs.start();
    if (error.empty()) error = renderBuckets(tracer, buckets, options.threads, outputs, written);
    if (error.empty())
        error = outputs.finish({buckets.begin() + static_cast<ptrdiff_t>(written), buckets.end()});
    if (!error.empty()) return fail(error);
    if (written < buckets.size()) {
        fail("stopped: the frame has " + std::to_string(written) + " of " + std::to_string(buckets.size()) +
             " buckets");
        return kExitSignal + stopSignal;
    }
    for (const std::string& path : options.outputs)
        std::printf("%s\n", path.c_str());
    return 0;
}

// What is wrong with the sizes taken together; empty when they are good.
std::string faultOf(const Options& options) {
    const int64_t width = std::min(options.size.width, options.bucket.width);
    const int64_t height = std::min(options.size.height, options.bucket.height);
    if (width * height > kMaxBucketPixels) return "buckets are too large; take a smaller --bucket";
    const int64_t columns = (options.size.width - 1) / width + 1;
    const int64_t rows = (options.size.height - 1) / height + 1;
    if (columns * rows > kMaxBuckets) return "too many buckets; take a larger --bucket";
    for (const OutputSpec& spec : outputSpecs(options)) {
        const bool whole = spec.kind == FileKind::kScanline || spec.kind == FileKind::kMultiPart;
        if (whole && int64_t{options.size.width} * options.size.height > kMaxWholePixels)
            return "the frame is too large for one piece: " + spec.path;
    }
    return "";
}

int runProgram(int argc, char** argv) {
    Options options;
    CLI::App app(
        "Path-traces a few spheres and writes the frame, channel by channel, as a raw image or an OpenEXR "
        "file.",
        "render_frame");
    declare(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kExitUsage;
    }
    if (const std::string fault = faultOf(options); !fault.empty()) {
        fail(fault);
        return kExitUsage;
    }
    catchSignals();
    try {
        return renderFrame(options);
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}

}  // namespace

}  // namespace render_frame

int main(int argc, char** argv) {
    return render_frame::runProgram(argc, argv);
}
