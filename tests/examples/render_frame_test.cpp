#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "rawimage/tools/hash.h"
#include "rawimage/tools/merge.h"
#include "rawimage/tools/verify.h"
#include "tests/testing/exr_control.h"
#include "tests/testing/run_program.h"

// Runs the renderer as a user does: what an interrupted render leaves becomes the frame that it would have
// been.

namespace {

using namespace testing_tools;
using testing::HasSubstr;
using Arguments = std::vector<std::string>;
using Events = std::map<std::string, std::vector<Event>>;

// Sides that are no multiples of the bucket's, so that there are smaller ones.
const Arguments kSmall{"--size", "40x24",  "--bucket", "16x16",      "--samples",
                       "1",      "--seed", "7",        "--thumbnail"};
// Long enough to be met half way.
const Arguments kLong{"--size", "150x100", "--bucket", "16x16", "--samples", "16"};

ProgramResult render(Arguments arguments, const Arguments& more,
                     const std::function<void(pid_t)>& meanwhile = {}) {
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runProgram(RENDER_PROGRAM, arguments, meanwhile);
}

// Everything that readers deliver, the buckets in a fixed order.
Events contents(const std::string& path) {
    Events events = parseRaw(path);
    std::sort(events["setImageData"].begin(), events["setImageData"].end());
    return events;
}

void expectFrame(const std::string& path, const Events& whole) {
    EXPECT_STREQ(stateName(MUtils::verifyFile(path.c_str(), {}).state), "good");
    EXPECT_EQ(contents(path), whole);
}

// The tags of a finished file, in the order of its table, which is the last one.
std::vector<INFOTAG> tagsOf(const std::string& path) {
    RIFile file;
    EXPECT_TRUE(file.Open(path.c_str(), nullptr).empty());
    EXPECT_EQ(file.ReadInfoTags(nullptr), 0);
    std::vector<INFOTAG> tags;
    for (int i = 0; i < file.NumTags(); ++i)
        tags.push_back(*file.GetTag(i));
    return tags;
}

class RenderFrame : public testing::Test {
  protected:
    void renderSmall() {
        ASSERT_EQ(render(kSmall, {"--output", path_}).status, 0);
        bytes_ = readFile(path_);
        whole_ = contents(path_);
        tags_ = tagsOf(path_);
        pixels_ = static_cast<std::size_t>(
            std::find_if(tags_.begin(), tags_.end(),
                         [](const RIF_TAG& tag) { return MUtils::isPixelTag(tag.id); }) -
            tags_.begin());
        ASSERT_EQ(tags_.size() - pixels_, 6u * 11u);
    }

    const TempFolder folder_;
    const std::string path_ = folder_ / "frame.rimg";
    std::string bytes_;
    Events whole_;
    std::vector<INFOTAG> tags_;
    std::size_t pixels_ = 0;  // the first tag of pixels
};

TEST_F(RenderFrame, GoesOnAfterASignalAtAnyMoment) {
    const std::string reference = folder_ / "whole.rimg";
    ASSERT_EQ(render(kLong, {"--output", reference}).status, 0);
    const Events whole = contents(reference);
    const auto bytes = static_cast<double>(readFile(reference).size());
    for (const int signal : {SIGKILL, SIGINT, SIGTERM}) {
        // A shell's background job, which this may be, starts with SIGINT ignored, and hands that on.
        ::signal(signal, SIG_DFL);
        int stopped = 0;
        for (const double moment : {0.1, 0.5, 0.8}) {
            SCOPED_TRACE(std::to_string(signal) + " at " + std::to_string(moment));
            std::filesystem::remove(path_);
            const auto waitAndSend = [&](pid_t pid) {
                const auto written = [&] {
                    std::error_code none;
                    const auto size = std::filesystem::file_size(path_, none);
                    return none ? 0.0 : static_cast<double>(size);
                };
                for (int i = 0; i < 50000 && written() < moment * bytes; ++i)
                    std::this_thread::sleep_for(std::chrono::microseconds(200));
                ::kill(pid, signal);
            };
            const ProgramResult first = render(kLong, {"--output", path_}, waitAndSend);
            // Else it was done before the signal came.
            if (first.status != 0) {
                ++stopped;
                EXPECT_EQ(first.status, signal == SIGKILL ? -SIGKILL : 75) << first.err;
                if (signal != SIGKILL) {
                    EXPECT_THAT(first.err, HasSubstr("render_frame --resume " + path_));
                    EXPECT_EQ(first.errorLines(), 1);
                    EXPECT_NE(readFile(path_).substr(12, 8), std::string(8, '\0')) << "no table";
                }
            }
            // As a farm would: with the same options, and however often.
            for (int again = 0; again < 2; ++again) {
                const ProgramResult resumed = render(kLong, {"--resume", path_});
                EXPECT_EQ(resumed.status, 0) << resumed.err;
                EXPECT_EQ(resumed.out, path_ + '\n');
            }
            expectFrame(path_, whole);
        }
        EXPECT_GT(stopped, 0);
    }
}

// Wherever the file breaks off, the tags are those of the uninterrupted file, in its order.
TEST_F(RenderFrame, GoesOnAfterACutAtAnyPlace) {
    renderSmall();
    const auto offset = [this](std::size_t tag) { return static_cast<std::size_t>(tags_.at(tag).offset); };
    const std::size_t table = offset(tags_.size() - 1) + tags_.back().size;
    std::vector<std::size_t> cuts{table,       table + 20,        table + 40,
                                  table + 100, bytes_.size() - 1, bytes_.size()};
    for (const std::size_t i : {pixels_, pixels_ + 1, pixels_ + 11, pixels_ + 37, tags_.size() - 1}) {
        for (const std::size_t inside : {0u, 20u, 40u, tags_[i].size / 2, tags_[i].size - 1})
            cuts.push_back(offset(i) + inside);
    }
    for (const std::size_t cut : cuts) {
        for (const bool closed : {false, true}) {
            SCOPED_TRACE(cut);
            // As a renderer leaves it, which writes the table's offset last; and a copy that broke off.
            std::string start = bytes_.substr(0, cut);
            if (!closed) start.replace(12, 8, std::string(8, '\0'));
            writeFile(path_, start);
            const ProgramResult resumed =
                render({"--resume", path_, "--threads", std::to_string(1 + cut % 3)}, {});
            EXPECT_EQ(resumed.status, 0) << resumed.err;
            expectFrame(path_, whole_);
            EXPECT_TRUE(readFile(path_).substr(20, table - 20) == bytes_.substr(20, table - 20));
        }
    }
}

TEST_F(RenderFrame, RefusesWhatItCannotGoOnWith) {
    renderSmall();
    const std::size_t settings = static_cast<std::size_t>(tags_.at(pixels_).offset);
    const auto middle = static_cast<std::size_t>(tags_.at(pixels_ + 30).offset) + 60;
    const auto cutAt = [](std::size_t length) {
        return [length](std::string& bytes) { bytes.resize(length); };
    };
    const auto change = [](const char* from, const char* to) {
        return [=](std::string& bytes) { bytes.replace(bytes.find(from), strlen(to), to); };
    };
    const auto unfinished = cutAt(middle);
    const auto as = [](std::string&) {};
    const struct {
        std::function<void(std::string&)> edit;
        Arguments more;
        int status;
        std::string told;
    } cases[] = {
        {as, {}, 0, "complete, nothing is left"},
        {as, kSmall, 2, "--thumbnail excludes --resume"},
        {unfinished, {"--output", "x.rimg"}, 2, "excludes"},
        {unfinished, {"--size", "40x25"}, 6, "the file has --size 40x24, not 40x25"},
        {unfinished, {"--bucket", "24x16"}, 6, "--bucket 16x16"},
        {unfinished, {"--samples", "2"}, 6, "--samples 1,"},
        {unfinished, {"--seed", "8"}, 6, "--seed 7,"},
        {change("diffuse", "diffusE"), {}, 6, "other channels"},
        {change("width=40", "width=41"), {}, 6, "its resolution is not"},
        {change("samples=1", "samples=0"), {}, 6, "samples cannot be rendered"},
        {change("samples=1", "samples=x"), {}, 6, "no settings of its own"},
        {[=](std::string& bytes) { bytes[middle] ^= 1; }, {}, 4, "rimg recover"},
        {change("RIMG", "FILE"), {}, 5, "not a raw image"},
        {cutAt(0), {}, 5, "shorter than"},
        {cutAt(31), {}, 5, "shorter than"},
        {cutAt(32), {}, 1, "before its first bucket; render it anew"},
        {cutAt(300), {}, 1, "before its first bucket"},
        {cutAt(settings - 1), {}, 1, "before its first bucket"},
    };
    for (const auto& c : cases) {
        std::string bytes = bytes_;
        c.edit(bytes);
        writeFile(path_, bytes);
        const ProgramResult result = render({"--resume", path_}, c.more);
        SCOPED_TRACE(result.err);
        EXPECT_EQ(result.status, c.status);
        EXPECT_THAT(result.err, HasSubstr(c.told));
        EXPECT_TRUE(readFile(path_) == bytes) << "touched";
    }
    EXPECT_EQ(render({"--resume", folder_ / "none.rimg"}, {}).status, 5);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "none.rimg"));

    writeFile(path_, bytes_.substr(0, middle));
    PFileStream writer;
    ASSERT_EQ(writer.Open(path_.c_str(), PFileStream::kReadWrite, 1, PFileStream::kOpenExisting), 0);
    const ProgramResult locked = render({"--resume", path_}, {});
    EXPECT_EQ(locked.status, 5);
    EXPECT_THAT(locked.err, HasSubstr("another writer"));
}

// Pieces on the buckets' grid and beside it, of a frame with a camera of its own.
TEST_F(RenderFrame, RendersPartsOfAFrame) {
    const auto hash = [](const std::string& path) { return MUtils::hashFile(path.c_str(), {}).hash; };
    const Arguments frame{"--size", "40x24", "--bucket", "16x16", "--samples", "1"};
    const auto renderTo = [&](const std::string& name, Arguments more, const std::string& number = "7") {
        more.insert(more.end(), {"--output", folder_ / name, "--frame", number});
        EXPECT_EQ(render(frame, more).status, 0);
        return folder_ / name;
    };
    const std::string whole = renderTo("whole.rimg", {});
    EXPECT_NE(hash(whole), hash(renderTo("other.rimg", {}, "8")));
    for (const auto& [left, right] : {std::pair{"0,0,16,24", "16,0,40,24"}, {"0,0,40,9", "0,9,40,24"}}) {
        const std::vector<std::string> pieces{renderTo("a.rimg", {"--region", left}),
                                              renderTo("b.rimg", {"--region", right})};
        const std::string merged = folder_ / "merged.rimg";
        EXPECT_EQ(MUtils::mergeFiles(pieces, merged, {}).cause, "") << left;
        EXPECT_EQ(hash(merged), hash(whole)) << left;

        // An interrupted piece is the same piece again.
        const std::string piece = readFile(pieces[1]);
        writeFile(pieces[1], piece.substr(0, piece.size() * 2 / 3).replace(12, 8, std::string(8, '\0')));
        EXPECT_EQ(render(frame, {"--region", left, "--resume", pieces[1]}).status, 6);
        EXPECT_EQ(render({}, {"--frame", "8", "--resume", pieces[1]}).status, 6);
        EXPECT_EQ(render({}, {"--resume", pieces[1]}).status, 0);
        EXPECT_EQ(hash(pieces[1]), hash(renderTo("c.rimg", {"--region", right})));
    }
    for (const char* region : {"0,0,41,24", "-1,0,9,9", "9,0,9,9", "0,0,9", "0 0 9 9", "0,0,9,9,9", "a"})
        EXPECT_EQ(render(frame, {"--output", path_, "--region", region}).status, 2) << region;
    EXPECT_EQ(render(frame, {"--output", folder_ / "a.exr", "--region", "0,0,9,9"}).status, 2);
}

TEST_F(RenderFrame, StartsOrResumesWhatAFarmAsksFor) {
    renderSmall();
    Arguments frame = kSmall;
    frame.insert(frame.end(), {"--resume-or-start", path_});
    const auto middle = static_cast<std::size_t>(tags_.at(pixels_ + 30).offset) + 60;
    for (const std::size_t length :
         {std::size_t{0}, std::size_t{32}, std::size_t{300}, middle, bytes_.size()}) {
        std::string start = bytes_.substr(0, length);
        if (length > 32 && length < bytes_.size()) start.replace(12, 8, std::string(8, '\0'));
        writeFile(path_, start);
        if (length == 0) std::filesystem::remove(path_);
        EXPECT_EQ(render(frame, {}).status, 0) << length;
        expectFrame(path_, whole_);
    }
    for (const auto& [bytes, status] : {std::pair{std::string("note"), 5}, {bytes_ + "x", 4}}) {
        writeFile(path_, bytes);
        EXPECT_EQ(render(frame, {}).status, status);
        EXPECT_EQ(readFile(path_), bytes) << "touched";
    }
    for (const std::size_t length : {std::size_t{0}, middle}) {
        writeFile(path_, bytes_.substr(0, length));
        PFileStream writer;
        ASSERT_EQ(writer.Open(path_.c_str(), PFileStream::kReadWrite, 1, PFileStream::kOpenExisting), 0);
        const ProgramResult locked = render(frame, {});
        EXPECT_EQ(locked.status, 75);
        EXPECT_THAT(locked.err, HasSubstr("another writer"));
    }
}

// A farm kills what does not end soon. One row of a bucket would take longer.
TEST_F(RenderFrame, StopsWithinTwoSeconds) {
    std::chrono::steady_clock::time_point sent;
    const ProgramResult result = render({"--samples", "65536", "--output", path_}, {}, [&](pid_t pid) {
        for (int i = 0; i < 5000 && !std::filesystem::exists(path_); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        sent = std::chrono::steady_clock::now();
        ::kill(pid, SIGTERM);
    });
    EXPECT_EQ(result.status, 75);
    EXPECT_LT(std::chrono::steady_clock::now() - sent, std::chrono::seconds(2));
}

TEST_F(RenderFrame, TellsWhyAFileCannotBeWritten) {
    const struct {
        const char* arguments;
        const char* told;
    } cases[] = {
        {"--output /dev/full", "/dev/full: No space left on device: "},
        {"--output a/b/c.rimg", "a/b/c.rimg"},
        {"--output a/b/c.exr", "a/b/c.exr"},
        {"--output full.rimg", "full.rimg: File too large: "},
        {"--output full.exr", "File too large"},
        {"--output new.rimg >/dev/full", "standard output: No space left on device"},
        {"--help >/dev/full", "standard output: No space left on device"},
    };
    for (const auto& c : cases) {
        // Only the files that are to fail are larger than this.
        const bool full = std::string(c.arguments).find("full.") != std::string::npos;
        const std::string limit = full ? "ulimit -f 2; " : "";
        const ProgramResult result = runProgram(
            "/bin/bash", {"-c", "cd " + (folder_ / "") + "; " + limit +
                                    "exec '" RENDER_PROGRAM "' --size 40x24 --samples 1 " + c.arguments});
        EXPECT_EQ(result.status, 1) << c.arguments;
        EXPECT_THAT(result.err, HasSubstr(c.told));
        EXPECT_EQ(result.errorLines(), 1) << result.err;
    }
    EXPECT_FALSE(std::filesystem::exists(folder_ / "a"));
}

TEST_F(RenderFrame, WritesAFrameOfOneBucketToFilesOfEveryKind) {
    const std::string exr = folder_ / "f.exr", parts = folder_ / "f.multipart.exr",
                      tiled = folder_ / "f.tiled.exr";
    const ProgramResult result =
        render({"--size", "40x24", "--samples", "1"}, {"--output", path_, exr, parts, tiled});
    EXPECT_EQ(result.status, 0) << result.err;
    for (const std::string& file : {exr, parts, tiled}) {
        Imath::V2i frame;
        EXPECT_GE(readPlanes(file, frame).size(), 11u) << file;
    }
}

TEST_F(RenderFrame, MakesTheFolderOfItsDefaultOutputOnly) {
    const ProgramResult result = runProgram(
        "/bin/bash", {"-c", "cd " + (folder_ / "") + "; exec '" RENDER_PROGRAM "' --size 40x24 --samples 1"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(std::filesystem::exists(folder_ / "out/frame.rimg"));
}

TEST_F(RenderFrame, CompressesOnAnyNumberOfThreadsAtTheLevelAskedFor) {
    renderSmall();
    for (const char* threads : {"1", "2", "5"}) {
        for (Arguments more : {Arguments{}, Arguments{"--no-queue"}}) {
            more.insert(more.end(), {"--output", path_, "-j", threads});
            EXPECT_EQ(render(kSmall, more).status, 0);
            EXPECT_TRUE(readFile(path_) == bytes_) << threads << ' ' << more[0];
        }
    }
    for (const Arguments& other : std::vector<Arguments>{
             {"--level", "1"}, {"--compression-speed", "balanced"}, {"--compression-speed", "fast"}}) {
        EXPECT_EQ(render(kSmall, {"--output", path_, other[0], other[1]}).status, 0);
        EXPECT_NE(readFile(path_).size(), bytes_.size());
        expectFrame(path_, whole_);
    }

    const std::string exr = folder_ / "frame.exr";
    EXPECT_EQ(render(kSmall, {"--output", exr, path_, "--level", "2"}).status, 0);
    for (const Arguments& wrong : std::vector<Arguments>{{"--output", exr, "--level", "2"},
                                                         {"--level", "0"},
                                                         {"--level", "10"},
                                                         {"--level", "fast"},
                                                         {"--level", "2", "--compression-speed", "fast"},
                                                         {"--compression-speed", "9"},
                                                         {"--threads", "0"},
                                                         {"-j", "257"}}) {
        const ProgramResult result = render(kSmall, wrong);
        EXPECT_EQ(result.status, 2) << wrong.back();
        EXPECT_THAT(result.err, HasSubstr(wrong.size() > 2   ? "--level"
                                          : wrong[0] == "-j" ? "--threads"
                                                             : wrong[0]));
    }
}

}  // namespace
