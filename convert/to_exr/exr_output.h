#pragma once

#include <functional>
#include <string>

#include "exr/exr_file.h"

namespace MUtils {
inline namespace v1 {

// The OpenEXR file that a conversion writes. Every error, and every exception of OpenEXR, becomes a
// ConvertError (kWriteFailed) with the chain of operations.
class ExrOutput {
  public:
    // `kind` is an ExrFile::Kind.
    ExrOutput(const std::string& path, int kind);
    ~ExrOutput();
    ExrOutput(const ExrOutput&) = delete;
    ExrOutput& operator=(const ExrOutput&) = delete;

    // Runs an operation of the file.
    void run(const std::function<ErrorCode(ExrFile&)>& operation);

    // Finishes the file.
    void close();

  private:
    ExrFile file_;
    bool open_ = true;
};

}  // namespace v1
}  // namespace MUtils
