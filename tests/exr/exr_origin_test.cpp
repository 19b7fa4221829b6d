#include <ImfChromaticitiesAttribute.h>
#include <ImfFloatAttribute.h>
#include <ImfStringAttribute.h>

#include <climits>
#include <stdexcept>

#include "exr/attr_parser.h"
#include "tests/exr/exr_fixture.h"

using namespace testing_tools;

namespace {

struct Editor final : MUtils::ExrHeaderEditor {
    void edit(Imf::Header& header, int part) override {
        if (throws) throw std::runtime_error("no");
        header.insert("owner", Imf::StringAttribute("part " + std::to_string(part)));
        header.insert("whiteLuminance", Imf::FloatAttribute(2));
        header.insert("chromaticities", Imf::ChromaticitiesAttribute());
        header.displayWindow() = header.dataWindow() = {{3, 3}, {4, 4}};
    }
    bool throws = false;
};

std::string owner(const Part& part) {
    return part.header.typedAttribute<Imf::StringAttribute>("owner").value();
}

}  // namespace

TEST(ExrOrigin, MovesBothWindowsAndNoPixel) {
    const Chans chans = {{2, "c", 126}, {2, "alpha", 125}, {1, "l.v"}, {4, "id"}};
    for (const int kind : {0, 1, 2}) {
        for (const Imath::V2i& origin : {Imath::V2i(100, -50), Imath::V2i(-7, 9), Imath::V2i(0, 0)}) {
            SCOPED_TRACE(text({origin, {kind, 0}}));
            const TempFile file;
            Writer writer(kind, file.path, 70, 300, chans, 32, 4);
            writer.setOrigin(origin.x, origin.y);
            (void)writer.WTRenderRegion({0, 5, 8, 60, 40});
            ASSERT_EQ(text(writer.announce()), "");
            if (kind == 1) {
                ASSERT_EQ(writer.writeBuckets({{5, 8}, {64, 47}}, 16), "");
            } else {
                ASSERT_EQ(texts({writer.write(Region(chans, 0, 0, 70, 300)), writer.Close()}), "");
            }
            std::vector<Part> parts = readExr(file.path);
            const Imath::Box2i frame({0, 0}, {69, 299});
            const Imath::Box2i window = kind == 1 ? Imath::Box2i({5, 8}, {64, 47}) : frame;
            for (Part& part : parts) {
                EXPECT_EQ(part.header.displayWindow(), Imath::Box2i(origin, frame.max + origin));
                EXPECT_EQ(part.header.dataWindow(), Imath::Box2i(window.min + origin, window.max + origin));
                part.header.dataWindow() = window;  // where the samples are known
            }
            EXPECT_EQ(errorOf(parts[0], "G", 0, 1), 0.0);
            EXPECT_EQ(errorOf(parts[kind == 2 ? 1 : 0], kind == 2 ? "v" : "l.v", 2, 0), 0.0);
            EXPECT_EQ(errorOf(parts[kind == 2 ? 2 : 0], "id", 3, 0), 0.0);
        }
    }
    // What OpenEXR does not take is refused when the file is opened, the largest numbers too.
    for (const Imath::V2i& origin : {Imath::V2i(INT_MAX, 0), Imath::V2i(0, INT_MIN)}) {
        const TempFile file;
        Writer writer(0, file.path, 8, 6, {{1, "v"}});
        writer.setOrigin(origin.x, origin.y);
        EXPECT_EQ(text(writer.write(Region(writer.chans, 0, 0, 8, 6))),
                  "createFile -1 Error creating OpenExr file");
        EXPECT_FALSE(file.exists());
    }
}

TEST(ExrHeaderEditor, ReachesEveryPartBeforeTheTexts) {
    const Chans chans = {{2, "a"}, {2, "b"}};
    for (const int kind : {0, 1, 2}) {
        const TempFile file;
        Editor editor;
        Writer writer(kind, file.path, 8, 6, chans, 16, 3, 8);
        writer.setHeaderEditor(&editor);
        EXPECT_EQ(texts({writer.announce(), writer.WTExtraAttributes("whiteLuminance=5.5"),
                         writer.write(Region(chans, 0, 0, 8, 6)), writer.Close()}),
                  "");
        const std::vector<Part> parts = readExr(file.path);
        EXPECT_EQ(text(parts[0].header.dataWindow()), "0,0 7,5");
        EXPECT_EQ(text(parts[0].header.displayWindow()), "0,0 7,5");
        EXPECT_EQ(parts[0].header.typedAttribute<Imf::FloatAttribute>("whiteLuminance").value(), 5.5f);
        EXPECT_NE(parts[0].header.findTypedAttribute<Imf::ChromaticitiesAttribute>("chromaticities"),
                  nullptr);
        EXPECT_EQ(owner(parts[0]) + owner(parts.back()), kind == 2 ? "part 0part 1" : "part 0part 0");
    }
    const TempFile file;
    Editor editor;
    editor.throws = true;
    Writer writer(0, file.path, 8, 6, chans);
    writer.setHeaderEditor(&editor);
    EXPECT_EQ(text(writer.write(Region(chans, 0, 0, 8, 6)), 2),
              "WTRegion -1 Error writing .exr file < OpenEXR -1 no");
    EXPECT_FALSE(file.exists());
}
