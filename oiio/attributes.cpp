#include "oiio/attributes.h"

#include <Imath/ImathMatrix.h>
#include <OpenImageIO/strutil.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <set>

#include "exr/header_facts.h"
#include "rawimage/area/missing_boxes.h"

namespace rimg_imageio {

namespace {

constexpr const char* kAspect = "PixelAspectRatio";
constexpr const char* kNote = "ImageDescription";
constexpr const char* kNoteInExr = "note";
constexpr const char* kWorldToCamera = "worldtocamera";
constexpr const char* kStampText = "stampText";
constexpr const char* kScene = "scene";
constexpr const char* kSceneValue = "sceneValue";
constexpr const char* kColorSpace = "oiio:ColorSpace";

// Not every reader of attributes knows 64-bit integers.
void addCount(OIIO::ImageSpec& spec, const char* name, std::int64_t count) {
    if (count <= INT_MAX) {
        spec.attribute(name, static_cast<int>(count));
    } else {
        const auto number = static_cast<double>(count);
        spec.attribute(name, OIIO::TypeDesc(OIIO::TypeDesc::DOUBLE), &number);
    }
}

void addCamera(const RICameraInfo& camera, OIIO::ImageSpec& spec) {
    spec.attribute(MUtils::kCameraTransformAttribute, OIIO::TypeMatrix, camera.transform);
    spec.attribute(MUtils::kCameraProjectionAttribute, camera.projection);
    for (const MUtils::CameraAttribute& attribute : MUtils::kCameraAttributes)
        spec.attribute(attribute.name, camera.*attribute.field);
    Imath::M44f toWorld;
    std::memcpy(toWorld.x, camera.transform, sizeof camera.transform);
    if (!std::isnormal(toWorld.determinant())) return;
    const Imath::M44f toCamera(Imath::M44d(toWorld).inverse());
    spec.attribute(kWorldToCamera, OIIO::TypeMatrix, toCamera.x);
}

// OpenImageIO's reader of OpenEXR files calls the attribute cameraTransform "worldtocamera", although it is
// not inverted, and keeps the name of an attribute worldToCamera, which is.
std::optional<Imath::M44f> transformOf(const OIIO::ImageSpec& spec) {
    const auto find = [&spec](const char* name) {
        const OIIO::ParamValue* found = spec.find_attribute(name, OIIO::TypeMatrix, true);
        Imath::M44f matrix;
        if (found != nullptr) std::memcpy(matrix.x, found->data(), sizeof matrix.x);
        return found != nullptr ? std::optional(matrix) : std::nullopt;
    };
    if (const auto stored = find(MUtils::kCameraTransformAttribute)) return stored;
    if (const auto stored = find(kWorldToCamera)) return stored;
    const auto inverted = find("worldToCamera");
    return inverted ? std::optional(Imath::M44f(Imath::M44d(*inverted).inverse())) : std::nullopt;
}

std::optional<RICameraInfo> cameraOf(const OIIO::ImageSpec& spec) {
    const std::optional<Imath::M44f> transform = transformOf(spec);
    const OIIO::ParamValue* projection =
        spec.find_attribute(MUtils::kCameraProjectionAttribute, OIIO::TypeInt);
    if (!transform || projection == nullptr) return {};
    RICameraInfo camera{};
    std::memcpy(camera.transform, transform->x, sizeof camera.transform);
    camera.projection = projection->get_int();
    for (const MUtils::CameraAttribute& attribute : MUtils::kCameraAttributes) {
        const OIIO::ParamValue* value = spec.find_attribute(attribute.name, OIIO::TypeFloat);
        if (value == nullptr) return {};
        camera.*attribute.field = value->get_float();
    }
    return camera;
}

std::optional<std::string> textOf(const OIIO::ImageSpec& spec, const char* name) {
    const OIIO::ParamValue* text = spec.find_attribute(name, OIIO::TypeString);
    return text != nullptr ? std::optional(text->get_string()) : std::nullopt;
}

// An attribute that is in a tag of its own, describes the file it came from, or that the reader makes.
bool isExtra(const OIIO::ParamValue& attribute, bool hasCamera) {
    static const std::set<std::string> kElsewhere{
        kAspect,     kNote,         kNoteInExr,        kStampText,         kScene,
        kSceneValue, "compression", "thumbnail_width", "thumbnail_height", "thumbnail_nchannels"};
    const std::string name = attribute.name().string();
    if (name == kColorSpace) return attribute.get_string() != "Linear";
    if (kElsewhere.count(name) > 0 || OIIO::Strutil::istarts_with(name, "oiio:")) return false;
    if (OIIO::Strutil::istarts_with(name, "rawimage:")) return false;
    const bool ofCamera =
        MUtils::isCameraAttribute(name.c_str()) || OIIO::Strutil::iequals(name, kWorldToCamera);
    return !hasCamera || !ofCamera;
}

}  // namespace

void addRecords(const MUtils::FrameRecords& records, OIIO::ImageSpec& spec) {
    if (records.camera) addCamera(*records.camera, spec);
    if (records.note) spec.attribute(kNote, records.note->text);
    if (records.stampText) spec.attribute(kStampText, records.stampText->text);
    if (records.scene) {
        spec.attribute(kScene, records.scene->name.text);
        spec.attribute(kSceneValue, records.scene->value);
    }
    if (records.settingsBytes) addCount(spec, "rawimage:settings_bytes", *records.settingsBytes);
    if (records.stampBytes) addCount(spec, "rawimage:stamp_bytes", *records.stampBytes);
    if (records.overlayBytes) addCount(spec, "rawimage:overlay_bytes", *records.overlayBytes);
    if (records.thumbnail) {
        spec.attribute("thumbnail_width", records.thumbnail->width);
        spec.attribute("thumbnail_height", records.thumbnail->height);
        spec.attribute("thumbnail_nchannels", 3);
    }
    spec.attribute(kColorSpace, "Linear");
}

void addState(const MUtils::RawFrame& frame, const MUtils::PixelBox& area, OIIO::ImageSpec& spec) {
    std::vector<MUtils::PixelBox> boxes;
    for (const MUtils::MissingPixels& missing : frame.missing())
        boxes.insert(boxes.end(), missing.boxes.boxes.begin(), missing.boxes.boxes.end());
    std::int64_t pixels = 0;
    for (const MUtils::PixelBox& box : MUtils::unitedBoxes(boxes, area).boxes)
        pixels += box.area();
    const MUtils::FileState state = frame.state();
    spec.attribute("rawimage:state", MUtils::stateName(state));
    if (state != MUtils::FileState::kGood) spec.attribute("rawimage:cause", frame.cause());
    addCount(spec, "rawimage:missing_pixels", pixels);
}

TagValues tagValues(const OIIO::ImageSpec& spec) {
    TagValues values;
    values.pixelAspect = spec.get_float_attribute(kAspect, 1.0f);
    values.camera = cameraOf(spec);
    values.note = textOf(spec, kNote);
    if (!values.note) values.note = textOf(spec, kNoteInExr);
    values.stampText = textOf(spec, kStampText);
    values.scene = textOf(spec, kScene);
    values.sceneValue = spec.get_int_attribute(kSceneValue);
    for (const OIIO::ParamValue& attribute : spec.extra_attribs) {
        if (isExtra(attribute, values.camera.has_value())) values.extra.attributes.push_back(attribute);
    }
    return values;
}

}  // namespace rimg_imageio
