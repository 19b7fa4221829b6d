#pragma once

#include <functional>
#include <string>

#include "exr/exr_file.h"

namespace rimg {

// An OpenEXR file that a verb writes. It turns every error, and every exception of OpenEXR, into a Failure
// (kFailure) that names the file and gives the chain of operations. The pixels go to a file beside the one
// that is asked for, which takes its place once it is whole: what is there under that name is always a whole
// file, the old or the new one, and nothing is left of a file that was not finished. A device is written to
// as it is.
class ExrOutput {
  public:
    // Nothing is on disk before the first region. `kind` is an ExrFile::Kind.
    ExrOutput(const std::string& path, int kind);
    // Removes what was not finished.
    ~ExrOutput();
    ExrOutput(const ExrOutput&) = delete;
    ExrOutput& operator=(const ExrOutput&) = delete;

    // Runs an operation of the file.
    void run(const std::function<ErrorCode(ExrFile&)>& operation);

    // Finishes the file and puts it in its place.
    void close();

  private:
    const std::string path_;
    std::string target_;   // path_ without links
    std::string writing_;  // what is written to
    ExrFile file_;
    bool open_ = false;
};

}  // namespace rimg
