#pragma once

#include <stdexcept>
#include <string>

namespace render_frame {

// What the program answers to its caller: the numbers of the command line rimg.
enum class ExitCode : int {
    kGood = 0,
    kFailure = 1,     // anything without a row of its own: no memory, an output that cannot be written
    kUsage = 2,       // the command line is wrong; nothing was done
    kDamaged = 4,     // the file to go on with is damaged
    kUnreadable = 5,  // it cannot be opened, or is of another format
    kMismatch = 6,    // it is not of the frame that the program is to render
    // Stopped by a signal; the files can be read, and a raw image resumed. Or another writer has the file
    // that was to be resumed or started.
    kStopped = 75
};

// Why the program ends without its frame.
class Failure : public std::runtime_error {
  public:
    Failure(ExitCode code, const std::string& cause) : std::runtime_error(cause), code_(code) {}

    ExitCode code() const { return code_; }

  private:
    ExitCode code_;
};

}  // namespace render_frame
