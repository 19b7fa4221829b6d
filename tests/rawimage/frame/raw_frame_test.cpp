#include "rawimage/frame/raw_frame.h"

#include <gtest/gtest.h>

#include <cstring>
#include <mutex>
#include <stdexcept>

#include "rawimage/read/tag_reader.h"
#include "support/half_float.h"
#include "tests/testing/check.h"
#include "tests/testing/raw_frame.h"
#include "tests/testing/sanitized.h"

using namespace MUtils;
using testing_tools::Bytes;
using testing_tools::Contents;
using testing_tools::MemoryFile;
using testing_tools::RawBox;
using testing_tools::Sample;

namespace {

using Frame = MUtils::RawFrame;
using Written = testing_tools::RawFrame;

// Buckets of 16 x 8 with overlaps, one that reaches beyond the frame, and a hole.
Written bucketsOf(int width, int height) {
    Written frame;
    frame.width = width;
    frame.height = height;
    frame.boxes.clear();
    for (int y = 0; y < height; y += 8) {
        for (int x = 0; x < width; x += 16) {
            if (x != 32 || y != 8) frame.boxes.push_back({x, y, 16, 8});
        }
    }
    frame.boxes.push_back({10, 3, 9, 7, 1000});
    frame.boxes.push_back({14, 5, 4, 2, 2000});
    return frame;
}

// What a pixel of the frame is to be; false when no bucket has it.
bool expectedAt(const Written& frame, int channel, int component, std::int64_t x, std::int64_t y,
                float& value) {
    bool found = false;
    for (const RawBox& box : frame.boxes) {
        if (x < box.x || y < box.y || x >= box.x + box.width || y >= box.y + box.height) continue;
        value =
            testing_tools::valueAt(box.first, channel, component, static_cast<int>(x), static_cast<int>(y));
        found = true;
    }
    return found;
}

std::string pathOf(const Written& frame, const MemoryFile& file) {
    frame.write(file.path());
    return file.path();
}

TEST(RawFrame, ReadsBoxesIntoAnyMemory) {
    constexpr float kFill = -3.5f;
    Written written = bucketsOf(70, 40);
    MemoryFile file;
    const Frame frame(pathOf(written, file).c_str());
    const std::shared_ptr<const FrameInfo> info = frame.info();
    ASSERT_EQ(info->frame, boxAt(0, 0, 70, 40));
    ASSERT_EQ(info->channels.size(), 3u);
    const struct {
        PixelBox box;
        int channel;
        std::ptrdiff_t pixelStride;
        ValueFormat format;
        int threads;
        std::ptrdiff_t componentStride = 0;
    } cases[] = {
        {{0, 0, 70, 40}, 0, 0, ValueFormat::kStored, 1},
        {{0, 0, 70, 40}, 1, 0, ValueFormat::kStored, 3},
        {{13, 4, 20, 9}, 0, 20, ValueFormat::kStored, 2},
        {{17, 5, 18, 6}, 2, 0, ValueFormat::kStored, 1},
        {{-9, -3, 90, 60}, 0, 0, ValueFormat::kStored, 2},
        {{30, 2, 50, 20}, 1, 16, ValueFormat::kHalf, 2},
        {{1, 1, 2, 2}, 0, 0, ValueFormat::kHalf, 1},
        {{5, 5, 5, 9}, 0, 0, ValueFormat::kHalf, 1},
        {{3, 2, 80, 20}, 0, 40, ValueFormat::kStored, 2, 12},
        {{3, 2, 80, 20}, 0, 20, ValueFormat::kHalf, 1, 6},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(boxText(c.box));
        ChannelTarget target(info->channels[static_cast<std::size_t>(c.channel)], nullptr, c.format);
        target.pixelStride = c.pixelStride;
        target.componentStride = c.componentStride;
        target.fill = static_cast<double>(kFill);
        const int components = target.components(), size = target.componentBytes();
        const std::ptrdiff_t component = c.componentStride != 0 ? c.componentStride : size;
        const std::ptrdiff_t pixel = c.pixelStride != 0 ? c.pixelStride : components * size;
        std::vector<unsigned char> memory(static_cast<std::size_t>(pixel * c.box.area() + pixel), 0xAB);
        target.data = memory.data();
        FrameReadOptions options;
        options.threads = c.threads;
        const FrameRead read = frame.read(c.box, {target}, options);
        EXPECT_TRUE(read.damaged.empty());
        bool complete = true;
        for (std::int64_t i = 0; i < c.box.area(); ++i) {
            const std::int64_t x = c.box.x0 + i % c.box.width(), y = c.box.y0 + i / c.box.width();
            for (int k = 0; k < components; ++k) {
                float value = kFill;
                const bool there = expectedAt(written, c.channel, k, x, y, value);
                const bool inside = contains(info->frame, boxAt(x, y, 1, 1));
                complete = complete && (there || !inside);
                const unsigned char* at = memory.data() + i * pixel + k * component;
                const std::int32_t filled = -4;
                if (c.format == ValueFormat::kHalf) {
                    const std::uint16_t half = halfFromFloat(value);
                    ASSERT_EQ(std::memcmp(at, &half, 2), 0) << x << ' ' << y << ' ' << k;
                } else if (c.channel == 2 && !there) {
                    ASSERT_EQ(std::memcmp(at, &filled, 4), 0) << x << ' ' << y;
                } else {
                    ASSERT_EQ(std::memcmp(at, &value, 4), 0) << x << ' ' << y << ' ' << k;
                }
            }
        }
        EXPECT_EQ(memory.back(), 0xAB);
        EXPECT_EQ(read.complete(), complete);
        EXPECT_EQ(read.missing.size(), complete ? 0u : 1u);
    }
}

// Pixels of the whole frame by channel: as of the sound tags of a full look at all headers, drawn one after
// the other. A pixel that none has is all 0xEE bytes.
std::vector<std::string> drawnFrom(const Contents& bytes, const Inspection& found, const FrameInfo& info) {
    testing_tools::FaultStream stream(bytes);
    stream.Open();
    TagReader reader(stream, found.compressed);
    std::vector<std::string> planes;
    for (const FrameChannel& channel : info.channels) {
        const auto size = static_cast<std::size_t>(channel.valueBytes());
        std::string plane(static_cast<std::size_t>(info.frame.area()) * size, '\xEE');
        for (const INFOTAG& tag : found.tags) {
            const bool doubted = std::binary_search(found.doubted.begin(), found.doubted.end(),
                                                    static_cast<std::int64_t>(tag.offset));
            if (!isPixelTag(tag.id) || tag.p8 != channel.index || tag.p1 != channel.type || doubted) continue;
            struct Whole final : ValueRooms {
                std::string values;
                Room next() override {
                    return {reinterpret_cast<unsigned char*>(values.data()), values.size()};
                }
            } rooms;
            rooms.values.resize(static_cast<std::size_t>(pixelBytes(tag)));
            if (reader.readPixels(tag, rooms) != 0) continue;
            const PixelBox part = intersect(boxAt(tag.p2, tag.p3, tag.p4, tag.p5), info.frame);
            for (std::int64_t y = part.y0; y < part.y1; ++y) {
                for (std::int64_t x = part.x0; x < part.x1; ++x) {
                    const auto from = static_cast<std::size_t>((y - tag.p3) * tag.p4 + x - tag.p2) * size;
                    const auto to = static_cast<std::size_t>(y * info.frame.width() + x) * size;
                    plane.replace(to, size, rooms.values, from, size);
                }
            }
        }
        planes.push_back(plane);
    }
    return planes;
}

std::vector<std::string> readFrom(const Frame& frame, const FrameInfo& info, FrameRead& read,
                                  bool& reportsAll) {
    std::vector<std::string> planes;
    std::vector<ChannelTarget> targets;
    for (const FrameChannel& channel : info.channels) {
        planes.emplace_back(static_cast<std::size_t>(info.frame.area() * channel.valueBytes()), '\xEE');
        targets.emplace_back(channel, nullptr);
    }
    for (std::size_t i = 0; i < planes.size(); ++i) {
        targets[i].data = planes[i].data();
        targets[i].fill = 0.25;
    }
    read = frame.read(info.frame, targets);
    reportsAll = true;
    // What was filled is reported; it counts as nothing here.
    for (std::size_t i = 0; i < planes.size(); ++i) {
        const FrameChannel& channel = info.channels[i];
        const auto size = static_cast<std::size_t>(channel.valueBytes());
        if (size == 0) continue;
        std::string fill;
        for (int k = 0; k < channel.components(); ++k) {
            const float value = 0.25f;
            const std::int32_t integer = 0;
            fill.append(channel.isInteger() ? reinterpret_cast<const char*>(&integer)
                                            : reinterpret_cast<const char*>(&value),
                        4);
        }
        const auto covers = [&](const PixelBox& pixel) {
            const bool damaged =
                std::any_of(read.damaged.begin(), read.damaged.end(), [&](const FileFault& fault) {
                    return fault.channel == channel.index && contains(fault.box, pixel);
                });
            return damaged || std::any_of(read.missing.begin(), read.missing.end(), [&](const auto& missing) {
                       return missing.channel == channel.index &&
                              std::any_of(missing.boxes.boxes.begin(), missing.boxes.boxes.end(),
                                          [&](const PixelBox& box) { return contains(box, pixel); });
                   });
        };
        for (std::size_t at = 0; at < planes[i].size(); at += size) {
            if (planes[i].compare(at, size, fill) != 0) continue;
            const auto pixel = static_cast<std::int64_t>(at / size);
            const PixelBox place = boxAt(pixel % info.frame.width(), pixel / info.frame.width(), 1, 1);
            if (overlaps(place, info.area)) reportsAll = reportsAll && covers(place);
            planes[i].replace(at, size, std::string(size, '\xEE'));
        }
    }
    return planes;
}

// A frame of three rows of buckets, with all records; its render region lies within.
Contents wholeFile(bool closed) {
    Written written;
    written.width = 12;
    written.height = 9;
    written.tile = 4;
    written.closed = closed;
    written.boxes.clear();
    for (int y = 0; y < 9; y += 3) {
        for (int x = 0; x < 12; x += 4)
            written.boxes.push_back({x, y, 4, 3, 1.0f});
    }
    written.metadata = [](RIFile& file) {
        EXPECT_TRUE(file.WTRenderRegion({0, 0, 0, 12, 9}).empty());
        RISceneInfo scene(3, "scene");
        EXPECT_TRUE(file.WTSceneInfo(scene).empty());
    };
    MemoryFile file;
    written.write(file.path());
    return file.bytes();
}

// Compares a frame of these bytes with what an inspection of them gives. Returns whether all pixels are the
// same, or else reported.
::testing::AssertionResult agreesWithInspection(const Contents& bytes) {
    MemoryFile file;
    file.fill(bytes);
    const Frame frame(file.path());
    const Inspection found = testing_tools::inspected(bytes, InspectDepth::kHeaders);
    const auto before = frame.info();
    if (before->frame != found.facts.frame() || before->frame.area() > 4096)
        return ::testing::AssertionSuccess() << "another size";
    FrameRead read;
    bool reportsAll = true;
    const auto planes = readFrom(frame, *before, read, reportsAll);
    if (!reportsAll) return ::testing::AssertionFailure() << "filled pixels that are not reported";
    const auto expected = drawnFrom(bytes, found, *before);
    for (std::size_t i = 0; i < planes.size(); ++i) {
        if (planes[i] != expected[i])
            return ::testing::AssertionFailure() << "channel " << before->channels[i].index << " differs";
    }
    return ::testing::AssertionSuccess();
}

TEST(RawFrame, ShowsWhatAnInspectionFinds) {
    for (const bool closed : {true, false}) {
        const Contents whole = wholeFile(closed);
        for (std::size_t size = 0; size <= whole.size(); size += whole.size() - size < 60 ? 1 : 7) {
            const Contents cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            MemoryFile file;
            file.fill(cut);
            const Frame frame(file.path());
            const Inspection found = testing_tools::inspected(cut, InspectDepth::kHeaders);
            ASSERT_EQ(frame.state(), found.state) << size;
            ASSERT_EQ(frame.cause(), found.cause) << size;
            ASSERT_EQ(frame.missing().size(), found.missing.size()) << size;
            ASSERT_EQ(frame.info()->channels.size(), found.facts.channels.size()) << size;
        }
    }
}

// One damaged byte anywhere: nothing is shown that an inspection would not show.
TEST(RawFrame, ShowsNoPixelOfADamagedHeader) {
    for (const bool closed : {true, false}) {
        const Contents whole = wholeFile(closed);
        for (std::size_t at = 0; at < whole.size(); at += kSanitized ? 5 : 1) {
            Contents damaged = whole;
            damaged[at] = static_cast<unsigned char>(damaged[at] ^ 1 << at % 8);
            ASSERT_TRUE(agreesWithInspection(damaged)) << closed << ": byte " << at;
        }
    }
}

// Tags that overlap come in the order of the file, whatever runs them.
TEST(RawFrame, VisitsWholeBucketsOnAnyThreads) {
    const Written written = bucketsOf(70, 40);
    MemoryFile file;
    const Frame frame(pathOf(written, file).c_str());
    struct Collector final : BucketVisitor {
        bool visit(const FrameBucket& bucket) override {
            const std::lock_guard<std::mutex> lock(mutex);
            float first;
            std::memcpy(&first, bucket.values, sizeof first);
            EXPECT_EQ(bucket.box.area() * bucket.components * 4, pixelBytes(bucket.tag));
            boxes.push_back(bucket.box);
            return boxes.size() < most;
        }
        std::mutex mutex;
        std::vector<PixelBox> boxes;
        std::size_t most = 1000;
    };
    ThreadManager manager;
    FrameReadOptions alone, threads, managed, executed, stopped;
    threads.threads = 3;
    managed.threads = 2;
    managed.manager = &manager;
    executed.threads = 4;
    executed.executor = [](int count, const std::function<void(int)>& job) {
        for (int i = count; i-- > 0;)
            job(i);
    };
    stopped.progress = [](std::int64_t, std::int64_t) { return false; };
    for (const FrameReadOptions* options : {&alone, &threads, &managed, &executed}) {
        Collector all;
        EXPECT_TRUE(frame.visit({0, 0, 30, 12}, {0}, all, *options).damaged.empty());
        ASSERT_EQ(all.boxes.size(), 6u);  // four of the grid, and two over them
        const auto placeOf = [&all](const PixelBox& box) {
            return std::find(all.boxes.begin(), all.boxes.end(), box) - all.boxes.begin();
        };
        EXPECT_LT(placeOf(boxAt(0, 0, 16, 8)), placeOf(boxAt(10, 3, 9, 7)));
        EXPECT_LT(placeOf(boxAt(10, 3, 9, 7)), placeOf(boxAt(14, 5, 4, 2)));
        EXPECT_EQ(placeOf(boxAt(14, 5, 4, 2)), 5 - (placeOf(boxAt(16, 8, 16, 8)) == 5 ? 1 : 0));
    }
    Collector few;
    few.most = 2;
    EXPECT_TRUE(frame.visit({0, 0, 70, 40}, {0}, few).stopped);
    EXPECT_EQ(few.boxes.size(), 2u);
    Collector none;
    EXPECT_TRUE(frame.visit({0, 0, 70, 40}, {0}, none, stopped).stopped);
    struct Throwing final : BucketVisitor {
        bool visit(const FrameBucket&) override { throw std::runtime_error("visitor"); }
    } throwing;
    EXPECT_THROW(frame.visit({0, 0, 70, 40}, {0}, throwing, threads), std::runtime_error);
}

TEST(RawFrame, ReportsPayloadsThatDoNotDecode) {
    Written written;
    written.channels = {{1, 117, "depth"}};
    written.boxes = {{0, 0, 20, 24, 5}, {20, 0, 20, 24, 6}, {4, 4, 8, 8, 7}};
    MemoryFile file;
    Contents bytes;
    pathOf(written, file);
    bytes = file.bytes();
    std::vector<INFOTAG> tags = testing_tools::inspected(bytes).tags;
    tags.erase(
        std::remove_if(tags.begin(), tags.end(), [](const INFOTAG& tag) { return !isPixelTag(tag.id); }),
        tags.end());
    for (const std::size_t at : {tags[1].offset, tags[2].offset})
        std::memset(&bytes[at + kTagHeaderBytes + 3], 0x55, 8);
    file.fill(bytes);
    const Frame frame(file.path());
    std::vector<float> values(40 * 24);
    ChannelTarget target(*frame.info()->find("depth"), values.data());
    target.fill = -1;
    const FrameRead read = frame.read({0, 0, 40, 24}, {target});
    ASSERT_EQ(read.damaged.size(), 2u);
    EXPECT_EQ(read.damaged[0].box, boxAt(20, 0, 20, 24));
    EXPECT_EQ(read.damaged[0].channelName, "depth");
    EXPECT_EQ(read.damaged[0].cause, "pixels do not inflate");
    EXPECT_EQ(read.damaged[1].offset, static_cast<std::int64_t>(tags[2].offset));
    EXPECT_TRUE(read.missing.empty());
    for (int i = 0; i < 40 * 24; ++i) {
        const int x = i % 40, y = i / 40;
        const float expected = x >= 20 ? -1 : testing_tools::valueAt(5, 0, 0, x, y);
        ASSERT_EQ(values[static_cast<std::size_t>(i)], expected) << x << ' ' << y;
    }
}

// Tags of more than kMaxHeldValues bytes: of many rows, of rows that are longer than a piece, and one that is
// damaged over others, which stay.
TEST(RawFrame, ReadsLargeTagsInPieces) {
    for (const bool wide : {false, true}) {
        SCOPED_TRACE(wide);
        Written written;
        written.width = wide ? 400000 : 1100;
        written.height = wide ? 4 : 1100;
        const int w = written.width, h = written.height;
        written.channels = {{1, 117, "depth"}};
        written.boxes = {{0, 0, w, h, 5}, {w - 7, 1, 7, 2, 6}, {0, 0, w, h, 7}};
        MemoryFile file;
        pathOf(written, file);
        Contents bytes = file.bytes();
        std::vector<INFOTAG> tags;
        for (const INFOTAG& tag : testing_tools::inspected(bytes).tags) {
            if (isPixelTag(tag.id)) tags.push_back(tag);
        }
        ASSERT_GT(pixelBytes(tags[0]), kMaxHeldValues);
        bytes[tags[2].offset + tags[2].size - 1] ^= 1;  // the checksum: all values have come by then
        file.fill(bytes);
        const Frame frame(file.path());
        for (const PixelBox& box : {boxAt(0, 0, w, h), boxAt(w - 9, 1, 30, 2), boxAt(3, 2, 5, 1)}) {
            std::vector<float> values(static_cast<std::size_t>(box.area()), -1);
            ChannelTarget target(*frame.info()->find("depth"), values.data());
            const FrameRead read = frame.read(box, {target});
            EXPECT_EQ(read.damaged.size(), 1u);
            for (std::int64_t i = 0; i < box.area(); ++i) {
                const std::int64_t x = box.x0 + i % box.width(), y = box.y0 + i / box.width();
                const float first = x >= w - 7 && y > 0 && y < 3 ? 6 : 5;
                const float expected =
                    x < w ? testing_tools::valueAt(first, 0, 0, static_cast<int>(x), static_cast<int>(y)) : 0;
                ASSERT_EQ(values[static_cast<std::size_t>(i)], expected) << x << ' ' << y;
            }
        }
    }
}

TEST(RawFrame, LeavesFilledMemoryAndVisitsInOrder) {
    Written written = bucketsOf(70, 40);
    MemoryFile file;
    const Frame frame(pathOf(written, file).c_str());
    std::vector<float> values(70 * 40 * 3, 9);
    ChannelTarget target(frame.info()->channels[0], values.data());
    target.filled = true;
    EXPECT_FALSE(frame.read({0, 0, 70, 40}, {target}).complete());
    EXPECT_EQ(values[(8 * 70 + 33) * 3], 9);  // in the hole

    struct Offsets final : BucketVisitor {
        bool visit(const FrameBucket& bucket) override {
            offsets.push_back(bucket.tag.offset);
            return offsets.size() < most;
        }
        bool wants(const INFOTAG& tag) override { return wanted == 0 || tag.offset == wanted; }
        std::vector<std::uint64_t> offsets;
        std::size_t most = 1000;
        std::uint64_t wanted = 0;
    };
    for (const int threads : {1, 4}) {
        FrameReadOptions options;
        options.threads = threads;
        options.inOrder = true;
        Offsets all, few;
        few.most = 7;
        EXPECT_FALSE(frame.visit(kEverywhere, {0}, all, options).stopped);
        EXPECT_EQ(all.offsets.size(), written.boxes.size());
        EXPECT_TRUE(std::is_sorted(all.offsets.begin(), all.offsets.end()));
        EXPECT_TRUE(frame.visit(kEverywhere, {0}, few, options).stopped);
        EXPECT_EQ(few.offsets.size(), 7u);
        Offsets one;  // of several that overlap
        const std::vector<INFOTAG> tags = frame.tags({14, 5, 15, 6}, 0);
        ASSERT_EQ(tags.size(), 3u);
        one.wanted = tags[1].offset;
        EXPECT_TRUE(frame.visit({14, 5, 15, 6}, {0}, one, options).damaged.empty());
        EXPECT_EQ(one.offsets, std::vector<std::uint64_t>{tags[1].offset});
    }
    const std::vector<PixelBox> bands{{0, 0, 70, 16}, {0, 16, 70, 24}, {0, 24, 70, 32}, {0, 32, 70, 40}};
    EXPECT_EQ(frame.uncutBands({0, 0, 70, 40}, {0}, 8), bands);
    EXPECT_EQ(frame.uncutBands({0, 0, 70, 40}, {0}, 7).size(), 1u);
}

// A table that has a tag elsewhere than the tag itself says.
TEST(RawFrame, LooksCloserWhenATagIsNotTheOneListed) {
    Contents bytes = wholeFile(true);
    const std::size_t table = loadU32(&bytes[kTableOffsetPosition]) + kTagHeaderBytes;
    for (std::size_t at = table; at < bytes.size(); at += kInfoTagBytes) {
        const INFOTAG entry = decodeInfoTag(&bytes[at]);
        // A whole bucket, so that the table alone shows nothing.
        if (isPixelTag(entry.id) && entry.p2 == 4 && entry.p3 == 3) storeI32(&bytes[at + 16], 0);
    }
    EXPECT_TRUE(agreesWithInspection(bytes));
    MemoryFile file;
    file.fill(bytes);
    const Frame frame(file.path());
    struct Counter final : BucketVisitor {
        bool visit(const FrameBucket&) override { return ++buckets > 0; }
        void restart() override { buckets = 0, ++restarts; }
        int buckets = 0, restarts = 0;
    } counter;
    (void)frame.visit(frame.info()->frame, {1}, counter);
    EXPECT_EQ(counter.restarts, 1);
    EXPECT_EQ(counter.buckets, 9);
    EXPECT_EQ(frame.state(), FileState::kDamaged);
    EXPECT_FALSE(frame.faults().doubts.empty());
}

TEST(RawFrame, ReadsRecordsAsValues) {
    const Sample sample = testing_tools::makeSample();
    for (const bool finished : {true, false}) {
        const Contents bytes =
            finished ? Contents(sample.bytes) : Contents(testing_tools::opened(sample.bytes));
        testing_tools::FaultStream stream(bytes);
        stream.Open();
        const Frame frame(stream);
        const FrameRecords records = frame.records();
        EXPECT_TRUE(records.damaged.empty());
        EXPECT_TRUE(records.camera.has_value());
        EXPECT_EQ(records.region->left, 2);
        EXPECT_EQ(records.scene->value, -7);
        EXPECT_EQ(records.scene->name.text, "scene");
        EXPECT_EQ(records.note->text, "A note.");
        EXPECT_EQ(records.stampText->text, "stamp text");
        EXPECT_EQ(records.settingsBytes, 5);
        EXPECT_EQ(frame.blob(FrameBlob::kStamp), (std::vector<unsigned char>{'b', 'l', 0, 'b'}));
        EXPECT_EQ(frame.blob(FrameBlob::kOverlayTexts)->size(), 0u);
        EXPECT_EQ(frame.thumbnail()->pixels.size(), 6u);
        EXPECT_EQ(frame.thumbnail()->pixels[5].b, 18);
        stream.failAt(testing_tools::Call::kRead, 1, testing_tools::Fault::kErrorNothing, true);
        EXPECT_EQ(frame.records().damaged.size(), 4u);
        EXPECT_FALSE(frame.blob(FrameBlob::kStamp).has_value());
        const FrameChannel& channel = frame.info()->channels[1];
        std::vector<float> values(3 * 30);
        EXPECT_EQ(frame.read({0, 0, 10, 3}, {{channel, values.data()}}).damaged.size(), 2u);
    }
    EXPECT_EQ(Frame("/nonexistent/file").state(), FileState::kCannotOpen);
    EXPECT_TRUE(Frame("/nonexistent/file").info()->channels.empty());
}

TEST(RawFrame, CutsBandsBetweenBuckets) {
    const Written written = bucketsOf(64, 64);
    MemoryFile file;
    const Frame frame(pathOf(written, file).c_str());
    constexpr std::int64_t kRow = 64 * 12;
    const struct {
        PixelBox box;
        std::int64_t bytes;
        std::vector<std::int64_t> ends;
    } cases[] = {
        {{0, 0, 64, 64}, 64 * kRow, {64}},
        {{0, 0, 64, 64}, 20 * kRow, {16, 32, 48, 64}},
        {{0, 18, 64, 40}, 9 * kRow, {24, 32, 40}},
        {{0, 16, 64, 30}, 3 * kRow, {19, 22, 24, 27, 30}},
        {{0, 60, 64, 80}, 12 * kRow, {72, 80}},
        {{0, 16, 64, 18}, 0, {17, 18}},
        {{0, 0, 0, 64}, kRow, {}},
    };
    for (const auto& c : cases) {
        std::vector<std::int64_t> ends;
        for (const PixelBox& band : frame.bands(c.box, {0}, c.bytes)) {
            EXPECT_EQ(band.y0, ends.empty() ? c.box.y0 : ends.back());
            ends.push_back(band.y1);
        }
        EXPECT_EQ(ends, c.ends) << boxText(c.box);
    }
}

}  // namespace
