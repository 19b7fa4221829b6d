#include "rawimage/tools/note.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "rawimage/tools/settings.h"
#include "tests/testing/run_program.h"
#include "tests/testing/sample_file.h"

using namespace testing_tools;
using namespace MUtils;

namespace {

class NoteTest : public testing::Test {
  protected:
    std::string store(const std::vector<unsigned char>& bytes) {
        writeFile(path_, std::string(bytes.begin(), bytes.end()));
        return path_;
    }
    Bytes stored() const { return Bytes().text(readFile(path_)); }

    // True as replaceRawNote is, a failed parse.
    bool replace(const std::string& path, const std::string& note, RawImageInfo* info = nullptr) {
        std::string copy = note;
        return replaceRawNote(path.c_str(), copy.data(), 0, info);
    }
    std::string read(const std::string& path) {
        std::string text(2000, '?');
        EXPECT_FALSE(readRawNote(path.c_str(), text.data(), 2000));
        return text.c_str();
    }

    TempFolder folder_;
    const std::string path_ = folder_ / "frame.rimg";
};

// A file with so many notes before its pixels, and a scene.
Bytes fileWithNotes(int notes, bool closed) {
    FaultStream stream;
    stream.Open();
    RIFile file;
    RISceneInfo scene(-7, "scene");
    std::vector<Event> events;
    EXPECT_TRUE(file.Create(nullptr, &stream).empty() && file.WriteHeader(0).empty() &&
                file.WTResolution(10, 3, 1).empty() && file.WTSceneInfo(scene).empty());
    for (int i = 0; i < notes; ++i)
        EXPECT_TRUE(file.WTNote("old").empty());
    writeBucket(file, 0, {}, events);
    EXPECT_TRUE(!closed || file.Close().empty());
    Bytes bytes;
    static_cast<std::vector<unsigned char>&>(bytes) = stream.bytes();
    return bytes;
}

TEST_F(NoteTest, OverwritesEachNoteInPlace) {
    for (const int length : {0, 511, 512, 1022, 1023, 1024, 5000}) {
        for (const int notes : {1, 2}) {
            const std::string note(static_cast<std::size_t>(length), 'n');
            const Bytes payload = Bytes().text(note.substr(0, 1023)).zeros(1024);
            const Bytes before = fileWithNotes(notes, length % 2 == 0);
            Bytes after = before;
            // Behind the resolution, the scene of 46 + 4 bytes, and their own headers.
            for (int i = 0; i < notes; ++i)
                std::copy_n(payload.begin(), 1024, after.begin() + 32 + 40 + 50 + 40 + i * 1064);
            store(before);
            EXPECT_FALSE(replace(path_, note));
            EXPECT_EQ(difference(stored(), after), "") << length << ' ' << notes;
            EXPECT_EQ(read(path_), note.substr(0, 1023));
        }
    }
}

TEST_F(NoteTest, AppendsToAFileWithoutANote) {
    for (const int length : {0, 511, 512, 1022, 1023, 1024, 5000}) {
        for (const bool closed : {true, false}) {
            const Bytes before = fileWithNotes(0, closed);
            const std::string note(static_cast<std::size_t>(length), 'n');
            store(before);
            EXPECT_FALSE(replace(path_, note));
            EXPECT_EQ(read(path_), note.substr(0, 1023));

            Reading old(before), reading(stored());
            ASSERT_TRUE(old.parse() == 0 && reading.parse() == 0 && old.list() == 0 && reading.list() == 0);
            old.seen.events.push_back({"askNote", {}, {}});
            old.seen.events.push_back({"setNote", {}, note.substr(0, 1023)});
            EXPECT_EQ(reading.seen.events, old.seen.events);
            ASSERT_EQ(reading.file.NumTags(), old.file.NumTags() + 1);
            EXPECT_EQ(reading.file.GetTag(reading.file.NumTags() - 1)->id, TAG_NOTE);
            EXPECT_TRUE(!closed || stored().size() == before.size() + 1064 + 48) << "a tag and its entry";
        }
    }
    // Also when the parse failed.
    EXPECT_TRUE(replace(store(Bytes().fileHeader(0).tag(TAG_SCENE_INFO, 2).zeros(2)), "note"));
    EXPECT_EQ(read(path_), "note");
}

TEST_F(NoteTest, ReadsNoMoreThanTheCapacity) {
    SampleOptions bare;
    bare.metadata = false;
    const struct {
        Bytes file;
        int capacity;
        const char* expected;  // of ten bytes that were '?'
        bool failed;
    } cases[] = {
        {makeSample().bytes, 0, "??????????", false},
        {makeSample().bytes, -1, "??????????", false},
        {makeSample().bytes, 1, "A?????????", false},
        {makeSample().bytes, 7, "A note.???", false},
        {makeSample().bytes, 8, "A note.\0??", false},
        {makeSample().bytes, 10, "A note.\0??", false},
        {makeSample(bare).bytes, 1, "\0?????????", false},
        {makeSample(bare).bytes, 0, "??????????", false},
        {Bytes().fileHeader(0).tag(TAG_NOTE, 1024).text("torn"), 10, "torn\0?????", false},
        {Bytes().fileHeader(0).tag(TAG_NOTE, 0), 10, "\0?????????", false},
        {Bytes().fileHeader(0).tag(TAG_NOTE, 2).text("a").zeros(1).tag(TAG_NOTE, 1).text("b"), 10,
         "b\0????????", false},
        {Bytes().text("no raw image, though long enough"), 10, "\0?????????", true},
        {Bytes().text("no raw image, though long enough"), 0, "??????????", true},
    };
    for (const auto& c : cases) {
        std::string buffer(10, '?');
        EXPECT_EQ(readRawNote(store(c.file).c_str(), buffer.data(), c.capacity), c.failed);
        EXPECT_EQ(buffer, std::string(c.expected, 10)) << &c - cases;
    }
    for (const std::string& path : {folder_ / "missing", folder_ / ""}) {
        std::string buffer(10, '?');
        EXPECT_FALSE(readRawNote(path.c_str(), buffer.data(), 10));
        EXPECT_EQ(buffer, std::string(10, '?'));
    }
}

TEST_F(NoteTest, LeavesWhatItCannotListAsItIs) {
    Bytes lost = makeSample({true, true, false}).bytes;
    MUtils::storeU64(lost.data() + 12, 32);  // the first tag for the table
    const Bytes cases[] = {{},
                           Bytes().text("no raw image, though long enough"),
                           lost,
                           Bytes().fileHeader(0).tag(TAG_RESOLUTION, 0xFFFFFFF0u, {10, 3})};
    for (const Bytes& bytes : cases) {
        replace(store(bytes), "note");
        EXPECT_EQ(difference(stored(), bytes), "") << &bytes - cases;
    }
    store(fileWithNotes(1, true));
    EXPECT_FALSE(replaceRawNote(path_.c_str(), nullptr, 0, nullptr)) << "no note leaves the old one";
    store(fileWithNotes(0, true));
    EXPECT_FALSE(replaceRawNote(path_.c_str(), nullptr, 0, nullptr));
    EXPECT_EQ(difference(stored(), fileWithNotes(0, true)), "");

    EXPECT_TRUE(replace(folder_ / "", "note"));
    EXPECT_TRUE(replace(folder_ / "no/such/folder", "note"));
    EXPECT_TRUE(replace(folder_ / "missing", "note"));
    EXPECT_EQ(readFile(folder_ / "missing"), "") << "it is there now, empty";
    EXPECT_TRUE(std::filesystem::exists(folder_ / "missing"));
    if (::geteuid() == 0) return;  // who may write anything
    ::chmod(path_.c_str(), 0444);
    EXPECT_TRUE(replace(path_, "note"));
    EXPECT_EQ(difference(stored(), fileWithNotes(0, true)), "");
}

// What replaceRawNote() discards, writeNote() reports, and then the file is as it was.
TEST_F(NoteTest, ReportsWhyANoteWasNotWritten) {
    const Bytes whole = fileWithNotes(0, true);
    Bytes damaged = whole, hidden = fileWithNotes(1, true), scene = hidden, torn = fileWithNotes(1, false);
    damaged[36] ^= 1;  // the size of the resolution
    hidden[36] ^= 1;
    scene[121] = 'x';                           // its name's NUL
    std::fill_n(torn.begin() + 200, 500, 'n');  // half of another note
    const std::string longest(1023, 'n');
    const struct {
        const char* what;
        Bytes file;
        std::string note;
        int code;
    } cases[] = {
        {"finished", whole, longest, 0},
        {"too long", whole, longest + 'n', -1},
        {"unfinished", fileWithNotes(0, false), "note", kNoteFileUnfinished},
        {"unfinished, with a note", fileWithNotes(1, false), "note", 0},
        {"damaged", damaged, "note", kNoteFileDamaged},
        {"damaged on the way to the note", hidden, "note", kNoteFileDamaged},
        {"damaged elsewhere", scene, "note", 0},
        {"half of a note", torn, "note", 0},
        {"cut", Bytes().raw(whole.data(), whole.size() - 1), "note", kNoteFileUnfinished},
        {"of another kind", Bytes().text("no raw image, though long enough"), "note", kNoteFileNotThisFormat},
        {"empty", {}, "note", kNoteFileNotThisFormat},
    };
    for (const auto& c : cases) {
        const ErrorCode error = writeNote(store(c.file).c_str(), c.note.c_str());
        EXPECT_EQ(error.getError(), c.code) << c.what << ": " << error.describe();
        EXPECT_EQ(difference(stored(), c.file).empty(), c.code != 0) << c.what;
        EXPECT_EQ(c.code == 0 ? read(path_) : c.note, c.note) << c.what;
    }
    store(whole);
    EXPECT_EQ(writeNote(path_.c_str(), nullptr).getError(), -1);
    RIFile writer;
    ASSERT_TRUE(writer.Append(path_.c_str(), nullptr).empty());
    EXPECT_EQ(writeNote(path_.c_str(), "note").getError(), EWOULDBLOCK);
    ASSERT_TRUE(writer.Close().empty());
    EXPECT_EQ(difference(stored(), whole), "");
    EXPECT_EQ(writeNote((folder_ / "").c_str(), "note").getError(), EISDIR);
    const ErrorCode missing = writeNote((folder_ / "missing").c_str(), "note");
    EXPECT_EQ(missing.getError(), ENOENT);
    EXPECT_NE(missing.describe().find("No such file or directory"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "missing"));
    EXPECT_EQ(writeNote(nullptr, "note").getError(), ENOENT);
}

TEST_F(NoteTest, FillsTheReportInAnyCase) {
    const struct {
        Bytes file;
        bool failed;
        int width, height, scene;
        const char* name;
    } cases[] = {
        {fileWithNotes(0, true), false, 10, 3, -7, "scene"},
        {fileWithNotes(2, false), false, 10, 3, -7, "scene"},
        {Bytes().fileHeader(0).tag(TAG_RESOLUTION, 0, {4, 5}), false, 4, 5, 0, "old"},
        {Bytes().fileHeader(0).tag(TAG_SCENE_INFO, 5, {}).i32s({3}).zeros(1), false, 0, 0, 3, ""},
        {Bytes().fileHeader(0).tag(TAG_RESOLUTION, 0, {4, 5}).tag(TAG_SCENE_INFO, 9), true, 4, 5, 0, "old"},
        {{}, true, 0, 0, 0, "old"},
    };
    for (const auto& c : cases) {
        RawImageInfo info;
        info.setName("old");
        info.width = info.height = info.scene = info.hasSettings = -5;
        EXPECT_EQ(replace(store(c.file), "note", &info), c.failed);
        EXPECT_EQ(std::vector<int>({info.width, info.height, info.scene, info.hasSettings}),
                  std::vector<int>({c.width, c.height, c.scene, -5}));
        EXPECT_STREQ(info.name, c.name);
        info.setName(nullptr);
        EXPECT_EQ(info.name, nullptr);
    }
}

TEST_F(NoteTest, ReadsSettingsOfAnySize) {
    const auto file = [](std::initializer_list<std::size_t> sizes) {
        Bytes bytes = Bytes().fileHeader(0);
        for (const std::size_t size : sizes)
            bytes.tag(TAG_SETTINGS, static_cast<std::uint32_t>(size), {static_cast<int>(size)})
                .text(std::string(size, 's'));
        return bytes;
    };
    Bytes torn = file({5, 40000});
    torn.pop_back();
    const struct {
        Bytes file;
        int size;  // of what is read
        bool failed;
    } cases[] = {
        {file({}), 0, false},
        {file({0}), 0, false},
        {file({32767}), 32767, false},
        {file({32768}), 32768, false},
        {file({100001}), 100001, false},
        {file({9, 4}), 4, false},
        {torn, 5, true},
        {{}, 0, true},
        {Bytes().fileHeader(0).tag(TAG_SETTINGS, 5, {-1}).zeros(5), 0, true},
        {Bytes().fileHeader(0).tag(TAG_SETTINGS, 5, {0x7FFFFFFF}).zeros(5), 0, true},
    };
    for (const auto& c : cases) {
        PBufStream out(3);
        EXPECT_EQ(readMirtSettings(store(c.file).c_str(), &out), c.failed) << c.size;
        EXPECT_EQ(readMirtSettings(path_.c_str(), nullptr), c.failed);
        EXPECT_FALSE(out.IsOpen());
        ASSERT_EQ(out.Size(), c.size);
        EXPECT_EQ(std::count(out.GetBuf(), out.GetBuf() + c.size, 's'), c.size);
    }
    PBufStream out(3);
    EXPECT_FALSE(readMirtSettings((folder_ / "missing").c_str(), &out));
    EXPECT_FALSE(readMirtSettings((folder_ / "").c_str(), &out));
    EXPECT_EQ(out.Size(), 3);
    ReadMirtSettingsCallback callback;
    EXPECT_FALSE(callback.setMirtSettings(nullptr));
}

}  // namespace
