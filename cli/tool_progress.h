#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace rimg {

// A progress bar on stderr for a library function with a progress callback, which also stops that function
// after a signal. The bar is for work that takes longer than half a second, and only on a terminal. The
// destructor clears the line.
class ToolProgress {
  public:
    explicit ToolProgress(const std::string& task);
    ~ToolProgress() { clear(); }
    ToolProgress(const ToolProgress&) = delete;
    ToolProgress& operator=(const ToolProgress&) = delete;

    // For the function's option; must not outlive the object.
    std::function<bool(std::int64_t done, std::int64_t total)> callback();
    // Clears the line, so that errors can be reported. A later call of the callback draws another one.
    void clear();

  private:
    using Clock = std::chrono::steady_clock;

    void show(std::int64_t done, std::int64_t total);

    const std::string task_;
    const bool terminal_;
    std::int64_t done_ = 0;
    Clock::time_point next_;  // not drawn before
    bool drawn_ = false;
};

// Runs a function of the library with a progress bar: `tool` is called with the options.
template <class Options, class Tool>
auto withProgress(const std::string& task, Options options, const Tool& tool) {
    ToolProgress progress(task);
    options.progress = progress.callback();
    return tool(options);
}

}  // namespace rimg
