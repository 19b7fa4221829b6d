#pragma once

#include <memory>

#include "python/native/casts.h"

namespace rawimage_python {

namespace py = pybind11;

// "Name(field=value, ...)", long lists shortened.
py::str reprOfFields(const py::handle& object);

// A class of values that are only read, each with a line of help, which its repr() lists.
template <class Value, class Holder = std::unique_ptr<Value>>
class Report : public py::class_<Value, Holder> {
  public:
    Report(py::module_& module, const char* name, const char* help)
        : py::class_<Value, Holder>(module, name, help) {
        this->attr("__module__") = "rawimage";
        this->attr("_fields") = py::tuple();
        this->def("__repr__", [](const py::object& self) { return reprOfFields(self); });
    }

    // A data member, or a function of the value.
    template <class Getter>
    Report& field(const char* name, Getter getter, const char* help) {
        if constexpr (std::is_member_object_pointer_v<Getter>) {
            this->def_readonly(name, getter, help);
        } else {
            this->def_property_readonly(name, getter, help);
        }
        const py::object fields = this->attr("_fields");
        this->attr("_fields") = fields + py::make_tuple(name);
        return *this;
    }
};

}  // namespace rawimage_python
