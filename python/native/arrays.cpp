#include "python/native/arrays.h"

#include <cstring>
#include <utility>

namespace rawimage_python {

std::string shapeText(const py::array& values) {
    return py::str(py::tuple(values.attr("shape"))).cast<std::string>();
}

void refuseType(const py::array& values, const std::string& what, const std::string& expected) {
    throw py::type_error(what + ": expected values of dtype " + expected + ", not " +
                         py::str(values.dtype()).cast<std::string>());
}

py::array pictureOf(const std::vector<RGB24>& pixels, int width, int height) {
    py::array_t<unsigned char> values({height, width, 3});
    if (!pixels.empty()) std::memcpy(values.mutable_data(), pixels.data(), pixels.size() * sizeof(RGB24));
    return std::move(values);
}

const char* dtypeNameOf(bool isInteger) {
    return isInteger ? "int32" : "float32";
}

bool hasType(const py::array& values, const char* dtypeName) {
    const auto& api = py::detail::npy_api::get();
    return api.PyArray_EquivTypes_(values.dtype().ptr(), py::dtype(dtypeName).ptr());
}

ArrayPlane planeOf(const py::array& values, const std::string& what, std::int64_t width, std::int64_t height,
                   int components) {
    const bool flat = components == 1 && values.ndim() == 2;
    if ((values.ndim() != 3 && !flat) || values.shape(0) != height || values.shape(1) != width ||
        (!flat && values.shape(2) != components)) {
        const std::string size = std::to_string(height) + ", " + std::to_string(width);
        const std::string orFlat = components == 1 ? " or (" + size + ")" : "";
        throw py::value_error(what + ": expected the shape (" + size + ", " + std::to_string(components) +
                              ")" + orFlat + ", not " + shapeText(values));
    }
    const auto stride = [&values](int axis) { return axis < values.ndim() ? values.strides(axis) : 0; };
    return {static_cast<unsigned char*>(const_cast<void*>(values.data())), stride(0), stride(1), stride(2)};
}

MUtils::ChannelTarget targetOf(py::array& values, const std::string& what,
                               const MUtils::FrameChannel& channel, const MUtils::PixelBox& box) {
    const bool half = hasType(values, "float16");
    const char* const stored = dtypeNameOf(channel.isInteger());
    if (!half && !hasType(values, stored)) refuseType(values, what, std::string(stored) + " or float16");
    const ArrayPlane plane = planeOf(values, what, box.width(), box.height(), channel.components());
    if (!values.writeable()) throw py::value_error(what + ": the array is read-only");
    const bool repeats = (plane.row == 0 && box.height() > 1) || (plane.pixel == 0 && box.width() > 1) ||
                         (plane.component == 0 && channel.components() > 1);
    if (repeats && box.area() > 0)
        throw py::value_error(what + ": several values of the array lie in one place");
    MUtils::ChannelTarget target(channel, plane.data,
                                 half ? MUtils::ValueFormat::kHalf : MUtils::ValueFormat::kStored);
    target.rowStride = plane.row;
    target.pixelStride = plane.pixel;
    target.componentStride = channel.components() > 1 ? plane.component : 0;
    return target;
}

}  // namespace rawimage_python
