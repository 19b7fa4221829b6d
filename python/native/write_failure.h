#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace rawimage_python {

// Becomes rawimage.WriteError, also where the interpreter's lock is not held when it is thrown.
struct WriteFailure : std::runtime_error {
    WriteFailure(const std::string& cause, std::string file, int errorCode)
        : std::runtime_error(cause), path(std::move(file)), code(errorCode) {}

    std::string path;
    int code;
};

}  // namespace rawimage_python
