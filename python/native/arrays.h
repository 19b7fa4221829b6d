#pragma once

#include <pybind11/numpy.h>

#include <string>
#include <vector>

#include "python/native/casts.h"
#include "rawimage/frame/raw_frame.h"

// Arrays of values: [y][x][component], or [y][x] for channels of one component.

namespace rawimage_python {

namespace py = pybind11;

// The memory of an array: bytes from one row, pixel and component to the next one. None is 0 where there are
// several.
struct ArrayPlane {
    unsigned char* data;
    std::ptrdiff_t row, pixel, component;
};

// "float32", "int32", of the values that files store.
const char* dtypeNameOf(bool isInteger);

// Throws ValueError or TypeError, which contain what was expected, when the array's shape is not that of
// `width` x `height` values. `what` names the array.
ArrayPlane planeOf(const py::array& values, const std::string& what, std::int64_t width, std::int64_t height,
                   int components);

// The same for an array to read into; its type decides on the format.
MUtils::ChannelTarget targetOf(py::array& values, const std::string& what,
                               const MUtils::FrameChannel& channel, const MUtils::PixelBox& box);

// "(40, 50, 3)"
std::string shapeText(const py::array& values);

// Throws the TypeError for an array whose values are not of the type `expected`.
[[noreturn]] void refuseType(const py::array& values, const std::string& what, const std::string& expected);

// Colours as an array of uint8, [y][x][3]: a copy.
py::array pictureOf(const std::vector<RGB24>& pixels, int width, int height);

// True when the array's values are of that type, in this machine's order of bytes.
bool hasType(const py::array& values, const char* dtypeName);

}  // namespace rawimage_python
