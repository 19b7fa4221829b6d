#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace testing_tools {

// A folder of the test's own that goes when the object does.
class TempFolder {
  public:
    TempFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "rimg_test_XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
        path_ = name;
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    // The path of a file in it.
    std::string operator/(const std::string& name) const { return (path_ / name).string(); }

  private:
    std::filesystem::path path_;
};

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

struct ProgramResult {
    int status = 0;  // the exit code; the negative signal number when a signal ended the program
    std::string out;
    std::string err;

    std::ptrdiff_t errorLines() const { return std::count(err.begin(), err.end(), '\n'); }
};

// Runs `program` to its end and keeps what it prints. `meanwhile` is called once it has been started, with
// its process.
inline ProgramResult runProgram(const std::string& program, const std::vector<std::string>& arguments,
                                const std::function<void(pid_t)>& meanwhile = {}) {
    const TempFolder folder;
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    const std::string out = folder / "out";
    const std::string err = folder / "err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT, 0600);
    pid_t pid = 0;
    const int code = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (code != 0) throw std::runtime_error("cannot run " + program);

    if (meanwhile) meanwhile(pid);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), readFile(out), readFile(err)};
}

struct ProgramCost {
    int status = 0;          // the exit code, -1 when a signal ended the program
    std::int64_t bytes = 0;  // the most memory that it had at a time
};

// Runs `program` for its cost, without what it prints on standard error. By fork, as the peak of a spawned
// process begins with that of its parent; what this process has when it is called counts all the same.
inline ProgramCost costOf(const std::string& program, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), program);
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(::open("/dev/null", O_WRONLY), STDERR_FILENO);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    int status = 0;
    rusage usage{};
    ::wait4(child, &status, 0, &usage);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, std::int64_t{usage.ru_maxrss} * 1024};
}

}  // namespace testing_tools
