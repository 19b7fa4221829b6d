#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "cli/progress.h"

namespace rimg {

// A progress bar for a library function with a progress callback, which also stops that function after a
// signal. The destructor clears the line.
class ToolProgress {
  public:
    explicit ToolProgress(std::string task) : task_(std::move(task)) {}

    // For the function's option; must not outlive the object.
    std::function<bool(std::int64_t done, std::int64_t total)> callback();
    // Clears the line. A later call of the callback begins another one.
    void clear() { bar_.reset(); }

  private:
    const std::string task_;
    std::unique_ptr<Progress> bar_;
    std::int64_t done_ = 0;
};

}  // namespace rimg
