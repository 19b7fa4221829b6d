#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "convert/conversion.h"

namespace MUtils {
inline namespace v1 {

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

}  // namespace v1
}  // namespace MUtils
