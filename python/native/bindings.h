#pragma once

#include "python/native/casts.h"

namespace rawimage_python {

// Each adds its part to the module.
void bindReports(pybind11::module_& module);
void bindFrame(pybind11::module_& module);
void bindNewFile(pybind11::module_& module);
void bindOutput(pybind11::module_& module);
void bindToolReports(pybind11::module_& module);
void bindTools(pybind11::module_& module);

}  // namespace rawimage_python
