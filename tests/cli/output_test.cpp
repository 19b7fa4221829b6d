#include <gmock/gmock.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <thread>

#include "tests/cli/output_fixture.h"

// How the output of every verb comes into being, and what becomes of an older one.

namespace {

using namespace testing_tools;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
namespace fs = std::filesystem;

TEST_P(Output, IsNotOneOfTheInputs) {
    const std::string input = inputs() / GetParam().lastInput;
    const std::string before = readFile(input);
    fs::create_symlink(input, folder_ / "symbolic");
    fs::create_hard_link(input, folder_ / "hard");
    for (const std::string& out : {input, std::string("symbolic"), std::string("hard")}) {
        const ProgramResult result = run(out);
        EXPECT_EQ(result.status, 2) << out;
        EXPECT_THAT(result.err, HasSubstr("the same file\n"));
        EXPECT_EQ(result.errorLines(), 1);
        EXPECT_TRUE(readFile(input) == before) << out;
    }
    EXPECT_THAT(files(), ElementsAre("hard", "symbolic"));
    EXPECT_FALSE(fs::is_symlink(input));
}

TEST_P(Output, ReplacesAnOlderOneAndKeepsItsPermissions) {
    ASSERT_EQ(run("fresh", "umask 027; ").status, 0);
    EXPECT_EQ(modeOf(folder_ / "fresh"), 0640u);
    for (const mode_t mode : {0600u, 0755u, 0200u}) {
        writeFile(folder_ / "old", std::string(100000, 'x'));
        ::chmod((folder_ / "old").c_str(), mode);
        EXPECT_EQ(run("old", "umask 027; ").status, 0);
        EXPECT_EQ(modeOf(folder_ / "old"), mode);
        ::chmod((folder_ / "old").c_str(), 0600);
        EXPECT_TRUE(readFile(folder_ / "old") == readFile(folder_ / "fresh"));
    }
    // What may run as its owner, or its group, is not what was there.
    ::chmod((folder_ / "old").c_str(), 06755);
    EXPECT_EQ(run("old").status, 0);
    EXPECT_EQ(modeOf(folder_ / "old"), 0755u);
    // A name of the longest length, and one that another process had before.
    const std::string longest(255, 'n');
    EXPECT_EQ(run(longest).status, 0);
    writeFile(folder_ / "taken", "");
    EXPECT_EQ(run("taken", "cd " + (folder_ / "") + "; echo other >taken.part-$$; ").status, 0);
    EXPECT_TRUE(readFile(folder_ / "taken") == readFile(folder_ / "fresh"));
    const std::set<std::string> names = files();
    EXPECT_EQ(names.size(), 5u);
    EXPECT_EQ(readFile(folder_ / *names.rbegin()), "other\n") << *names.rbegin();
}

TEST_P(Output, KeepsTheGroupWhereTheOwnerMayNotBeKept) {
    constexpr uid_t kOther = 12345, kUser = 12346;
    constexpr gid_t kGroup = 12347;
    if (::geteuid() != 0) GTEST_SKIP() << "only root gives files away";
    const std::string old = folder_ / "old";
    writeFile(old, "older");
    ::chmod(old.c_str(), 0664);
    ASSERT_EQ(::chown(old.c_str(), kOther, kGroup), 0);
    struct stat status {};
    EXPECT_EQ(run("old").status, 0);
    ::stat(old.c_str(), &status);
    EXPECT_EQ(status.st_uid, kOther);
    // Members of the group may write the file and its folder, and give it to the group only.
    ASSERT_EQ(::chown((folder_ / "").c_str(), 0, kGroup), 0);
    ::chmod((folder_ / "").c_str(), 0770);
    ::chmod((inputs() / "").c_str(), 0755);
    const std::string asUser = "exec() { builtin exec setpriv --reuid " + std::to_string(kUser) +
                               " --regid " + std::to_string(kUser) + " --groups " + std::to_string(kGroup) +
                               " --inh-caps=-all \"$@\"; }; ";
    EXPECT_EQ(run("old", asUser).status, 0);
    ::stat(old.c_str(), &status);
    EXPECT_EQ(status.st_uid, kUser);
    EXPECT_EQ(status.st_gid, kGroup);
    EXPECT_EQ(modeOf(old), 0664u);
}

TEST_P(Output, FollowsLinks) {
    fs::create_directory(folder_ / "elsewhere");
    writeFile(folder_ / "elsewhere/old", "older");
    fs::create_symlink("elsewhere/old", folder_ / "link");
    fs::create_symlink("link", folder_ / "link to link");
    fs::create_symlink("elsewhere/new", folder_ / "dangling");
    for (const char* out : {"link to link", "dangling"}) {
        EXPECT_EQ(run(out).status, 0) << out;
        EXPECT_TRUE(fs::is_symlink(folder_ / out));
    }
    EXPECT_GT(readFile(folder_ / "elsewhere/new").size(), 5u);
    EXPECT_TRUE(readFile(folder_ / "elsewhere/new") == readFile(folder_ / "elsewhere/old"));
    EXPECT_THAT(files(), ElementsAre("dangling", "elsewhere", "link", "link to link"));
}

TEST_P(Output, LeavesAnOlderOneAsItWasWhenItFails) {
    writeFile(folder_ / "old", "older");
    // No file may grow: as on a full disk.
    for (const char* out : {"old", "new"}) {
        const ProgramResult full = run(out, "ulimit -f 1; ");
        EXPECT_EQ(full.status, 1);
        EXPECT_THAT(full.err, HasSubstr("File too large"));
        EXPECT_THAT(full.err, HasSubstr(out));
        EXPECT_THAT(full.err, Not(HasSubstr(".part-")));
        EXPECT_EQ(full.errorLines(), 1) << full.err;
    }
    RIFile writer;
    expectOk(writer.Append((folder_ / "old").c_str(), nullptr));
    const ProgramResult locked = run("old");
    EXPECT_EQ(locked.status, 5);
    EXPECT_THAT(locked.err, HasSubstr("old: cannot be written: another writer has the file open\n"));
    EXPECT_EQ(readFile(folder_ / "old"), "older");
    EXPECT_THAT(files(), ElementsAre("old"));
}

TEST_P(Output, IsWrittenToAsItIsWhenItIsNoFile) {
    const auto refused = [this](const std::string& out, int status, const std::string& told) {
        const ProgramResult result = run(out);
        EXPECT_EQ(result.status, status) << out << ": " << result.err;
        EXPECT_THAT(result.err, HasSubstr(told)) << out;
        EXPECT_EQ(result.errorLines(), 1) << result.err;
    };
    fs::create_symlink("loop", folder_ / "loop");
    fs::create_symlink("nowhere/file", folder_ / "astray");
    fs::create_symlink("/dev/full", folder_ / "full");
    ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0600), 0);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", (folder_ / "socket").c_str());
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ::close(listener);

    refused("", 1, "Is a directory\n");
    refused("loop", 1, "loop: cannot be written: Too many levels of symbolic links\n");
    refused("astray", 1, "astray: cannot be written: No such file or directory\n");
    refused(folder_ / "none/new", 1, "new: cannot be written: No such file or directory\n");
    refused("socket", 1, "socket: cannot be written: is a socket\n");
    refused("/dev/full", 1, "No space left on device");
    refused("full", 1, "No space left on device");
    if (GetParam().stream) {
        std::string piped;
        const ProgramResult printed = run("-");
        EXPECT_EQ(printed.status, 0) << printed.err;
        EXPECT_FALSE(printed.out.empty());
        const ProgramResult result =
            runCommand(GetParam().command, "pipe", "", [&](pid_t) { piped = readFile(folder_ / "pipe"); });
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_TRUE(piped == printed.out);
        EXPECT_EQ(run("-", "exec >/dev/full; ").err,
                  "rimg: standard output: cannot be written: No space left on device\n");
        EXPECT_EQ(run("-", "exec >>'" + inputs() / GetParam().lastInput + "'; ").status, 2);
    } else {
        refused("pipe", 2, "must be a file: ");
        refused("-", 2, "-: must be a file: ");
    }
    EXPECT_EQ(run("/dev/null").status, 0);
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    EXPECT_TRUE(fs::is_fifo(folder_ / "pipe"));
    EXPECT_TRUE(fs::is_symlink(folder_ / "full"));
    EXPECT_THAT(files(), ElementsAre("astray", "full", "loop", "pipe", "socket"));
}

TEST_P(Output, NeedsTheRightToWrite) {
    if (::geteuid() == 0) GTEST_SKIP() << "root may write everything";
    writeFile(folder_ / "old", "older");
    ::chmod((folder_ / "old").c_str(), 0400);
    fs::create_directory(folder_ / "closed");
    ::chmod((folder_ / "closed").c_str(), 0500);
    for (const std::string& out : {std::string("old"), folder_ / "closed/new"}) {
        const ProgramResult result = run(out);
        EXPECT_EQ(result.status, 1) << out;
        EXPECT_THAT(result.err, HasSubstr("cannot be written: Permission denied\n"));
    }
    EXPECT_EQ(readFile(folder_ / "old"), "older");
    EXPECT_THAT(files(), ElementsAre("closed", "old"));
}

TEST_P(Output, IsNotLeftBySignals) {
    const struct {
        const char* name;
        std::vector<int> signals;
        std::set<int> statuses;
    } cases[] = {
        {"new", {SIGTERM}, {75}},       {"old", {SIGINT}, {75}},
        {"old", {SIGHUP}, {75}},        {"old", {SIGTERM, SIGINT}, {75, -SIGTERM, -SIGINT}},
        {"old", {SIGQUIT}, {-SIGQUIT}}, {"new", {SIGPIPE}, {-SIGPIPE}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + ", signal " + std::to_string(c.signals.front()));
        std::set<std::string> before;
        fs::remove(folder_ / "old");
        if (c.name == std::string("old")) {
            writeFile(folder_ / "old", "older");
            before = {"old"};
        }
        const ProgramResult result =
            runCommand(GetParam().large, c.name, "ulimit -c 0; ", [&](pid_t program) {
                for (int i = 0; i < 20000 && files() == before; ++i)
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                for (const int signal : c.signals)
                    ::kill(program, signal);
            });
        EXPECT_EQ(c.statuses.count(result.status), 1u) << result.status << result.err;
        EXPECT_THAT(result.err, HasSubstr(result.status == 75 ? "stopped" : ""));
        EXPECT_EQ(files(), before);
        EXPECT_EQ(readFile(folder_ / "old"), before.empty() ? "" : "older");
    }
}

// True once the program is there and catches SIGTERM.
bool catchesStops(pid_t program) {
    const std::string status = readFile("/proc/" + std::to_string(program) + "/status");
    if (status.find("Name:\trimg\n") == std::string::npos) return false;
    const std::size_t at = status.find("SigCgt:");
    return at != std::string::npos &&
           (std::stoull(status.substr(at + 7), nullptr, 16) >> (SIGTERM - 1) & 1) != 0;
}

class OutputStream : public Output {};

TEST_P(OutputStream, StopsWaitingForTheReaderOfAPipe) {
    ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0600), 0);
    const ProgramResult result = runCommand(GetParam().command, "pipe", "", [](pid_t program) {
        for (int i = 0; i < 20000 && !catchesStops(program); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ::kill(program, SIGTERM);
    });
    EXPECT_EQ(result.status, 75);
    EXPECT_TRUE(fs::is_fifo(folder_ / "pipe"));
}

TEST_P(OutputStream, WaitsForAFullPipeThatDoesNotWait) {
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    ::fcntl(pipe[1], F_SETFL, O_WRONLY | O_NONBLOCK);
    std::size_t before = 0;
    while (::write(pipe[1], "x", 1) == 1)
        ++before;
    std::string piped;
    const std::string standardOutput = "exec >&" + std::to_string(pipe[1]) + "; ";
    const ProgramResult result = runCommand(GetParam().command, "-", standardOutput, [&](pid_t program) {
        ::close(pipe[1]);
        for (int i = 0; i < 20000 && !catchesStops(program); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        char bytes[4096];
        for (ssize_t n = 0; (n = ::read(pipe[0], bytes, sizeof bytes)) > 0;)
            piped.append(bytes, static_cast<std::size_t>(n));
    });
    ::close(pipe[0]);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(piped.substr(before) == run("-").out);
}

std::vector<OutputVerb> streamVerbs() {
    std::vector<OutputVerb> verbs;
    std::copy_if(std::begin(kOutputVerbs), std::end(kOutputVerbs), std::back_inserter(verbs),
                 [](const OutputVerb& verb) { return verb.stream; });
    return verbs;
}

INSTANTIATE_TEST_SUITE_P(OfVerb, Output, testing::ValuesIn(kOutputVerbs), nameOf);
INSTANTIATE_TEST_SUITE_P(OfVerb, OutputStream, testing::ValuesIn(streamVerbs()), nameOf);

}  // namespace
