#include <gtest/gtest.h>

#include <climits>

#include "tests/rawimage/writer_fixture.h"

using namespace testing_tools;

// A call on the writer `f`.
#define DO(call) [](Writer& f) { return f.call; }

namespace {

constexpr Fault kFaults[] = {Fault::kErrorFull, Fault::kErrorShort, Fault::kErrorNothing,
                             Fault::kSilentShort};
constexpr int kUntouched = 77;

Act chan(MBVTable& data, int type, int w, int h, bool compressed = true) {
    return [&data, type, w, h, compressed](Writer& f) {
        if (!compressed) f.header.flags = 0;
        return f.WTChan(data, 0, 5, nullptr, RCA_NONE, static_cast<RegionChannelType>(type), 0, 0, w, h, 6,
                        7);
    };
}

}  // namespace

// What each operation says when its `nth` write fails: `error` for an error with a short count, `silent` for
// a short count without an error. An error with all bytes written is success, and so is what is "".
TEST(WriterFaults, EveryWrite) {
    struct Row {
        int nth;
        std::string error, silent;
        bool setsLastError;
        Act act;
    };
    std::vector<Row> rows;
    const std::string writing = ": Error writing ", tag = "tag header. (-1)",
                      kept = ": Error writing data buffer. (-1)";
    // Writes whose real errors are told, and which leave the last error alone.
    const auto record = [&](const char* name, const char* what, std::initializer_list<int> writes,
                            const Act& act) {
        rows.push_back({1, name + writing + tag, "", false, act});
        for (int nth : writes)
            rows.push_back({nth, name + writing + what + " (-1)", "", false, act});
    };
    // A tag through the common routine, and one write of its payload whose real errors pass.
    const auto payload = [&](const std::string& name, const char* what, bool sets, const Act& act,
                             int nth = 2) {
        rows.push_back({1, name + writing + tag + "; " + kTagFailed, "", sets, act});
        rows.push_back({nth, "", name + writing + what + " (-1)", sets, act});
    };
    rows.push_back({1, "", "WriteHeader: Error writing header. (-1)", false, DO(WriteHeader(0))});
    rows.push_back({1, kTagFailed, "", false, DO(WTResolution(1, 2, 3))});
    rows.push_back({1, kTagFailed, "", false, DO(WTRegionsInfo(1, 2, 3))});
    record("WTChannelInfo", "channel 1", {3}, DO(WTChannelInfo(&in.channels)));
    record("WTChannelInfo", "info for channel 5.", {7}, DO(WTChannelInfo(&in.region)));
    rows[rows.size() - 2].error += std::string("; ") + kTagFailed;
    record("WTCameraInfo", "camera information", {2, 3, 12}, DO(WTCameraInfo(in.camera)));
    record("WTRenderRegion", "camera information", {2, 6}, DO(WTRenderRegion(in.box)));
    record("WTSceneInfo", "scene info", {2, 3}, DO(WTSceneInfo(in.scene)));
    rows.push_back({2, "", "", true, DO(WTNote(in.note.c_str()))});  // the text's own write is not looked at
    payload("WTNote", "note (0).", true, DO(WTNote(in.note.c_str())), 3);
    payload("addNote", "note (0).", true, DO(addNote(in.note.c_str())));
    payload("WTStamp", "stamp buffer (0).", true, DO(WTStamp(in.blob, 7)));
    payload("WTStampText", "stamp text (0).", true, DO(WTStampText("t")));
    payload("WTOverlayTexts", "overlay texts buffer (0).", true, DO(WTOverlayTexts(in.blob, 7)));
    payload("WTMirtSettings", "Mirt Settings buffer (0).", true, DO(WTMirtSettings(in.blob, 7)));
    payload("WTPreview", "preview buffer (0).", true, DO(WTPreview(in.pixels, 1, 2)));
    payload("WTInt", "data buffer.", false, DO(WTInt(in.ints, 0, 0, 0, 2, 2, 0, 0, 0)));
    payload("WTFloat", "data buffer.", false, DO(WTFloat(in.ints, 0, 0, 0, 2, 2, 0, 0, 0)));
    payload("WT2Float", "data buffer.", false, DO(WT2Float(in.pairs, 0, 0, 0, 2, 2, 0, 0, 0)));
    payload("WT3Float", "data buffer.", false, DO(WT3Float(in.triples, 0, 0, 0, 2, 2, 0, 0, 0)));
    payload("_WT3Float", "data buffer (0).", false, DO(_WT3Float(in.floats, 0, 0, 0, 1, 2, 0, 0, 0)));
    payload("WTChan", "data buffer.", true, chan(in.triples, 2, 3, 2));
    payload("WTChan", "data buffer.", true, chan(in.triples, 2, 3, 2, false));
    payload("WTRegion: Error writing channel buffer. (-1); WTChan", "data buffer.", true,
            DO(WTRegion(&in.region, 0, 0, 0)), 8);  // of the last of four channels

    for (const Row& row : rows) {
        for (Fault fault : kFaults) {
            Session s;
            s.file.lastError = kUntouched;
            s.stream.failAt(Call::kWrite, row.nth, fault);
            const std::string told = row.act(s.file).describe();
            EXPECT_EQ(told, fault == Fault::kErrorFull     ? ""
                            : fault == Fault::kSilentShort ? row.silent
                                                           : row.error)
                << "write " << row.nth << ", fault " << static_cast<int>(fault);
            EXPECT_EQ(s.file.lastError, !row.setsLastError ? kUntouched : told.empty() ? 0 : -1) << told;
            if (told.rfind("WTRegion", 0) == 0) {
                EXPECT_FALSE(s.stream.IsOpen());
                EXPECT_EQ(s.file.stream, nullptr);
            } else if (told.find("tag header") != std::string::npos) {  // nothing further of that tag
                EXPECT_EQ(s.stream.log(), "write 40") << told;
                EXPECT_EQ(s.file.infoTags.Count(), 0) << told;
            }
        }
    }
}

TEST(WriterFaults, EveryCallOfClose) {
    const std::string closing = "Close: Error closing stream. (-1)",
                      seek = "Close: Error seeking for info tags offset. (-1)";
    const std::string table = "Close: Error writing info tags buffer. (-1)";
    const std::string offset = "Close: Error writing info tags offset. (-1)";
    const struct {
        Call call;
        int nth;
        std::string full, error, silent;
    } rows[] = {{Call::kWrite, 1, "", kTagFailed, ""},
                {Call::kWrite, 2, "", table, ""},
                {Call::kWrite, 3, offset, offset, ""},
                {Call::kSeek, 1, seek, seek, seek}};
    for (const auto& row : rows) {
        for (Fault fault : kFaults) {
            Session s, both;
            EXPECT_EQ(said({s.file.WTResolution(1, 2, 3), both.file.WTResolution(1, 2, 3)}), "");
            s.stream.failAt(row.call, row.nth, fault);
            both.stream.failAt(row.call, row.nth, fault);
            both.stream.failAt(Call::kClose, 1);
            const std::string told = s.file.Close().describe();
            EXPECT_EQ(told, fault == Fault::kErrorFull     ? row.full
                            : fault == Fault::kSilentShort ? row.silent
                                                           : row.error);
            EXPECT_EQ(both.file.Close().describe(), told + (told.empty() ? "" : "; ") + closing);
            EXPECT_FALSE(s.stream.IsOpen());
            EXPECT_EQ(s.file.infoTags.Capacity(), 0);
            EXPECT_STREQ(s.file.Close().message(), "No file stream.\n");
        }
    }
}

// What is refused before anything is written: with a stream, and without one.
TEST(WriterFaults, RefusedCalls) {
    const std::string none = "No file stream", data = "Error writing data buffer.",
                      type = "Unknown channel type: Id: %n";
    const struct {
        std::string name, with, without;
        Act act;
    } rows[] = {
        {"WTChannelInfo", "No region data.", none, DO(WTChannelInfo(static_cast<MRRegionData*>(nullptr)))},
        {"WTChannelInfo", "No channel list.", none, DO(WTChannelInfo(decltype (&in.channels)(nullptr)))},
        {"WTRegion", "No region data.", "No region data.", DO(WTRegion(nullptr, 0, 0, 0))},
        {"WTNote", "No note", none, DO(WTNote(nullptr))},
        {"addNote", "No note", none, DO(addNote(nullptr))},
        {"WTStamp", "No stamp", none, DO(WTStamp(nullptr, 3))},
        {"WTStamp", "Error writing stamp buffer (0).", none, DO(WTStamp(in.blob, -1))},
        {"WTStampText", "No stamp text", none, DO(WTStampText(nullptr))},
        {"WTOverlayTexts", "No overlay texts", none, DO(WTOverlayTexts(nullptr, 3))},
        {"WTMirtSettings", "No Mirt Settings buffer", none, DO(WTMirtSettings(nullptr, 3))},
        {"WTPreview", "No data buffer.", none, DO(WTPreview(nullptr, 1, 1))},
        {"WTPreview", "Error writing preview buffer (0).", none, DO(WTPreview(in.pixels, -1, -1))},
        {"WTPreview", "Error writing preview buffer (0).", none, DO(WTPreview(in.pixels, INT_MAX, INT_MAX))},
        {"WriteTagHeader", "Error writing tag header.", none, DO(WriteTagHeader(300, -1))},
        {"WTInt", "No data buffer.", none, DO(WTInt(in.none, 0, 0, 0, 1, 1, 0, 0, 0))},
        {"WTInt", data, none, DO(WTInt(in.pairs, 0, 0, 0, 1, 1, 0, 0, 0))},
        {"WTFloat", data, none, DO(WTFloat(in.ints, 0, 0, 0, 100, 100, 0, 0, 0))},
        {"WT2Float", data, none, DO(WT2Float(in.pairs, 0, 0, 0, -1, -2, 0, 0, 0))},
        {"WT3Float", data, none, DO(WT3Float(in.triples, 0, 0, 0, 1 << 16, 1 << 16, 0, 0, 0))},
        {"_WT3Float", "No data buffer.", none, DO(_WT3Float(nullptr, 0, 0, 0, 1, 1, 0, 0, 0))},
        {"_WT3Float", "Error writing data buffer (0).", none,
         DO(_WT3Float(in.floats, 0, 0, 0, -1, 1, 0, 0, 0))},
        {"WTChan", "No buffer channel.", "No buffer channel.", chan(in.none, 9, 1, 1)},
        {"WTChan", type, type, chan(in.ints, 0, 1, 1)},
        {"WTChan", type, type, chan(in.ints, 7, 1, 1)},
        {"WTChan", "Error writing data into memory stream", none, chan(in.ints, 1, 100, 100)},
        {"WTChan", "Error reading data buffer for compression.", none, chan(in.pairs, 1, 1, 1)},
        {"WTChan", data, none, chan(in.ints, 1, 100, 100, false)},
        {"WTChan", data, none, chan(in.ints, 1, -1, -1)},
        {"WTChan", data, none, chan(in.ints, 1, 1 << 20, 1 << 20)},
        {"WriteHeader", "", none, DO(WriteHeader(0))},
        {"WTCameraInfo", "", none, DO(WTCameraInfo(in.camera))},
        {"WTRenderRegion", "", none, DO(WTRenderRegion(in.box))},
        {"WTSceneInfo", "", none, DO(WTSceneInfo(in.scene))},
        {"WTExtraAttributes", "", "", DO(WTExtraAttributes(nullptr))},
        {"WTRegion", "", "Error writing channel buffer. (-1); WTChan: " + none,
         DO(WTRegion(&in.region, 0, 0, 0))},
    };
    for (const auto& row : rows) {
        Session s;
        Writer closed;
        const auto told = [&](const std::string& text) {
            return text.empty() ? "" : row.name + ": " + text + " (-1)";
        };
        EXPECT_EQ(row.act(s.file).describe(), told(row.with));
        EXPECT_TRUE(row.with.empty() || s.stream.log().empty()) << row.name << ": " << s.stream.log();
        EXPECT_EQ(row.act(closed).describe(), told(row.without));
    }
}

// What was written before a channel failed stays easy to find; channels without data are passed over.
TEST(WriterFaults, AFailingChannelClosesTheFileWithItsTable) {
    Session s;
    Region region(1, 2, 3, 4);
    region.channels[0].type = RCT_NONE;
    EXPECT_EQ(s.file.WTRegion(&region, 0, 8, 9).describe(),
              "WTRegion: Error writing channel buffer. (-1); WTChan: Unknown channel type: Id: %n (-1)");
    EXPECT_FALSE(s.stream.IsOpen());
    EXPECT_EQ(difference(s.stream.bytes(), File().zipped(region, 8, 9, 1).closed()), "");
    for (RegionChannel& channel : region.channels)
        channel.data = nullptr;
    EXPECT_EQ(s.file.WTRegion(&region, 0, 0, 0).describe(), "");
}
