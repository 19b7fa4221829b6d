#include <OpenEXR/ImfThreading.h>

#include "convert/from_exr/diff_files.h"
#include "convert/from_exr/from_exr.h"
#include "convert/to_exr/to_exr.h"
#include "python/native/arrays.h"
#include "python/native/bindings.h"
#include "python/native/work.h"
#include "rawimage/tools/hash.h"
#include "rawimage/tools/merge.h"
#include "rawimage/tools/note.h"
#include "rawimage/tools/picture.h"
#include "rawimage/tools/recover.h"
#include "rawimage/tools/resume.h"
#include "rawimage/tools/stats.h"
#include "rawimage/tools/verify.h"
#include "rawimage/writer.h"
#include "support/job_queue.h"
#include "support/new_file.h"
#include "support/safe_text.h"

namespace rawimage_python {

namespace {

using namespace MUtils;
using Names = std::vector<std::string>;

// Sets what all options have, and runs `tool` with them.
template <class Options, class Tool>
auto runTool(Options options, int threads, const py::object& progress, Tool tool) {
    Work work(progress);
    options.threads = threads;
    options.progress = work.progress();
    return work.run([&] { return tool(options); });
}

VerifyReport verify(const std::string& path, bool quick, int threads, const py::object& progress) {
    VerifyOptions options;
    options.quick = quick;
    return runTool(options, threads, progress,
                   [&](const VerifyOptions& o) { return verifyFile(path.c_str(), o); });
}

VerifyReport missing(const std::string& path, bool deep, int threads, const py::object& progress) {
    MissingOptions options;
    options.deep = deep;
    return runTool(options, threads, progress,
                   [&](const MissingOptions& o) { return missingPixels(path.c_str(), o); });
}

// "" for the output is in place.
RecoverReport recover(const std::string& path, const std::string& output, const std::string& like,
                      std::pair<int, int> size, int threads, const py::object& progress) {
    RecoverOptions options;
    options.like = like;
    std::tie(options.width, options.height) = size;
    return runTool(options, threads, progress, [&](const RecoverOptions& o) {
        return output.empty() ? recoverInPlace(path.c_str(), o)
                              : recoverFile(path.c_str(), output.c_str(), o);
    });
}

MergeReport merge(const Names& inputs, const std::string& output, int overlap, bool allowHoles, bool verified,
                  int threads, const py::object& progress) {
    MergeOptions options;
    options.overlap = static_cast<MergeOverlap>(overlap);
    options.allowHoles = allowHoles;
    options.verify = verified;
    return runTool(options, threads, progress,
                   [&](const MergeOptions& o) { return mergeFiles(inputs, output, o); });
}

StatsReport stats(const std::string& path, const Names& channels, int threads, const py::object& progress) {
    FrameToolOptions options;
    options.channels = channels;
    return runTool(options, threads, progress,
                   [&](const FrameToolOptions& o) { return statsOfFile(path.c_str(), o); });
}

HashReport hash(const std::string& path, const Names& channels, bool metadata, int threads,
                const py::object& progress) {
    HashOptions options;
    options.channels = channels;
    options.metadata = metadata;
    return runTool(options, threads, progress,
                   [&](const HashOptions& o) { return hashFile(path.c_str(), o); });
}

// A limit: value, percent and hard.
DiffLimits limitsOf(const std::array<double, 3>& numbers) {
    return {numbers[0], numbers[1], numbers[2]};
}

FileDiffReport diff(const std::string& a, const std::string& b, const Names& channels,
                    const std::array<double, 3>& fail, const std::array<double, 3>& warn, bool records,
                    bool throughExr, int threads, const py::object& progress) {
    DiffOptions options;
    options.channels = channels;
    options.fail = limitsOf(fail);
    options.warn = limitsOf(warn);
    options.records = records;
    options.throughExr = throughExr;
    return runTool(options, threads, progress, [&](const DiffOptions& o) { return diffFiles(a, b, o); });
}

const char* nameOf(PictureState state) {
    constexpr const char* kNames[] = {"good",       "cannot open", "not this format", "no frame",
                                      "no channel", "bad request", "stopped"};
    return kNames[static_cast<int>(state)];
}

// The state of the picture, the pixels, the state of the file, its cause and offset, faults, and the channels
// that the file has.
py::tuple preview(const std::string& path, std::pair<int, int> size, int fit, bool keepAspect,
                  const std::string& channel, int view, double exposure, std::array<int, 3> background,
                  bool useStored, int threads, const py::object& progress) {
    PictureRequest request;
    std::tie(request.width, request.height) = size;
    request.fit = fit;
    request.keepAspect = keepAspect;
    request.channel = channel;
    request.view = static_cast<ChannelView>(view);
    request.exposure = static_cast<float>(exposure);
    request.background = {static_cast<unsigned char>(background[0]),
                          static_cast<unsigned char>(background[1]),
                          static_cast<unsigned char>(background[2])};
    request.useStored = useStored;
    const Picture picture = runTool(request, threads, progress,
                                    [&](const PictureRequest& r) { return makePicture(path.c_str(), r); });
    std::vector<FileFault> faults = picture.damaged;
    faults.insert(faults.end(), picture.doubts.begin(), picture.doubts.end());
    return py::make_tuple(nameOf(picture.state), pictureOf(picture.pixels, picture.width, picture.height),
                          stateName(picture.fileState), picture.cause, picture.causeOffset, faults,
                          picture.channels);
}

// Sets `options` from a dictionary whose keys the caller has checked.
template <class Value>
void take(const py::dict& from, const char* name, Value& value) {
    if (from.contains(name)) value = from[name].cast<Value>();
}

std::unique_ptr<Conversion> fromExr(const std::string& input, const py::dict& given, FromExrOptions options) {
    take(given, "bucket_width", options.bucketWidth);
    take(given, "bucket_height", options.bucketHeight);
    take(given, "level", options.level);
    take(given, "crop_overscan", options.cropOverscan);
    int compression = 0, frame = 0;
    take(given, "compression", compression);
    take(given, "frame", frame);
    options.compression = static_cast<Compression>(compression);
    options.frame = static_cast<FrameChoice>(frame);
    take(given, "crop", options.crop);
    take(given, "channels", options.channels);
    return makeFromExr(input, options);
}

std::unique_ptr<Conversion> toExr(const std::string& input, const py::dict& given, ToExrOptions options) {
    take(given, "kind", options.kind);
    take(given, "bits", options.bits);
    take(given, "compression", options.compression);
    take(given, "auto_data_window", options.autoDataWindow);
    take(given, "origin_x", options.originX);
    take(given, "origin_y", options.originY);
    take(given, "attributes", options.attributes);
    take(given, "attributes_from", options.attributesFrom);
    take(given, "crop", options.crop);
    take(given, "channels", options.channels);
    return makeToExr(input, options);
}

// Prepares and, if `accept` allows the losses so far, writes. `output` is called for the name to write to.
ConvertReport convert(const std::string& input, bool isRaw, const py::dict& given, int threads,
                      const py::object& progress, const py::function& output) {
    Work work(progress);
    std::unique_ptr<Conversion> conversion;
    if (isRaw) {
        ToExrOptions options;
        options.threads = threads;
        options.progress = work.progress();
        conversion = toExr(input, given, options);
    } else {
        FromExrOptions options;
        options.threads = threads;
        options.progress = work.progress();
        conversion = fromExr(input, given, options);
    }
    if (!work.run([&] { return conversion->prepare(); })) return conversion->report();
    const py::object name = output(conversion->report());
    if (name.is_none()) return conversion->report();
    const auto path = name.cast<std::string>();
    work.run([&] { return conversion->run(path); });
    return conversion->report();
}

// The pool of OpenEXR belongs to the program: whoever has set its size keeps it.
void startExrThreads(int threads) {
    if (Imf::globalThreadCount() == 0) Imf::setGlobalThreadCount(threads > 0 ? threads : getNumProcessors());
}

// "" and 0, or why the note was not written.
std::pair<std::string, int> replaceNote(const std::string& path, const std::string& note) {
    const py::gil_scoped_release released;
    const ErrorCode error = writeNote(path.c_str(), note.c_str());
    if (error.empty()) return {};
    const int code = error.getError();
    return {code > 0 ? outputErrorText(code) : error.message(), code};
}

}  // namespace

void bindTools(py::module_& module) {
    module.def("verify", &verify);
    module.def("missing", &missing);
    module.def("recover", &recover);
    module.def("merge", &merge);
    module.def("stats", &stats);
    module.def("hash", &hash);
    module.def("diff", &diff);
    module.def("preview", &preview);
    module.def("convert", &convert);
    module.def("start_exr_threads", &startExrThreads);
    module.def("replace_note", &replaceNote);
    module.def("prepare_resume", [](const std::string& path) {
        const py::gil_scoped_release released;
        return prepareResume(path.c_str());
    });
    module.def("is_raw_image", [](const std::string& path) {
        const py::gil_scoped_release released;
        return RIFile::isRIFile(path.c_str());
    });
    module.def("safe_text", [](const std::string& text) { return safeText(text); });
}

}  // namespace rawimage_python
