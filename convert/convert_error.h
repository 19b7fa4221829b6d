#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "convert/conversion.h"

namespace MUtils {

// Ends a step of a conversion without an output. Thrown inside the conversions only: runStep() enters it in
// the report.
class ConvertError : public std::runtime_error {
  public:
    // `file` is the one that the cause is about, "" for the output or for none.
    ConvertError(ConvertState state, std::string file, const std::string& cause,
                 std::optional<std::int64_t> offset = {})
        : std::runtime_error(cause), state_(state), file_(std::move(file)), offset_(offset) {}

    ConvertState state() const { return state_; }
    const std::string& file() const { return file_; }
    std::optional<std::int64_t> offset() const { return offset_; }

  private:
    ConvertState state_;
    std::string file_;
    std::optional<std::int64_t> offset_;
};

// Counts the pieces of a conversion's work.
class WorkCount {
  public:
    // `progress` may be empty, and must live longer.
    WorkCount(const ConvertProgress& progress, std::int64_t total) : progress_(progress), total_(total) {}

    // Throws ConvertError (kStopped) when the caller asks for a stop.
    void add(std::int64_t pieces) {
        done_ += pieces;
        if (progress_ && !progress_(std::min(done_, total_), total_))
            throw ConvertError(ConvertState::kStopped, "", "stopped");
    }

  private:
    const ConvertProgress& progress_;
    const std::int64_t total_;
    std::int64_t done_ = 0;
};

}  // namespace MUtils
