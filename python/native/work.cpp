#include "python/native/work.h"

#include <utility>

namespace rawimage_python {

namespace {

// Whoever calls often would wait for the interpreter's lock more than work.
constexpr std::chrono::milliseconds kBetweenCalls{20};

}  // namespace

Work::Work(py::object function) : function_(std::move(function)), next_(Clock::now()) {
    if (!function_.is_none() && !PyCallable_Check(function_.ptr()))
        throw py::type_error("progress must be a function of two numbers, done and total, or None");
    if (function_.is_none()) next_ += kBetweenCalls;
}

std::function<bool(std::int64_t done, std::int64_t total)> Work::progress() {
    return [this](std::int64_t done, std::int64_t total) { return goOn(done, total); };
}

// The library calls it on one thread at a time.
bool Work::goOn(std::int64_t done, std::int64_t total) {
    if (stopped_ || Clock::now() < next_) return !stopped_;
    const py::gil_scoped_acquire acquired;
    try {
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
        if (!function_.is_none()) stopped_ = function_(done, total).is(py::bool_(false));
    } catch (const py::error_already_set&) {
        raised_ = std::current_exception();
        stopped_ = true;
    }
    next_ = Clock::now() + kBetweenCalls;
    return !stopped_;
}

void Work::rethrow() const {
    if (raised_) std::rethrow_exception(raised_);
}

}  // namespace rawimage_python
