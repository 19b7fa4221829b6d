#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/json_output.h"
#include "rawimage/inspect/fault_text.h"

namespace rimg {

using MUtils::channelText;
using MUtils::faultLines;

Json jsonOf(const MUtils::FileFault& fault);
Json jsonOf(const std::vector<MUtils::FileFault>& faults);

// Lines for people, of which only the first are shown unless all are wanted.
class LineList {
  public:
    static constexpr std::size_t kShown = 20;

    void add(const char* prefix, const std::vector<std::string>& lines);
    bool empty() const { return lines_.empty(); }
    // Prints them on standard output; `further` lines are known of only by their number.
    void print(const char* indent, bool all, std::int64_t further = 0) const;
    // Reports the first few of them for `file` on standard error, and returns how many were left out.
    std::size_t report(const std::string& file) const;

  private:
    std::vector<std::string> lines_;
};

}  // namespace rimg
