#include <gtest/gtest.h>

#include "rawimage/tools/note.h"
#include "rawimage/tools/resume.h"
#include "tests/testing/memory_file.h"
#include "tests/testing/sample_file.h"
#include "tests/testing/sanitized.h"

// Files with one damaged size are continued by everything that continues files. Nothing of them may go but
// the table and a tag that is certainly half.

using namespace testing_tools;

namespace {

enum class Tail { kTable, kNone, kHalfTag, kHalfHeader };

struct Begun {
    Bytes bytes;
    std::vector<std::size_t> tags;  // the offsets of the headers, the table's included
    std::size_t kept;               // bytes that must stay
};

// Everything whose end is known in some way of its own, and a blob that is itself a file of this format.
Begun begin(Tail tail, bool compressed, std::size_t lastBytes) {
    FaultStream stream;
    stream.Open();
    struct Writer : RIFile {
        using RIFile::header;
    } file;
    SampleOptions options;
    options.compressed = compressed;
    options.buckets = 1;
    std::vector<Event> ignored;
    RISceneInfo scene(3, "hall");
    MUtils::RGB24 pixels[2] = {};
    Bytes inner = makeSample({true, compressed, false, 1, 2, 1}).bytes;
    EXPECT_TRUE(file.Create(nullptr, &stream).empty() && file.WriteHeader(0).empty());
    file.header.flags = compressed ? RIF_COMPRESSED : 0;
    EXPECT_TRUE(file.WTResolution(10, 3, 1).empty() && file.WTSceneInfo(scene).empty());
    writeBucket(file, 0, options, ignored);
    EXPECT_TRUE(file.WTMirtSettings(inner.data(), static_cast<int>(inner.size())).empty());
    EXPECT_TRUE(file.WTStampText("stamp").empty() && file.WTPreview(pixels, 2, 1).empty());
    writeBucket(file, 1, options, ignored);
    Begun begun{{}, {}, static_cast<std::size_t>(stream.size())};
    EXPECT_TRUE(tail != Tail::kTable || file.Close().empty());
    if (tail == Tail::kHalfTag) writeBucket(file, 2, options, ignored);
    static_cast<std::vector<unsigned char>&>(begun.bytes) = stream.bytes();
    begun.bytes[20] = compressed ? 1 : 0;
    if (tail == Tail::kHalfTag) begun.bytes.resize(begun.kept + 40 + lastBytes);
    if (tail == Tail::kHalfHeader) begun.bytes.raw(begun.bytes.data() + 32, lastBytes);
    for (std::size_t at = 32; at + 40 <= begun.bytes.size(); at += MUtils::decodeTag(&begun.bytes[at]).size)
        begun.tags.push_back(at);
    return begun;
}

void appendNote(const char* name) {
    RIFile file;
    (void)file.Append(name, nullptr);
    (void)file.ReadInfoTags(nullptr);
    (void)file.WTNote("appended");
    (void)file.Close();
}

const struct Way {
    const char* name;
    void (*act)(const char* file);
} kWays[] = {{"Append", appendNote},
             {"replaceRawNote",
              [](const char* name) {
                  char note[] = "replaced";
                  (void)replaceRawNote(name, note, 0, nullptr);
              }},
             {"prepareResume", [](const char* name) { (void)MUtils::prepareResume(name); }},
             {"recoverInPlace", [](const char* name) {
                  MUtils::RecoverOptions options;
                  options.threads = 1;
                  (void)MUtils::recoverInPlace(name, options);
              }}};

// Whether the first `kept` bytes of `before` are still there, the table's offset aside.
std::string loss(std::vector<unsigned char> after, const Begun& before) {
    if (after.size() < before.kept) return std::to_string(before.kept - after.size()) + " bytes are cut off";
    after.resize(before.kept);
    const Bytes kept = Bytes().raw(before.bytes.data(), before.kept);
    std::copy_n(kept.begin() + 12, 8, after.begin() + 12);
    return difference(after, kept);
}

}  // namespace

TEST(DamagedAppend, LosesNothingByAnyBitOfAnySize) {
    MemoryFile target;
    int cases = 0, changed = 0;
    for (const auto& [tail, lastBytes] : {std::pair{Tail::kTable, 0},
                                          {Tail::kNone, 0},
                                          {Tail::kHalfTag, 0},
                                          {Tail::kHalfTag, 30},
                                          {Tail::kHalfHeader, 1},
                                          {Tail::kHalfHeader, 39}}) {
        for (const bool compressed : {true, false}) {
            const Begun sound = begin(tail, compressed, static_cast<std::size_t>(lastBytes));
            for (const std::size_t tag : sound.tags) {
                for (int bit = 0; bit < 32; bit += kSanitized ? 5 : 1) {
                    Begun damaged = sound;
                    const std::size_t at = tag + 4 + static_cast<std::size_t>(bit) / 8;
                    damaged.bytes[at] ^= static_cast<unsigned char>(1 << bit % 8);
                    for (const Way& way : kWays) {
                        target.fill(damaged.bytes);
                        way.act(target.path());
                        ++cases;
                        changed += target.bytes() != damaged.bytes;
                        EXPECT_EQ(loss(target.bytes(), damaged), "")
                            << way.name << ", tail " << static_cast<int>(tail) << ' ' << lastBytes
                            << ", compressed " << compressed << ", tag "
                            << MUtils::decodeTag(&sound.bytes[tag]).id << " at " << tag << ", bit " << bit;
                    }
                    ASSERT_FALSE(HasFailure());
                }
            }
        }
    }
    EXPECT_GT(changed, cases / 8) << "or nothing was continued at all";
    std::printf("%d files, %d continued\n", cases, changed);
}

// A last tag that ends in zeros, as what a power cut leaves does, at every place within a sector.
TEST(DamagedAppend, LosesNoTagOfZeros) {
    constexpr std::uint32_t kZeros = 1000;
    MemoryFile target;
    for (std::uint32_t padding = 0; padding < 512; padding += 4) {
        Begun sound;
        sound.bytes.fileHeader(0).tag(TAG_STAMP, padding, {static_cast<int>(padding)});
        sound.bytes.raw(std::string(padding, 'p').data(), padding);
        const std::size_t tag = sound.bytes.size();
        sound.bytes.tag(TAG_OVERLAY_TEXTS, kZeros, {kZeros}).zeros(kZeros);
        sound.kept = sound.bytes.size();
        for (int bit = 0; bit < 32; ++bit) {
            Begun damaged = sound;
            damaged.bytes[tag + 4 + static_cast<std::size_t>(bit) / 8] ^=
                static_cast<unsigned char>(1 << bit % 8);
            for (const Way& way : kWays) {
                target.fill(damaged.bytes);
                way.act(target.path());
                EXPECT_EQ(loss(target.bytes(), damaged), "")
                    << way.name << ", tag at " << tag << ", bit " << bit;
            }
        }
        ASSERT_FALSE(HasFailure());
    }
}
