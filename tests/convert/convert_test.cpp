#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>

#include "convert/from_exr/from_exr.h"
#include "convert/to_exr/to_exr.h"
#include "rawimage/frame/raw_frame.h"
#include "tests/testing/exr_sample.h"
#include "tests/testing/raw_frame.h"
#include "tests/testing/run_program.h"

// The conversions as a library; what they make of pixels, tests/cli/ checks.

namespace {

using namespace testing_tools;
using MUtils::Conversion;
using MUtils::ConvertReport;
using MUtils::ConvertState;
using MUtils::FileState;
using MUtils::FromExrOptions;
using MUtils::PixelBox;
using MUtils::ToExrOptions;
using testing::HasSubstr;

class LibraryConvert : public testing::Test {
  protected:
    const TempFolder folder;
    const std::string raw = folder / "in.rimg", exr = folder / "in.exr", out = folder / "out";

    void SetUp() override {
        RawFrame frame;
        frame.boxes = {{0, 0, 16, 24}, {16, 0, 24, 24}};
        frame.write(raw);
        ExrSample{{{"", "R:f G:f B:f"}}}.write(exr);
    }

    bool hasOutput() const { return std::filesystem::exists(out); }
};

TEST_F(LibraryConvert, ReportsWhatWasDone) {
    ToExrOptions options;
    options.originX = -3;
    options.kind = ExrFile::kTiled;
    std::vector<std::int64_t> done;
    options.progress = [&done](std::int64_t now, std::int64_t total) {
        if (total > 0) done.push_back(now);
        EXPECT_LE(now, total);
        return true;
    };
    const ConvertReport toExr = MUtils::convertToExr(raw, out, options);
    EXPECT_EQ(toExr.state, ConvertState::kGood) << toExr.cause;
    EXPECT_TRUE(toExr.written && toExr.losses.empty() && toExr.remarks.empty());
    EXPECT_EQ(toExr.window, (PixelBox{0, 0, 40, 24}));
    EXPECT_EQ(toExr.channels, 3);
    EXPECT_EQ(toExr.regions, 6);
    EXPECT_TRUE(std::is_sorted(done.begin(), done.end()));
    EXPECT_EQ(done.back(), 40 * 24);  // pixels

    const ConvertReport fromExr = MUtils::convertFromExr(out, folder / "again.rimg", {});
    EXPECT_EQ(fromExr.state, ConvertState::kGood) << fromExr.cause;
    EXPECT_EQ(fromExr.frame, (PixelBox{0, 0, 40, 24}));
    EXPECT_EQ(fromExr.originX, -3);
    EXPECT_EQ(fromExr.channels, 3);
    ASSERT_EQ(fromExr.losses.size(), 1u);
    EXPECT_EQ(fromExr.losses[0].kind, "origin");
}

TEST_F(LibraryConvert, KnowsTheLossesBeforeAnOutputExists) {
    ExrSample sample{{{"", "v:f", {{-2, 0}, {7, 5}}}}};
    sample.write(exr);
    FromExrOptions options;
    options.cropOverscan = true;
    const std::unique_ptr<Conversion> conversion = MUtils::makeFromExr(exr, options);
    EXPECT_FALSE(conversion->run(out)) << "not prepared";
    ASSERT_TRUE(conversion->prepare());
    ASSERT_EQ(conversion->report().losses.size(), 1u);
    EXPECT_EQ(conversion->report().losses[0].kind, "overscan");
    EXPECT_EQ(conversion->report().losses[0].count, 12);
    EXPECT_FALSE(hasOutput() || conversion->report().written);
    EXPECT_TRUE(conversion->run(out));
    EXPECT_TRUE(hasOutput() && conversion->report().written);
}

TEST_F(LibraryConvert, NamesEveryDamagedBucketAndGoesOn) {
    std::string bytes = readFile(raw);
    std::uint64_t table = 0;
    std::memcpy(&table, &bytes[12], 8);
    bytes[table - 1] = static_cast<char>(bytes[table - 1] ^ 1);  // the checksum of the last tag
    writeFile(raw, bytes);
    for (const int kind : {ExrFile::kScanline, ExrFile::kTiled}) {
        ToExrOptions options;
        options.kind = kind;
        const ConvertReport report = MUtils::convertToExr(raw, out, options);
        EXPECT_EQ(report.state, ConvertState::kDamaged);
        EXPECT_EQ(report.inputState, FileState::kDamaged);
        EXPECT_TRUE(report.written);
        ASSERT_EQ(report.losses.size(), 1u);
        EXPECT_EQ(report.losses[0].kind, "damage");
        EXPECT_EQ(report.losses[0].file, raw);
        EXPECT_GT(report.losses[0].offset, 0);
        EXPECT_THAT(report.losses[0].text, HasSubstr("damaged bucket 24x24+16+0 of channel 0 color: "));
    }
}

// Bytes that this process has read so far.
std::int64_t bytesRead() {
    std::ifstream io("/proc/self/io");
    std::string name;
    std::int64_t bytes = -1;
    io >> name >> bytes;
    return bytes;
}

// Conversions of one of 16 buckets and one of 4 channels, all noise of the same size.
TEST_F(LibraryConvert, ReadsOnlyWhatGoesIntoTheOutput) {
    if (bytesRead() < 0) GTEST_SKIP() << "the system does not count what is read";
    RawFrame frame;
    frame.width = frame.height = 512;
    frame.tile = 128;
    frame.channels = {{1, 0, "a"}, {1, 0, "b"}, {1, 0, "c"}, {1, 0, "d"}};
    frame.boxes.clear();
    for (int i = 0; i < 16; ++i)
        frame.boxes.push_back({i % 4 * 128, i / 4 * 128, 128, 128});
    std::mt19937 noise;
    frame.values = [&noise](int, int, int) { return static_cast<float>(noise()); };
    frame.write(raw);
    ExrSample sample{{{"", "a:f b:f c:f d:f", {{0, 0}, {511, 511}}}}, {{0, 0}, {511, 511}}, 128};
    sample.compression = Imf::NO_COMPRESSION;
    sample.write(folder / "tiled.exr");
    sample.tile = 0;
    sample.write(exr);
    constexpr double kOne = 128 * 128 * 4;
    constexpr double kHeaders = 64 * 4096;  // a read-ahead for each tag or block
    ToExrOptions to;
    FromExrOptions from;
    to.crop = from.crop = PixelBox{130, 260, 250, 380};
    to.channels = from.channels = {"c"};
    const auto costOfRead = [](const std::function<ConvertReport()>& convert) {
        const std::int64_t before = bytesRead();
        const ConvertReport report = convert();
        EXPECT_EQ(report.state, ConvertState::kGood) << report.cause;
        EXPECT_EQ(report.window, (PixelBox{130, 260, 250, 380}));
        EXPECT_EQ(report.frame, (PixelBox{0, 0, 512, 512}));
        EXPECT_EQ(report.channels, 1);
        return static_cast<double>(bytesRead() - before);
    };
    for (const int kind : {ExrFile::kScanline, ExrFile::kTiled, ExrFile::kMultiPart}) {
        to.kind = kind;
        EXPECT_LT(costOfRead([&] { return MUtils::convertToExr(raw, out, to); }), kOne + kHeaders);
    }
    // Channels lie in one block.
    EXPECT_LT(costOfRead([&] { return MUtils::convertFromExr(folder / "tiled.exr", out, from); }),
              4 * kOne + kHeaders);
    EXPECT_LT(costOfRead([&] { return MUtils::convertFromExr(exr, out, from); }), 16 * kOne + 2 * kHeaders);
}

// A part of a frame, there and back, has the values of the whole at its place.
TEST_F(LibraryConvert, CropsToPixelsOfTheFrame) {
    const PixelBox crop{5, 3, 33, 20};
    MUtils::RawFrame whole(raw.c_str());
    for (const int kind : {ExrFile::kScanline, ExrFile::kTiled, ExrFile::kMultiPart}) {
        ToExrOptions to;
        to.kind = kind;
        to.crop = PixelBox{2, 3, 33, 90};
        to.channels = {"color", "id"};
        const std::string part = folder / "part.exr", again = folder / "again.rimg";
        ASSERT_EQ(MUtils::convertToExr(raw, part, to).state, ConvertState::kGood);
        FromExrOptions from;
        from.crop = PixelBox{5, -7, 99, 20};
        ASSERT_EQ(MUtils::convertFromExr(part, again, from).state, ConvertState::kGood);
        const MUtils::RawFrame file(again.c_str());
        const auto info = file.info();
        EXPECT_EQ(info->frame, whole.info()->frame);
        EXPECT_EQ(info->area, crop);
        EXPECT_EQ(info->channels.size(), 2u);
        for (const char* name : {"color", "id"}) {
            std::vector<std::uint32_t> want(28 * 17 * 3), got(28 * 17 * 3);
            EXPECT_TRUE(whole.read(crop, {{*whole.info()->find(name), want.data()}}).complete());
            EXPECT_TRUE(file.read(crop, {{*info->find(name), got.data()}}).complete());
            EXPECT_EQ(want, got) << name;
        }
    }
}

TEST_F(LibraryConvert, FailuresHaveTheirState) {
    writeFile(folder / "text", "neither one nor the other");
    ExrSample{{{"", "v:f", {{8, 6}, {9, 7}}}}}.write(folder / "outside.exr");
    ExrSample{{{"", "v:f", {{7, 5}, {9, 7}}}}}.write(folder / "over.exr");
    const auto stop = [](std::int64_t, std::int64_t total) { return total == 0; };
    const auto stopEarly = [](std::int64_t, std::int64_t) { return false; };
    FromExrOptions stopped, noBucket;
    stopped.progress = stop;
    noBucket.bucketWidth = 0;
    ToExrOptions text, channels, origin, stoppedEarly, stoppedLate, cropped;
    FromExrOptions croppedFrom, channelsFrom;
    cropped.crop = croppedFrom.crop = PixelBox{40, 0, 50, 9};
    channelsFrom.channels = {"none*"};
    text.attributes = "a=";
    channels.channels = {"none*"};
    origin.originY = INT_MAX / 2;
    stoppedEarly.progress = stopEarly;
    stoppedLate.progress = stop;
    const auto from = [](const std::string& in, const std::string& to, const FromExrOptions& options) {
        return MUtils::convertFromExr(in, to, options);
    };
    const auto to = [&](const std::string& in, const std::string& name, const ToExrOptions& options) {
        return MUtils::convertToExr(in, name, options);
    };
    const struct {
        ConvertReport report;
        ConvertState state;
        std::string file;
        const char* cause;
    } cases[] = {
        {from(folder / "none", out, {}), ConvertState::kCannotOpen, folder / "none", "No such file"},
        {from(folder / "over.exr", out, {}), ConvertState::kOverscan, folder / "over.exr", "would be lost"},
        {from(folder / "outside.exr", out, {}), ConvertState::kOutsideFrame, folder / "outside.exr", "all"},
        {from(exr, out, noBucket), ConvertState::kBadOption, "", "bucket"},
        {from(exr, folder / "none/out", {}), ConvertState::kWriteFailed, "", "No such file"},
        {from(exr, exr, {}), ConvertState::kWriteFailed, "", "same file"},
        {from(exr, folder / "part", stopped), ConvertState::kStopped, "", "stopped"},
        {to(folder / "none", out, {}), ConvertState::kCannotOpen, folder / "none", "No such file"},
        {to(folder / "text", out, {}), ConvertState::kNotThisFormat, folder / "text", ""},
        {to(raw, out, text), ConvertState::kBadOption, "", "attributes: "},
        {to(raw, out, channels), ConvertState::kBadOption, raw, "channels: "},
        {to(raw, out, origin), ConvertState::kBadOption, "", "origin "},
        {to(raw, out, cropped), ConvertState::kBadOption, "", "crop: "},
        {from(exr, out, croppedFrom), ConvertState::kBadOption, "", "crop: "},
        {from(exr, out, channelsFrom), ConvertState::kBadOption, exr, "channels: "},
        {to(raw, folder / "none/out", {}), ConvertState::kWriteFailed, "", "No such file"},
        {to(raw, out, stoppedEarly), ConvertState::kStopped, "", "stopped"},
        {to(raw, folder / "part", stoppedLate), ConvertState::kStopped, "", "stopped"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.report.cause);
        EXPECT_EQ(c.report.state, c.state);
        EXPECT_EQ(c.report.file, c.file);
        EXPECT_THAT(c.report.cause, HasSubstr(c.cause));
        EXPECT_FALSE(c.report.written);
    }
    EXPECT_FALSE(hasOutput());
}

}  // namespace
