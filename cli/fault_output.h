#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/json_output.h"
#include "rawimage/inspect/inspection.h"

namespace rimg {

// A fault as every verb shows it: "bucket 64x64+0+0 of channel 3 alpha, offset 4096..5120: pixels do not
// inflate", or with the record's name in place of the bucket.
std::string faultText(const MUtils::FileFault& fault);
// The same for many faults. Those of one bucket share a line: "bucket 64x64+0+0 of channels 3 alpha, 4 z,
// offset 4096..6000: pixels do not inflate".
std::vector<std::string> faultLines(const std::vector<MUtils::FileFault>& faults);
Json jsonOf(const MUtils::FileFault& fault);
Json jsonOf(const std::vector<MUtils::FileFault>& faults);

// "3 alpha", or the index alone.
std::string channelText(int index, const std::string& name);

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
