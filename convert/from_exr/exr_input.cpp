#include "convert/from_exr/exr_input.h"

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFloatAttribute.h>
#include <OpenEXR/ImfIntAttribute.h>
#include <OpenEXR/ImfMatrixAttribute.h>
#include <OpenEXR/ImfPartType.h>
#include <OpenEXR/ImfStringAttribute.h>

#include <climits>
#include <cstring>
#include <new>

#include "convert/convert_error.h"
#include "exr/header_facts.h"

namespace MUtils {
inline namespace v1 {

namespace {

std::string inPart(const Imf::Header& header, int parts) {
    return parts > 1 && header.hasName() ? " in part \"" + header.name() + '"' : "";
}

std::optional<RICameraInfo> cameraOf(const Imf::Header& header) {
    const auto* transform = header.findTypedAttribute<Imf::M44fAttribute>(kCameraTransformAttribute);
    const auto* projection = header.findTypedAttribute<Imf::IntAttribute>(kCameraProjectionAttribute);
    if (transform == nullptr || projection == nullptr) return {};
    // Writers of scan lines put zeros where there was no camera.
    if (transform->value() == Imath::M44f(0.0f)) return {};
    RICameraInfo camera{};
    std::memcpy(camera.transform, transform->value().x, sizeof camera.transform);
    camera.projection = projection->value();
    for (const CameraAttribute& attribute : kCameraAttributes) {
        const auto* value = header.findTypedAttribute<Imf::FloatAttribute>(attribute.name);
        if (value == nullptr) return {};
        camera.*attribute.field = value->value();
    }
    return camera;
}

std::optional<std::string> textOf(const Imf::Header& header, const char* name) {
    const auto* text = header.findTypedAttribute<Imf::StringAttribute>(name);
    return text != nullptr ? std::optional(text->value()) : std::nullopt;
}

}  // namespace

ExrInput::ExrInput(const std::string& path, FrameChoice frame) : path_(path), stream_(path) {
    open();
    measureFrame(frame);
    for (int part = 0; part < parts(); ++part)
        listChannels(part);
    chunks_ = std::make_unique<ExrChunks>(path, *file_);
}

void ExrInput::open() {
    try {
        // Without threads OpenEXR holds one block of lines or one tile of each part in memory. Compressing
        // the raw image takes far longer than reading.
        file_ = std::make_unique<Imf::MultiPartInputFile>(stream_, 0);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        throw ConvertError(ConvertState::kDamaged, path_, error.what(),
                           static_cast<std::int64_t>(stream_.tellg()));
    }
}

// All parts share a display window: OpenEXR opens no other files.
void ExrInput::measureFrame(FrameChoice choice) {
    PixelBox frame = choice == FrameChoice::kDataWindow ? PixelBox() : displayWindow();
    for (int part = 0; choice != FrameChoice::kDisplayWindow && part < parts(); ++part)
        frame = boxAround(frame, window(part));
    originX_ = frame.x0;
    originY_ = frame.y0;
    width_ = frame.width();
    height_ = frame.height();
    if (width_ < 1 || height_ < 1 || width_ > INT_MAX || height_ > INT_MAX) {
        throw ConvertError(ConvertState::kUnsupported, path_,
                           "a frame of " + std::to_string(width_) + " x " + std::to_string(height_) +
                               " pixels does not fit into a raw image");
    }
}

void ExrInput::listChannels(int part) {
    const Imf::Header& header = file_->header(part);
    if (!header.hasType() || !Imf::isImage(header.type())) {
        const std::string type = header.hasType() ? header.type() : "";
        throw ConvertError(ConvertState::kUnsupported, path_,
                           "only scan lines and tiles can be converted; the pixels" +
                               inPart(header, parts()) + " are of the type \"" + type + '"');
    }
    const Imf::ChannelList& list = header.channels();
    for (auto channel = list.begin(); channel != list.end(); ++channel) {
        if (channel.channel().xSampling != 1 || channel.channel().ySampling != 1) {
            throw ConvertError(ConvertState::kUnsupported, path_,
                               std::string("the channel \"") + channel.name() + '"' +
                                   inPart(header, parts()) +
                                   " is subsampled, which a raw image cannot carry");
        }
        channels_.push_back({part, channel.name(), channel.channel().type == Imf::UINT});
    }
}

PixelBox ExrInput::seenFromFrame(const Imath::Box2i& box) const {
    return {box.min.x - originX_, box.min.y - originY_, box.max.x - originX_ + 1, box.max.y - originY_ + 1};
}

PixelBox ExrInput::window(int part) const {
    return seenFromFrame(header(part).dataWindow());
}

PixelBox ExrInput::displayWindow() const {
    return seenFromFrame(header(0).displayWindow());
}

std::vector<PixelBox> ExrInput::windows() const {
    std::vector<PixelBox> result;
    for (int part = 0; part < parts(); ++part)
        result.push_back(window(part));
    return result;
}

std::vector<std::string> ExrInput::partNames() const {
    std::vector<std::string> names(static_cast<std::size_t>(parts()));
    for (int part = 0; parts() > 1 && part < parts(); ++part) {
        if (header(part).hasName()) names[static_cast<std::size_t>(part)] = header(part).name();
    }
    return names;
}

// The first part that has an item counts: the writers put what belongs to the frame into one part.
ExrMetadata ExrInput::metadata() const {
    ExrMetadata result;
    for (int part = parts(); part-- > 0;) {
        if (auto camera = cameraOf(header(part))) result.camera = camera;
        if (auto text = textOf(header(part), "stampText")) result.stampText = text;
        if (auto text = textOf(header(part), "note")) result.note = text;
        if (auto text = textOf(header(part), "scene")) result.scene = text;
        const auto* value = header(part).findTypedAttribute<Imf::IntAttribute>("sceneValue");
        if (value != nullptr) result.sceneValue = value->value();
    }
    return result;
}

}  // namespace v1
}  // namespace MUtils
