#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <thread>

#include "tests/cli/to_exr_fixture.h"

namespace {

using namespace testing_tools;
using testing::HasSubstr;

TEST(ToExr, WhatIsLostIsToldAndTheRestConverted) {
    const TempFolder folder;
    RawFrame frame;
    frame.channels = {{2, 126, "color"}, {4, 0, "id"}};
    frame.boxes = {{0, 0, 16, 16}, {16, 0, 16, 16}, {32, 0, 8, 16},
                   {0, 16, 16, 8}, {16, 16, 16, 8}, {32, 16, 8, 8}};
    frame.write(folder / "whole.rimg");
    const std::string whole = readFile(folder / "whole.rimg");
    RIFile file;
    ASSERT_TRUE(file.Open((folder / "whole.rimg").c_str(), nullptr).empty());
    ASSERT_EQ(file.ReadInfoTags(nullptr), 0);
    int tag = -1;
    do
        tag = file.FindNextChanTag(tag);
    while (file.GetTag(tag)->p2 != 16 || file.GetTag(tag)->p3 != 16 || file.GetTag(tag)->p8 != 0);
    const auto offset = static_cast<std::size_t>(file.GetTag(tag)->offset);

    std::uint64_t table = 0;
    std::memcpy(&table, &whole[12], 8);
    const auto cut = [&](std::size_t size) { return whole.substr(0, size); };
    const auto flip = [&](std::size_t at, int bits) {
        std::string bytes = whole;
        bytes[at] = static_cast<char>(bytes[at] ^ bits);
        return bytes;
    };
    const auto fifth = [](int x, int y) { return x >= 16 && x < 32 && y >= 16; };
    const auto fromFifth = [](int x, int y) { return x >= 16 && y >= 16; };
    const auto none = [](int, int) { return false; };
    const std::string where =
        "offset " + std::to_string(offset) + ": damaged bucket 16x8+16+16 of channel 0 color: ";
    const struct {
        const char* name;
        std::string bytes;
        int status;
        std::string told;
        bool (*lost)(int x, int y);
    } cases[] = {
        {"cut in a payload", cut(offset + 60), 3, "0: 24x8+16+16\n", fromFifth},
        {"cut in a header", cut(offset + 7), 3, "out.exr: these pixels are missing", fromFifth},
        {"never closed", whole.substr(0, 12) + std::string(8, '\0') + whole.substr(20, table - 20), 3,
         "never closed", none},
        {"payload", flip(offset + 60, 0x10), 4, where, fifth},
        {"size, repaired from the table", flip(offset + 5, 0x10), 4, "offset " + std::to_string(offset),
         none},
        {"flags", flip(20, 1), 4, "offset 20: ", none},
    };
    for (const auto& c : cases) {
        writeFile(folder / "raw.rimg", c.bytes);
        for (const char* kind : kKinds) {
            SCOPED_TRACE(std::string(c.name) + ' ' + kind);
            const ProgramResult result = convert({folder / "raw.rimg", folder / "out.exr", "--kind", kind});
            EXPECT_EQ(result.status, c.status) << result.err;
            EXPECT_THAT(result.err, HasSubstr(c.told));
            Planes planes = planesOf(folder / "out.exr");
            int wrong = 0;
            for (int y = 0; y < 24; ++y) {
                for (int x = 0; x < 40; ++x)
                    wrong += floatAt(planes.at("B"), x, y) != (c.lost(x, y) ? 0.0f : valueAt(0, 0, 2, x, y));
            }
            EXPECT_EQ(wrong, 0);
        }
    }
}

// A large tag goes straight to its place. What an earlier one has put there is back when it turns out
// damaged.
TEST(ToExr, ALargeTagThatIsDamagedSpoilsNothing) {
    const TempFolder folder;
    RawFrame frame;
    frame.width = frame.height = 400;
    frame.channels = {{2, 126, "color"}};
    frame.boxes = {{0, 0, 400, 300, 100}, {50, 0, 350, 400, 200}};
    frame.write(folder / "raw.rimg");
    std::string bytes = readFile(folder / "raw.rimg");
    std::uint64_t table = 0;
    std::memcpy(&table, &bytes[12], 8);
    bytes[table - 1] = static_cast<char>(bytes[table - 1] ^ 1);  // the checksum of the last tag
    writeFile(folder / "raw.rimg", bytes);
    for (const char* kind : kKinds) {
        EXPECT_EQ(convert({folder / "raw.rimg", folder / "out.exr", "--kind", kind}).status, 4);
        Planes planes = planesOf(folder / "out.exr");
        int wrong = 0;
        for (int y = 0; y < 400; ++y) {
            for (int x = 0; x < 400; ++x)
                wrong += floatAt(planes.at("G"), x, y) != (y < 300 ? valueAt(100, 0, 1, x, y) : 0.0f);
        }
        EXPECT_EQ(wrong, 0) << kind;
    }
}

TEST(ToExr, FailuresLeaveNothingBehind) {
    const TempFolder folder, work;
    const std::string raw = folder / "raw.rimg", exr = folder / "in.exr", out = work / "out.exr";
    RawFrame frame;
    frame.metadata = [](RIFile& file) { expectOk(file.WTNote("a note")); };
    frame.write(raw);
    expectConverted({raw, exr});
    writeFile(folder / "head.rimg", readFile(raw).substr(0, 100));
    frame.boxes.clear();
    frame.width = frame.height = 30000;
    frame.write(folder / "large.rimg");
    frame.width = frame.height = 20000;
    const std::vector<std::string> names(2000, "n");
    frame.channels.clear();
    for (const std::string& name : names)
        frame.channels.push_back({1, 0, name.c_str()});
    frame.write(folder / "many.rimg");

    const struct {
        std::vector<std::string> arguments;
        int status;
        const char* told;
    } cases[] = {
        {{raw, out, "--attributes", "a=1 b=2"}, 2, "Unexpected token '=' at position 5"},
        {{raw, out, "--attributes", "a="}, 2, "attribute value expected at position 2"},
        {{raw, out, "--attributes", "note=5"}, 2, "\"note\""},
        {{raw, out, "--attributes", "channels=5"}, 2, "\"channels\""},
        {{raw, out, "--attributes", "type=none"},
         1,
         "out.exr: createFile: Error creating OpenExr file (-1); "},
        {{raw, out, "--channels", "color,nothing*"}, 2, "\"nothing*\" fits no channel"},
        {{raw, out, "--kind", "tiled", "--auto-data-window"}, 2, "not for tiled"},
        {{raw, out, "--bucket", "8x8"}, 2, "--bucket is for OpenEXR"},
        {{exr, work / "out.rimg", "--kind", "tiled"}, 2, "--kind is for raw"},
        {{raw, raw}, 2, "same file"},
        {{raw, out, "--bits", "24"}, 2, "--bits"},
        {{raw, out, "--compression", "3"}, 2, "--compression"},
        {{folder / "head.rimg", out}, 3, "has no channel list"},
        {{raw, out, "--origin", "5"}, 2, "'5' is not two numbers, X,Y"},
        {{raw, out, "--origin", "5,6x"}, 2, "--origin"},
        {{raw, out, "--origin", "1073741823,0"}, 2, "--origin puts the frame where no OpenEXR file"},
        {{raw, out, "--attributes-from", raw}, 4, "raw.rimg: "},
        {{raw, out, "--attributes-from", folder / "none.exr"}, 5, "none.exr: No such file"},
        {{folder / "large.rimg", out}, 1, "\"color\" takes more than 2 GiB"},
        {{folder / "many.rimg", out}, 1, "MiB of memory"},
        {{raw, work / "none/out.exr"}, 1, "No such file or directory"},
        {{raw, "/dev/full"}, 1, "No space left on device"},
        {{raw, "/dev/full", "--kind", "tiled"}, 1, "No space left on device"},
    };
    writeFile(work / "old.exr", "an older file");
    for (const auto& c : cases) {
        const ProgramResult result = convert(c.arguments);
        SCOPED_TRACE(result.err);
        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(result.errorLines(), 1);
        EXPECT_THAT(result.err, HasSubstr(c.told));
        std::filesystem::directory_iterator files(std::filesystem::path(out).parent_path());
        EXPECT_EQ(std::distance(begin(files), end(files)), 1);
    }
    // What is there stays until the new file is whole.
    EXPECT_EQ(convert({raw, work / "old.exr", "--attributes", "type=none"}).status, 1);
    EXPECT_EQ(readFile(work / "old.exr"), "an older file");
    expectConverted({raw, work / "old.exr"});
    Planes planes = planesOf(exr);
    EXPECT_EQ(expectSamePixels(planes, work / "old.exr"), 5u);
}

TEST(ToExr, ASignalLeavesNothing) {
    const TempFolder folder, work;
    RawFrame frame;
    frame.tile = 1;
    frame.width = frame.height = 512;
    frame.boxes = {{0, 0, 512, 512}};
    frame.write(folder / "raw.rimg");
    const auto files = [&] {
        std::filesystem::directory_iterator list(std::filesystem::path(work / "x").parent_path());
        return std::distance(begin(list), end(list));
    };
    const ProgramResult result = runProgram(
        RIMG_PROGRAM, {"convert", folder / "raw.rimg", work / "out.exr", "--kind", "tiled"}, [&](pid_t pid) {
            for (int i = 0; i < 20000 && files() == 0; ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            ::kill(pid, SIGTERM);
        });
    EXPECT_EQ(result.status, 75);
    EXPECT_THAT(result.err, HasSubstr("stopped"));
    EXPECT_EQ(files(), 0);
}

}  // namespace
