#include "support/new_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <tuple>
#include <utility>

#include "support/files.h"
#include "support/pstream.h"
#include "support/sync_file.h"

namespace MUtils {
inline namespace v1 {

namespace {

constexpr int kMostLinks = 40;  // as the kernel
constexpr int kMostNames = 1000;
// Without those to run as the owner or the group: what they were given to is replaced.
constexpr mode_t kPermissions = 0777;
constexpr mode_t kOwnerReadWrite = 0600;
constexpr uid_t kSame = static_cast<uid_t>(-1);

ErrorCode failure(int code) {
    return ErrorCode("NewFile", code, "%s", outputErrorText(code).c_str());
}

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

// 0, also for what has no disk, or why the file is not on it.
int synced(int file) {
    const int code = syncFile(file);
    return code == EINVAL ? 0 : code;
}

// True when a name that was changed in the folder of `path` is certain to outlive a power cut.
bool syncFolder(const std::string& path) {
    const std::string folder = folderOf(path);
    const int descriptor = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return false;
    const int code = synced(descriptor);
    ::close(descriptor);
    return code == 0;
}

// True when the open file is that of the name, which is no link.
bool isNamed(int file, const std::string& path) {
    struct stat open {
    }, named{};
    return ::fstat(file, &open) == 0 && ::lstat(path.c_str(), &named) == 0 && open.st_dev == named.st_dev &&
           open.st_ino == named.st_ino;
}

class Held {
  public:
    explicit Held(NewFileCleanup* cleanup) : cleanup_(cleanup) {
        if (cleanup_ != nullptr) cleanup_->hold();
    }
    ~Held() {
        if (cleanup_ != nullptr) cleanup_->release();
    }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

    void made(const std::string& path) const {
        if (cleanup_ != nullptr) cleanup_->made(path);
    }
    void gone(const std::string& path) const {
        if (cleanup_ != nullptr) cleanup_->gone(path);
    }

  private:
    NewFileCleanup* const cleanup_;
};

void closeIfOpen(int& descriptor) {
    if (descriptor >= 0) ::close(std::exchange(descriptor, -1));
}

}  // namespace

NewFileCleanup::~NewFileCleanup() = default;

const char* const NewFile::kNotSeekableText =
    "must be a file: it is written with seeks, which a pipe or standard output does not allow";

ErrorCode NewFile::create(std::string name, Access access, const std::vector<std::string>& inputs) {
    discard();
    finished_ = durable_ = false;
    name_ = target_ = std::move(name);
    if (name_.find('\0') != std::string::npos) return failure(EINVAL);
    bool beside = false;
    ErrorCode error = refuseInputs(name_, inputs);
    if (error.empty()) error = lookAtTarget(access, beside);
    if (error.empty() && beside) error = makePart();
    if (!error.empty()) discard();
    return error;
}

ErrorCode NewFile::refuseInputs(const std::string& name, const std::vector<std::string>& inputs) {
    struct stat status {};
    // A terminal or /dev/null is no file that could be lost.
    if (::stat(name.c_str(), &status) != 0 || S_ISCHR(status.st_mode)) return {};
    for (const std::string& input : inputs) {
        if (isSameFile(input.c_str(), name.c_str()))
            return ErrorCode("NewFile", kIsInput, "input and output are the same file");
    }
    return {};
}

ErrorCode NewFile::lookAtTarget(Access access, bool& beside) {
    struct stat status {};
    if (::stat(name_.c_str(), &status) != 0) {
        if (errno != ENOENT || name_.empty()) return failure(errno);
        target_ = withoutLinks(name_);
        beside = true;
        return {};
    }
    if (S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode)) return {};
    if (S_ISDIR(status.st_mode)) return failure(EISDIR);
    if (S_ISFIFO(status.st_mode))
        return access == Access::kSeek ? ErrorCode("NewFile", kNotSeekable, "%s", kNotSeekableText)
                                       : ErrorCode();
    if (!S_ISREG(status.st_mode)) return ErrorCode("NewFile", -1, "cannot be written: is a socket");
    const std::string target = withoutLinks(name_);
    struct stat named {};
    // A file without a name that an open descriptor leads to: nothing can take its place.
    if (::lstat(target.c_str(), &named) != 0 || named.st_dev != status.st_dev ||
        named.st_ino != status.st_ino)
        return {};
    target_ = target;
    owner_ = status.st_uid;
    group_ = status.st_gid;
    mode_ = status.st_mode & kPermissions;
    beside = true;
    return lockTarget();
}

ErrorCode NewFile::lockTarget() {
    older_ = ::open(target_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (older_ < 0) return failure(errno);
    const int code = lockForWriting(older_);
    return code == 0 ? ErrorCode() : failure(code);
}

ErrorCode NewFile::makePart() {
    const std::string ending = ".part-" + std::to_string(::getpid());
    const mode_t asked = older_ >= 0 ? mode_ : 0666;
    const Held held(cleanup_);
    for (int i = 0; i < kMostNames; ++i) {
        const std::string part = besidePath(target_, i == 0 ? ending : ending + '-' + std::to_string(i));
        const int file = ::open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, asked);
        if (file < 0 && errno == EEXIST) continue;
        if (file < 0) return failure(errno);
        part_ = part;
        held.made(part_);
        reserveAccess(file);
        ::close(file);
        return {};
    }
    return failure(EEXIST);
}

// The file is opened by its name once more, whatever permissions it has in the end.
void NewFile::reserveAccess(int file) {
    struct stat status {};
    ::fstat(file, &status);
    const mode_t mode = status.st_mode & kPermissions;
    if (older_ < 0) mode_ = mode;
    if ((mode & kOwnerReadWrite) != kOwnerReadWrite) ::fchmod(file, mode | kOwnerReadWrite);
}

// The holder of the lock removes the file before it lets go: a file that has lost its name meanwhile is no
// lock any more.
ErrorCode NewFile::lockName() {
    if (part_.empty() || !lock_.empty()) return {};
    const std::string path = besidePath(target_, ".lock");
    for (int i = 0; i < kMostNames; ++i) {
        const Held held(cleanup_);
        int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
        // Of another user's process.
        if (file < 0 && errno == EACCES)
            file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
        if (file < 0) return failure(errno);
        const int code = lockForWriting(file);
        if (code == 0 && isNamed(file, path)) {
            lockFile_ = file;
            lock_ = path;
            held.made(lock_);
            return {};
        }
        ::close(file);
        if (code != 0) return failure(code);
    }
    return failure(EWOULDBLOCK);
}

std::string NewFile::named(std::string message) const {
    if (part_.empty()) return message;
    for (std::size_t at = 0; (at = message.find(part_, at)) != std::string::npos; at += name_.size())
        message.replace(at, part_.size(), name_);
    return message;
}

// What the system refuses here is no loss of data. Group and owner are set apart, as the group alone may be
// allowed.
void NewFile::giveOwner(int file) const {
    struct stat status {};
    if (::fstat(file, &status) != 0) return;
    if (older_ >= 0 && status.st_gid != group_) std::ignore = ::fchown(file, kSame, group_);
    if (older_ >= 0 && status.st_uid != owner_) std::ignore = ::fchown(file, owner_, kSame);
    ::fchmod(file, mode_);
}

ErrorCode NewFile::finish() {
    if (part_.empty() || finished_) return {};
    // Never a link that has come in the file's place.
    const int file = ::open(part_.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
    if (file < 0) return failure(errno);
    giveOwner(file);
    // Disks that fill up late, over a network say, show it now.
    const int code = synced(file);
    ::close(file);
    finished_ = code == 0;
    return finished_ ? ErrorCode() : failure(code);
}

ErrorCode NewFile::commit() {
    if (part_.empty()) return {};
    if (ErrorCode error = finish(); !error.empty()) return error;
    {
        const Held held(cleanup_);
        if (std::rename(part_.c_str(), target_.c_str()) != 0) return failure(errno);
        // From here on the old name may be another process's.
        held.gone(part_);
        part_.clear();
    }
    // A file system that does not sync folders has no better way.
    durable_ = syncFolder(target_);
    return {};
}

void NewFile::remove(std::string& path) {
    if (path.empty()) return;
    const Held held(cleanup_);
    std::remove(path.c_str());
    held.gone(path);
    path.clear();
}

void NewFile::discard() {
    remove(part_);
    remove(lock_);
    closeIfOpen(lockFile_);
    closeIfOpen(older_);
}

std::string outputErrorText(int code) {
    return "cannot be written: " + openErrorText(code);
}

std::string outputErrorText(const ErrorCode& error) {
    const std::string operation = error.operation();
    const bool opening = error.getError() > 0 && (operation == "Create" || operation == "Append");
    return opening ? outputErrorText(error.getError()) : error.describe();
}

}  // namespace v1
}  // namespace MUtils
