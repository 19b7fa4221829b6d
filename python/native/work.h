#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>

#include "python/native/casts.h"

namespace rawimage_python {

namespace py = pybind11;

// Work of the library that takes long: it runs without the interpreter's lock, and its progress callback lets
// signals, Ctrl-C among them, and the caller's function stop it.
//
//     Work work(progress);
//     options.progress = work.progress();
//     return work.run([&] { return verifyFile(path.c_str(), options); });
class Work {
  public:
    // `function` is None, or is called with what is done and all, and stops the work by returning False or by
    // raising.
    explicit Work(py::object function);

    // For the library's options; must not outlive the object.
    std::function<bool(std::int64_t done, std::int64_t total)> progress();

    // Returns what job() returns. Throws what the caller's function or a signal's handler has raised.
    template <class Job>
    auto run(Job job) {
        auto result = [&] {
            const py::gil_scoped_release released;
            return job();
        }();
        rethrow();
        return result;
    }

    // The work was stopped.
    bool stopped() const { return stopped_; }

  private:
    using Clock = std::chrono::steady_clock;

    bool goOn(std::int64_t done, std::int64_t total);
    void rethrow() const;

    py::object function_;
    Clock::time_point next_;  // not called before
    std::exception_ptr raised_;
    bool stopped_ = false;
};

}  // namespace rawimage_python
