#pragma once

#include <string>
#include <utility>
#include <vector>

#include "support/new_file.h"

namespace rimg {

// The output of a verb: a file that replaces an older one when it is whole, as MUtils::NewFile has it, and is
// removed when a signal ends the program; a device or a pipe; or standard output.
//
// Everything that keeps OUT from being written is thrown as a Failure.
class OutputFile {
  public:
    enum class Kind {
        kFile,   // opened by its name, and sought in
        kStream  // written in one go from start to end: pipes will do, and "-" is standard output
    };

    // Creates the file beside OUT, empty. Refuses an OUT that is one of `inputs`. Holds the lock of an older
    // OUT until the object goes, so that no other writer continues what is about to be replaced.
    OutputFile(const std::string& name, Kind kind, const std::vector<std::string>& inputs);

    // Throws Failure when `name` is one of `inputs`, as the constructor does; for a verb that has other
    // questions to ask before it makes its output.
    static void refuseInputs(const std::string& name, const std::vector<std::string>& inputs);

    // Keeps every other process that calls this for the same OUT from going on, until the object goes: throws
    // Failure (kUnreadable) when another one has called it.
    void lockName();

    // As messages call the output.
    std::string name() const { return standardOutput_ ? "standard output" : name_; }
    bool isStandardOutput() const { return standardOutput_; }
    // The file to open and to write, unless it is standard output.
    const std::string& path() const { return file_.path(); }
    // A message about path() as one about the output.
    std::string named(std::string message) const { return file_.named(std::move(message)); }

    // Throws Failure (kStopped) when a signal asks for a stop.
    void checkStop() const;
    // Puts the file, which is closed, in its place. Not after a signal. False when it is not certain that the
    // new name outlives a power cut.
    bool commit();

  private:
    const std::string name_;
    const bool standardOutput_;
    MUtils::NewFile file_;
};

}  // namespace rimg
