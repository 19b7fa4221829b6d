// A small renderer that writes its frame as a production renderer would: bucket by bucket, as they are
// finished, with all its channels and the frame's metadata. It goes on with a frame that was interrupted.

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <system_error>

#include "examples/render_frame/options.h"
#include "examples/render_frame/output.h"
#include "examples/render_frame/render_pool.h"
#include "examples/render_frame/resume.h"
#include "support/files.h"
#include "support/rd_preview.h"

namespace render_frame {

namespace {

std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");

extern "C" void onSignal(int) {
    stopRequested = true;
}

// The first signal ends the frame in good order, a second one ends the program. Signals that were ignored
// when the program started stay ignored. A file that may not grow is an error of its writer.
void catchSignals() {
    std::signal(SIGXFSZ, SIG_IGN);
    for (const int number : {SIGINT, SIGTERM}) {
        struct sigaction before {};
        sigaction(number, nullptr, &before);
        if (before.sa_handler == SIG_IGN) continue;
        struct sigaction action {};
        action.sa_handler = onSignal;
        action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
        sigaction(number, &action, nullptr);
    }
}

unsigned char toSrgbByte(float linear) {
    const float encoded = MUtils::srgbFromLinear(std::clamp(linear, 0.0f, 1.0f));
    return static_cast<unsigned char>(std::lround(encoded * 255));
}

// Renders the frame small and fast. False when it was stopped.
bool makeThumbnail(const Scene& scene, FrameInfo& info) {
    constexpr int kLongSide = 160;
    RenderSettings small = info.render;
    small.samples = 8;
    const int longSide = std::max(small.width, small.height);
    small.width = std::max(1, small.width * kLongSide / longSide);
    small.height = std::max(1, small.height * kLongSide / longSide);
    BucketPixels pixels;
    if (!Tracer(scene, small).render({0, small.width, 0, small.height}, pixels, stopRequested)) return false;
    for (size_t i = 0; i < pixels.color.size(); i += 3)
        info.thumbnail.push_back(
            {toSrgbByte(pixels.color[i]), toSrgbByte(pixels.color[i + 1]), toSrgbByte(pixels.color[i + 2])});
    info.thumbnailWidth = small.width;
    info.thumbnailHeight = small.height;
    return true;
}

// A line on a terminal that shows how far the frame is; nothing anywhere else.
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

// Renders the tasks and writes each; `written` counts them. Gives what FrameOutputs gives. With queues the
// threads that render call the outputs; without, this one does, so that none of them waits for the files.
std::string renderTasks(const Tracer& tracer, const std::vector<BucketTask>& tasks, const Options& options,
                        FrameOutputs& outputs, size_t& written) {
    std::vector<Bucket> buckets;
    for (const BucketTask& task : tasks)
        buckets.push_back(task.bucket);
    const Progress progress(tasks.size());
    std::string error;
    const auto write = [&](const BucketPixels& pixels) {
        error = outputs.write(pixels, tasks[written].channels);
        if (error.empty()) progress.show(++written);
        return error.empty();
    };
    if (options.noQueue) {
        RenderPool pool(tracer, buckets, options.threads, stopRequested);
        for (const BucketPixels* pixels = pool.next(); pixels != nullptr && write(*pixels);)
            pixels = pool.next();
    } else {
        RenderPool pool(tracer, buckets, options.threads, stopRequested, write);
        pool.wait();
    }
    return error;
}

FrameInfo frameInfo(const Options& options, const Scene& scene) {
    FrameInfo info;
    info.render = {options.size.width, options.size.height, options.samples, options.seed, options.frame};
    info.area = options.area();
    info.bucketWidth = options.bucket.width;
    info.bucketHeight = options.bucket.height;
    info.camera = scene.camera;
    return info;
}

std::vector<Bucket> bucketsOf(const Options& options) {
    const Size &size = options.size, &bucket = options.bucket;
    return clipTo(options.area(), spiralOrder(size.width, size.height, bucket.width, bucket.height));
}

// The folder of the default output; one that the user names must be there.
void makeDefaultFolder(const Options& options) {
    if (options.has("--output") || options.resumes()) return;
    std::error_code ignored;  // Create reports what is wrong with the path
    for (const std::string& path : options.outputs)
        std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
}

// How to get the rest of a frame that is not whole.
std::string hintFor(const std::vector<OutputSpec>& specs) {
    std::string hint;
    for (const OutputSpec& spec : specs) {
        if (spec.kind == FileKind::kRaw) hint += "; to go on: render_frame --resume " + spec.path;
    }
    return hint;
}

// Renders the tasks into the outputs, which have been started, and finishes them. `all` counts the buckets of
// the frame.
void renderInto(FrameOutputs& outputs, const std::vector<BucketTask>& tasks, size_t all,
                const Options& options, const Scene& scene) {
    const Tracer tracer(scene, frameInfo(options, scene).render);
    size_t written = 0;
    std::string error = renderTasks(tracer, tasks, options, outputs, written);
    std::vector<Bucket> missing;
    for (size_t i = written; i < tasks.size(); ++i)
        missing.push_back(tasks[i].bucket);
    if (error.empty()) error = outputs.finish(missing);
    if (!error.empty()) throw Failure(ExitCode::kFailure, error);
    if (missing.empty()) return;
    throw Failure(ExitCode::kStopped, "stopped: the frame has " + std::to_string(all - missing.size()) +
                                          " of " + std::to_string(all) + " buckets" +
                                          hintFor(outputSpecs(options)));
}

void renderFrame(const Options& options) {
    const Scene scene = Scene::demo(options.frame);
    FrameInfo info = frameInfo(options, scene);
    if (options.thumbnail && !makeThumbnail(scene, info))
        throw Failure(ExitCode::kStopped, "stopped before anything was written");
    const std::vector<OutputSpec> specs = outputSpecs(options);
    makeDefaultFolder(options);
    FrameOutputs outputs(info, specs);
    if (const std::string error = outputs.start(); !error.empty()) throw Failure(ExitCode::kFailure, error);
    std::vector<BucketTask> tasks;
    for (const Bucket& bucket : bucketsOf(options))
        tasks.push_back({bucket});
    renderInto(outputs, tasks, tasks.size(), options, scene);
    for (const OutputSpec& spec : specs)
        std::printf("%s\n", spec.path.c_str());
}

void resumeFrame(Options options) {
    if (!examineFile(options, stopRequested)) {
        std::fprintf(stderr, "render_frame: %s: complete, nothing is left to render\n",
                     options.resume.c_str());
    } else {
        cutEnd(options.resume);
        const Scene scene = Scene::demo(options.frame);
        FrameOutputs outputs(frameInfo(options, scene), outputSpecs(options));
        if (const std::string error = outputs.resume(); !error.empty())
            throw Failure(ExitCode::kFailure, error);
        const std::vector<Bucket> buckets = bucketsOf(options);
        bool more = false;
        const std::vector<BucketTask> tasks = missingTasks(options, buckets, more);
        renderInto(outputs, tasks, buckets.size(), options, scene);
        if (more) {
            throw Failure(ExitCode::kFailure, options.resume + ": not all of its many holes are filled yet" +
                                                  hintFor(outputSpecs(options)));
        }
    }
    std::printf("%s\n", options.resume.c_str());
}

// What another writer has at this moment, a machine that lost its connection to the farm say, is left to it.
void resumeOrStart(const Options& options) {
    const char* const path = options.resume.c_str();
    const auto taken = [](const std::string& cause) {
        return Failure(ExitCode::kStopped, cause + "; try again later");
    };
    if (MUtils::isBeingWritten(path)) throw taken(options.resume + ": another writer has it open");
    try {
        hasBegun(options.resume) ? resumeFrame(options) : renderFrame(options);
    } catch (const Failure& failure) {
        // One that came meanwhile.
        if (failure.code() != ExitCode::kStopped && MUtils::isBeingWritten(path)) throw taken(failure.what());
        throw;
    }
}

ExitCode fail(ExitCode code, const char* text) {
    std::fprintf(stderr, "render_frame: %s\n", text);
    return code;
}

ExitCode render(int argc, char** argv) {
    Options options;
    if (const auto code = parseOptions(argc, argv, options)) return *code;
    try {
        if (options.has("--resume-or-start")) {
            resumeOrStart(options);
        } else {
            options.has("--resume") ? resumeFrame(options) : renderFrame(options);
        }
        return ExitCode::kGood;
    } catch (const Failure& failure) {
        return fail(failure.code(), failure.what());
    } catch (const std::exception& error) {
        return fail(ExitCode::kFailure, error.what());
    }
}

ExitCode runProgram(int argc, char** argv) {
    catchSignals();
    const ExitCode code = render(argc, argv);
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return code;
    const std::string cause = "standard output: " + std::generic_category().message(errno);
    return fail(code == ExitCode::kGood ? ExitCode::kFailure : code, cause.c_str());
}

}  // namespace

}  // namespace render_frame

int main(int argc, char** argv) {
    return static_cast<int>(render_frame::runProgram(argc, argv));
}
