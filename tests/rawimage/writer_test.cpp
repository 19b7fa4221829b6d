#include "rawimage/writer.h"

#include <gtest/gtest.h>

#include <climits>

#include "tests/rawimage/writer_fixture.h"

using namespace testing_tools;

TEST(Writer, EveryTagIsItsBytes) {
    Session s;
    Writer& f = s.file;
    in.region.announced = 7;  // one more than the region's table holds
    EXPECT_EQ(
        said({f.WTResolution(640, -480, -0.0f), f.WTRegionsInfo(64, 32, 1), f.WTChannelInfo(&in.region)}),
        "");
    EXPECT_EQ(said({f.WTChannelInfo(&in.channels), f.WTCameraInfo(in.camera), f.WTRenderRegion(in.box)}), "");
    EXPECT_EQ(said({f.WTSceneInfo(in.scene), f.WTSceneInfo(in.unnamed), f.WTStamp(in.blob, 7)}), "");
    EXPECT_EQ(said({f.WTStampText("made"), f.WTOverlayTexts(in.blob, 0), f.WTMirtSettings(in.blob, 5)}), "");
    EXPECT_EQ(said({f.WTPreview(in.pixels, 2, 1), f.WTExtraAttributes("a=1")}), "");
    EXPECT_EQ(said({f.WTInt(in.ints, 1, 2, 3, 2, 3, 6, 7, 8), f.WTFloat(in.ints, 1, 2, 3, 3, 1, 6, 7, 8)}),
              "");
    EXPECT_EQ(
        said({f.WT2Float(in.pairs, -1, 2, 3, 1, 2, 6, 7, 8), f.WT3Float(in.triples, 1, 2, 3, 6, 1, 6, 7, 8)}),
        "");
    EXPECT_EQ(said({f._WT3Float(in.floats, 1, 2, 3, 1, 2, 6, 7, 8), f.Close()}), "");
    in.region.announced = 6;

    const auto bytes = [](const void* data, std::size_t size) { return Bytes().raw(data, size); };
    Bytes records;
    for (int i = 0; i < 6; ++i)
        records.i32s({i, i + 1, 100 + i, i}).text("c" + std::to_string(i)).zeros(62);
    records.i32s({6}).zeros(76);
    File expected;
    expected.listed(256, {}, {640, -480, INT_MIN}).listed(257, {}, {64, 32, 1}).listed(262, records, {7, 80});
    expected.unlisted(262, Bytes().i32s({0, 5, 117, 2}).text("N.x").zeros(61).i32s({1}).zeros(76), {2, 80});
    expected.unlisted(264, bytes(&in.camera, 104)).unlisted(265, Bytes().i32s({1, -2, 3, 4, 5}));
    expected.unlisted(267, Bytes().u32(9).text("hall").zeros(1)).unlisted(267, Bytes().u32(9).zeros(1));
    expected.listed(268, bytes(in.blob, 7), {7}).listed(271, Bytes().text("made").zeros(1), {});
    expected.listed(272, {}, {0})
        .listed(273, bytes(in.blob, 5), {5})
        .listed(266, bytes(in.pixels, 6), {2, 1});
    expected.listed(261, bytes(in.ints.bytes.data(), 24), {1, 2, 3, 2, 3, 6, 7, 8});
    expected.listed(260, bytes(in.ints.bytes.data(), 12), {1, 2, 3, 3, 1, 6, 7, 8});
    expected.listed(259, bytes(in.pairs.bytes.data(), 16), {-1, 2, 3, 1, 2, 6, 7, 8});
    expected.listed(258, bytes(in.triples.bytes.data(), 72), {1, 2, 3, 6, 1, 6, 7, 8});
    expected.listed(258, bytes(in.floats, 24), {1, 2, 3, 1, 2, 6, 7, 8}).closed();
    EXPECT_EQ(difference(s.stream.bytes(), expected), "");
}

// Scratch memory is reused from the larger region to the smaller and the empty one.
TEST(Writer, RegionsAreLevelNineStreamsLastChannelFirst) {
    Session s;
    File expected;
    for (const auto& [w, h] : {std::pair{9, 7}, {2, 1}, {0, 0}, {40, 50}}) {
        Region region(w, -h, w, h);
        region.announced = 8;
        EXPECT_EQ(s.file.WTRegion(&region, 1, 2, 3).describe(), "");
        expected.zipped(region, 2, 3);
    }
    EXPECT_EQ(s.file.Close().describe(), "");
    EXPECT_EQ(difference(s.stream.bytes(), expected.closed()), "");
}

// Without the flag in the header payloads are the values themselves.
TEST(Writer, ChannelsOfEveryTypeUncompressed) {
    Session s;
    File expected;
    s.file.header.flags = 0;
    Values* const tables[] = {&in.ints, &in.triples, &in.pairs, &in.ints, &in.triples, &in.quads};
    const std::uint32_t tags[] = {260, 258, 259, 261, 258, 270};
    for (int i = 0; i < 6; ++i) {
        const auto type = static_cast<RegionChannelType>(i + 1);
        EXPECT_EQ(said({s.file.WTChan(*tables[i], 0, 5, nullptr, RCA_NONE, type, 1, 2, 3, 2, 6, 7)}), "");
        expected.listed(tags[i], tables[i]->bytes, {type, 1, 2, 3, 2, 6, 7, 5});
    }
    EXPECT_EQ(difference(s.stream.bytes(), expected), "");
}

TEST(Writer, AsksDescriptionsInTheOrderOfTheRecord) {
    struct Asked : Described {
        std::string log;
        RegionChannelType getType() override { return log += "type ", Described::getType(); }
        RegionChannelAlias getAlias() override { return log += "alias ", Described::getAlias(); }
        int getFlags() override { return log += "flags ", Described::getFlags(); }
        const char* getName() override { return log += "name ", Described::getName(); }
    } asked;
    MUtils::Table<MUtils::RegionChannelCallback*, 100> channels;
    channels.Add(&asked);
    Session s;
    EXPECT_EQ(said({s.file.WTChannelInfo(&channels)}), "");
    EXPECT_EQ(asked.log, "type alias flags name ");
}

// The fill is held against the text: a long note is written whole and answered with an error.
TEST(Writer, NotesByLength) {
    for (std::size_t length : {0u, 511u, 512u, 1023u, 1024u, 5000u}) {
        for (const bool adds : {false, true}) {
            Session s;
            File expected;
            const std::string note(length, 'x');
            const std::size_t least = adds ? 1024 : 512;  // that is answered with an error
            const ErrorCode error = adds ? s.file.addNote(note.c_str()) : s.file.WTNote(note.c_str());
            EXPECT_EQ(error.describe(), length < least ? ""
                                        : adds         ? "addNote: Error writing note (0). (-1)"
                                                       : "WTNote: Error writing note (0). (-1)");
            EXPECT_EQ(s.file.lastError, length < least ? 0 : -1);
            if (length < 1024) expected.listed(269, Bytes().text(note).zeros(1024 - length));
            EXPECT_EQ(s.file.Close().describe(), "");
            EXPECT_EQ(difference(s.stream.bytes(), expected.closed()), "") << length;
        }
    }
}

TEST(Writer, OnlyAppendOpensACallersStream) {
    FaultStream stream;
    Writer file;
    EXPECT_EQ(said({file.Create(nullptr, &stream), file.Close()}), "");
    EXPECT_EQ(stream.log(), "");
    EXPECT_EQ(said({file.Append(nullptr, &stream), file.Close()}), "");
    EXPECT_EQ(stream.log(), "open, close");
    stream.Open();
    stream.clearLog();
    EXPECT_EQ(said({file.Open(nullptr, &stream), file.Close()}), "");
    EXPECT_EQ(stream.log(), "close");
    stream.failAt(Call::kOpen, 1);
    EXPECT_EQ(said({file.Append("name", &stream)}),
              "Append: Error creating file \"name\" (5) (5); open: Input/output error (5)");
}

TEST(Writer, AFailedCreateLeavesAWriterThatFailsLater) {
    Writer file;
    EXPECT_EQ(said({file.Create(nullptr, nullptr)}),
              "Create: Error creating file \"\" (2) (2); open: No such file or directory (2)");
    EXPECT_EQ(file.lastError, ENOENT);
    EXPECT_TRUE(file.writeMode);
    EXPECT_EQ(said({file.WriteHeader(0)}), "");  // an error that wrote nothing passes
    EXPECT_EQ(said({file.WTResolution(1, 2, 3)}), kTagFailed);
    EXPECT_EQ(said({file.Close()}), "");
}

TEST(Writer, DestructionDoesNotFinishAFile) {
    FaultStream stream;
    stream.Open();
    {
        Writer file;
        EXPECT_EQ(said({file.Create(nullptr, &stream), file.WriteHeader(0), file.WTResolution(1, 2, 3)}), "");
        EXPECT_EQ(said({file.Append(nullptr, &stream)}), "");
        EXPECT_EQ(file.infoTags.Count(), 1);  // Append keeps the list, Create drops it
        EXPECT_EQ(said({file.Create(nullptr, &stream)}), "");
        EXPECT_EQ(file.infoTags.Capacity(), 0);
    }
    EXPECT_TRUE(stream.IsOpen());
    EXPECT_EQ(difference(stream.bytes(), File().listed(256, {}, {1, 2, 0x40400000})), "");
}
