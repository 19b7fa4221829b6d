#include "python/native/bindings.h"
#include "rawimage/version.h"

PYBIND11_MODULE(_rawimage, module) {
    module.doc() = "The native part of the package rawimage, which is what to use.";
    module.attr("__version__") = MUtils::rawimageVersion();
    rawimage_python::bindReports(module);
    rawimage_python::bindFrame(module);
    rawimage_python::bindNewFile(module);
    rawimage_python::bindOutput(module);
    rawimage_python::bindToolReports(module);
    rawimage_python::bindTools(module);
}
