#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "rawimage/read/mt_reader.h"
#include "tests/proof/frame.h"
#include "tests/testing/sample_file.h"
#include "tests/testing/sanitized.h"

// One small file of every kind of tag, cut at every length, with every bit flipped, and with each byte of its
// headers set to every other value. What each may cost and what must survive is in Damage::check().

namespace {

std::atomic<std::size_t> largestBlock{0};

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (size > largestBlock) largestBlock = size;
    return std::malloc(size > 0 ? size : 1);
}
void* operator new(std::size_t size) {
    void* block = operator new(size, std::nothrow);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
    std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

using namespace MUtils;
using namespace testing_tools;

namespace {

using Tags = std::vector<std::string>;  // each as its bytes

// The tags of an undamaged file, its table left out.
Tags tagsOf(const std::vector<unsigned char>& bytes) {
    Tags tags;
    for (std::size_t at = 32; at + 40 <= bytes.size();) {
        const RIF_TAG tag = decodeTag(bytes.data() + at);
        if (tag.size < 40 || tag.size > bytes.size() - at) break;
        if (tag.id != TAG_INFO_TAGS)
            tags.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                              bytes.begin() + static_cast<std::ptrdiff_t>(at + tag.size));
        at += tag.size;
    }
    return tags;
}

bool isPixel(const std::string& tag) {
    return isPixelTag(MUtils::loadU32(reinterpret_cast<const unsigned char*>(tag.data())));
}

class Damage : public testing::TestWithParam<std::tuple<bool, bool>> {
  protected:
    Damage() {
        std::tie(options_.closed, options_.compressed) = GetParam();
        options_.bucketWidth = 3;
        options_.bucketHeight = 1;
        sample_ = makeSample(options_);
        written_ = pixelsOf(sample_.events);
        tags_ = tagsOf(sample_.bytes);
    }
    ~Damage() override { std::printf("%d cases, answers %016zx\n", cases_, answers_); }

    // RAWIMAGE_EXHAUSTIVE=1 asks for every value of every header byte, minutes of work.
    static bool exhaustive() { return std::getenv("RAWIMAGE_EXHAUSTIVE") != nullptr; }

    static std::vector<Event> pixelsOf(const std::vector<Event>& events) {
        std::vector<Event> pixels;
        std::copy_if(events.begin(), events.end(), std::back_inserter(pixels),
                     [](const Event& event) { return event.call == "setImageData"; });
        std::sort(pixels.begin(), pixels.end());
        return pixels;
    }

    // The tag that byte `at` belongs to, -1 for the file header.
    int tagAt(std::size_t at) const {
        const auto after =
            std::upper_bound(sample_.offsets.begin(), sample_.offsets.end(), static_cast<std::int64_t>(at));
        return static_cast<int>(after - sample_.offsets.begin()) - 1;
    }
    bool isTable(int tag) const { return options_.closed && tag == sample_.tagCount() - 1; }

    static void open(RIFile& file, PMemStream& stream, const std::vector<unsigned char>& bytes) {
        int written = 0;
        stream.Open();
        stream.Write(bytes.data(), static_cast<int>(bytes.size()), written);
        (void)file.Open(nullptr, &stream);
    }
    Delivered walk(RIFile& file, const std::vector<unsigned char>& bytes) {
        PMemStream stream(static_cast<int>(bytes.size()));
        open(file, stream, bytes);
        Delivered delivered = parse(file);
        EXPECT_LE(delivered.tags, bytes.size() / 40);
        EXPECT_LE(delivered.events.size(), bytes.size() / 8);
        (void)file.Close();
        note(delivered);
        return delivered;
    }
    // Every code and every byte that comes out goes into one number: builds that should answer alike give the
    // same.
    void note(std::size_t answer) { answers_ = (answers_ ^ answer) * 0x9E3779B97F4A7C15u; }
    void note(const Delivered& delivered) {
        note(static_cast<std::size_t>(delivered.code));
        std::vector<Event> events = delivered.events;
        std::sort(events.begin(), events.end());
        for (const Event& event : events) {
            note(std::hash<std::string>()(event.call) ^ std::hash<std::string>()(event.bytes));
            for (const std::int64_t number : event.numbers)
                note(static_cast<std::size_t>(number));
        }
    }
    void checkReaders(const std::vector<unsigned char>& bytes, int tag, FileState verdict, bool threaded);
    void checkPixels(const Delivered& walk, FileState verdict);
    void checkTable(const std::vector<unsigned char>& bytes);
    void checkRecovery(int tag, bool cut);
    void check(const std::vector<unsigned char>& bytes, int tag, bool cut, bool threaded);

    SampleOptions options_;
    Sample sample_;
    std::vector<Event> written_;
    Tags tags_;
    int cases_ = 0;
    std::size_t answers_ = 0;

    RIFile sequential_;
    ThreadManager manager_;
    RIFileMT threaded_{&manager_, 2};
    MemoryFile input_, output_;
    std::vector<unsigned char> payload_;
};

// Pixels are silently wrong when a reader that answers 0 delivers some that were never written to that place
// and channel, or none where some were, and verify calls the file good. Values that were not written for
// their channel must be called damaged, with two exceptions that nothing in the file can tell: values that
// are stored without a checksum, and a place in a file that has no table to hold it against, which is called
// unfinished.
void Damage::checkPixels(const Delivered& walk, FileState verdict) {
    if (walk.code != 0) return;
    if (walk.pixels == written_ || verdict == FileState::kDamaged) return;
    EXPECT_NE(verdict, FileState::kGood);
    for (const Event& wrong : without(walk.pixels, written_)) {
        EXPECT_EQ(verdict, FileState::kUnfinished);
        EXPECT_FALSE(options_.closed);
        EXPECT_TRUE(std::any_of(written_.begin(), written_.end(), [&](const Event& event) {
            return event.numbers[1] == wrong.numbers[1] && event.bytes == wrong.bytes;
        })) << wrong;
    }
}

void Damage::checkReaders(const std::vector<unsigned char>& bytes, int tag, FileState verdict,
                          bool threaded) {
    const std::vector<Event> before(sample_.events.begin(),
                                    sample_.events.begin() + (tag < 0 ? 0 : sample_.eventsBefore(tag)));
    const Delivered plain = walk(sequential_, bytes);
    EXPECT_TRUE((plain.code <= 0 && plain.code >= -5) || (plain.code <= -13 && plain.code >= -22))
        << plain.code;
    ASSERT_GE(plain.events.size(), before.size());
    EXPECT_TRUE(std::equal(before.begin(), before.end(), plain.events.begin()));
    checkPixels(plain, verdict);
    if (!threaded) return;

    const Delivered mt = walk(threaded_, bytes);
    EXPECT_TRUE((mt.code <= 0 && mt.code >= -22) || (mt.code <= -107 && mt.code >= -108)) << mt.code;
    // It drops payloads larger than their values, which buckets as small as these have.
    if (!options_.compressed) {
        EXPECT_TRUE(without(pixelsOf(before), mt.pixels).empty());
        if (mt.code == plain.code) checkPixels(mt, verdict);
    }
    EXPECT_TRUE(plain.code != 0 || without(mt.pixels, plain.pixels).empty());
}

void Damage::checkTable(const std::vector<unsigned char>& bytes) {
    PMemStream stream;
    open(sequential_, stream, bytes);
    const int listed = sequential_.ReadInfoTags(nullptr);
    EXPECT_TRUE((listed <= 0 && listed >= -5) || listed == EINVAL) << listed;
    const int count = sequential_.NumTags();
    ASSERT_LE(static_cast<std::size_t>(count), bytes.size() / 40);
    payload_.resize(bytes.size());
    for (int i = 0; i < count; ++i) {
        EXPECT_EQ(sequential_.FindNextTag(sequential_.GetTag(i)->id, i), i);
        const int code = sequential_.ReadTag(i, payload_.data());
        EXPECT_TRUE(code == 0 || code == -2 || code == -3) << code;
    }
    for (int at = -1, next; (next = sequential_.FindNextChanTag(at)) != -1; at = next)
        ASSERT_GT(next, at);
    (void)sequential_.Close();
}

// Recovery keeps every tag but the damaged one, makes none up, and what it writes is sound.
void Damage::checkRecovery(int tag, bool cut) {
    MUtils::RecoverOptions options;
    options.threads = 1;
    const RecoverState state = MUtils::recoverFile(input_.path(), output_.path(), options).state;
    note(static_cast<std::size_t>(state));
    ASSERT_TRUE(state == RecoverState::kGood || (state == RecoverState::kNotThisFormat && cut));
    if (state != RecoverState::kGood) return;
    const FileState after = verdictOf(output_.path());
    EXPECT_TRUE(isSound(after)) << MUtils::stateName(after);

    Tags intact = tags_;
    if (cut) {
        intact.resize(static_cast<std::size_t>(
            std::min<std::ptrdiff_t>(tag, static_cast<std::ptrdiff_t>(tags_.size()))));
    } else if (tag >= 0 && !isTable(tag)) {
        intact.erase(intact.begin() + tag);
    }
    std::sort(intact.begin(), intact.end());
    Tags kept = tagsOf(output_.bytes());
    for (const std::string& saved : kept)
        note(std::hash<std::string>()(saved));
    std::sort(kept.begin(), kept.end());
    EXPECT_EQ(without(intact, kept).size(), 0u) << "intact tags that are lost";
    for (const std::string& more : without(kept, intact)) {
        EXPECT_TRUE(!cut && tag >= 0 && !isTable(tag)) << "a tag that was made up: " << more.size();
        // Where the file can tell, damaged pixels are not taken for sound. Some bits of a zlib stream have no
        // meaning, so its values count.
        if (isPixel(more) && options_.closed && options_.compressed) {
            EXPECT_TRUE(without(parse(output_.path()).pixels, written_).empty());
        }
    }
}

// `tag` is the first one that is not as it was written.
void Damage::check(const std::vector<unsigned char>& bytes, int tag, bool cut, bool threaded) {
    ++cases_;
    largestBlock = 0;
    input_.fill(bytes);
    const FileState full = verdictOf(input_.path());
    const FileState quick = verdictOf(input_.path(), true);
    note(static_cast<std::size_t>(full) * 16 + static_cast<std::size_t>(quick));
    EXPECT_TRUE(quick != FileState::kDamaged || full == FileState::kDamaged);
    EXPECT_FALSE(cut && full == FileState::kGood);
    checkReaders(bytes, tag, full, threaded);
    checkTable(bytes);
    checkRecovery(tag, cut);
    EXPECT_LT(largestBlock, bytes.size() * 1100 + (2 << 20));
}

INSTANTIATE_TEST_SUITE_P(All, Damage, testing::Combine(testing::Bool(), testing::Bool()), [](const auto& of) {
    return std::string(std::get<0>(of.param) ? "Closed" : "Unclosed") +
           (std::get<1>(of.param) ? "Compressed" : "Raw");
});

TEST_P(Damage, EveryLength) {
    for (std::size_t size = 0; size < sample_.bytes.size(); ++size) {
        std::vector<unsigned char> bytes(sample_.bytes.begin(),
                                         sample_.bytes.begin() + static_cast<std::ptrdiff_t>(size));
        check(bytes, size < 32 ? -1 : tagAt(size), true, true);
        ASSERT_FALSE(HasFailure()) << "cut to " << size;
    }
}

TEST_P(Damage, EveryBit) {
    std::vector<unsigned char> bytes = sample_.bytes;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        const int tag = tagAt(at);
        // Nothing can tell a flip in pixels that are stored as they are.
        const bool bare = tag >= 0 && !options_.compressed && isPixelTag(sample_.tag(tag).id) &&
                          static_cast<std::int64_t>(at) >= sample_.offset(tag) + 40;
        // Under sanitizers one bit of each byte, every bit in turn.
        const int first = kSanitized ? static_cast<int>(at % 8) : 0;
        for (int bit = first; bit < (kSanitized ? first + 1 : 8) && !bare; ++bit) {
            bytes[at] = static_cast<unsigned char>(sample_.bytes[at] ^ (1 << bit));
            check(bytes, tag, false, true);
            ASSERT_FALSE(HasFailure()) << "byte " << at << " of tag " << tag << ", bit " << bit;
        }
        bytes[at] = sample_.bytes[at];
    }
}

TEST_P(Damage, EveryValueOfEachHeaderByte) {
    // Otherwise each byte takes every fifth value, its neighbours the values between.
    const int step = exhaustive() ? 1 : kSanitized ? 51 : 5;
    std::vector<unsigned char> bytes = sample_.bytes;
    for (int tag = -1; tag < sample_.tagCount(); ++tag) {
        const std::int64_t start = tag < 0 ? 0 : sample_.offset(tag);
        for (std::int64_t i = start; i < start + (tag < 0 ? 32 : 40); ++i) {
            const auto at = static_cast<std::size_t>(i);
            for (int change = 1 + static_cast<int>(i % step); change < 256; change += step) {
                bytes[at] = static_cast<unsigned char>(sample_.bytes[at] ^ change);
                check(bytes, tag, false, false);
                ASSERT_FALSE(HasFailure()) << "byte " << at - static_cast<std::size_t>(start) << " of tag "
                                           << tag << " is " << +bytes[at];
            }
            bytes[at] = sample_.bytes[at];
        }
    }
}

}  // namespace
