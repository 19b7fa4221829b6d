#include "support/pstream.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <memory>
#include <ostream>
#include <random>

#include "tests/testing/bytes.h"
#include "tests/testing/fault_stream.h"
#include "tests/testing/memory_file.h"

using namespace testing_tools;

namespace {

constexpr const char* kDigits = "0123456789";

std::string tempName() {
    return testing::TempDir() + "pstream_test_" + std::to_string(getpid());
}

std::string read(PStream& stream, int size) {
    std::string text(static_cast<std::size_t>(size), '?');
    int got = -1;
    EXPECT_EQ(stream.Read(text.data(), size, got), 0);
    return text.substr(0, static_cast<std::size_t>(got));
}

std::string all(PStream& stream) {
    EXPECT_EQ(stream.Seek(0), 0);
    return read(stream, static_cast<int>(stream.Length()));
}

void write(PStream& stream, const std::string& text) {
    int written = -1;
    EXPECT_EQ(stream.Write(text.data(), static_cast<int>(text.size()), written), 0);
    EXPECT_EQ(written, static_cast<int>(text.size()));
}

enum class Kind { kFile, kMemory, kBuffer };

void PrintTo(Kind kind, std::ostream* out) {
    *out << (kind == Kind::kFile ? "File" : kind == Kind::kMemory ? "Memory" : "Buffer");
}

// A stream of each kind, open, at 0, with ten digits in it.
class Contract : public testing::TestWithParam<Kind> {
  public:
    Contract() {
        if (GetParam() == Kind::kFile) {
            auto file = std::make_unique<PFileStream>();
            file->SetFile(tempName().c_str(), PFileStream::kReadWrite, 1, PFileStream::kOpenAlways);
            stream = std::move(file);
        } else if (GetParam() == Kind::kMemory) {
            stream = std::make_unique<PMemStream>(3);
        } else {
            stream = std::make_unique<PBufStream>(10);
        }
        EXPECT_EQ(stream->Open(), 0);
        write(*stream, kDigits);
        EXPECT_EQ(stream->Seek(0), 0);
    }
    ~Contract() override { unlink(tempName().c_str()); }
    std::unique_ptr<PStream> stream;
};

INSTANTIATE_TEST_SUITE_P(Streams, Contract, testing::Values(Kind::kFile, Kind::kMemory, Kind::kBuffer),
                         testing::PrintToStringParamName());

// As streams of hosts that do not know how long they are.
TEST(MemStream, WritesWhateverADerivedStreamAnswersAsItsLength) {
    struct Unknown : PMemStream {
        std::int64_t Length() override { return -1; }
    } stream;
    int moved = 0;
    stream.Open();
    EXPECT_EQ(stream.Write("abc", 3, moved), 0);
    stream.Seek(1);
    EXPECT_FALSE(stream.IsEOF());
    EXPECT_EQ(stream.Write("XYZ", 3, moved), 0);
    EXPECT_EQ(stream.Truncate(), 0);
    EXPECT_EQ(std::string(stream.GetBuf(), stream.GetBuf() + 4), "aXYZ");
}

}  // namespace

TEST_P(Contract, EndOfDataIsAShortCountWithoutError) {
    EXPECT_EQ(read(*stream, 4), "0123");
    EXPECT_FALSE(stream->IsEOF());
    EXPECT_EQ(read(*stream, 6), "456789");
    EXPECT_TRUE(stream->IsEOF());
    EXPECT_EQ(read(*stream, 1), "");
    EXPECT_EQ(stream->Seek(8), 0);
    EXPECT_FALSE(stream->IsEOF());
    EXPECT_EQ(read(*stream, 5), "89");
    EXPECT_EQ(stream->Skip(-3), 0);
    EXPECT_FALSE(stream->IsEOF());
    EXPECT_EQ(read(*stream, 0) + read(*stream, 1), "7");
}

TEST_P(Contract, PositionsPastTheEndAreFineAndNegativeOnesFail) {
    for (long far : {11L, 1L << 32, LONG_MAX}) {
        EXPECT_EQ(stream->Seek(far), 0);
        EXPECT_TRUE(stream->IsEOF());
        EXPECT_EQ(read(*stream, 8), "") << far;
        EXPECT_GT(stream->Seek(-1), 0);
        EXPECT_GT(stream->Skip(LONG_MIN), 0);
        EXPECT_EQ(stream->Tell(), far);
    }
    EXPECT_GT(stream->Skip(1), 0);
    int written = 7;
    EXPECT_GT(stream->Write("a", 1, written), 0);
    EXPECT_EQ(written, 0);
    EXPECT_EQ(stream->Seek(4), 0);
    EXPECT_EQ(stream->Skip(-2), 0);
    EXPECT_EQ(stream->Tell(), 2);
}

TEST_P(Contract, OpenRewindsAndCloseKeepsTheContents) {
    stream->Seek(3);
    write(*stream, "abc");
    EXPECT_EQ(stream->Open(), 0);
    EXPECT_EQ(stream->Tell(), 0);
    EXPECT_EQ(stream->Close(), 0);
    EXPECT_FALSE(stream->IsOpen());
    char byte = 'x';
    int read = 7, written = 7;
    EXPECT_GT(stream->Read(&byte, 1, read), 0);
    EXPECT_GT(stream->Write(&byte, 1, written), 0);
    EXPECT_EQ(read + written, 0);
    EXPECT_GT(stream->Seek(0), 0);
    EXPECT_GT(stream->Truncate(), 0);
    EXPECT_EQ(stream->Open(), 0);
    EXPECT_TRUE(stream->IsOpen());
    EXPECT_EQ(all(*stream), "012abc6789");
}

TEST_P(Contract, GrowsWithZerosUnlessItsSizeIsFixed) {
    stream->Seek(8);
    if (GetParam() == Kind::kBuffer) {
        int written = 0;
        EXPECT_EQ(stream->Truncate(), ENOTSUP);
        EXPECT_EQ(stream->Write("abc", 3, written), ENOSPC);
        EXPECT_EQ(written, 2);
        EXPECT_EQ(stream->Truncate(), 0);
        EXPECT_EQ(all(*stream), "01234567ab");
        return;
    }
    EXPECT_EQ(stream->Truncate(), 0);
    stream->Seek(11);
    EXPECT_EQ(stream->Truncate(), 0);  // never lengthens
    EXPECT_EQ(stream->Length(), 8);
    write(*stream, "xy");
    EXPECT_EQ(all(*stream), std::string("01234567\0\0\0xy", 13));
}

// The file's read buffer never shows: any order of calls gives what memory gives, and others see each write
// at once.
TEST(FileStream, AnswersAsMemoryDoes) {
    PFileStream file, other;
    PMemStream memory;
    ASSERT_EQ(file.Create(tempName().c_str(), 0), 0);
    ASSERT_EQ(other.Open(tempName().c_str(), PFileStream::kRead, 1, PFileStream::kOpenExisting), 0);
    memory.Open();
    std::mt19937 random(7);
    const auto pick = [&random](unsigned below) { return static_cast<int>(random() % below); };
    for (int step = 0; step < 3000; ++step) {
        const int place = pick(200000);
        const int size = pick(4) == 0 ? pick(90000) : pick(60);
        const std::string text(static_cast<std::size_t>(size), static_cast<char>(step));
        switch (pick(6)) {
            case 0: ASSERT_EQ(file.Seek(place), memory.Seek(place)); break;
            case 1: ASSERT_EQ(file.Skip(size - 100) == 0, memory.Skip(size - 100) == 0); break;
            case 2: write(file, text), write(memory, text); break;
            case 3: ASSERT_TRUE(pick(10) != 0 || file.Truncate() == memory.Truncate()); break;
            default: ASSERT_EQ(read(file, size), read(memory, size)) << step;
        }
        ASSERT_EQ(file.Tell(), memory.Tell());
        ASSERT_EQ(file.Length(), memory.Length()) << step;
        ASSERT_EQ(file.IsEOF(), memory.IsEOF()) << step;
        ASSERT_EQ(other.Length(), memory.Length()) << step;
    }
    EXPECT_TRUE(all(file) == all(memory) && all(other) == all(memory));
    unlink(tempName().c_str());
}

TEST(FileStream, DispositionsAndAccess) {
    constexpr unsigned kWrite = PFileStream::kReadWrite, kRead = PFileStream::kRead;
    const struct {
        unsigned access, disposition;
        int existing, missing;  // code for a file of ten bytes, and for none
        long sizeAfter;         // of the existing one; a missing one is there afterwards when `missing` is 0
    } cases[] = {{kWrite, 1, EEXIST, 0, 10}, {kWrite, 2, 0, 0, 0},      {kWrite, 3, 0, ENOENT, 10},
                 {kWrite, 4, 0, 0, 10},      {kWrite, 5, 0, ENOENT, 0}, {kRead, 3, 0, ENOENT, 10},
                 {kRead, 4, 0, ENOENT, 10}};
    const std::string name = tempName();
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.access << ", " << c.disposition);
        PFileStream file;
        ASSERT_EQ(file.Create(name.c_str(), 0), 0);
        write(file, kDigits);
        EXPECT_EQ(file.Open(name.c_str(), c.access, 1, c.disposition), c.existing);
        EXPECT_EQ(file.IsOpen(), c.existing == 0);
        struct stat status;
        ASSERT_EQ(stat(name.c_str(), &status), 0);
        EXPECT_EQ(status.st_size, c.sizeAfter);
        int written = 7;
        EXPECT_TRUE(c.access == kWrite || file.Write("x", 1, written) > 0);
        unlink(name.c_str());
        EXPECT_EQ(file.Open(name.c_str(), c.access, 1, c.disposition), c.missing);
        EXPECT_EQ(access(name.c_str(), F_OK) == 0, c.missing == 0);
        unlink(name.c_str());
    }
}

TEST(FileStream, RefusesWhatCannotBeSeeked) {
    ASSERT_EQ(mkfifo(tempName().c_str(), 0600), 0);
    PFileStream file;
    for (unsigned access : {PFileStream::kRead, PFileStream::kReadWrite}) {
        EXPECT_EQ(file.Open(testing::TempDir().c_str(), access, 1, PFileStream::kOpenAlways), EISDIR);
        EXPECT_EQ(file.Open(tempName().c_str(), access, 1, PFileStream::kOpenAlways), ESPIPE);
        EXPECT_EQ(file.Open(nullptr, access, 1, PFileStream::kOpenAlways), ENOENT);
        EXPECT_FALSE(file.IsOpen());
    }
    unlink(tempName().c_str());
}

TEST(FileStream, FirstWriteErrorIsAnsweredUntilTheNextOpening) {
    PFileStream full;
    ASSERT_EQ(full.Open("/dev/full", PFileStream::kReadWrite, 1, PFileStream::kOpenAlways), 0);
    EXPECT_EQ(full.Length(), -1);
    int written = 7;
    EXPECT_EQ(full.Write("abc", 3, written), ENOSPC);
    EXPECT_EQ(written, 0);
    EXPECT_EQ(full.Seek(12), 0);
    EXPECT_EQ(full.Write("", 0, written), ENOSPC);
    EXPECT_EQ(full.Truncate(), ENOSPC);
    EXPECT_EQ(full.Open(), 0);  // the same opening
    EXPECT_EQ(full.Close(), ENOSPC);
    EXPECT_EQ(full.Open(), 0);
    EXPECT_EQ(full.Close(), 0);
}

TEST(FileStream, CopiesWithinTheSystem) {
    MemoryFile from, to;
    from.fill(Bytes().text(kDigits));
    PFileStream source, target;
    ASSERT_EQ(source.Open(from.path(), PFileStream::kRead, 1, PFileStream::kOpenExisting), 0);
    ASSERT_EQ(target.Open(to.path(), PFileStream::kReadWrite, 1, PFileStream::kOpenExisting), 0);
    source.Seek(6);
    const std::int64_t copied = target.CopyFrom(source, 100);
    EXPECT_TRUE(copied == 4 || copied == 0) << "none where the system cannot";
    EXPECT_EQ(source.Tell(), 6 + copied);
    EXPECT_EQ(target.Tell(), copied);
    EXPECT_EQ(to.bytes(), Bytes().text(copied == 4 ? "6789" : ""));
    EXPECT_EQ(source.CopyFrom(target, 1), 0) << "not open for writing";
}

TEST(StreamCopy, GoesOnToTheEndOrTheFirstError) {
    const struct {
        Call call;  // the second one fails, if any
        Fault fault;
        int chunk, code;
        const char* copied;
    } cases[] = {{Call::kSkip, Fault::kErrorFull, -1, 0, "23456789"},
                 {Call::kSkip, Fault::kErrorFull, 3, 0, "23456789"},
                 {Call::kSkip, Fault::kErrorFull, 1000, 0, "23456789"},
                 {Call::kRead, Fault::kErrorShort, 4, EIO, "234567"},
                 {Call::kRead, Fault::kErrorFull, 4, EIO, "23456789"},
                 {Call::kWrite, Fault::kErrorShort, 4, EIO, "234567"},
                 {Call::kWrite, Fault::kSilentShort, 4, ENOSPC, "234567"}};
    for (const auto& c : cases) {
        FaultStream source(Bytes().text(kDigits)), target(Bytes().text("abcde"));
        source.Open(), target.Open();
        source.Seek(2), target.Seek(3);  // from where both stand
        source.failAt(c.call, 2, c.fault);
        target.failAt(c.call, 2, c.fault);
        EXPECT_EQ(PStream::StreamCopy(source, target, c.chunk), c.code);
        EXPECT_EQ(target.bytes(), Bytes().text("abc").text(c.copied));
    }
}
