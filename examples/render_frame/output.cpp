#include "examples/render_frame/output.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <utility>

#include "rawimage/writer.h"

namespace render_frame {

namespace {

using Steps = std::vector<std::function<ErrorCode()>>;

// Takes the steps one after another up to the first that fails.
ErrorCode run(const Steps& steps) {
    for (const auto& step : steps) {
        if (ErrorCode error = step()) return error;
    }
    return {};
}

// The one place that knows which kinds of file there are.
std::unique_ptr<RIFileBase> makeOutputFile() {
    return std::make_unique<RIFile>();
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

int maxBucketPixels(const FrameInfo& info) {
    return std::min(info.bucketWidth, info.render.width) * std::min(info.bucketHeight, info.render.height);
}

}  // namespace

FrameWriter::FrameWriter(FrameInfo info) : info_(std::move(info)), channels_(maxBucketPixels(info_)) {}

ErrorCode FrameWriter::start(const std::string& path) {
    constexpr int kBitsPerChannel = 32;
    file_ = makeOutputFile();
    return run({
        [&] { return file_->Create(path.c_str(), nullptr); },
        [&] { return file_->WriteHeader(kBitsPerChannel); },
        [&] { return file_->WTResolution(info_.render.width, info_.render.height, 1.0f); },
        [&] { return file_->WTRegionsInfo(info_.bucketWidth, info_.bucketHeight, 0); },
        [&] { return file_->WTChannelInfo(channels_.list()); },
        [&] { return writeMetadata(); },
    });
}

// Runs an operation that only raw files have; on any other file nothing is to be done.
template <class Operation>
ErrorCode FrameWriter::onRawFile(Operation operation) {
    RIFile* raw = dynamic_cast<RIFile*>(file_.get());
    return raw ? operation(*raw) : ErrorCode();
}

ErrorCode FrameWriter::writeMetadata() {
    const std::string frame = describe(info_.render);
    const std::string stampText = "render_frame | " + frame;
    const std::string note = "Spheres on a checkered ground, path-traced: " + frame + ".";
    const std::string extra = "renderer=render_frame; samples=" + std::to_string(info_.render.samples) +
                              "; seed=" + std::to_string(info_.render.seed);
    // The stamp, the overlay texts and the settings are blobs to the file. To this renderer they are lines of
    // text.
    std::string stamp = "bottom-left\n" + stampText + "\n";
    std::string overlays = "top-left\nspheres\ntop-right\nframe 1\n";
    std::string settings = "width=" + std::to_string(info_.render.width) +
                           "\nheight=" + std::to_string(info_.render.height) +
                           "\nsamples=" + std::to_string(info_.render.samples) +
                           "\nseed=" + std::to_string(info_.render.seed) + "\n";
    RISceneInfo scene(1, "spheres");
    const RIRegionInfo wholeFrame{-1, 0, 0, info_.render.width, info_.render.height};
    const auto size = [](const std::string& text) { return static_cast<int>(text.size()); };
    return run({
        [&] { return file_->WTCameraInfo(cameraInfo(info_.camera)); },
        [&] { return file_->WTRenderRegion(wholeFrame); },
        [&] { return file_->WTSceneInfo(scene); },
        [&] { return onRawFile([&](RIFile& raw) { return raw.WTNote(note.c_str()); }); },
        [&] { return onRawFile([&](RIFile& raw) { return raw.WTStamp(stamp.data(), size(stamp)); }); },
        [&] { return file_->WTStampText(stampText.c_str()); },
        [&] {
            return onRawFile(
                [&](RIFile& raw) { return raw.WTOverlayTexts(overlays.data(), size(overlays)); });
        },
        [&] {
            return onRawFile(
                [&](RIFile& raw) { return raw.WTMirtSettings(settings.data(), size(settings)); });
        },
        [&] {
            if (info_.thumbnail.empty()) return ErrorCode();
            return onRawFile([&](RIFile& raw) {
                return raw.WTPreview(info_.thumbnail.data(), info_.thumbnailWidth, info_.thumbnailHeight);
            });
        },
        [&] { return file_->WTExtraAttributes(extra.c_str()); },
    });
}

ErrorCode FrameWriter::write(const BucketPixels& pixels) {
    return file_->WTRegion(channels_.load(pixels), 0, 0, 0);
}

ErrorCode FrameWriter::finish() {
    return file_->Close();
}

}  // namespace render_frame
