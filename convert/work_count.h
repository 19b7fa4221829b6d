#pragma once

#include <algorithm>
#include <cstdint>

#include "convert/convert_error.h"

namespace MUtils {
inline namespace v1 {

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

}  // namespace v1
}  // namespace MUtils
