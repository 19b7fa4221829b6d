#include "support/new_file.h"

#include <memory>
#include <vector>

#include "python/native/bindings.h"
#include "python/native/write_failure.h"

namespace rawimage_python {

namespace py = pybind11;

namespace {

using MUtils::NewFile;

// A NewFile under the name that messages call it by.
class ToolOutput {
  public:
    ToolOutput(std::string name, const std::vector<std::string>& inputs, bool stream)
        : name_(std::move(name)) {
        const auto access = stream ? NewFile::Access::kStream : NewFile::Access::kSeek;
        run([&] { return file_.create(name_, access, inputs); });
    }

    void lockName() {
        run([this] { return file_.lockName(); });
    }
    // Not after a signal whose handler raises, as Ctrl-C's does.
    void commit() {
        run([this] { return file_.finish(); });
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
        run([this] { return file_.commit(); });
    }
    void discard() { file_.discard(); }
    const std::string& path() const { return file_.path(); }
    std::string named(const std::string& message) const { return file_.named(message); }

  private:
    template <class Operation>
    void run(Operation operation) {
        const ErrorCode error = [&] {
            const py::gil_scoped_release released;
            return operation();
        }();
        if (error.empty()) return;
        const int code = error.getError();
        if (code != NewFile::kIsInput && code != NewFile::kNotSeekable)
            throw WriteFailure(error.message(), name_, code);
        // Not by py::value_error, which takes no names that are not UTF-8.
        PyErr_SetObject(PyExc_ValueError, py::cast(name_ + ": " + error.message()).ptr());
        throw py::error_already_set();
    }

    const std::string name_;
    NewFile file_;
};

}  // namespace

void bindNewFile(py::module_& module) {
    using namespace py::literals;
    py::class_<ToolOutput>(module, "NewFile")
        .def(py::init<std::string, const std::vector<std::string>&, bool>(), "name"_a, "inputs"_a,
             "stream"_a = false)
        .def("__enter__", [](const py::object& self) { return self; })
        .def("__exit__", [](ToolOutput& self, const py::args&) { self.discard(); })
        .def("lock_name", &ToolOutput::lockName)
        .def("commit", &ToolOutput::commit)
        .def("named", &ToolOutput::named)
        .def_property_readonly("path", &ToolOutput::path);
}

}  // namespace rawimage_python
