#include "rawimage/tools/preview.h"

#include <gtest/gtest.h>

#include <climits>

#include "tests/testing/run_program.h"
#include "tests/testing/sample_file.h"

using namespace testing_tools;

namespace {

// Halves what it is handed.
struct Halving final : ColCor {
    void correct(float rgb[3]) override {
        for (int i = 0; i < 3; ++i)
            rgb[i] /= 2;
    }
};

constexpr RGB24 kBackground{9, 8, 7};

// A preview as a browser asks for it, into pixels of 77.
struct Preview {
    Preview(const std::string& path, int W, int H, bool keepAspect = false, ColCor* corrector = nullptr)
        : reds(static_cast<std::size_t>(std::max(W, 1) * std::max(H, 1))) {
        std::vector<RGB24> pixels(reds.size(), {77, 77, 77});
        info.width = info.height = info.scene = info.hasSettings = -5;
        info.setName("old");
        made =
            makeRawImagePreview(path.c_str(), W, H, pixels.data(), &info, keepAspect, kBackground, corrector);
        std::transform(pixels.begin(), pixels.end(), reds.begin(), [](RGB24 pixel) { return pixel.r; });
        name = info.name != nullptr ? info.name : "(null)";
        delete[] std::exchange(info.name, nullptr);
    }
    std::string told() const {
        const auto number = [](int value) { return std::to_string(value) + " "; };
        return number(info.width) + number(info.height) + number(info.scene) + number(info.hasSettings) +
               name;
    }
    std::vector<int> reds;
    RawImageInfo info;
    std::string name;
    bool made = false;
};

class PreviewTest : public testing::Test {
  protected:
    std::string store(const Bytes& bytes) {
        writeFile(path_, std::string(bytes.begin(), bytes.end()));
        return path_;
    }
    // A frame of 4 x 2 pixels in two buckets: channel `index`, the value of each pixel its number over 256.
    std::string storeFrame(const std::vector<RegionChannelAlias>& aliases, int index, int type = RCT_COLOR) {
        RIFile file;
        EXPECT_TRUE(file.Create(path_.c_str(), nullptr).empty() && file.WriteHeader(0).empty() &&
                    file.WTResolution(4, 2, 1).empty());
        MRRegionData frame;
        for (const RegionChannelAlias alias : aliases) {
            frame.channels.Add({});
            frame.channels[frame.channels.Count() - 1].alias = alias;
        }
        EXPECT_TRUE(file.WTChannelInfo(&frame).empty());
        for (const int x : {2, 0}) {
            MBVTable data(MUtils::findChannelKind(type)->valueSize, 1 << 10);
            data.setCount(4);
            for (int i = 0; i < 4; ++i)
                std::fill_n(data.item(i), data.itemSize, 0);
            for (int i = 0; i < 4; ++i)
                MUtils::storeF32(data.item(i), static_cast<float>(10 * (x + i % 2 + 4 * (i / 2))) / 256);
            EXPECT_TRUE(file.WTChan(data, 0, index, nullptr, RCA_NONE, static_cast<RegionChannelType>(type),
                                    x, 0, 2, 2, 0, 0)
                            .empty());
        }
        EXPECT_TRUE(file.Close().empty());
        return path_;
    }

    TempFolder folder_;
    const std::string path_ = folder_ / "frame.rimg";
};

// Cropped to the top left corner, never scaled, and nothing around it is touched.
TEST_F(PreviewTest, CopiesTheStoredThumbnail) {
    const std::string path = store(makeSample().bytes);
    const struct {
        int W, H;
        std::vector<int> reds;
    } cases[] = {
        {3, 2, {1, 4, 7, 10, 13, 16}},
        {2, 1, {1, 4}},
        {4, 3, {1, 4, 7, 77, 10, 13, 16, 77, 77, 77, 77, 77}},
        {0, 2, {77, 77}},
        {-1, -1, {77}},
    };
    for (const auto& c : cases) {
        for (const bool keepAspect : {true, false}) {
            const Preview preview(path, c.W, c.H, keepAspect);
            EXPECT_TRUE(preview.made);
            EXPECT_EQ(preview.reds, c.reds) << c.W;
            EXPECT_EQ(preview.told(), "10 3 -7 1 scene");
        }
    }
    // By 1/256 there and 256 back: 255 is not quite 1.
    Halving halving;
    EXPECT_EQ(Preview(path, 3, 2, false, &halving).reds, (std::vector<int>{0, 2, 3, 5, 6, 8}));
    store(Bytes().fileHeader(0).tag(TAG_PREVIEW, 3, {1, 1}).u32(0xFFFFFFFF));
    EXPECT_EQ(Preview(path, 1, 1, false, &halving).reds, std::vector<int>{127});
}

TEST_F(PreviewTest, ReadsNoPixelsForAStoredThumbnail) {
    const Sample sample = makeSample();
    Reading reading(sample.bytes);
    RGB24 out[6];
    ReadPreviewCallback callback(out, 3, 2, nullptr);
    EXPECT_EQ(reading.file.ParseFile(callback), 0);
    EXPECT_TRUE(callback.foundPreview());
    // The file header, every tag's header, the end; the thumbnail, the settings, the scene's value and name.
    const std::string& log = reading.stream.log();
    int reads = 0;
    for (std::size_t at = log.find("read"); at != std::string::npos; at = log.find("read", at + 1))
        ++reads;
    EXPECT_EQ(reads, 1 + sample.tagCount() + 1 + 4);
    // Whatever comes behind it, a torn bucket too.
    Bytes torn = sample.bytes;
    torn.resize(static_cast<std::size_t>(sample.offset(sample.find(TAG_CHAN_FLOAT2))) + 50);
    EXPECT_TRUE(Preview(store(torn), 3, 2).made);
    torn.resize(static_cast<std::size_t>(sample.offset(sample.find(TAG_SETTINGS))) + 41);
    const Preview failed(store(torn), 3, 2);
    EXPECT_FALSE(failed.made);
    EXPECT_EQ(failed.told(), "0 0 -5 0 old") << "the second walk failed too";
}

TEST_F(PreviewTest, DrawsTheLastColourChannel) {
    const std::vector<int> whole{0, 10, 20, 30, 40, 50, 60, 70};
    const std::vector<int> none(8, 9);
    Halving halving;
    const struct {
        std::vector<RegionChannelAlias> aliases;
        int index, type;
        std::vector<int> reds;  // twice what the corrector makes of them
    } cases[] = {
        {{RCA_COLOR}, 0, RCT_COLOR, whole},
        {{RCA_COLOR, RCA_IMAGE, RCA_ALPHA}, 1, RCT_COLOR, whole},
        {{RCA_IMAGE, RCA_COLOR}, 0, RCT_COLOR, none},
        {{RCA_DEPTH, RCA_NONE}, 0, RCT_COLOR, none},
        {{}, -1, RCT_COLOR, none},
        {{RCA_COLOR}, 0, RCT_FLOAT4, whole},
        {{RCA_COLOR}, 0, RCT_FLOAT2, none},
    };
    for (const auto& c : cases) {
        const Preview preview(storeFrame(c.aliases, c.index, c.type), 4, 2, true, &halving);
        EXPECT_TRUE(preview.made);
        EXPECT_EQ(preview.told(), "4 2 0 0 (null)");
        for (std::size_t i = 0; i < 8; ++i)
            EXPECT_EQ(preview.reds[i], c.reds == whole ? c.reds[i] / 2 : c.reds[i]) << c.index << ' ' << i;
    }
    const std::string path = storeFrame({RCA_COLOR}, 0);
    EXPECT_EQ(Preview(path, 2, 1, true, &halving).reds, (std::vector<int>{12, 22}));
    EXPECT_EQ(Preview(path, 2, 2, false, &halving).reds, (std::vector<int>{2, 12, 22, 32}));
    // The rows of the canvas of 4 x 4 meet the image from half way down the first to half way down the
    // second.
    EXPECT_EQ(Preview(path, 2, 2, true, &halving).reds, (std::vector<int>{2, 12, 9, 9}));
}

TEST_F(PreviewTest, AnswersFilesOfAllKinds) {
    const std::vector<int> background(4, 9);
    const std::vector<int> untouched(4, 77);
    SampleOptions options;
    options.metadata = false;
    const Sample sample = makeSample(options);
    Bytes torn = sample.bytes;
    torn.resize(static_cast<std::size_t>(sample.offset(sample.find(TAG_CHAN_FLOAT4))) + 50);
    const struct {
        std::string path;
        Bytes contents;
        std::vector<int> reds;
        const char* told;
        bool made;
    } cases[] = {
        {folder_ / "missing", {}, untouched, "-5 -5 -5 -5 old", false},
        {folder_ / "", {}, untouched, "-5 -5 -5 -5 old", false},
        {path_, Bytes().text("no raw image, though long enough"), background, "0 0 -5 0 old", false},
        {path_, {}, background, "0 0 -5 0 old", false},
        {path_, torn, background, "0 0 -5 0 old", false},
        {path_, Bytes().fileHeader(0), background, "0 0 0 0 (null)", true},
    };
    for (const auto& c : cases) {
        if (c.path == path_) store(c.contents);
        const Preview preview(c.path, 2, 2, true);
        EXPECT_EQ(preview.made, c.made) << c.told;
        EXPECT_EQ(preview.reds, c.reds) << c.told;
        EXPECT_EQ(preview.told(), c.told);
    }
    EXPECT_EQ(Preview(path_, -1, -1).reds, std::vector<int>{77});
}

TEST(MakePreviewCallbackTest, CentresTheImageOnACanvasOfTheThumbnailsAspect) {
    const struct {
        int w, h, W, H;
        bool keepAspect;
        int canvasWidth, canvasHeight, horizontal, vertical;
    } cases[] = {
        {200, 100, 100, 100, true, 200, 200, 0, 50},
        {100, 200, 100, 100, true, 200, 200, 50, 0},
        {200, 100, 100, 100, false, 200, 100, 0, 0},
        {7, 3, 10, 3, true, 10, 3, 1, 0},
        {3, 3, 2, 2, true, 3, 3, 0, 0},
        {5, 1, 2, 3, true, 5, 7, 0, 3},
        {200, 100, 0, 100, true, 200, 100, 0, 0},
        {200, 100, 100, -1, true, 200, 100, 0, 0},
        {INT_MAX, 1, 1, INT_MAX, true, INT_MAX, INT_MAX, 0, INT_MAX / 2},
        {INT_MIN, INT_MAX, 7, 5, true, INT_MAX, INT_MAX, INT_MAX, 0},
    };
    for (const auto& c : cases) {
        MakePreviewCallback callback(nullptr, c.W, c.H, c.keepAspect, nullptr);
        EXPECT_TRUE(callback.setResolution(5, 5, 1) && callback.setResolution(c.w, c.h, 1));
        EXPECT_EQ(callback.imageWidth(), c.w);
        EXPECT_EQ(callback.canvasWidth(), c.canvasWidth) << c.w;
        EXPECT_EQ(callback.canvasHeight(), c.canvasHeight) << c.w;
        EXPECT_EQ(callback.horizontalOffset(), c.horizontal) << c.w;
        EXPECT_EQ(callback.verticalOffset(), c.vertical) << c.w;
    }
    MakePreviewCallback callback(nullptr, 1, 1, true, nullptr);
    RIF_TAG pixels, other;
    pixels.id = TAG_CHAN_FLOAT;
    EXPECT_EQ(callback.parseTag(pixels), 1);
    callback.stop();
    EXPECT_EQ(callback.parseTag(pixels), -1);
    EXPECT_EQ(callback.parseTag(other), 1);
}

}  // namespace
