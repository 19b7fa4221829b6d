#include "convert/exr_header_attributes.h"

#include <OpenEXR/ImfBoxAttribute.h>
#include <OpenEXR/ImfIntAttribute.h>
#include <OpenEXR/ImfMatrixAttribute.h>
#include <OpenEXR/ImfMultiPartInputFile.h>
#include <OpenEXR/ImfStringAttribute.h>

#include <algorithm>
#include <new>
#include <utility>

#include "cli/report.h"
#include "convert/exr_stream.h"

namespace rimg {

using MUtils::PixelBox;

namespace {

// How pixels are stored, and where they are.
bool isStructural(const std::string& name) {
    static const std::set<std::string> kNames{"channels",
                                              "chunkCount",
                                              "compression",
                                              "dataWindow",
                                              "deepImageState",
                                              "displayWindow",
                                              "lineOrder",
                                              "name",
                                              "dwaCompressionLevel",
                                              "maxSamplesPerPixel",
                                              "pixelAspectRatio",
                                              "tiles",
                                              "type",
                                              "version",
                                              "screenWindowCenter",
                                              "screenWindowWidth"};
    return kNames.count(name) > 0;
}

bool isCamera(const std::string& name) {
    static const std::set<std::string> kNames{"cameraTransform",   "cameraProjection",     "cameraAperture",
                                              "cameraFov",         "cameraTargetDistance", "cameraNearRange",
                                              "cameraFarRange",    "cameraNearClip",       "cameraFarClip",
                                              "cameraFocalLength", "cameraFNumber"};
    return kNames.count(name) > 0;
}

// What the writers make of tags.
bool standsForTag(const std::string& name) {
    static const std::set<std::string> kNames{"note", "renderRegion", "scene", "sceneValue", "stampText"};
    return isCamera(name) || kNames.count(name) > 0;
}

bool isText(const Imf::Attribute& attribute, const std::optional<std::string>& value) {
    const auto* text = dynamic_cast<const Imf::StringAttribute*>(&attribute);
    return text != nullptr && value && text->value() == *value;
}

// Writers of scan lines put zeros where there was no camera.
bool hasEmptyCamera(const Imf::Header& header) {
    const auto* transform = header.findTypedAttribute<Imf::M44fAttribute>("cameraTransform");
    return transform != nullptr && transform->value() == Imath::M44f(0.0f);
}

bool isCarried(const Imf::Header& header, const std::string& name, const Imf::Attribute& attribute,
               const ExrMetadata& metadata, const PixelBox& rendered) {
    if (isCamera(name)) return metadata.camera || hasEmptyCamera(header);
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

AttributesFromFile::AttributesFromFile(const std::string& path, std::set<std::string> taken)
    : taken_(std::move(taken)) {
    ExrStream stream(path);
    try {
        const Imf::MultiPartInputFile file(stream, 0, false);
        for (int part = 0; part < file.parts(); ++part)
            sources_.push_back(file.header(part));
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        throw Failure(ExitCode::kDamaged, path, error.what());
    }
}

void AttributesFromFile::edit(Imf::Header& header, int part) {
    const auto sameName = [&header](const Imf::Header& source) {
        return source.hasName() && header.hasName() && source.name() == header.name();
    };
    for (const Imf::Header& source : sources_) {
        if (sameName(source)) copy(source, header);
    }
    for (auto source = sources_.begin(); part == 0 && source != sources_.end(); ++source)
        copy(*source, header);
}

// What is there stays: the library does not release an attribute that is erased.
void AttributesFromFile::copy(const Imf::Header& from, Imf::Header& to) const {
    for (auto i = from.begin(); i != from.end(); ++i) {
        const std::string name = i.name();
        if (isStructural(name) || standsForTag(name) || taken_.count(name) > 0) continue;
        if (to.find(name) == to.end()) to.insert(name, i.attribute());
    }
}

std::set<std::string> namesInText(const std::string& attributes) {
    std::set<std::string> names;
    if (attributes.empty()) return names;
    Imf::Header header;
    std::string text = attributes;
    (void)WriteEXRExtraAttributes(header, text.data());
    for (auto i = header.begin(); i != header.end(); ++i)
        names.insert(i.name());
    return names;
}

}  // namespace rimg
