#include "convert/from_exr/dropped_attributes.h"

#include <OpenEXR/ImfBoxAttribute.h>
#include <OpenEXR/ImfIntAttribute.h>
#include <OpenEXR/ImfMatrixAttribute.h>
#include <OpenEXR/ImfStringAttribute.h>

#include <algorithm>

#include "convert/header_attributes.h"
#include "exr/header_facts.h"

namespace MUtils {
inline namespace v1 {

namespace {

bool isText(const Imf::Attribute& attribute, const std::optional<std::string>& value) {
    const auto* text = dynamic_cast<const Imf::StringAttribute*>(&attribute);
    return text != nullptr && value && text->value() == *value;
}

// Writers of scan lines put zeros where there was no camera.
bool hasEmptyCamera(const Imf::Header& header) {
    const auto* transform = header.findTypedAttribute<Imf::M44fAttribute>(kCameraTransformAttribute);
    return transform != nullptr && transform->value() == Imath::M44f(0.0f);
}

bool isCarried(const Imf::Header& header, const std::string& name, const Imf::Attribute& attribute,
               const ExrMetadata& metadata, const PixelBox& rendered) {
    if (isCameraAttribute(name.c_str())) return metadata.camera || hasEmptyCamera(header);
    if (name == "note") return isText(attribute, metadata.note);
    if (name == "scene") return isText(attribute, metadata.scene);
    if (name == "stampText") return isText(attribute, metadata.stampText);
    if (name == "sceneValue") {
        const auto* value = dynamic_cast<const Imf::IntAttribute*>(&attribute);
        return metadata.scene && value != nullptr && value->value() == metadata.sceneValue;
    }
    if (name == "renderRegion") {
        const auto* box = dynamic_cast<const Imf::Box2iAttribute*>(&attribute);
        if (box == nullptr) return false;
        const Imath::Box2i& b = box->value();
        return PixelBox{b.min.x, b.min.y, std::int64_t{b.max.x} + 1, std::int64_t{b.max.y} + 1} == rendered;
    }
    return false;
}

}  // namespace

bool hasOwnScreenWindow(const ExrInput& input) {
    for (int part = 0; part < input.parts(); ++part) {
        const Imf::Header& header = input.header(part);
        if (header.screenWindowCenter() != Imath::V2f(0, 0) || header.screenWindowWidth() != 1.0f)
            return true;
    }
    return false;
}

std::vector<std::string> droppedAttributes(const ExrInput& input, const ExrMetadata& metadata,
                                           const PixelBox& rendered) {
    std::vector<std::string> dropped;
    for (int part = 0; part < input.parts(); ++part) {
        const Imf::Header& header = input.header(part);
        for (auto i = header.begin(); i != header.end(); ++i) {
            const std::string name = i.name();
            const bool kept =
                isStructural(name) || isCarried(header, name, i.attribute(), metadata, rendered);
            if (!kept && std::find(dropped.begin(), dropped.end(), name) == dropped.end())
                dropped.push_back(name);
        }
    }
    return dropped;
}

}  // namespace v1
}  // namespace MUtils
