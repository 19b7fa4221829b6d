#include "examples/render_frame/output.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <system_error>
#include <utility>

#include "examples/render_frame/settings.h"
#include "exr/exr_file.h"
#include "rawimage/writer.h"

namespace render_frame {

namespace {

// What waits in a queue is lost when the program is killed, and after SIGTERM has to be packed in less than
// two seconds, on one processor if need be. The queue writes without being asked to: flush() would only have
// the caller wait, and is for a renderer that reports its finished buckets to somebody else.
constexpr std::int64_t kMaxPending = std::int64_t{16} << 20;

using Steps = std::vector<std::function<ErrorCode()>>;

// Takes the steps one after another up to the first that fails.
ErrorCode run(const Steps& steps) {
    for (const auto& step : steps) {
        if (ErrorCode error = step()) return error;
    }
    return {};
}

// The one place that knows which kinds of file there are.
std::unique_ptr<RIFileBase> makeOutputFile(const OutputSpec& spec) {
    if (spec.kind == FileKind::kRaw) return std::make_unique<RIFile>();
    const int kind = spec.kind == FileKind::kTiled       ? ExrFile::kTiled
                     : spec.kind == FileKind::kMultiPart ? ExrFile::kMultiPart
                                                         : ExrFile::kScanline;
    auto file = std::make_unique<ExrFile>(kind);
    file->setCompressionType(spec.compression);
    return file;
}

std::string describe(const RenderSettings& render) {
    return std::to_string(render.width) + "x" + std::to_string(render.height) + ", " +
           std::to_string(render.samples) + " samples, seed " + std::to_string(render.seed);
}

void setAxis(float (&axis)[3], Vec3 v) {
    axis[0] = v.x;
    axis[1] = v.y;
    axis[2] = v.z;
}

// Of a camera with a film 24 mm high in a scene whose unit is a metre.
RICameraInfo cameraInfo(const Camera& camera) {
    RICameraInfo info{};
    MUtils::Transform transform;
    setAxis(transform.matrix.axis[0], camera.x);
    setAxis(transform.matrix.axis[1], -camera.z);
    setAxis(transform.matrix.axis[2], camera.y);
    setAxis(transform.offset, camera.position);
    info.setCameraTransform(transform);
    info.fov = camera.fov;
    info.targetDistance = camera.focusDistance;
    info.nearRange = 0;
    info.farRange = Scene::kHazeRange;
    info.nearClip = 0;
    info.farClip = Scene::kFar;
    info.focalLength = 12 / std::tan(camera.fov / 2);
    info.aperture = 2000 * camera.lensRadius;
    info.fNumber = info.focalLength / info.aperture;
    return info;
}

// "; name=text" for the extra attributes, nothing for a text that they cannot carry.
std::string attribute(const std::string& name, const std::string& text) {
    return text.find_first_of("=;") == std::string::npos ? "; " + name + "=\"" + text + '"' : "";
}

RIRegionInfo regionOf(const FrameInfo& info) {
    const Bucket& area = info.area;
    const bool whole = area.width() == info.render.width && area.height() == info.render.height;
    return {whole ? -1 : 0, area.x0, area.y0, area.width(), area.height()};
}

int maxBucketPixels(const FrameInfo& info) {
    return std::min(info.bucketWidth, info.render.width) * std::min(info.bucketHeight, info.render.height);
}

}  // namespace

FrameWriter::FrameWriter(FrameInfo info, OutputSpec spec)
    : info_(std::move(info)), spec_(std::move(spec)), channels_(maxBucketPixels(info_)) {}

ErrorCode FrameWriter::start() {
    file_ = makeOutputFile(spec_);
    setCompression();
    makeQueue();
    return run({
        [&] { return output().Create(spec_.path.c_str(), nullptr); },
        [&] { return output().WriteHeader(spec_.bits); },
        [&] { return output().WTResolution(info_.render.width, info_.render.height, 1.0f); },
        [&] { return output().WTRegionsInfo(info_.bucketWidth, info_.bucketHeight, 0); },
        [&] { return output().WTRenderRegion(regionOf(info_)); },
        [&] { return output().WTChannelInfo(channels_.list()); },
        [&] { return writeMetadata(); },
    });
}

ErrorCode FrameWriter::resume() {
    auto raw = std::make_unique<RIFile>();
    if (ErrorCode error = raw->Append(spec_.path.c_str(), nullptr)) return error;
    if (const int code = raw->ReadInfoTags(nullptr); code != 0)
        return ErrorCode("ReadInfoTags", code, "The tags cannot be listed (%i)", code);
    file_ = std::move(raw);
    setCompression();
    makeQueue();
    return {};
}

void FrameWriter::makeQueue() {
    if (spec_.queued && !wantsWholeFrame()) queue_ = std::make_unique<OutputQueue>(*file_);
    if (queue_ != nullptr) queue_->setMaxPending(kMaxPending);
}

// Runs an operation that only raw files have; on any other file nothing is to be done.
template <class Operation>
ErrorCode FrameWriter::onRawFile(Operation operation) {
    RIFile* raw = dynamic_cast<RIFile*>(file_.get());
    if (raw == nullptr) return {};
    return queue_ != nullptr ? queue_->run([&] { return operation(*raw); }) : operation(*raw);
}

void FrameWriter::setCompression() {
    (void)onRawFile([&](RIFile& raw) {
        raw.setCompressionThreads(nullptr, spec_.threads);
        raw.setCompression(spec_.speed);
        raw.setCompressionLevel(spec_.level);
        return ErrorCode();
    });
}

ErrorCode FrameWriter::writeMetadata() {
    const std::string frame = describe(info_.render);
    const std::string stampText = "render_frame | " + frame;
    const std::string note = "Spheres on a checkered ground, path-traced: " + frame + ".";
    // The stamp, the overlay texts and the settings are blobs to the file. To this renderer they are lines of
    // text.
    std::string stamp = "bottom-left\n" + stampText + "\n";
    std::string overlays = "top-left\nspheres\ntop-right\nframe " + std::to_string(info_.render.frame) + "\n";
    std::string settings = encodeSettings(info_.render);
    RISceneInfo scene(1, "spheres");
    const auto size = [](const std::string& text) { return static_cast<int>(text.size()); };
    return run({
        [&] { return output().WTCameraInfo(cameraInfo(info_.camera)); },
        [&] { return output().WTSceneInfo(scene); },
        [&] { return onRawFile([&](RIFile& raw) { return raw.WTNote(note.c_str()); }); },
        [&] { return onRawFile([&](RIFile& raw) { return raw.WTStamp(stamp.data(), size(stamp)); }); },
        [&] { return writeStampText(stampText); },
        [&] {
            return onRawFile(
                [&](RIFile& raw) { return raw.WTOverlayTexts(overlays.data(), size(overlays)); });
        },
        [&] {
            if (info_.thumbnail.empty()) return ErrorCode();
            return onRawFile([&](RIFile& raw) {
                return raw.WTPreview(info_.thumbnail.data(), info_.thumbnailWidth, info_.thumbnailHeight);
            });
        },
        // Behind everything else: with them a raw image is ready for buckets, and can be resumed.
        [&] {
            return onRawFile(
                [&](RIFile& raw) { return raw.WTMirtSettings(settings.data(), size(settings)); });
        },
        [&] { return output().WTExtraAttributes(extraAttributes(note, stampText).c_str()); },
    });
}

// The scan-line kinds have no header before the frame and say so (-3); there it is one of the extra
// attributes.
ErrorCode FrameWriter::writeStampText(const std::string& text) {
    constexpr int kNoHeaderYet = -3;
    ErrorCode error = output().WTStampText(text.c_str());
    return wantsWholeFrame() && error.getError() == kNoHeaderYet ? ErrorCode() : error;
}

// For OpenEXR files, which have no other place for most of it.
std::string FrameWriter::extraAttributes(const std::string& note, const std::string& stampText) const {
    return "renderer=render_frame; samples=" + std::to_string(info_.render.samples) +
           "; seed=" + std::to_string(info_.render.seed) + attribute("note", note) +
           attribute("scene", "spheres") + (wantsWholeFrame() ? attribute("stampText", stampText) : "");
}

// A bucket may be the whole frame: finish() would write it once more.
ErrorCode FrameWriter::write(const BucketPixels& pixels, ChannelMask channels) {
    if (wantsWholeFrame()) return {};
    return output().WTRegion(channels_.load(pixels, channels), 0, 0, 0);
}

ErrorCode FrameWriter::fillWithBlack(const std::vector<Bucket>& buckets) {
    if (spec_.kind != FileKind::kTiled) return {};
    for (const Bucket& bucket : buckets) {
        BucketPixels black;
        black.resize(bucket);
        if (ErrorCode error = write(black, kAllChannels)) return error;
    }
    return {};
}

ErrorCode FrameWriter::finish(WholeFrame* frame) {
    if (frame != nullptr) {
        if (ErrorCode error = output().WTRegion(frame->region(), 0, 0, 0)) return error;
    }
    return output().Close();
}

std::string FrameWriter::explain(const ErrorCode& error) const {
    const auto* raw = dynamic_cast<const RIFile*>(file_.get());
    const int code = raw != nullptr ? raw->fileError() : 0;
    return (code != 0 ? std::generic_category().message(code) + ": " : "") + error.describe();
}

FrameOutputs::FrameOutputs(const FrameInfo& info, const std::vector<OutputSpec>& specs) {
    for (const OutputSpec& spec : specs) {
        writers_.push_back(std::make_unique<FrameWriter>(info, spec));
        if (writers_.back()->wantsWholeFrame() && frame_ == nullptr)
            frame_ = std::make_unique<WholeFrame>(info.render.width, info.render.height);
    }
}

template <class Step>
std::string FrameOutputs::forEach(Step step) {
    for (const auto& writer : writers_) {
        if (const ErrorCode error = step(*writer)) return writer->spec().path + ": " + writer->explain(error);
    }
    return "";
}

std::string FrameOutputs::start() {
    return forEach([](FrameWriter& writer) { return writer.start(); });
}

std::string FrameOutputs::resume() {
    return forEach([](FrameWriter& writer) { return writer.resume(); });
}

std::string FrameOutputs::write(const BucketPixels& pixels, ChannelMask channels) {
    if (frame_ != nullptr) frame_->add(pixels);
    return forEach([&](FrameWriter& writer) { return writer.write(pixels, channels); });
}

std::string FrameOutputs::finish(const std::vector<Bucket>& missing) {
    return forEach([&](FrameWriter& writer) {
        if (ErrorCode error = writer.fillWithBlack(missing)) return error;
        return writer.finish(writer.wantsWholeFrame() ? frame_.get() : nullptr);
    });
}

}  // namespace render_frame
