#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "../rawimage/export.h"
#include "error_code.h"

// How the output of a tool comes into being: beside its name, and under it once it is whole.

namespace MUtils {
inline namespace v1 {

// What a NewFile reports to a program that removes unfinished files when a signal ends it.
class RAWIMAGE_EXPORT NewFileCleanup {
  public:
    virtual ~NewFileCleanup();

    // The program must not end between hold() and release(): files are made, renamed and removed in between,
    // and reported before release(). Calls are not nested.
    virtual void hold() = 0;
    virtual void release() = 0;
    // `path` exists and is to be removed with the program, until gone() reports that it has been renamed or
    // removed.
    virtual void made(const std::string& path) = 0;
    virtual void gone(const std::string& path) = 0;
};

// A file that is written beside its name and replaces what has the name once it is whole: under the name
// there is always a whole file, the older or the new one.
//
//     NewFile file;
//     ErrorCode error = file.create("frame.rimg", NewFile::Access::kSeek, {"broken.rimg"});
//     if (error.empty()) error = ...;  // create or open file.path(), write, close
//     if (error.empty()) error = file.commit();
//
// The new file gets the permissions, and where the system allows it owner and group, of the older one. Links
// are followed. Devices and pipes are written to as they are: path() is their name then, and commit() does
// nothing.
//
// Each operation returns the system's code where the system refuses it (EWOULDBLOCK: another writer has the
// file open), else one of the codes below or -1; the message is what to show behind the name of the file. An
// object is used by one thread at a time. It prints nothing and leaves signals alone.
class RAWIMAGE_EXPORT NewFile {
  public:
    enum class Access {
        kSeek,   // opened by its name, and sought in: pipes are refused
        kStream  // written from start to end: pipes will do
    };
    static constexpr int kIsInput = -2;      // the output is one of the inputs
    static constexpr int kNotSeekable = -3;  // a pipe, for Access::kSeek
    // The message of kNotSeekable.
    static const char* const kNotSeekableText;

    // `cleanup`, which may be null, is borrowed.
    explicit NewFile(NewFileCleanup* cleanup = nullptr) : cleanup_(cleanup) {}
    // Discards the file unless it was committed.
    ~NewFile() { discard(); }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    // Creates an empty file beside `name`. Takes the lock of an older file of that name until discard() or
    // the end, so that no writer continues what is about to be replaced. Discards what the object had before.
    ErrorCode create(std::string name, Access access, const std::vector<std::string>& inputs = {});
    // Refuses a `name` that leads to one of `inputs`, as create() does.
    static ErrorCode refuseInputs(const std::string& name, const std::vector<std::string>& inputs);

    // Keeps every other process that calls this for the same name out until discard() or the end: it gets
    // EWOULDBLOCK. The older file need not exist. The lock is on a file beside it, which is removed in the
    // end; one that a killed process has left keeps nobody out. Does nothing for devices and pipes, and where
    // the file system knows no locks.
    ErrorCode lockName();

    // The file to write to.
    const std::string& path() const { return part_.empty() ? target_ : part_; }
    // False once it is committed or discarded, and for devices and pipes.
    bool isBeside() const { return !part_.empty(); }
    // A message about path() as one about the name.
    std::string named(std::string message) const;

    // Gives the file, which is closed, its permissions and brings it to the disk: the part of commit() that
    // may take long, for a caller who has questions to ask before the rest.
    ErrorCode finish();
    // Finishes the file unless that is done, and puts it in its place. Locks are kept.
    ErrorCode commit();
    // True after a commit() whose result, the new name included, is certain to outlive a power cut.
    bool isDurable() const { return durable_; }
    // Removes the file unless it was committed, and releases the locks.
    void discard();

  private:
    // Sets target_; `beside` becomes true when a file is to be made there.
    ErrorCode lookAtTarget(Access access, bool& beside);
    ErrorCode lockTarget();
    ErrorCode makePart();
    void reserveAccess(int file);
    void giveOwner(int file) const;
    void remove(std::string& path);

    NewFileCleanup* const cleanup_;
    std::string name_;
    std::string target_;  // the name without links
    std::string part_;    // beside it; empty for none
    std::string lock_;    // the file of lockName(); empty for none
    int lockFile_ = -1;   // descriptor that holds its lock
    bool finished_ = false;
    bool durable_ = false;
    // Of the older file, when there is one.
    int older_ = -1;  // descriptor that holds the lock
    uid_t owner_ = 0;
    gid_t group_ = 0;
    mode_t mode_ = 0;  // the file's when it is whole
};

// Why an output cannot be written, to be shown behind its name: the system's words alone for a code that came
// from opening it, and for an error of Create or Append with such a code; else all that the error contains.
RAWIMAGE_EXPORT std::string outputErrorText(int code);
RAWIMAGE_EXPORT std::string outputErrorText(const ErrorCode& error);

}  // namespace v1
}  // namespace MUtils
