#include "exr/output_stream.h"

#include <Iex.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "tests/testing/run_program.h"

using namespace MUtils;

namespace {

using testing_tools::readFile;
using testing_tools::TempFolder;
using testing_tools::writeFile;

TEST(ExrOutputStream, WritesWhatAPlainFileWouldHold) {
    const TempFolder folder;
    const std::string path = folder / "file";
    std::mt19937 random(7);
    const auto upTo = [&random](std::uint32_t limit) {
        return static_cast<std::size_t>(random() % (limit + 1));
    };
    for (int round = 0; round < 30; ++round) {
        writeFile(path, std::string(upTo(2'000'000), 'x'));  // must be gone
        ExrOutputStream stream;
        ASSERT_TRUE(stream.open(path.c_str()).empty());
        std::string expected;
        std::size_t position = 0;
        for (int step = 0; step < 300; ++step) {
            // Small pieces mostly; jumps near by, back into what is written, and past the end.
            std::string piece(upTo(step % 50 == 0 ? 700'000 : 3000), static_cast<char>('a' + step % 26));
            if (step % 7 == 0) {
                position = step % 3 == 0 ? upTo(1'500'000) : position - std::min(position, upTo(5000));
                stream.seekp(position);
            }
            if (!piece.empty() && position + piece.size() > expected.size())
                expected.resize(position + piece.size());
            std::copy(piece.begin(), piece.end(), expected.begin() + static_cast<std::ptrdiff_t>(position));
            stream.write(piece.data(), static_cast<int>(piece.size()));
            position += piece.size();
            ASSERT_EQ(stream.tellp(), position);
        }
        ASSERT_TRUE(stream.finish().empty());
        ASSERT_TRUE(readFile(path) == expected) << "round " << round;
    }
}

TEST(ExrOutputStream, FirstFailureIsRememberedAndThrown) {
    const std::vector<char> piece(300'000);
    ExrOutputStream stream;
    ASSERT_TRUE(stream.open("/dev/full").empty());
    stream.write(piece.data(), 12);  // fits the buffer
    EXPECT_THROW(stream.write(piece.data(), 300'000), Iex::IoExc);
    EXPECT_THROW(stream.write(piece.data(), 1), Iex::IoExc);
    EXPECT_THROW(stream.seekp(0), Iex::IoExc);
    EXPECT_LE(stream.tellp(), 300'012u);
    for (int asked = 0; asked < 2; ++asked) {
        const ErrorCode error = stream.finish();
        EXPECT_EQ(error.getError(), ENOSPC);
        EXPECT_STREQ(error.message(), "Cannot write \"/dev/full\": No space left on device");
    }
    ASSERT_TRUE(stream.open("/dev/full").empty());
    stream.write(piece.data(), 12);
    EXPECT_EQ(stream.finish().getError(), ENOSPC) << "what the buffer held";
    ASSERT_TRUE(stream.open("/dev/null").empty());
    EXPECT_THROW(stream.seekp(~std::uint64_t{0}), Iex::IoExc);
    EXPECT_EQ(stream.finish().getError(), EOVERFLOW);
    EXPECT_THROW(stream.write(piece.data(), 1), Iex::IoExc) << "nothing is open";
}

TEST(ExrOutputStream, AbandonedFiles) {
    const TempFolder folder;
    const std::string path = folder / "file", big(300'000, 'b');
    const struct {
        const char* before;  // null: no file
        std::string written;
        const char* after;
    } rows[] = {{nullptr, "", nullptr},
                {nullptr, big, nullptr},
                {"old", "", "old"},
                {"old", "new", "old"},
                {"old", big, ""}};
    for (const auto& row : rows) {
        std::filesystem::remove(path);
        if (row.before != nullptr) writeFile(path, row.before);
        ExrOutputStream stream;
        ASSERT_TRUE(stream.open(path.c_str()).empty());
        stream.seekp(3);
        stream.write(row.written.data(), static_cast<int>(row.written.size()));
        stream.abandon();
        EXPECT_FALSE(stream.isOpen());
        EXPECT_EQ(std::filesystem::exists(path), row.after != nullptr);
        EXPECT_EQ(readFile(path), row.after != nullptr ? row.after : "");
    }
    ExrOutputStream stream;
    ASSERT_TRUE(stream.open("/dev/null").empty());
    stream.abandon();
    EXPECT_TRUE(std::filesystem::exists("/dev/null"));
}

TEST(ExrOutputStream, FinishedFilesStay) {
    const TempFolder folder;
    writeFile(folder / "empty", "old");
    {
        ExrOutputStream stream;
        ASSERT_TRUE(stream.open((folder / "empty").c_str()).empty());
        EXPECT_TRUE(stream.finish().empty());
        stream.abandon();
        ASSERT_TRUE(stream.open((folder / "dropped").c_str()).empty());
        stream.write("abc", 3);
    }
    EXPECT_EQ(readFile(folder / "empty"), "");
    EXPECT_TRUE(std::filesystem::exists(folder / "empty"));
    EXPECT_EQ(readFile(folder / "dropped"), "abc");
}

// In a process that is not root's, who may read everything.
TEST(ExrOutputStream, WritesToAFileThatMayNotBeRead) {
    constexpr uid_t kNobody = 65534;
    constexpr int kNotPossibleHere = 2;
    const TempFolder folder;
    const std::string path = folder / "file";
    writeFile(path, "old and longer");
    ASSERT_EQ(::chmod(path.c_str(), 0200), 0);
    const bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_TRUE(::chmod((folder / "").c_str(), 0711) == 0 && ::chown(path.c_str(), kNobody, 0) == 0);
    }
    const pid_t child = ::fork();
    if (child == 0) {
        const bool other = !root || ::seteuid(kNobody) == 0;
        if (!other || ::open(path.c_str(), O_WRONLY) < 0 || ::open(path.c_str(), O_RDONLY) >= 0)
            ::_exit(kNotPossibleHere);
        ExrOutputStream stream;
        if (!stream.open(path.c_str()).empty()) ::_exit(1);
        stream.write("new", 3);
        ::_exit(stream.finish().empty() ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNotPossibleHere) GTEST_SKIP() << "no other user here";
    EXPECT_EQ(status, 0);
    ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
    EXPECT_EQ(readFile(path), "new");
}

TEST(ExrOutputStream, OpenErrors) {
    const TempFolder folder;
    ExrOutputStream stream(nullptr);
    EXPECT_EQ(stream.open(nullptr).getError(), ENOENT);
    EXPECT_EQ(stream.open("").getError(), ENOENT);
    EXPECT_EQ(stream.open((folder / "").c_str()).getError(), EISDIR);
    const std::string missing = folder / "missing/file";
    const ErrorCode error = stream.open(missing.c_str());
    EXPECT_EQ(error.describe(), "open: Cannot open \"" + missing + "\": No such file or directory (2)");
    EXPECT_EQ(stream.finish().getError(), ENOENT);
}

}  // namespace
