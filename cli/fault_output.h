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

// Lines for people on standard output, of which only the first are shown unless all are wanted.
class LineList {
  public:
    static constexpr std::size_t kShown = 20;

    void add(const char* prefix, const std::vector<std::string>& lines);
    // `further` lines are known of only by their number.
    void print(const char* indent, bool all, std::int64_t further = 0) const;

  private:
    std::vector<std::string> lines_;
};

}  // namespace rimg
