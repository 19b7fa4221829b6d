#include "cli/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <tuple>
#include <utility>

#include "cli/interrupt.h"
#include "cli/report.h"
#include "support/files.h"

namespace rimg {

namespace {

constexpr int kMostLinks = 40;  // as the kernel
constexpr int kMostNames = 1000;
// Without those to run as the owner or the group: what they were given to is not there any more.
constexpr mode_t kPermissions = 0777;
constexpr mode_t kOwnerReadWrite = 0600;
constexpr uid_t kSame = static_cast<uid_t>(-1);

// With the slash at its end; empty for the current one.
std::string folderOf(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

// Where links lead to, which need not exist.
std::string withoutLinks(std::string path) {
    char text[PATH_MAX];
    for (int i = 0; i < kMostLinks; ++i) {
        const ssize_t size = ::readlink(path.c_str(), text, sizeof text);
        if (size <= 0) break;
        const std::string link(text, static_cast<std::size_t>(size));
        path = link[0] == '/' ? link : folderOf(path) + link;
    }
    return path;
}

// A name in the folder of `path`, shortened to what file systems take.
std::string besidePath(const std::string& path, const std::string& ending) {
    const std::string folder = folderOf(path);
    const long longest = ::pathconf(folder.empty() ? "." : folder.c_str(), _PC_NAME_MAX);
    const std::size_t room = std::min(longest > 0 ? static_cast<std::size_t>(longest) : NAME_MAX,
                                      PATH_MAX - std::min<std::size_t>(folder.size(), PATH_MAX - 1) - 1);
    std::string name = path.substr(folder.size());
    name.resize(std::min(name.size(), room - std::min(ending.size(), room)));
    return folder + name + ending;
}

// 0, or why the file is not on the disk.
int synced(int file) {
    int code = 0;
    do {
        code = ::fsync(file) != 0 ? errno : 0;
    } while (code == EINTR);
    return code == EINVAL ? 0 : code;  // something that has no disk
}

// So that the new name outlives a power cut; false when it may not. A file system that does not sync folders
// has no better way.
bool syncFolder(const std::string& path) {
    const std::string folder = folderOf(path);
    const int descriptor = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return false;
    const int code = synced(descriptor);
    ::close(descriptor);
    return code == 0;
}

// True when the open file still has its name.
bool isNamed(int file, const std::string& path) {
    struct stat open {
    }, named{};
    return ::fstat(file, &open) == 0 && ::lstat(path.c_str(), &named) == 0 && open.st_dev == named.st_dev &&
           open.st_ino == named.st_ino;
}

}  // namespace

OutputFile::OutputFile(std::string name, Kind kind, const std::vector<std::string>& inputs)
    : name_(std::move(name)), target_(name_) {
    standardOutput_ = kind == Kind::kStream && (name_ == "-" || name_ == "/dev/stdout");
    refuseInputs(name_, inputs);
    if (standardOutput_) return;
    try {
        if (lookAtTarget(kind)) makePart();
    } catch (...) {
        if (older_ >= 0) ::close(older_);
        throw;
    }
}

OutputFile::~OutputFile() {
    for (const std::string& file : {part_, lock_}) {
        if (file.empty()) continue;
        const SignalsHeld held;
        std::remove(file.c_str());
        keepWhenKilled(file);
    }
    if (lockFile_ >= 0) ::close(lockFile_);
    if (older_ >= 0) ::close(older_);
}

std::string OutputFile::name() const {
    return standardOutput_ ? "standard output" : name_;
}

std::string OutputFile::named(std::string message) const {
    if (part_.empty()) return message;
    for (std::size_t at = 0; (at = message.find(part_, at)) != std::string::npos; at += name_.size())
        message.replace(at, part_.size(), name_);
    return message;
}

void OutputFile::fail(int code) const {
    throw outputFailure(name_, code);
}

void OutputFile::refuseInputs(const std::string& name, const std::vector<std::string>& inputs) {
    const std::string output = name == "-" ? "/dev/stdout" : name;
    struct stat status {};
    // A terminal or /dev/null is no file that could be lost.
    if (::stat(output.c_str(), &status) != 0 || S_ISCHR(status.st_mode)) return;
    for (const std::string& input : inputs) {
        if (MUtils::isSameFile(input.c_str(), output.c_str()))
            throw Failure(ExitCode::kUsage, name == "-" ? "standard output" : name,
                          "input and output are the same file");
    }
}

bool OutputFile::lookAtTarget(Kind kind) {
    const char* const unseekable =
        "must be a file: it is written with seeks, which a pipe or standard output does not allow";
    if (name_ == "-") throw Failure(ExitCode::kUsage, name_, unseekable);
    struct stat status {};
    if (::stat(name_.c_str(), &status) != 0) {
        if (errno != ENOENT || name_.empty()) fail(errno);
        target_ = withoutLinks(name_);
        return true;
    }
    switch (status.st_mode & S_IFMT) {
        case S_IFREG:
            owner_ = status.st_uid;
            group_ = status.st_gid;
            mode_ = status.st_mode & kPermissions;
            return lookAtFile(status.st_dev, status.st_ino);
        case S_IFCHR:
        case S_IFBLK: return false;
        case S_IFDIR: fail(EISDIR);
        case S_IFIFO:
            if (kind == Kind::kFile) throw Failure(ExitCode::kUsage, name_, unseekable);
            return false;
        default: throw Failure(ExitCode::kFailure, name_, "cannot be written: is a socket");
    }
}

bool OutputFile::lookAtFile(dev_t device, ino_t inode) {
    target_ = withoutLinks(name_);
    struct stat status {};
    const bool found = ::lstat(target_.c_str(), &status) == 0;
    if (found && status.st_dev == device && status.st_ino == inode) {
        lockTarget();
        return true;
    }
    // A file without a name that an open descriptor leads to: nothing can take its place.
    target_ = name_;
    return false;
}

void OutputFile::lockTarget() {
    older_ = ::open(target_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (older_ < 0) fail(errno);
    if (const int code = MUtils::lockForWriting(older_); code != 0) fail(code);
}

void OutputFile::makePart() {
    const std::string ending = ".part-" + std::to_string(::getpid());
    const mode_t asked = older_ >= 0 ? mode_ : 0666;
    const SignalsHeld held;
    for (int i = 0; i < kMostNames; ++i) {
        const std::string part = besidePath(target_, i == 0 ? ending : ending + '-' + std::to_string(i));
        const int made = ::open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, asked);
        if (made < 0 && errno == EEXIST) continue;
        if (made < 0) fail(errno);
        part_ = part;
        removeWhenKilled(part_);
        struct stat status {};
        ::fstat(made, &status);
        if (older_ < 0) mode_ = status.st_mode & kPermissions;
        // It is opened by name once more.
        if ((status.st_mode & kOwnerReadWrite) != kOwnerReadWrite)
            ::fchmod(made, (status.st_mode & kPermissions) | kOwnerReadWrite);
        ::close(made);
        return;
    }
    fail(EEXIST);
}

// Whoever holds the lock removes the file before it lets go: a file that has lost its name meanwhile is no
// lock any more.
void OutputFile::lockName() {
    if (part_.empty()) return;
    const std::string path = besidePath(target_, ".lock");
    for (int i = 0; i < kMostNames; ++i) {
        int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
        // Of another user's process.
        if (file < 0 && errno == EACCES)
            file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
        if (file < 0) fail(errno);
        const int code = MUtils::lockForWriting(file);
        if (code == 0 && isNamed(file, path)) {
            lockFile_ = file;
            lock_ = path;
            removeWhenKilled(lock_);
            return;
        }
        ::close(file);
        if (code != 0) fail(code);
    }
    fail(EWOULDBLOCK);
}

void OutputFile::checkStop() const {
    if (!stopRequested()) return;
    const bool inPart = !part_.empty();
    throw Failure(ExitCode::kStopped, name(), inPart ? "stopped; nothing was written" : "stopped");
}

// What the system refuses here is no loss of data. Of the owner's and the group's the group's may be allowed
// alone. Never over a link that has come in the file's place.
void OutputFile::giveOwner(int file) const {
    struct stat status {};
    if (::fstat(file, &status) != 0) return;
    if (older_ >= 0 && status.st_gid != group_) std::ignore = ::fchown(file, kSame, group_);
    if (older_ >= 0 && status.st_uid != owner_) std::ignore = ::fchown(file, owner_, kSame);
    ::fchmod(file, mode_);
}

void OutputFile::finishPart() const {
    const int file = ::open(part_.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
    if (file < 0) fail(errno);
    giveOwner(file);
    // Disks that fill up late, over a network say, show it now.
    const int code = synced(file);
    ::close(file);
    if (code != 0) fail(code);
}

bool OutputFile::commit() {
    if (!part_.empty()) finishPart();
    checkStop();
    if (part_.empty()) return false;
    // Once it has its new name, the old one may be another process's.
    const SignalsHeld held;
    if (std::rename(part_.c_str(), target_.c_str()) != 0) fail(errno);
    keepWhenKilled(part_);
    part_.clear();
    return syncFolder(target_);
}

}  // namespace rimg
