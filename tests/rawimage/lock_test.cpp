#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "rawimage/writer.h"
#include "tests/testing/collect.h"
#include "tests/testing/memory_file.h"

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
            EXPECT_THAT(error.describe(), testing::HasSubstr("Another writer has the file open"));
        }
        EXPECT_EQ(file.bytes().size(), 32u) << "nothing is emptied that another one has open";
        CollectCallback seen;
        ASSERT_TRUE(reader.Open(file.path(), nullptr).empty());
        EXPECT_EQ(reader.ParseFile(seen), 0);
        EXPECT_TRUE(first.Create(file.path(), nullptr).empty()) << "its own lock is no hindrance";
        ASSERT_TRUE(first.Close().empty());

        RIFile third;
        EXPECT_TRUE(third.Append(file.path(), nullptr).empty()) << "though a reader has it open";
    }
    RIFile fourth;
    EXPECT_TRUE(fourth.Append(file.path(), nullptr).empty()) << "the third one went without Close";
}

TEST(Sync, BringsTagsToTheDiskBeforeTheOffset) {
    const struct {
        bool on;
        int failingSync;
        const char* order;
    } cases[] = {
        {true, 0, "tags tags sync offset sync "},
        {false, 0, "tags tags offset "},
        {true, 1, "tags tags sync "},  // no offset, which would lead to what is not there
        {true, 2, "tags tags sync offset sync "},
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
