#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cli/output_file.h"
#include "exr/exr_file.h"

namespace rimg {

// An OpenEXR file that a verb writes. It turns every error, and every exception of OpenEXR, into a Failure
// (kFailure) that names the file and gives the chain of operations.
class ExrOutput {
  public:
    // `kind` is an ExrFile::Kind.
    ExrOutput(const std::string& path, int kind, const std::vector<std::string>& inputs = {});
    ~ExrOutput();
    ExrOutput(const ExrOutput&) = delete;
    ExrOutput& operator=(const ExrOutput&) = delete;

    // Runs an operation of the file.
    void run(const std::function<ErrorCode(ExrFile&)>& operation);

    // Finishes the file and puts it in its place.
    void close();

  private:
    OutputFile output_;
    ExrFile file_;
    bool open_ = true;
};

}  // namespace rimg
