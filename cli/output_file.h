#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace rimg {

// How the output of every verb comes into being. A file is written beside OUT, under a name of its own, and
// takes OUT's place once it is whole: under OUT there is always a whole file, the older or the new one. What
// was not finished is removed, also when a signal ends the program. Links are followed. Devices, pipes and
// standard output are written to as they are.
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
    OutputFile(std::string name, Kind kind, const std::vector<std::string>& inputs);
    // Removes what was not committed.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Throws Failure when `name` is one of `inputs`, as the constructor does; for a verb that has other
    // questions to ask before it makes its output.
    static void refuseInputs(const std::string& name, const std::vector<std::string>& inputs);

    // Keeps every other process that calls this for the same OUT from going on, until the object goes: throws
    // Failure (kUnreadable) when another one is at it. OUT need not exist. The lock is on a file beside it,
    // which is removed in the end; one that a process leaves behind which dies keeps nobody out. Does nothing
    // for what is no file, and where the file system knows no locks.
    void lockName();

    // As messages call the output.
    std::string name() const;
    bool isStandardOutput() const { return standardOutput_; }
    // The file to open and to write, unless it is standard output.
    const std::string& path() const { return part_.empty() ? target_ : part_; }
    // A message about path() as one about the output.
    std::string named(std::string message) const;

    // Throws Failure (kStopped) when a signal asks for a stop.
    void checkStop() const;
    // Puts the file, which is closed, in its place. Not after a signal. False when it is not certain that the
    // new name outlives a power cut.
    bool commit();

  private:
    // True when a file is to be made beside OUT.
    bool lookAtTarget(Kind kind);
    bool lookAtFile(dev_t device, ino_t inode);
    void lockTarget();
    void makePart();
    void giveOwner(int file) const;
    // Gives the file its permissions and brings it to the disk.
    void finishPart() const;
    [[noreturn]] void fail(int code) const;

    const std::string name_;
    bool standardOutput_ = false;
    std::string target_;  // OUT without links
    std::string part_;    // beside it; empty for none
    std::string lock_;    // the file of lockName(); empty for none
    int lockFile_ = -1;   // descriptor that holds its lock
    // Of the older file, when there is one.
    int older_ = -1;  // descriptor that holds the lock
    uid_t owner_ = 0;
    gid_t group_ = 0;
    mode_t mode_ = 0;  // the file's when it is whole
};

}  // namespace rimg
