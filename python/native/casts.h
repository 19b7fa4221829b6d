#pragma once

#include <pybind11/stl.h>

#include <array>
#include <cstdint>
#include <string>

#include "rawimage/area/pixel_box.h"

// How values cross the border besides pybind11's own ways. Every file that binds anything includes this
// first, so that all of them agree.

namespace pybind11::detail {

// Names and texts of files may hold any bytes: those that are no UTF-8 become lone surrogates, as in the
// names of files, and become the same bytes again.
template <>
class type_caster<std::string> {
  public:
    PYBIND11_TYPE_CASTER(std::string, const_name("str"));

    bool load(handle source, bool /*convert*/) {
        if (!source || !PyUnicode_Check(source.ptr())) return false;
        const auto bytes =
            reinterpret_steal<object>(PyUnicode_AsEncodedString(source.ptr(), "utf-8", "surrogateescape"));
        if (!bytes) {
            PyErr_Clear();
            return false;
        }
        value.assign(PyBytes_AS_STRING(bytes.ptr()), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.ptr())));
        return true;
    }

    static handle cast(const std::string& text, return_value_policy, handle) {
        return PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape");
    }
};

// A box is rawimage.Box there, and four integers will do on the way in.
template <>
class type_caster<MUtils::PixelBox> {
  public:
    PYBIND11_TYPE_CASTER(MUtils::PixelBox, const_name("Box"));

    bool load(handle source, bool /*convert*/) {
        if (!isinstance<sequence>(source) || len(source) != 4) return false;
        const auto numbers = reinterpret_borrow<sequence>(source);
        std::int64_t* const ends[] = {&value.x0, &value.y0, &value.x1, &value.y1};
        for (std::size_t i = 0; i < 4; ++i) {
            make_caster<std::int64_t> number;
            if (!number.load(object(numbers[i]), false)) return false;
            *ends[i] = cast_op<std::int64_t>(number);
        }
        return true;
    }

    static handle cast(const MUtils::PixelBox& box, return_value_policy, handle) {
        return module_::import("rawimage._types").attr("Box")(box.x0, box.y0, box.x1, box.y1).release();
    }
};

}  // namespace pybind11::detail
