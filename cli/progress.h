#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace rimg {

// A bar on stderr for work that takes longer than half a second, when stderr is a terminal; nothing
// otherwise. The line is cleared when the object goes, so report errors after that.
class Progress {
  public:
    // `total` steps make the whole.
    Progress(const std::string& task, std::int64_t total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void advance(std::int64_t steps = 1);

  private:
    using Clock = std::chrono::steady_clock;

    void draw();

    const std::string task_;
    const std::int64_t total_;
    const bool terminal_;
    std::int64_t done_ = 0;
    Clock::time_point next_;  // not drawn before
    bool drawn_ = false;
};

}  // namespace rimg
