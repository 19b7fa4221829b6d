#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "cli/output_file.h"

namespace rimg {

// A file that a verb writes in one go from start to end; "-" is standard output.
class StreamOutput {
  public:
    StreamOutput(const std::string& path, const std::vector<std::string>& inputs);
    ~StreamOutput();
    StreamOutput(const StreamOutput&) = delete;
    StreamOutput& operator=(const StreamOutput&) = delete;

    // True when the output is shown on a terminal.
    bool isTerminal() const;

    // Writes on. False once anything has failed or a signal asks for a stop: close() throws that. The first
    // call opens the file, as a pipe may have to wait for its reader.
    bool write(const void* data, std::size_t size);

    // True when close() will throw.
    bool failed() const;
    // Puts the file in its place; throws Failure for what failed before, too.
    void close();

    const OutputFile& file() const { return output_; }

  private:
    void open();

    OutputFile output_;
    int descriptor_ = -1;
    int code_ = 0;  // errno of the first failure
};

}  // namespace rimg
