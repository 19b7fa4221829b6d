#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "rawimage/writer.h"
#include "support/files.h"
#include "tests/testing/collect.h"
#include "tests/testing/memory_file.h"
#include "tests/testing/run_program.h"

// One writer at a time; and what closing brings to the disk, in which order.

using namespace testing_tools;

namespace {

// A stream that writes its operations down in a place that outlives it.
struct OrderedStream : PMemStream {
    OrderedStream(std::string& log, int failing) : order(log), failingSync(failing) { Open(); }
    int Write(const void* data, int size, int& written) override {
        order += Tell() == 12 ? "offset " : "tags ";
        return PMemStream::Write(data, size, written);
    }
    int Sync() override {
        order += "sync ";
        return --failingSync == 0 ? EIO : 0;
    }
    std::string& order;
    int failingSync;
};

// A file takes the stream for one that it opened itself: only those it syncs.
struct OwningFile : RIFile {
    explicit OwningFile(PStream* own) {
        stream = ownStream = own;
        writeMode = true;
    }
};

}  // namespace

TEST(Lock, KeepsASecondWriterOutAndNoReader) {
    MemoryFile file;
    RIFile reader;
    {
        RIFile first;
        ASSERT_TRUE(first.Create(file.path(), nullptr).empty());
        ASSERT_TRUE(first.WriteHeader(0).empty());
        for (const bool create : {true, false}) {
            RIFile second;
            const ErrorCode error =
                create ? second.Create(file.path(), nullptr) : second.Append(file.path(), nullptr);
            EXPECT_EQ(error.getError(), EWOULDBLOCK);
            EXPECT_THAT(error.describe(), testing::HasSubstr("another writer has the file open"));
        }
        EXPECT_TRUE(MUtils::isBeingWritten(file.path()));
        EXPECT_EQ(file.bytes().size(), 32u) << "nothing is emptied that another one has open";
        CollectCallback seen;
        ASSERT_TRUE(reader.Open(file.path(), nullptr).empty());
        EXPECT_EQ(reader.ParseFile(seen), 0);
        EXPECT_TRUE(first.Create(file.path(), nullptr).empty()) << "its own lock is no hindrance";
        ASSERT_TRUE(first.Close().empty());
        EXPECT_FALSE(MUtils::isBeingWritten(file.path())) << "readers do not count";

        RIFile third;
        EXPECT_TRUE(third.Append(file.path(), nullptr).empty()) << "though a reader has it open";
    }
    RIFile fourth;
    EXPECT_TRUE(fourth.Append(file.path(), nullptr).empty()) << "the third one went without Close";
}

TEST(Lock, IsNeitherTakenNorWaitedForByWhoAsksForIt) {
    const TempFolder folder;
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const std::string missing = folder / "missing";
    for (const std::string& name : {pipe, missing, folder / ""})
        EXPECT_FALSE(MUtils::isBeingWritten(name.c_str())) << name;
    EXPECT_FALSE(MUtils::isBeingWritten(nullptr));
    EXPECT_NE(::access(missing.c_str(), F_OK), 0) << "created";

    MemoryFile file;
    std::atomic<bool> stop{false};
    std::thread asking([&] {
        while (!stop)
            (void)MUtils::isBeingWritten(file.path());
    });
    for (int i = 0; i < 200; ++i) {
        RIFile writer;
        EXPECT_EQ(writer.Append(file.path(), nullptr).getError(), 0);
    }
    stop = true;
    asking.join();
}

TEST(Sync, BringsTagsToTheDiskBeforeTheOffset) {
    const struct {
        bool on;
        int failingSync;
        const char* order;
    } cases[] = {
        {true, 0, "tags sync offset sync "},
        {false, 0, "tags offset "},
        {true, 1, "tags sync "},  // no offset, which would lead to what is not there
        {true, 2, "tags sync offset sync "},
    };
    for (const auto& c : cases) {
        std::string order;
        OwningFile file(new OrderedStream(order, c.failingSync));
        file.setSyncOnClose(c.on);
        EXPECT_EQ(file.Close().empty(), c.failingSync == 0);
        EXPECT_EQ(order, c.order);
    }
    std::string order;
    OrderedStream borrowed(order, 0);
    RIFile file;
    ASSERT_TRUE(file.Create(nullptr, &borrowed).empty());
    ASSERT_TRUE(file.Close().empty());
    EXPECT_EQ(order.find("sync"), std::string::npos) << "that is its owner's affair";
}

// In a child that is not root, who may read everything. Its exit code: 0, or the step that went wrong.
TEST(Create, WritesToAFileThatMayNotBeRead) {
    constexpr uid_t kOther = 65534;
    const TempFolder folder;
    const std::string path = folder / "frame.rimg";
    writeFile(path, std::string(1000, 'x'));
    ASSERT_EQ(::chmod(path.c_str(), 0200), 0);
    const bool root = ::geteuid() == 0;
    if (root && (::chown(path.c_str(), kOther, kOther) != 0 || ::chmod((folder / "").c_str(), 0777) != 0))
        GTEST_SKIP() << "no other user to be";
    const pid_t child = ::fork();
    if (child == 0) {
        if (root && ::setuid(kOther) != 0) ::_exit(9);
        RIFile file, reader;
        if (reader.Open(path.c_str(), nullptr).empty()) ::_exit(8);
        if (!file.Create(path.c_str(), nullptr).empty()) ::_exit(1);
        if (!file.WriteHeader(0).empty() || !file.WTNote("note").empty() || !file.Close().empty()) ::_exit(2);
        // To continue a file is to read it.
        ::_exit(file.Append(path.c_str(), nullptr).getError() == EACCES ? 0 : 3);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    if (WEXITSTATUS(status) >= 8) GTEST_SKIP() << "no user who may not read it";
    EXPECT_EQ(WEXITSTATUS(status), 0);
    ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
    CollectCallback seen;
    RIFile reader;
    ASSERT_TRUE(reader.Open(path.c_str(), nullptr).empty());
    EXPECT_EQ(reader.ParseFile(seen), 0);
    EXPECT_EQ(seen.count("setNote"), 1);
}
