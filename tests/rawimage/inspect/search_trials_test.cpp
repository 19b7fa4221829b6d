#include <gtest/gtest.h>

#include <algorithm>

#include "rawimage/inspect/tag_scan.h"
#include "tests/testing/check.h"
#include "tests/testing/raw_frame.h"

// How a scan finds the tags behind damage of more than one byte.

using namespace testing_tools;
using namespace MUtils;

namespace {

// Twelve buckets of four channels, with a note that tells frames apart.
Contents frameOf(const std::string& note, bool closed, const Contents& settings = {}) {
    RawFrame frame;
    frame.width = 64, frame.height = 48;
    frame.channels = {{2, 126, "color"}, {1, 125, "alpha"}, {3, 0, "uv"}, {4, 0, "id"}};
    frame.boxes.clear();
    for (int i = 0; i < 12; ++i)
        frame.boxes.push_back({i % 4 * 16, i / 4 * 16, 16, 16, static_cast<float>(note.size())});
    frame.metadata = [&](RIFile& file) {
        expectOk(file.WTNote(note.c_str()));
        Contents blob = settings;
        if (!blob.empty()) expectOk(file.WTMirtSettings(blob.data(), static_cast<int>(blob.size())));
    };
    frame.closed = closed;
    MemoryFile file;
    frame.write(file.path());
    return file.bytes();
}

Contents first(const Contents& bytes, std::size_t count) {
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(count, bytes.size()))};
}

Contents joined(Contents a, const Contents& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TagScan scanned(const Contents& bytes) {
    FaultStream stream(bytes);
    stream.Open();
    InspectOptions options;
    options.threads = 1;
    TagScan scan;
    EXPECT_TRUE(scanTags(stream, options, scan));
    return scan;
}

using Tags = std::vector<std::string>;

// Names a tag and its bytes, short enough for a failure's message.
std::string describe(const std::string& tag) {
    return std::string(tagName(idOf(tag))) + " " + std::to_string(tag.size()) + " #" +
           std::to_string(std::hash<std::string>()(tag) % 10000);
}

// The tags that a scan finds, without tables.
Tags foundIn(const Contents& bytes, const TagScan& scan) {
    Tags tags;
    for (const INFOTAG& tag : scan.tags) {
        const auto start = bytes.begin() + static_cast<std::ptrdiff_t>(tag.offset);
        std::string whole(start, start + tag.size);
        encodeTag(tag, reinterpret_cast<unsigned char*>(whole.data()));  // it may be repaired
        if (tag.id != TAG_INFO_TAGS) tags.push_back(describe(whole));
    }
    return tags;
}

// The tags that were written.
Tags writtenIn(const Contents& file) {
    Tags tags;
    for (const std::string& tag : tagsOf(file)) {
        if (idOf(tag) != TAG_INFO_TAGS) tags.push_back(describe(tag));
    }
    return tags;
}

std::size_t offsetOf(const Contents& file, std::uint32_t id) {
    std::size_t at = 32;
    while (loadU32(&file[at]) != id)
        at += loadU32(&file[at + 4]);
    return at;
}

}  // namespace

TEST(SearchTrials, ASecondFileEndsTheFirst) {
    const Contents blob(3000, 'b');
    const Contents finished = frameOf("a", true, blob), open = frameOf("a", false, blob);
    const Contents other = frameOf("the other", true);
    const std::size_t settings = offsetOf(open, TAG_SETTINGS), note = offsetOf(open, TAG_NOTE);
    const Tags tags = writtenIn(open);
    const struct {
        const char* what;
        Contents own;
        std::size_t tags;
    } cases[] = {
        {"closed", finished, tags.size()},
        {"never closed", open, tags.size()},
        {"cut inside the file header's tag", first(open, 50), 0},
        {"cut inside a note", first(open, note + 300), 3},
        {"cut inside the settings", first(open, settings + 500), 4},
        {"cut inside pixels", first(open, open.size() - 30), tags.size() - 1},
        {"cut inside the table", first(finished, open.size() + 300), tags.size()},
    };
    for (const auto& c : cases) {
        for (const std::size_t more : {std::size_t{32}, std::size_t{900}, other.size() / 2, other.size()}) {
            SCOPED_TRACE(c.what + std::string(" and bytes of another: ") + std::to_string(more));
            const Contents bytes = joined(c.own, first(other, more));
            const TagScan scan = scanned(bytes);
            EXPECT_EQ(foundIn(bytes, scan),
                      Tags(tags.begin(), tags.begin() + static_cast<std::ptrdiff_t>(c.tags)));
            ASSERT_FALSE(scan.gaps.empty());
            EXPECT_STREQ(scan.gaps.back().cause, "another file begins here");
            EXPECT_EQ(scan.gaps.back().offset, static_cast<std::int64_t>(c.own.size()));
            EXPECT_EQ(scan.gaps.back().end, scan.fileBytes);
        }
    }
}

// A blob may hold a whole file, finished or not, whether its own header is sound or not.
TEST(SearchTrials, AFileInABlobEndsNothing) {
    for (const bool closed : {true, false}) {
        for (const bool innerClosed : {true, false}) {
            const Contents whole = frameOf("outer", closed, frameOf("inner", innerClosed));
            const Tags tags = writtenIn(whole);
            EXPECT_EQ(foundIn(whole, scanned(whole)), tags);
            const std::size_t settings = offsetOf(whole, TAG_SETTINGS);
            for (const std::size_t size : {std::size_t{1}, std::size_t{8}, std::size_t{40}}) {
                // Without tables nothing shows that a file was the content of a tag whose header is lost.
                if (size > 1 && !closed && !innerClosed) continue;
                Contents bytes = whole;
                std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(settings), size, 0);
                // The table may give the header back.
                Tags found = foundIn(bytes, scanned(bytes)), kept = tags;
                kept.erase(kept.begin() + 4);
                found.erase(std::remove(found.begin(), found.end(), tags[4]), found.end());
                EXPECT_EQ(found, kept) << closed << innerClosed << size;
            }
            const Contents torn = first(whole, settings + 1500);
            const TagScan scan = scanned(torn);
            EXPECT_EQ(foundIn(torn, scan), Tags(tags.begin(), tags.begin() + 4));
            ASSERT_EQ(scan.gaps.size(), 1u);
            EXPECT_TRUE(scan.gaps[0].torn);
        }
    }
}

// A preview lacks bytes, and the pixel tag that its size then reaches into is damaged as well: the settings
// between them, which have no checksum, are found all the same.
TEST(SearchTrials, SmallTagsBetweenTwoDamagesAreFound) {
    Bytes file = Bytes().fileHeader(0).tag(TAG_RESOLUTION, 0, {16, 16});
    const std::size_t preview = file.size();
    file.tag(TAG_PREVIEW, 3000, {100, 10}).text(noise(3000)).tag(TAG_SETTINGS, 60, {60}).text(noise(60));
    const std::size_t pixels = file.size();
    for (const int y : {0, 8})
        addPixels(file, 0, boxAt(0, y, 16, 8), zipped(noise(16 * 8 * 4), 9));
    Tags kept = writtenIn(file);
    kept.erase(kept.begin() + 3);
    kept.erase(kept.begin() + 1);
    for (const std::size_t flipped : {std::size_t{4}, std::size_t{20}, std::size_t{100}}) {
        for (const std::ptrdiff_t missing : {1, 110, 250}) {
            Contents bytes = file;
            bytes[pixels + flipped] ^= 0x10;
            const auto place = bytes.begin() + static_cast<std::ptrdiff_t>(preview) + 500;
            bytes.erase(place, place + missing);
            EXPECT_EQ(foundIn(bytes, scanned(bytes)), kept)
                << "flipped " << flipped << ", missing " << missing;
        }
    }
}

// A blob lacks bytes, so that its size reaches over a small tag into the one behind that.
TEST(SearchTrials, ASmallTagUnderABlobIsFound) {
    Bytes file = Bytes().fileHeader(0).tag(TAG_RESOLUTION, 0, {16, 16});
    const std::size_t stamp = file.size();
    file.tag(TAG_STAMP, 120, {120}).text(noise(120)).tag(TAG_STAMP_TEXT, 11).text("stamp text").zeros(1);
    file.tag(TAG_OVERLAY_TEXTS, 60, {60}).text(noise(60)).tag(TAG_NOTE, 1024).text("note").zeros(1020);
    Tags kept = writtenIn(file);
    kept.erase(kept.begin() + 1);
    for (const std::ptrdiff_t missing : {10, 60, 78, 100}) {
        Contents bytes = file;
        const auto place = bytes.begin() + static_cast<std::ptrdiff_t>(stamp) + 45;
        bytes.erase(place, place + missing);
        EXPECT_EQ(foundIn(bytes, scanned(bytes)), kept) << missing;
    }
}
