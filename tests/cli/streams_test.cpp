#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/testing/raw_frame.h"
#include "tests/testing/run_program.h"

// What becomes of standard output and standard error.

namespace {

using namespace testing_tools;
using testing::HasSubstr;

class Streams : public testing::Test {
  protected:
    Streams() {
        RawFrame frame;
        frame.metadata = [](RIFile& file) { expectOk(file.WTNote("a note")); };
        frame.write(folder_ / "raw");
    }
    ProgramResult run(const std::string& arguments, const std::string& redirection) const {
        return runProgram("/bin/bash", {"-c", "cd " + (folder_ / "") + "; exec '" RIMG_PROGRAM "' " +
                                                  arguments + ' ' + redirection});
    }

    TempFolder folder_;
};

TEST_F(Streams, PrintingToAFullDiskFails) {
    // More than any buffer holds.
    std::string many = "info --tags";
    for (int i = 0; i < 100; ++i)
        many += " raw";
    for (const std::string& command :
         {std::string("--help"), std::string("--version"), std::string("note --help"),
          std::string("note raw"), std::string("info raw"), std::string("info --json raw"),
          std::string("verify raw"), std::string("missing raw"), std::string("missing --json raw"),
          std::string("recover raw -o out"), std::string("settings none"), many}) {
        const ProgramResult result = run(command, ">/dev/full");
        const bool printsNothing = command == "settings none";
        EXPECT_EQ(result.status, printsNothing ? 5 : 1) << command;
        EXPECT_THAT(result.err,
                    HasSubstr(printsNothing ? "none: No such file"
                                            : "rimg: standard output: cannot be written: No space left"));
        EXPECT_EQ(result.errorLines(), 1) << command << result.err;
    }
}

TEST_F(Streams, NothingIsPrintedIntoAFileWhenTheyAreClosed) {
    const std::string raw = readFile(folder_ / "raw");
    const ProgramResult result = run("recover raw -o out", "<&- >&-");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "rimg: standard output: cannot be written: Bad file descriptor\n");
    EXPECT_EQ(run("recover --in-place raw", "<&- >&- 2>&-").status, 1);
    EXPECT_TRUE(readFile(folder_ / "out") == raw);
    EXPECT_TRUE(readFile(folder_ / "raw") == raw);
}

TEST_F(Streams, ATerminalGetsNoControlCharactersOfANote) {
    const std::string note = "first\x1b[2J\n\xc2\x9bsecond";
    ASSERT_EQ(runProgram(RIMG_PROGRAM, {"note", folder_ / "raw", "--set", note}).status, 0);
    EXPECT_EQ(run("note raw", "").out, note + "\n");
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ::grantpt(terminal);
    ::unlockpt(terminal);
    const std::string name = ::ptsname(terminal);
    const int slave = ::open(name.c_str(), O_RDWR | O_NOCTTY);
    EXPECT_EQ(run("note raw", ">" + name).status, 0);
    char text[1000];
    const ssize_t size = ::read(terminal, text, sizeof text);
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(std::max<ssize_t>(size, 0))),
              "first\\x1b[2J\r\n\\u{9b}second\r\n");
    ::close(slave);
    ::close(terminal);
}

TEST_F(Streams, ErrorsShowNoControlCharacters) {
    const struct {
        const char* name;
        const char* shown;
    } cases[] = {
        {"a\x1b[2Jb", "a\\x1b[2Jb"},
        {"a\nb\tc", "a\\nb\\tc"},
        {"\x7f\xc2\x80\xc2\x9b\xc2\x9f\xc2\xa0", "\\x7f\\u{80}\\u{9b}\\u{9f}\xc2\xa0"},
        {"\x9b\xff\xc2", "\\x9b\\xff\\xc2"},
        {"\xe2\x80\xae\xc3\xa9\\", "\\u{202e}\xc3\xa9\\\\"},
    };
    for (const auto& c : cases) {
        const ProgramResult file = runProgram(RIMG_PROGRAM, {"verify", c.name});
        EXPECT_EQ(file.err, std::string("rimg: ") + c.shown + ": No such file or directory\n");
        const ProgramResult usage = runProgram(RIMG_PROGRAM, {"verify", "x", std::string("--") + c.name});
        EXPECT_EQ(usage.status, 2);
        EXPECT_THAT(usage.err, HasSubstr(c.shown));
        EXPECT_EQ(usage.errorLines(), 1);
    }
}

}  // namespace
