#include <OpenEXR/ImfChromaticitiesAttribute.h>
#include <OpenEXR/ImfStringAttribute.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/cli/to_exr_fixture.h"
#include "tests/testing/exr_sample.h"

// What a conversion cannot keep: told, refused, or given back.

namespace {

using namespace testing_tools;
using testing::HasSubstr;
using Strings = std::vector<std::string>;

Strings with(Strings arguments, const Strings& more) {
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

Imf::Header headerOf(const std::string& path, int part = 0) {
    return Imf::MultiPartInputFile(path.c_str(), 0).header(part);
}

// Channels by their parts, with windows inside, across and outside the display window, at negative places.
ExrSample framed(const Imath::Box2i& display, const Imath::Box2i& window) {
    ExrSample sample{{{"", "R:f G:f B:f v:h id:u", window}}, display};
    sample.bits = 0xBBFFBBFF;
    return sample;
}

TEST(ConvertFrame, HoldsTheWindowThatIsAskedFor) {
    const Imath::Box2i display{{10, -20}, {41, 11}};
    const Imath::Box2i inside{{15, -10}, {30, 5}}, across{{-3, -25}, {20, 0}}, outside{{60, 60}, {69, 69}};
    const struct {
        Imath::Box2i window;
        const char* frame;
        bool crop;
        int status;
        const char* told;
        Imath::Box2i kept;  // what the raw frame stands for
    } cases[] = {
        {inside, "display", false, 0, "begins at (10, -20), which is not kept; --origin 10,-20", display},
        {inside, "data", false, 0, "the frame is 16x16+15+-10, the display window 32x32+10+-20", inside},
        {inside, "union", false, 0, "--origin 10,-20", display},
        {across,
         "display",
         false,
         6,
         "393 pixels outside the display window would be lost; --frame data",
         {}},
        {across, "display", true, 0, "393 pixels outside the display window left out", display},
        {across, "data", false, 0, "--origin -3,-25", across},
        {across, "union", false, 0, "--origin -3,-25", {{-3, -25}, {41, 11}}},
        {outside, "display", false, 6, "all pixels (100 pixels) lie outside", {}},
        {outside, "display", true, 6, "all pixels (100 pixels) lie outside", {}},
        {outside, "union", true, 0, "--origin 10,-20", {{10, -20}, {69, 69}}},
    };
    const TempFolder folder;
    const std::string in = folder / "in.exr", raw = folder / "raw.rimg", out = folder / "out.exr";
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.told) + ' ' + c.frame);
        std::filesystem::remove(raw);
        framed(display, c.window).write(in);
        const ProgramResult result =
            convert(with({in, raw, "--frame", c.frame}, c.crop ? Strings{"--crop-overscan"} : Strings{}));
        EXPECT_EQ(result.status, c.status) << result.err;
        EXPECT_THAT(result.err, HasSubstr(c.told));
        EXPECT_EQ(std::filesystem::exists(raw), c.status == 0);
        if (c.status != 0) continue;
        const Imath::V2i size = c.kept.max - c.kept.min + Imath::V2i(1);
        EXPECT_EQ(parseRaw(raw)["setResolution"].at(0).numbers,
                  (std::vector<std::int64_t>{size.x, size.y, 0x3F800000}));
        for (const char* kind : kKinds) {
            const std::string origin = std::to_string(c.kept.min.x) + ',' + std::to_string(c.kept.min.y);
            expectConverted({raw, out, "--kind", kind, "--origin", origin});
            EXPECT_EQ(headerOf(out).displayWindow(), c.kept);
            // Pixel by pixel in the file's own coordinates.
            Planes before = planesOf(in), after = planesOf(out);
            ExrPlane& from = before.at("id");
            ExrPlane& to = after.at("id");
            int wrong = 0;
            for (int y = c.kept.min.y; y <= c.kept.max.y; ++y) {
                for (int x = c.kept.min.x; x <= c.kept.max.x; ++x) {
                    const int u = x - display.min.x, v = y - display.min.y;
                    const int s = x - c.kept.min.x, t = y - c.kept.min.y;
                    wrong += from.has(u, v) && (!to.has(s, t) || from.at(u, v) != to.at(s, t));
                }
            }
            EXPECT_EQ(wrong, 0) << kind;
        }
    }
}

TEST(ConvertAttributes, AreNamedAndCopied) {
    const TempFolder folder;
    const std::string in = folder / "in.exr", raw = folder / "raw.rimg", out = folder / "out.exr";
    Imf::Chromaticities primaries;
    primaries.red = {0.5f, 0.25f};
    ExrSample sample{{{"a", "R:h G:h B:h"}, {"b", "w:h"}}};
    sample.edit = [&](Imf::Header& header) {
        header.insert("chromaticities", Imf::ChromaticitiesAttribute(primaries));
        header.insert("owner", Imf::StringAttribute("a=b;c"));
        header.insert("note", Imf::StringAttribute("kept as a note"));
        header.insert(header.name() == "a" ? "view" : "sheet", Imf::StringAttribute(header.name()));
    };
    sample.write(in);
    const ProgramResult result = convert({in, raw});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "rimg: " + in +
                              ": these attributes are not kept (--attributes-from copies them from here): "
                              "chromaticities, owner, view, sheet\n");
    for (const char* kind : kKinds) {
        SCOPED_TRACE(kind);
        expectConverted({raw, out, "--kind", kind, "--attributes-from", in, "--attributes", "view=other"});
        const Imf::Header header = headerOf(out);
        EXPECT_EQ(header.typedAttribute<Imf::ChromaticitiesAttribute>("chromaticities").value(), primaries);
        const auto text = [](const Imf::Header& from, const char* name) {
            const auto* attribute = from.findTypedAttribute<Imf::StringAttribute>(name);
            return attribute != nullptr ? attribute->value() : "";
        };
        EXPECT_EQ(text(header, "owner") + text(header, "view") + text(header, "note"),
                  "a=b;cotherkept as a note");
        EXPECT_EQ(text(header, "sheet"), "b");
        EXPECT_EQ(header.compression(), Imf::ZIPS_COMPRESSION);
        EXPECT_EQ(header.dataWindow(), Imath::Box2i({0, 0}, {7, 5}));
    }
}

TEST(ConvertStrict, RefusesAnyLossBeforeAnythingIsWritten) {
    const TempFolder folder;
    const std::string in = folder / "in.exr", raw = folder / "in.rimg";
    const ExrSample plain{{{"", "R:h G:h B:h A:h"}}};
    const auto edited = [&plain](const std::function<void(Imf::Header&)>& edit) {
        ExrSample sample = plain;
        sample.edit = edit;
        return sample;
    };
    const struct {
        const char* kind;  // of the loss; "" for none
        ExrSample sample;
        Strings options{};
    } fromExr[] = {
        {"", plain},
        {"", {{{"", "v:f", {{2, 2}, {4, 4}}}}}},
        {"origin", {{{"", "v:f", {{1, 1}, {8, 6}}}}, {{1, 1}, {8, 6}}}},
        {"display", {{{"", "v:f", {{2, 2}, {4, 4}}}}}, {"--frame", "data"}},
        {"overscan", {{{"", "v:f", {{2, 2}, {9, 4}}}}}, {"--crop-overscan"}},
        {"attributes", edited([](Imf::Header& h) { h.insert("owner", Imf::StringAttribute("me")); })},
        {"screenWindow", edited([](Imf::Header& h) { h.screenWindowWidth() = 2; })},
        {"text",
         edited([](Imf::Header& h) { h.insert("note", Imf::StringAttribute(std::string(1024, 'n'))); })},
        {"name", {{{"", std::string(70, 'n') + ":f"}}}},
    };
    for (const auto& c : fromExr) {
        SCOPED_TRACE(c.kind);
        c.sample.write(in);
        const std::string out = folder / "out.rimg";
        std::filesystem::remove(out);
        const ProgramResult result = convert(with({in, out, "--strict", "--json"}, c.options));
        const auto json = nlohmann::json::parse(result.out);
        const bool loses = *c.kind != 0;
        EXPECT_EQ(result.status, loses ? 6 : 0) << result.err;
        EXPECT_EQ(json.at("exitCode"), result.status);
        EXPECT_EQ(json.at("losses").size(), loses ? 1u : 0u);
        if (loses) {
            EXPECT_EQ(json.at("losses").at(0).at("kind"), c.kind);
        }
        EXPECT_EQ(std::filesystem::exists(out), !loses);
        // Without --strict it is told and done.
        EXPECT_EQ(convert(with({in, out}, c.options)).status, 0);
    }
    const struct {
        const char* kind;
        std::function<void(RawFrame&)> change;
    } toExr[] = {
        {"", [](RawFrame&) {}},
        {"name",
         [](RawFrame& frame) {
             frame.channels = {{1, 0, "v"}, {1, 0, "v"}};
         }},
        {"channels",
         [](RawFrame& frame) {
             frame.channels.push_back({1, 0, "hidden", 2});
         }},
        {"overscan",
         [](RawFrame& frame) {
             frame.boxes.push_back({36, 0, 8, 8});
         }},
        {"text", [](RawFrame& frame) { frame.metadata = [](RIFile& f) { expectOk(f.WTNote("a=b")); }; }},
        {"tags",
         [](RawFrame& frame) {
             frame.metadata = [](RIFile& f) {
                 char settings[] = "x";
                 expectOk(f.WTMirtSettings(settings, 1));
             };
         }},
    };
    for (const auto& c : toExr) {
        SCOPED_TRACE(c.kind);
        RawFrame frame;
        c.change(frame);
        frame.write(raw);
        const std::string out = folder / "out.exr";
        std::filesystem::remove(out);
        const bool loses = *c.kind != 0;
        const ProgramResult result = convert({raw, out, "--strict", "--json"});
        EXPECT_EQ(result.status, loses ? 6 : 0) << result.err;
        const auto json = nlohmann::json::parse(result.out);
        EXPECT_EQ(json.at("losses").size(), loses ? 1u : 0u) << result.out;
        if (loses) {
            EXPECT_EQ(json.at("losses").at(0).at("kind"), c.kind);
        }
        EXPECT_EQ(std::filesystem::exists(out), !loses);
        EXPECT_EQ(convert({raw, out}).status, 0);
    }
}

TEST(ConvertJson, SaysWhatWasDone) {
    const TempFolder folder;
    const std::string in = folder / "in.exr", out = folder / "out.rimg";
    framed({{10, -20}, {41, 11}}, {{15, -10}, {30, 5}}).write(in);
    const ProgramResult result = convert({in, out, "--json", "--bucket", "16x16"});
    EXPECT_EQ(result.errorLines(), 1) << result.err;
    auto json = nlohmann::json::parse(result.out);
    EXPECT_EQ(json.at("losses").at(0).at("kind"), "origin");
    json.erase("losses");
    EXPECT_EQ(json, nlohmann::json::parse(R"({"input":")" + in + R"(","output":")" + out + R"(","to":"raw",
        "exitCode":0,"fault":null,"frame":{"width":32,"height":32},"origin":{"x":10,"y":-20},
        "window":{"x":5,"y":10,"width":16,"height":16},"channels":3,"regions":4,"remarks":[]})"));
    const auto failed = nlohmann::json::parse(convert({out, folder / "none/out.exr", "--json"}).out);
    EXPECT_EQ(failed.at("exitCode"), 1);
    EXPECT_THAT(failed.at("fault").at("cause").get<std::string>(), HasSubstr("No such file"));
}

TEST(ConvertFormat, GoesByTheNameOrByTo) {
    const TempFolder folder;
    const std::string exr = folder / "in.exr", raw = folder / "in.rimg";
    ExrSample{{{"", "R:h G:h B:h"}}}.write(exr);
    expectConverted({exr, raw});
    const struct {
        std::string in, out;
        Strings options;
        int status;
        const char* told;
    } cases[] = {
        {exr, "b.exr", {}, 2, "nothing to convert: "},
        {exr, "b.EXR", {}, 2, "is an OpenEXR file already"},
        {raw, "b.Rimg", {}, 2, "is a raw image already"},
        {exr, "b", {"--to", "exr"}, 2, "nothing to convert"},
        {exr, "b.exr", {"--to", "raw"}, 2, "--to asks for a raw image, the name is that of an OpenEXR file"},
        {raw, "b.rimg", {"--to", "exr"}, 2, "--to asks for an OpenEXR file"},
        {raw, "b", {"--to", "png"}, 2, "--to"},
        {exr, "b", {}, 0, ""},
        {exr, "b.png", {"--to", "raw"}, 0, ""},
        {raw, "b.eXr", {"--to", "exr"}, 0, ""},
        {raw, "b.x", {}, 0, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.out + c.told);
        const TempFolder work;
        const ProgramResult result = convert(with({c.in, work / c.out}, c.options));
        EXPECT_EQ(result.status, c.status) << result.err;
        EXPECT_THAT(result.err, HasSubstr(c.told));
        EXPECT_EQ(std::filesystem::exists(work / c.out), c.status == 0);
        if (c.status == 0) {
            EXPECT_EQ(readFile(work / c.out).substr(0, 4) == "RIMG", c.in == exr);
        }
    }
}

TEST(ToExr, WhatACompressionDoesNotDoIsTold) {
    RawFrame frame;
    const TempFolder folder;
    frame.write(folder / "raw.rimg");
    const struct {
        Strings options;
        const char* told;
    } cases[] = {
        {{"--compression", "b44"}, "all is stored uncompressed; --bits 16"},
        {{"--compression", "b44a", "--bits", "16"}, "integer channels are stored uncompressed"},
        {{"--compression", "b44a", "--bits", "16", "--channels", "color"}, nullptr},
        {{"--compression", "pxr24"}, "rounds the values of 32 bits to 24"},
        {{"--compression", "pxr24", "--bits", "16"}, nullptr},
        {{"--compression", "dwab"}, "rounds R, G and B to half floats"},
        {{"--compression", "zip"}, nullptr},
    };
    for (const auto& c : cases) {
        const ProgramResult result =
            convert(with({folder / "raw.rimg", folder / "out.exr", "--strict"}, c.options));
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.errorLines(), c.told != nullptr ? 1 : 0) << result.err;
        EXPECT_THAT(result.err, HasSubstr(c.told != nullptr ? c.told : ""));
    }
}

// A render that has only begun has nothing wrong with it.
TEST(ToExr, FilesWithoutAFrameAreUnfinishedUnlessDamaged) {
    const TempFolder folder;
    const std::string raw = folder / "raw.rimg";
    RawFrame frame;
    frame.boxes.clear();
    frame.closed = false;
    frame.write(raw);
    const std::string bytes = readFile(raw);
    std::string damaged = bytes.substr(0, 112);
    damaged[33] = '\x7f';  // the id of the first tag
    const struct {
        std::string bytes;
        int status;
        const char* told;
    } cases[] = {
        {bytes.substr(0, 32), 3, "has no channel list"},
        {bytes.substr(0, 72), 3, "has no channel list"},
        {bytes.substr(0, 32) + bytes.substr(112), 3, "has no resolution"},
        {damaged, 4, "has no channel list"},
    };
    for (const auto& c : cases) {
        writeFile(raw, c.bytes);
        for (const char* kind : kKinds) {
            const ProgramResult result = convert({raw, folder / "out.exr", "--kind", kind});
            EXPECT_EQ(result.status, c.status) << result.err;
            EXPECT_THAT(result.err, HasSubstr(c.told));
        }
    }
}

}  // namespace
