#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <functional>
#include <thread>

#include "rawimage/frame/raw_frame.h"
#include "tests/testing/check.h"
#include "tests/testing/raw_frame.h"

using namespace MUtils;
using testing_tools::Bytes;
using testing_tools::Contents;
using testing_tools::MemoryFile;

namespace {

using Frame = MUtils::RawFrame;
using Written = testing_tools::RawFrame;

Contents contentsOf(float first, int columns, bool closed) {
    Written written;
    written.width = 24;
    written.height = 8;
    written.closed = closed;
    written.boxes.clear();
    for (int i = 0; i < columns; ++i)
        written.boxes.push_back({4 * i, 0, 4, 8, first});
    MemoryFile file;
    written.write(file.path());
    return file.bytes();
}

// The file with another first letter in the name of its channel, "color".
Contents withOtherName(Contents bytes) {
    const std::string name = Written().channels.at(0).name;
    *std::search(bytes.begin(), bytes.end(), name.begin(), name.end()) = 'X';
    return bytes;
}

// State, missing pixels and a hash of the values of each channel.
std::string shownBy(const Frame& frame) {
    const auto info = frame.info();
    std::string all =
        stateName(frame.state()) + (", " + frame.cause()) + (info->finished ? ", finished" : "");
    for (const MissingPixels& missing : frame.missing()) {
        for (const PixelBox& box : missing.boxes.boxes)
            all += ", " + missing.name + " lacks " + boxText(box);
    }
    for (const FrameChannel& channel : info->channels) {
        std::string values(static_cast<std::size_t>(info->frame.area() * channel.valueBytes()), '?');
        EXPECT_TRUE(frame.read(info->frame, {{channel, values.data()}}).damaged.empty());
        all += ", " + channel.name + ' ' + std::to_string(std::hash<std::string>()(values));
    }
    return all;
}

TEST(RawFrameRefresh, EqualsOpeningAnew) {
    const Contents open = contentsOf(1, 5, false), closed = contentsOf(1, 5, true);
    std::vector<std::pair<Contents, FrameChange::Kind>> steps;
    const auto add = [&steps](const Contents& bytes, FrameChange::Kind kind) {
        steps.push_back({bytes, kind});
    };
    for (std::size_t size = 400; size < open.size(); size += 61)
        add({open.begin(), open.begin() + static_cast<std::ptrdiff_t>(size)}, FrameChange::kGrown);
    add(open, FrameChange::kGrown);
    add(open, FrameChange::kNone);
    Contents tableOnly = closed;
    storeU64(&tableOnly.at(kTableOffsetPosition), 0);
    Contents halfTable(tableOnly.begin(), tableOnly.end() - 99);
    add(halfTable, FrameChange::kGrown);
    add(tableOnly, FrameChange::kGrown);
    add(closed, FrameChange::kGrown);
    add(closed, FrameChange::kNone);
    add(open, FrameChange::kGrown);                        // a writer that appends has cut the table
    add(contentsOf(1, 6, false), FrameChange::kGrown);     // and appended
    add(contentsOf(1, 6, true), FrameChange::kGrown);      // and closed
    add(contentsOf(2, 6, true), FrameChange::kRestarted);  // of the same length
    add(withOtherName(contentsOf(2, 6, true)), FrameChange::kRestarted);
    add(contentsOf(2, 3, false), FrameChange::kRestarted);
    add(contentsOf(2, 4, false), FrameChange::kGrown);
    add(Contents(40), FrameChange::kRestarted);
    add(contentsOf(3, 6, true), FrameChange::kRestarted);

    MemoryFile file;
    file.fill({open.begin(), open.begin() + 300});
    Frame frame(file.path());
    for (std::size_t i = 0; i < steps.size(); ++i) {
        file.fill(steps[i].first);
        const FrameChange change = frame.refresh();
        EXPECT_EQ(change.kind, steps[i].second) << i;
        EXPECT_EQ(shownBy(frame), shownBy(Frame(file.path()))) << i;
        EXPECT_EQ(frame.refresh().kind, FrameChange::kNone) << i;
    }
}

// A bucket that comes twice in a row is odd enough for an inspection, and no damage.
TEST(RawFrameRefresh, GoesOnFromAnInspection) {
    const Contents empty = contentsOf(1, 0, false), open = contentsOf(1, 6, false),
                   first = contentsOf(2, 1, false);
    Contents twice = first;
    twice.insert(twice.end(), open.begin() + static_cast<std::ptrdiff_t>(empty.size()), open.end());
    MemoryFile file;
    file.fill({twice.begin(), twice.end() - 400});
    Frame frame(file.path());
    EXPECT_EQ(shownBy(frame), shownBy(Frame(file.path())));
    file.fill(twice);
    EXPECT_EQ(frame.refresh().kind, FrameChange::kGrown);
    EXPECT_EQ(shownBy(frame), shownBy(Frame(file.path())));
    file.fill(testing_tools::closed(Bytes().raw(twice.data(), twice.size())));
    EXPECT_EQ(frame.refresh().kind, FrameChange::kGrown);
    EXPECT_EQ(frame.state(), FileState::kGood);
}

// Damage that an inspection has found is neither news nor forgotten.
TEST(RawFrameRefresh, KeepsWhatAnInspectionHasFound) {
    const Contents open = contentsOf(1, 5, false);
    for (const std::size_t damagedAt : {std::size_t{kFileHeaderBytes}, open.size() - 300}) {
        MemoryFile file;
        const auto fill = [&](Contents bytes) {
            bytes.at(damagedAt) ^= 0x55;
            file.fill(bytes);
        };
        fill(open);
        // The progress of opening, which would stop everything later.
        bool opening = true;
        RawFrameOptions options;
        options.progress = [&opening](std::int64_t, std::int64_t) { return opening; };
        Frame frame(file.path(), options);
        opening = false;
        EXPECT_EQ(frame.state(), FileState::kDamaged);
        EXPECT_EQ(frame.refresh().kind, FrameChange::kNone);
        EXPECT_EQ(shownBy(frame), shownBy(Frame(file.path())));
        fill(contentsOf(1, 6, false));
        EXPECT_EQ(frame.refresh().kind, FrameChange::kGrown);
        EXPECT_EQ(shownBy(frame), shownBy(Frame(file.path())));
        EXPECT_EQ(frame.refresh().kind, FrameChange::kNone);
        file.fill(contentsOf(2, 6, true));
        EXPECT_EQ(frame.refresh().kind, FrameChange::kRestarted);
        EXPECT_EQ(shownBy(frame), shownBy(Frame(file.path())));
    }
}

TEST(RawFrameRefresh, TellsWhereThereAreNewPixels) {
    MemoryFile file;
    file.fill(contentsOf(1, 2, false));
    Frame frame(file.path());
    file.fill(contentsOf(1, 4, false));
    EXPECT_EQ(frame.refresh().box, boxAt(8, 0, 8, 8));
}

// The name goes to another file; what is there stays readable until then.
TEST(RawFrameRefresh, FollowsTheName) {
    const std::string path = testing::TempDir() + "frame_refresh.rimg", other = path + ".new";
    const auto write = [](const std::string& to, const Contents& bytes) {
        std::FILE* out = std::fopen(to.c_str(), "wb");
        ASSERT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), out), bytes.size());
        std::fclose(out);
    };
    std::remove(path.c_str());
    Frame frame(path.c_str());
    EXPECT_EQ(frame.state(), FileState::kCannotOpen);
    EXPECT_EQ(frame.refresh().kind, FrameChange::kNone);
    write(path, contentsOf(1, 6, true));
    EXPECT_EQ(frame.refresh().kind, FrameChange::kRestarted);
    const std::string first = shownBy(frame);
    std::remove(path.c_str());
    EXPECT_EQ(frame.refresh().kind, FrameChange::kNone);
    EXPECT_EQ(shownBy(frame), first);
    write(other, contentsOf(2, 6, true));
    std::rename(other.c_str(), path.c_str());
    EXPECT_EQ(frame.refresh().kind, FrameChange::kRestarted);
    EXPECT_EQ(shownBy(frame), shownBy(Frame(path.c_str())));
    std::remove(path.c_str());
}

// Readers on several threads, a writer, and a refresh: each pixel has its value or the fill value.
TEST(RawFrameRefresh, LetsReadersGoOn) {
    const std::vector<Contents> grown = {contentsOf(1, 1, false), contentsOf(1, 2, false),
                                         contentsOf(1, 4, false), contentsOf(1, 6, true)};
    MemoryFile file;
    file.fill(grown[0]);
    Frame frame(file.path());
    std::atomic<bool> done{false};
    std::atomic<int> wrong{0}, reads{0};
    const auto readOn = [&] {
        std::vector<float> values(24 * 8 * 3);
        while (!done || reads < 100) {
            const auto info = frame.info();
            FrameReadOptions options;
            options.threads = 2;
            ChannelTarget target(info->channels[0], values.data());
            target.fill = -1;
            if (!frame.read(info->frame, {target}, options).damaged.empty()) ++wrong;
            for (int i = 0; i < 24 * 8 * 3; ++i) {
                const float value = values[static_cast<std::size_t>(i)];
                const int pixel = i / 3;
                if (value >= 0 && value != testing_tools::valueAt(1, 0, i % 3, pixel % 24, pixel / 24))
                    ++wrong;
            }
            (void)frame.missing();
            ++reads;
        }
    };
    std::thread one(readOn), two(readOn);
    for (const Contents& bytes : grown) {
        ASSERT_EQ(::pwrite(file.descriptor(), bytes.data() + 32, bytes.size() - 32, 32),
                  static_cast<ssize_t>(bytes.size()) - 32);
        ASSERT_EQ(::pwrite(file.descriptor(), bytes.data(), 32, 0), 32);
        for (int i = 0; i < 10; ++i)
            (void)frame.refresh();
    }
    done = true;
    one.join();
    two.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(frame.state(), FileState::kGood);
}

}  // namespace
