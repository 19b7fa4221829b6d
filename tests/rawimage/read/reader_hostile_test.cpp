#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <new>

#include "tests/testing/sample_file.h"

// What a damaged or hostile file may cost: a code from the list, no more memory than its size justifies, no
// endless walk, no values that were never written.

namespace {

std::atomic<std::size_t> largestBlock{0};
std::atomic<std::size_t> liveBytes{0};
std::atomic<std::size_t> peakBytes{0};

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    void* block = std::malloc(size > 0 ? size : 1);
    if (block == nullptr) return nullptr;
    largestBlock = std::max(largestBlock.load(), size);
    liveBytes += malloc_usable_size(block);
    peakBytes = std::max(peakBytes.load(), liveBytes.load());
    return block;
}

void* operator new(std::size_t size) {
    void* block = operator new(size, std::nothrow);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

void operator delete(void* block) noexcept {
    if (block != nullptr) liveBytes -= malloc_usable_size(block);
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}

using namespace testing_tools;

namespace {

// Parses and lists a file, and holds what it costs against its size.
struct Trial : Reading {
    Trial(const std::vector<unsigned char>& bytes, bool lengthHidden) : Reading(bytes) {
        if (lengthHidden) stream.hideLength();
        largestBlock = 0;
        parsed = parse();
        const std::size_t calls = stream.log().size();
        listed = list();
        EXPECT_LT(largestBlock, bytes.size() * 1100 + (1 << 20));
        EXPECT_LE(calls, (bytes.size() + 40) * (seen.tags.size() + 2) * 10)
            << "characters in the log of calls";
        EXPECT_LE(seen.tags.size() + seen.events.size(), bytes.size() + 2);
        EXPECT_LE(file.NumTags(), static_cast<int>(bytes.size() / 40 + 1));
        EXPECT_TRUE((parsed <= 0 && parsed >= -5) || (parsed <= -13 && parsed >= -22)) << parsed;
        EXPECT_TRUE((listed <= 0 && listed >= -5) || listed == EINVAL) << listed;
    }
    int parsed = 0;
    int listed = 0;
};

class Hostile : public testing::TestWithParam<std::tuple<bool, bool, bool>> {
  protected:
    Hostile() {
        std::tie(options_.closed, options_.compressed, lengthHidden_) = GetParam();
        sample_ = makeSample(options_);
    }

    // True when as many values as claimed were delivered, and they were written; a tag without compression
    // may claim fewer of them than it has.
    bool isWritten(const Event& event) const {
        if (event.call != "setImageData") return true;
        const auto& numbers = event.numbers;
        if (numbers[0] != numbers[4] * numbers[5]) return false;
        const std::size_t size = options_.compressed ? std::string::npos : event.bytes.size();
        return std::any_of(sample_.events.begin(), sample_.events.end(), [&](const Event& original) {
            return original.call == "setImageData" && original.bytes.compare(0, size, event.bytes) == 0;
        });
    }

    // The code of a walk over a file that is cut inside the payload of a tag with this id.
    int cutCode(std::uint32_t id) const {
        switch (id) {
            case TAG_CAMERA_INFO:
            case TAG_RENDER_REGION:
            case TAG_SCENE_INFO: return -1;
            case TAG_PREVIEW: return -20;
            case TAG_STAMP:
            case TAG_OVERLAY_TEXTS:
            case TAG_SETTINGS: return -22;
            default: return !MUtils::isPixelTag(id) ? 0 : options_.compressed ? -13 : -16;
        }
    }

    SampleOptions options_;
    Sample sample_;
    bool lengthHidden_ = false;
};

std::string nameOf(const testing::TestParamInfo<Hostile::ParamType>& of) {
    const auto [closed, compressed, lengthHidden] = of.param;
    return std::string(closed ? "Closed" : "Unclosed") + (compressed ? "Compressed" : "Raw") +
           (lengthHidden ? "OfUnknownLength" : "");
}

INSTANTIATE_TEST_SUITE_P(All, Hostile, testing::Combine(testing::Bool(), testing::Bool(), testing::Bool()),
                         nameOf);

TEST_P(Hostile, EveryHeaderField) {
    constexpr std::int32_t kValues[] = {0,       1,  39,      40,     41,
                                        1 << 22, -1, INT_MIN, INT_MAX};  // -1 is 0xFFFFFFFF, too
    for (int i = -1; i < sample_.tagCount(); ++i) {
        const int fields = i < 0 ? 8 : 10;
        // Each field alone and with the next: products of two may overflow.
        for (int field = 0; field < 2 * fields - 1; ++field) {
            for (const std::int32_t value : kValues) {
                SCOPED_TRACE(testing::Message()
                             << "tag " << i << ", words from " << field / 2 << " set to " << value);
                Bytes bytes = sample_.bytes;
                unsigned char* words = bytes.data() + (i < 0 ? 0 : sample_.offset(i)) + field / 2 * 4;
                MUtils::storeI32(words, value);
                if (field % 2 != 0) MUtils::storeI32(words + 4, value);
                const Trial trial(bytes, lengthHidden_);
                const std::vector<Event>& events = trial.seen.events;
                if (i >= 0) {
                    const std::ptrdiff_t before = sample_.eventsBefore(i);
                    ASSERT_GE(static_cast<std::ptrdiff_t>(events.size()), before);
                    EXPECT_TRUE(std::equal(events.begin(), events.begin() + before, sample_.events.begin()));
                    EXPECT_TRUE(std::all_of(events.begin(), events.end(),
                                            [&](const Event& e) { return isWritten(e); }));
                }
                ASSERT_FALSE(HasFailure());
            }
        }
    }
}

TEST_P(Hostile, EveryLength) {
    for (std::int64_t size = 0; size <= static_cast<std::int64_t>(sample_.bytes.size()); ++size) {
        SCOPED_TRACE(testing::Message() << "cut to " << size);
        const Bytes bytes = Bytes().raw(sample_.bytes.data(), static_cast<std::size_t>(size));
        Trial trial(bytes, lengthHidden_);
        int headers = 0;  // whole ones
        while (headers < sample_.tagCount() && sample_.offset(headers) + 40 <= size)
            ++headers;
        int parsed = size < 32 ? -2 : 0;
        int listed = size < 32 ? -2 : 0;
        int entries = size < 32 ? 0 : headers;
        if (headers > 0 && sample_.offset(headers - 1) + sample_.tag(headers - 1).size > size) {
            parsed = cutCode(sample_.tag(headers - 1).id);
        }
        if (options_.closed && size >= 32) {
            const std::int64_t table = size - sample_.offsets.back() - 40;
            // An entry that breaks off is listed, too.
            const int all = sample_.tag(sample_.tagCount() - 1).p1;
            listed = table < 0 ? -5 : 0;
            entries = table < 0 ? 0 : std::min(static_cast<int>(table / 48) + 1, all);
        }
        EXPECT_EQ(trial.parsed, parsed);
        EXPECT_EQ(trial.listed, listed);
        EXPECT_EQ(trial.file.NumTags(), entries);

        std::vector<Event>& events = trial.seen.events;
        ASSERT_LE(events.size(), sample_.events.size());
        // Of a note that is cut there is as much text as came.
        if (!events.empty() && events.back().call == "setNote") {
            EXPECT_EQ(sample_.events[events.size() - 1].bytes.find(events.back().bytes), 0u);
            events.pop_back();
        }
        EXPECT_TRUE(std::equal(events.begin(), events.end(), sample_.events.begin()));
        ASSERT_FALSE(HasFailure());
    }
}

TEST(Cost, GrowsWithWhatComesWhereTheLengthIsUnknown) {
    const Trial trial(Bytes().fileHeader(0).tag(TAG_STAMP, INT_MAX, {INT_MAX}).zeros(3 << 20), true);
    EXPECT_EQ(trial.parsed, -22);
    EXPECT_LE(largestBlock, 4u << 20);
}

TEST(Cost, AMillionTags) {
    constexpr int kTags = 1000000;
    PMemStream stream;
    stream.Open();
    RIFile writer;
    ASSERT_TRUE(writer.Create(nullptr, &stream).empty() && writer.WriteHeader(0).empty());
    for (int i = 0; i < kTags; ++i)
        ASSERT_TRUE(writer.WriteTagHeader(TAG_CHAN_INT, 0, i).empty());
    ASSERT_TRUE(writer.Close().empty());
    for (const bool scanned : {false, true}) {
        stream.Open();
        const unsigned char none[8] = {};
        int written = 0;
        stream.Seek(12);
        if (scanned) stream.Write(none, 8, written);
        RIFile file;
        int mask = 0;
        (void)file.Open(nullptr, &stream);
        const std::size_t before = peakBytes = liveBytes.load();
        ASSERT_EQ(file.ReadInfoTags(&mask), 0);
        EXPECT_LE(peakBytes - before, std::size_t{kTags} * (48 + 64));
        EXPECT_EQ(file.NumTags(), kTags + (scanned ? 1 : 0));
        EXPECT_EQ(mask, scanned ? (1 << 20) - 1 : 0);
        EXPECT_EQ(file.GetTag(kTags - 1)->p1, kTags - 1);
        EXPECT_EQ(file.GetTag(kTags - 1)->offset, 32u + 40u * (kTags - 1));
    }
}

}  // namespace
