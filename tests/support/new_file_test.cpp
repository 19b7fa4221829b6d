#include "support/new_file.h"

#include <gmock/gmock.h>

#include "tests/testing/run_program.h"

// What the command line's outputs do not show of the class; the rest is in tests/cli/output_test.cpp.

namespace {

using namespace testing_tools;
using MUtils::NewFile;
using testing::ElementsAre;

// Keeps what is reported, each held against what is in the folder.
class Log final : public MUtils::NewFileCleanup {
  public:
    void hold() override {
        EXPECT_FALSE(held_);
        held_ = true;
    }
    void release() override {
        EXPECT_TRUE(held_);
        held_ = false;
    }
    void made(const std::string& path) override { add("made ", path, true); }
    void gone(const std::string& path) override { add("gone ", path, false); }

    std::vector<std::string> lines;

  private:
    void add(const char* what, const std::string& path, bool exists) {
        EXPECT_TRUE(held_);
        EXPECT_EQ(std::filesystem::exists(path), exists) << path;
        lines.push_back(what + std::filesystem::path(path).extension().string().substr(0, 5));
    }

    bool held_ = false;
};

std::ptrdiff_t filesIn(const TempFolder& folder) {
    return std::distance(std::filesystem::directory_iterator(folder / ""), {});
}

TEST(NewFile, ReportsItsFilesBeforeItReleases) {
    const TempFolder folder;
    Log log;
    {
        NewFile file(&log);
        EXPECT_TRUE(file.create(folder / "out", NewFile::Access::kSeek).empty());
        EXPECT_TRUE(file.lockName().empty());
        writeFile(file.path(), "whole");
        EXPECT_FALSE(file.isDurable());
        EXPECT_TRUE(file.commit().empty());
        EXPECT_TRUE(file.isDurable());
        EXPECT_EQ(file.path(), folder / "out");
        // Another one with the same object, which is given up.
        EXPECT_TRUE(file.create(folder / "out", NewFile::Access::kStream).empty());
    }
    EXPECT_THAT(log.lines, ElementsAre("made .part", "made .lock", "gone .part", "gone .lock", "made .part",
                                       "gone .part"));
    EXPECT_EQ(readFile(folder / "out"), "whole");
    EXPECT_EQ(filesIn(folder), 1);
}

TEST(NewFile, LeavesNothingWhenItIsRefusedOrDiscarded) {
    const TempFolder folder;
    NewFile file, other;
    EXPECT_EQ(file.create(folder / "a" + '\0' + "b", NewFile::Access::kStream).getError(), EINVAL);
    EXPECT_EQ(file.create(folder / "", NewFile::Access::kSeek).getError(), EISDIR);
    writeFile(folder / "out", "older");
    const ErrorCode same = file.create(folder / "out", NewFile::Access::kSeek, {folder / "./out"});
    EXPECT_EQ(same.getError(), NewFile::kIsInput);
    EXPECT_STREQ(same.message(), "input and output are the same file");
    EXPECT_FALSE(file.isBeside());
    // Two at a time where there is no older file: the second one is refused the name, until the first is
    // gone.
    EXPECT_TRUE(file.create(folder / "new", NewFile::Access::kSeek).empty());
    EXPECT_TRUE(other.create(folder / "new", NewFile::Access::kSeek).empty());
    EXPECT_TRUE(file.lockName().empty());
    EXPECT_EQ(other.lockName().getError(), EWOULDBLOCK);
    file.discard();
    EXPECT_TRUE(other.lockName().empty());
    EXPECT_TRUE(other.finish().empty());
    other.discard();
    EXPECT_EQ(readFile(folder / "out"), "older");
    EXPECT_EQ(filesIn(folder), 1);
}

}  // namespace
