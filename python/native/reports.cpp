#include "python/native/report.h"

#include <cstring>

#include "python/native/arrays.h"
#include "python/native/bindings.h"
#include "rawimage/frame/raw_frame.h"
#include "rawimage/inspect/fault_text.h"

namespace rawimage_python {

namespace {

using MUtils::FileFault;
using MUtils::FrameChannel;

// By channel type.
constexpr const char* kTypeNames[] = {"none", "float", "color", "float2", "int", "vector", "float4"};
constexpr int kTypes = static_cast<int>(std::size(kTypeNames));

RegionChannelType typeOf(const std::string& name) {
    for (int type = 1; type < kTypes; ++type) {
        if (name == kTypeNames[type]) return static_cast<RegionChannelType>(type);
    }
    throw py::value_error("a channel's type is float, color, float2, int, vector or float4, not " + name);
}

const char* typeNameOf(const FrameChannel& channel) {
    return channel.type > 0 && channel.type < kTypes ? kTypeNames[channel.type] : kTypeNames[0];
}

FrameChannel makeChannel(const std::string& name, const std::string& type, int alias, int flags) {
    FrameChannel channel;
    channel.name = name;
    channel.type = typeOf(type);
    channel.alias = static_cast<RegionChannelAlias>(alias);
    channel.flags = flags;
    return channel;
}

void bindChannel(py::module_& module) {
    Report<FrameChannel>(module, "Channel", R"(A channel of a file, or one to write.

Channel(name, type="color", alias=0, flags=0)

`type` is "float", "color" (three floats), "float2", "int" (32 bits), "vector" (three floats) or "float4". `alias` is
what the channel is to the renderer: rawimage.COLOR, ALPHA, DEPTH, IMAGE, or any other number.)")
        .field("name", &FrameChannel::name, "the name; \"\" of a channel that the file does not list")
        .field("type", typeNameOf,
               "\"float\", \"color\", \"float2\", \"int\", \"vector\", \"float4\" or \"none\"")
        .field(
            "alias", [](const FrameChannel& c) { return static_cast<int>(c.alias); },
            "what it is to the renderer, a number")
        .field("flags", &FrameChannel::flags, "as the renderer has set them")
        .field("index", &FrameChannel::index,
               "the number by which pixels name it; -1 of one that is not of a file")
        .field("components", &FrameChannel::components, "numbers of a value, 1 to 4")
        .field(
            "dtype", [](const FrameChannel& c) { return py::dtype(dtypeNameOf(c.isInteger())); },
            "numpy's type of the values as they are stored: float32, or int32 of type \"int\"")
        .def(py::init(&makeChannel), py::arg("name"), py::arg("type") = "color", py::arg("alias") = 0,
             py::arg("flags") = 0);
}

void bindFault(py::module_& module) {
    Report<FileFault>(module, "Fault", "Something that is wrong with a file; str() gives it in words.")
        .field("offset", &FileFault::offset, "where it lies in the file, in bytes")
        .field("end", &FileFault::end, "past the bytes that are lost; the offset where there are none")
        .field(
            "tag",
            [](const FileFault& f) {
                return f.tagId != 0 ? py::object(py::str(MUtils::tagName(f.tagId))) : py::none();
            },
            "the kind of record, such as \"note\" or \"float3 pixels\", or None")
        .field(
            "box", [](const FileFault& f) { return f.box.empty() ? py::none() : py::cast(f.box); },
            "of pixels, or None")
        .field("channel", &FileFault::channel, "of pixels: the channel's index; else -1")
        .field("name", &FileFault::channelName, "of pixels: the channel's name")
        .field("cause", &FileFault::cause, "what is wrong")
        .field("count", &FileFault::count, "like faults that it represents")
        .def("__str__", &MUtils::faultText)
        .def(py::pickle(
            [](const FileFault& f) {
                return py::make_tuple(f.offset, f.end, f.tagId, f.box, f.channel, f.channelName, f.cause,
                                      f.count);
            },
            [](const py::tuple& from) {
                FileFault made;
                const auto take = [&from](std::size_t at, auto& field) {
                    field = from[at].cast<std::decay_t<decltype(field)>>();
                };
                take(0, made.offset), take(1, made.end), take(2, made.tagId), take(3, made.box);
                take(4, made.channel), take(5, made.channelName), take(6, made.cause), take(7, made.count);
                return made;
            }));
}

template <class Value>
void defCameraField(py::class_<RICameraInfo>& camera, const char* name, Value RICameraInfo::*member,
                    const char* help) {
    camera.def_readwrite(name, member, help);
}

void setTransform(RICameraInfo& camera,
                  const py::array_t<float, py::array::c_style | py::array::forcecast>& matrix) {
    if (matrix.ndim() != 2 || matrix.shape(0) != 4 || matrix.shape(1) != 4)
        throw py::value_error("transform: expected the shape (4, 4)");
    std::memcpy(camera.transform, matrix.data(), sizeof camera.transform);
}

// The fields of a camera that are numbers.
void bindCamera(py::module_& module) {
    py::class_<RICameraInfo> camera(module, "Camera", R"(The camera of a frame.

Camera(**fields): fields that are not given are 0, and the transform is the identity.)");
    camera.attr("__module__") = "rawimage";
    camera.def(py::init([](const py::kwargs& fields) {
        RICameraInfo made{};
        for (int i = 0; i < 16; i += 5)
            made.transform[i] = 1;
        auto object = py::cast(made);
        for (const auto& [name, value] : fields) {
            if (!py::hasattr(object, name))
                throw py::type_error("a camera has no field " + py::str(name).cast<std::string>());
            object.attr(name) = value;
        }
        return object.cast<RICameraInfo>();
    }));
    camera.def_property(
        "transform",
        [](const RICameraInfo& self) {
            return py::array_t<float>({4, 4}, self.transform);  // a copy
        },
        &setTransform,
        "float32 array (4, 4): rows 0 to 2 are the axes, row 3 the position. A copy: assign to change it");
    defCameraField(camera, "projection", &RICameraInfo::projection, "kind of projection, an integer");
    defCameraField(camera, "aperture", &RICameraInfo::aperture, "aperture");
    defCameraField(camera, "fov", &RICameraInfo::fov, "field of view");
    defCameraField(camera, "target_distance", &RICameraInfo::targetDistance, "distance of the target");
    defCameraField(camera, "near_range", &RICameraInfo::nearRange, "near range");
    defCameraField(camera, "far_range", &RICameraInfo::farRange, "far range");
    defCameraField(camera, "near_clip", &RICameraInfo::nearClip, "near clipping distance");
    defCameraField(camera, "far_clip", &RICameraInfo::farClip, "far clipping distance");
    defCameraField(camera, "focal_length", &RICameraInfo::focalLength, "focal length");
    defCameraField(camera, "f_number", &RICameraInfo::fNumber, "f-number");
    camera.attr("_fields") =
        py::make_tuple("transform", "projection", "aperture", "fov", "target_distance", "near_range",
                       "far_range", "near_clip", "far_clip", "focal_length", "f_number");
    camera.def("__repr__", [](const py::object& self) { return reprOfFields(self); });
}

void bindFrameReports(py::module_& module) {
    Report<MUtils::MissingBoxes>(module, "Boxes", "A part of an area, as boxes that do not overlap.")
        .field("boxes", &MUtils::MissingBoxes::boxes, "list of Box, from the top down and from the left")
        .field("truncated", &MUtils::MissingBoxes::truncated, "there are more boxes than these");
    Report<MUtils::MissingPixels>(module, "Missing", "The pixels that a channel lacks.")
        .field("channel", &MUtils::MissingPixels::channel, "the channel's index")
        .field("name", &MUtils::MissingPixels::name, "the channel's name")
        .field(
            "boxes", [](const MUtils::MissingPixels& m) { return m.boxes.boxes; },
            "list of Box, from the top down and from the left")
        .field(
            "truncated", [](const MUtils::MissingPixels& m) { return m.boxes.truncated; },
            "there are more boxes than these");
    Report<MUtils::FrameInfo, std::shared_ptr<MUtils::FrameInfo>>(
        module, "FrameInfo", "What is known of a frame without its pixels.")
        .field("file_bytes", &MUtils::FrameInfo::fileBytes, "length of the file")
        .field("finished", &MUtils::FrameInfo::finished, "the file has its table")
        .field("frame", &MUtils::FrameInfo::frame, "Box of all pixels")
        .field("area", &MUtils::FrameInfo::area, "Box of the pixels to render")
        .field("pixel_aspect", &MUtils::FrameInfo::pixelAspect, "width of a pixel over its height")
        .field(
            "bucket",
            [](const MUtils::FrameInfo& i) {
                return i.buckets ? py::object(py::make_tuple(i.buckets->width, i.buckets->height))
                                 : py::none();
            },
            "announced (width, height) of buckets, or None")
        .field(
            "region",
            [](const MUtils::FrameInfo& i) {
                return i.region ? py::cast(MUtils::boxAt(i.region->left, i.region->top, i.region->width,
                                                         i.region->height))
                                : py::none();
            },
            "Box of the render region that is stored, or None")
        .field("channels", &MUtils::FrameInfo::channels, "list of Channel")
        .def(
            "named", [](const MUtils::FrameInfo& i, const std::string& name) { return i.find(name); },
            py::return_value_policy::copy)
        .def("indexed", &MUtils::FrameInfo::findIndex, py::return_value_policy::copy);
    Report<MUtils::FrameRecords>(module, "Records", "The small records of a frame.")
        .field("camera", &MUtils::FrameRecords::camera, "Camera or None")
        .field(
            "scene_value",
            [](const MUtils::FrameRecords& r) { return r.scene ? py::cast(r.scene->value) : py::none(); },
            "int or None")
        .field("damaged", &MUtils::FrameRecords::damaged, "list of Fault: records that cannot be read");
    Report<MUtils::FrameRead>(module, "Read", "What a read could not give.")
        .field("damaged", &MUtils::FrameRead::damaged, "list of Fault: buckets that cannot be decoded")
        .field("missing", &MUtils::FrameRead::missing, "list of Missing: pixels that no bucket has")
        .field("stopped", &MUtils::FrameRead::stopped, "by the progress function");
}

}  // namespace

py::str reprOfFields(const py::handle& object) {
    const py::object shorten = py::module_::import("reprlib").attr("repr");
    std::string text = py::str(py::type::handle_of(object).attr("__name__"));
    const char* separator = "(";
    for (const py::handle name : object.attr("_fields")) {
        text += separator + py::str(name).cast<std::string>() + "=" +
                py::str(shorten(object.attr(name))).cast<std::string>();
        separator = ", ";
    }
    return py::str(text + ")");
}

void bindReports(py::module_& module) {
    bindChannel(module);
    bindFault(module);
    bindCamera(module);
    bindFrameReports(module);
}

}  // namespace rawimage_python
