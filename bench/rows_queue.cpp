#include <OpenEXR/ImfInputFile.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <utility>

#include "bench/direct_exr.h"
#include "bench/plain.h"
#include "bench/rows.h"
#include "convert/to_exr/to_exr.h"
#include "rawimage/output_queue.h"

using namespace MUtils;

namespace bench {

namespace {

constexpr std::int64_t kUnbound = std::int64_t{1} << 40;

// Takes regions and drops them, but none while it is shut.
class GateFile final : public RIFile {
  public:
    ErrorCode WTRegions(RegionFeed& feed) override {
        for (Call call; feed.next(true, call); feed.written()) {
            std::unique_lock<std::mutex> lock(mutex_);
            opened_.wait(lock, [this] { return open_; });
            ++regions;
        }
        return {};
    }
    void setOpen(bool open) {
        const std::lock_guard<std::mutex> lock(mutex_);
        open_ = open;
        opened_.notify_all();
    }

    std::size_t regions = 0;

  private:
    using Call = RegionFeed::Call;

    std::mutex mutex_;
    std::condition_variable opened_;
    bool open_ = true;
};

void giveAll(const Frame& frame, OutputQueue& queue, int threads) {
    onThreads(threads, frame.buckets.size(), [&](std::size_t i) {
        MRRegionData region;
        frame.describe(frame.buckets[i], region);
        require(queue.WTRegion(&region, 0, 0, 0).empty(), "a region was not taken");
    });
}

// What WTRegion costs its caller: the file is shut meanwhile, so that it takes no processor.
void compareHandingOver(Session& session, const Frame& frame) {
    GateFile file;
    OutputQueue queue(file);
    queue.setMaxPending(kUnbound);
    std::vector<std::vector<unsigned char>> copies;
    for (const Bucket& bucket : frame.buckets) {
        copies.emplace_back(static_cast<std::size_t>(frame.pixelBytes()) *
                            static_cast<std::size_t>(bucket.width * bucket.height));
    }
    Comparison row{"handing over to a queue", "memcpy of the values", {Goal::kTimeAtMost, 1.5}};
    row.ours = [&] { giveAll(frame, queue, 1); };
    row.plain = [&] {
        for (std::size_t i = 0; i < frame.buckets.size(); ++i) {
            unsigned char* to = copies[i].data();
            for (const auto& values : frame.buckets[i].values) {
                const int bytes = values->count * values->itemSize;
                std::memcpy(to, values->item(0), static_cast<std::size_t>(bytes));
                to += bytes;
            }
        }
    };
    row.prepare = [&] {
        file.setOpen(true);
        require(queue.flush().empty(), "flushing failed");
        file.setOpen(false);
    };
    row.check = [&] {
        row.prepare();
        require(file.regions == frame.buckets.size(), "regions were lost");
    };
    session.compare(row);
    file.setOpen(true);
}

// Eight threads against one, both until all is in the file.
void compareManyCallers(Session& session, const Frame& frame) {
    const auto write = [&frame](int threads, PMemStream& stream) {
        RIFile file;
        OutputQueue queue(file);
        file.setCompressionThreads(nullptr, 2);
        file.setCompressionLevel(1);
        bool good =
            stream.Open() == 0 && queue.Create(nullptr, &stream).empty() && queue.WriteHeader(0).empty();
        giveAll(frame, queue, threads);
        good = queue.Close().empty() && good;
        require(good, "writing failed");
    };
    const int room = static_cast<int>(frame.rawBytes() / 2);
    PMemStream many(room), one(room);
    Comparison row{"queue, 8 threads handing over", "1 thread handing over", {Goal::kTimeAtMost, 1.0}};
    row.ours = [&] { write(8, many); };
    row.plain = [&] { write(1, one); };
    row.check = [&] { require(many.Tell() == one.Tell(), "the files differ in length"); };
    row.busy = 2;
    session.compare(row);
}

// Tiles one at a time, by OpenEXR itself, leave its second thread nothing to do.
void compareTiles(Session& session, const Folder& folder) {
    const ExrPart part(folder.demo, true);
    const ExrSource source{part.frame, part.regions};
    const ExrLayout layout{ExrFile::kTiled, 3, 32};
    const std::string ours = folder.file("ours.exr"), plain = folder.file("plain.exr");
    writeOurExr(source, layout, ours);
    const DirectExr direct(source, layout, ours);
    Comparison row{
        "EXR tiled, float, ZIPS, queue, 2 threads", "writeTile, one at a time", {Goal::kSpeedAtLeast, 1.7}};
    row.ours = [&] { writeOurExr(source, layout, ours, true); };
    row.plain = [&] { direct.write(plain); };
    row.check = [&] {
        require(direct.holds(ours), "our file does not hold the frame");
        require(direct.holds(plain), "the direct file does not hold the frame");
    };
    row.prepare = [&] {
        std::remove(ours.c_str());
        std::remove(plain.c_str());
    };
    session.compare(row);
    row.prepare();
}

// But for the alpha, which scan-line files have as a mean.
bool holdSamePixels(const std::string& onePath, const std::string& otherPath) {
    constexpr int kRows = 64;
    Imf::InputFile one(onePath.c_str()), other(otherPath.c_str());
    const int last = one.header().dataWindow().max.y;
    bool same = one.header().dataWindow() == other.header().dataWindow();
    Bytes ours, theirs;
    for (int y = 0; y <= last && same; y += kRows) {
        const int end = std::min(y + kRows - 1, last);
        readBand(one, y, end, "A", ours);
        readBand(other, y, end, "A", theirs);
        same = ours == theirs;
    }
    return same;
}

// Multiplies the values of a bucket, so that scan lines in which buckets come twice do not compress each by
// the other.
void scaleValues(const Frame& frame, Bucket& bucket, float factor) {
    for (std::size_t c = 0; c < frame.channels.size(); ++c) {
        if (frame.channels[c].type == RCT_INT) continue;
        const MBVTable& values = *bucket.values[c];
        auto* value = reinterpret_cast<float*>(bucket.values[c]->item(0));
        std::for_each(value, value + values.count * values.itemSize / 4, [factor](float& v) { v *= factor; });
    }
}

// The demo frame's buckets, again and again over a frame of 4096 x 2160, brighter each time.
void writeLargeFrame(const Folder& folder, const std::string& path) {
    constexpr int kWidth = 4096, kHeight = 2160, kSide = 64;
    Frame demo = Frame::load(folder.demo);
    Frame large;
    large.width = kWidth;
    large.height = kHeight;
    large.channels = demo.channels;
    for (int y = 0; y < kHeight; y += kSide) {
        for (int x = 0; x < kWidth; x += kSide) {
            const int across = demo.width - kSide, down = demo.height - kSide;
            Bucket bucket = demo.crop(x % across, y % down, kSide, std::min(kSide, kHeight - y));
            const int copy = x / across + 3 * (y / down);
            scaleValues(demo, bucket, 1.0f + 0.125f * static_cast<float>(copy));
            bucket.x = x;
            bucket.y = y;
            large.buckets.push_back(std::move(bucket));
        }
    }
    demo.buckets.clear();
    writeFrame(large, nullptr, path, 2, 1);
}

void compareConverting(Session& session, const Folder& folder) {
    const std::string raw = folder.file("4096x2160.rimg");
    const std::string tiled = folder.file("tiled.exr"), scanline = folder.file("scanline.exr");
    writeLargeFrame(folder, raw);
    const auto convert = [&raw](int kind, const std::string& path) {
        ToExrOptions options;
        options.kind = kind;
        options.threads = 2;
        convertToExr(raw, path, options);
    };
    Comparison row{"convert --kind tiled, 4096x2160, 2 threads", "--kind scanline", {Goal::kTimeAtMost, 1.2}};
    row.ours = [&] { convert(ExrFile::kTiled, tiled); };
    row.plain = [&] { convert(ExrFile::kScanline, scanline); };
    row.check = [&] { require(holdSamePixels(scanline, tiled), "the pixels differ"); };
    row.prepare = [&] {
        std::remove(tiled.c_str());
        std::remove(scanline.c_str());
    };
    session.compare(row);
    row.prepare();
    std::remove(raw.c_str());
}

}  // namespace

void queueRows(Session& session, const Folder& folder) {
    {
        const Frame demo = Frame::load(folder.demo, 8);
        compareWriting(session, demo, "queue, 2 threads, level 9", 2, {Goal::kSpeedAtLeast, 0.98}, kUnbound);
        compareHandingOver(session, demo);
        compareManyCallers(session, demo);
    }
    if (!folder.real.empty()) {
        compareWriting(session, Frame::load(folder.real, 2), "queue, 2 threads, level 9, real frame", 2,
                       {Goal::kSpeedAtLeast, 0.98}, kUnbound);
    }
    compareTiles(session, folder);
    compareConverting(session, folder);
}

}  // namespace bench
