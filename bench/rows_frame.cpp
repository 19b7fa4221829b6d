#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <numeric>

#include "bench/plain.h"
#include "bench/rows.h"
#include "rawimage/area/tag_box.h"
#include "rawimage/frame/raw_frame.h"
#include "rawimage/tools/hash.h"
#include "rawimage/tools/stats.h"

using namespace MUtils;

namespace bench {

namespace {

constexpr int kChannels = 64;
constexpr int kEdge = 16;  // of a bucket
constexpr int kColumns = 128;

void compareChannel(Session& session, const std::string& path, int threads) {
    const RawFrame frame(path.c_str());
    const auto info = frame.info();
    const FrameChannel channel = *info->find(RCA_COLOR);
    std::vector<INFOTAG> tags = pixelTags(path);
    tags.erase(
        std::remove_if(tags.begin(), tags.end(), [&](const INFOTAG& tag) { return tag.p8 != channel.index; }),
        tags.end());
    const PlainFile file(path);
    Bytes plane(static_cast<std::size_t>(info->frame.area() * channel.valueBytes()));
    FrameReadOptions options;
    options.threads = threads;
    Comparison row;
    row.name = "frame, a whole channel, " + std::to_string(threads) + (threads > 1 ? " threads" : " thread");
    row.against = "read + uncompress of its payloads";
    row.goal = threads > 1 ? Goal{Goal::kSpeedAtLeast, 0.95} : Goal{Goal::kTimeAtMost, 1.03};
    row.busy = threads;
    row.ours = [&] {
        require(frame.read(info->frame, {{channel, plane.data()}}, options).complete(), "pixels are missing");
    };
    row.plain = [&] { file.inflateAll(tags, threads); };
    row.check = [&] {
        Bytes zipped, values;
        const auto size = static_cast<std::size_t>(channel.valueBytes());
        for (const INFOTAG& tag : tags) {
            file.inflate(tag, zipped, values);
            const PixelBox part = intersect(boxOf(tag), info->frame);
            for (std::int64_t y = part.y0; y < part.y1; ++y) {
                const auto to = static_cast<std::size_t>(y * info->frame.width() + part.x0) * size;
                const auto from = static_cast<std::size_t>((y - tag.p3) * tag.p4 + part.x0 - tag.p2) * size;
                require(std::equal(plane.begin() + static_cast<std::ptrdiff_t>(to),
                                   plane.begin() + static_cast<std::ptrdiff_t>(
                                                       to + static_cast<std::size_t>(part.width()) * size),
                                   values.begin() + static_cast<std::ptrdiff_t>(from)),
                        "values differ");
            }
        }
    };
    session.compare(row);
}

// All values of a frame, which has each pixel once.
void compareStats(Session& session, const std::string& path) {
    const PlainFile file(path);
    const std::vector<INFOTAG> tags = pixelTags(path);
    FrameToolOptions options;
    options.threads = 2;
    StatsReport report;
    Comparison row{"stats, 2 threads", "read + uncompress of all payloads", {Goal::kTimeAtMost, 1.25}};
    row.busy = options.threads;
    row.ours = [&] { report = statsOfFile(path.c_str(), options); };
    row.plain = [&] { file.inflateAll(tags, options.threads); };
    row.check = [&] {
        std::int64_t stored = 0, counted = 0;
        for (const INFOTAG& tag : tags)
            stored += pixelBytes(tag) / 4;
        for (const ChannelStatistics& channel : report.channels) {
            for (const ValueStats& one : channel.components)
                counted += one.finite + one.nan.count + one.plusInf.count + one.minusInf.count;
        }
        require(report.state == FileState::kGood && counted == stored, "values were not counted");
    };
    session.compare(row);
}

void compareHash(Session& session, const std::string& path) {
    const PlainFile file(path);
    const std::vector<INFOTAG> tags = pixelTags(path);
    HashOptions options, alone;
    options.threads = 2;
    alone.threads = 1;
    HashReport report;
    Comparison row{"hash, 2 threads", "read + uncompress of all payloads", {Goal::kTimeAtMost, 1.1}};
    row.busy = options.threads;
    row.ours = [&] { report = hashFile(path.c_str(), options); };
    row.plain = [&] { file.inflateAll(tags, options.threads); };
    row.check = [&] {
        require(!report.hash.empty() && report.hash == hashFile(path.c_str(), alone).hash,
                "the hash is another one on one thread");
    };
    session.compare(row);
}

// Appends the buckets [from, to), each of 64 channels of floats in the order of a renderer's, all of the same
// values.
void addBuckets(RIFile& file, PFileStream& stream, int from, int to) {
    Bytes values(kEdge * kEdge * 4);
    std::iota(values.begin(), values.end(), static_cast<unsigned char>(0));
    Bytes payload(compressBound(static_cast<uLong>(values.size())));
    uLongf size = static_cast<uLongf>(payload.size());
    compress2(payload.data(), &size, values.data(), static_cast<uLong>(values.size()), 9);
    for (int bucket = from; bucket < to; ++bucket) {
        for (int channel = kChannels; channel-- > 0;) {
            int written = 0;
            require(file.WriteTagHeader(TAG_CHAN_FLOAT, static_cast<int>(size), RCT_FLOAT,
                                        bucket % kColumns * kEdge, bucket / kColumns * kEdge, kEdge, kEdge, 0,
                                        0, channel)
                            .empty() &&
                        stream.Write(payload.data(), static_cast<int>(size), written) == 0,
                    "cannot write a file of a million tags");
        }
    }
}

constexpr int kBuckets = 1000000 / kChannels;

void startFile(RIFile& file, PFileStream& stream, const std::string& path) {
    require(
        stream.Create(path.c_str(), 0) == 0 && file.Create(nullptr, &stream).empty() &&
            file.WriteHeader(32).empty() &&
            file.WTResolution(kColumns * kEdge, (kBuckets + kColumns - 1) / kColumns * kEdge, 1.0f).empty(),
        "cannot make a file of a million tags");
    addBuckets(file, stream, 0, kBuckets);
}

void compareOpening(Session& session, const std::string& path, bool finished) {
    Comparison row;
    row.name = finished ? "frame, open, 1 M tags" : "frame, open an unclosed file, 1 M tags";
    row.against = finished ? "ReadInfoTags, table" : "ReadInfoTags, scan";
    row.goal = {Goal::kTimeAtMost, 1.3};
    std::unique_ptr<RawFrame> frame;
    std::unique_ptr<RIFile> file;
    row.ours = [&] { frame = std::make_unique<RawFrame>(path.c_str()); };
    row.plain = [&] {
        file = std::make_unique<RIFile>();
        int mask = 0;
        require(file->Open(path.c_str(), nullptr).empty() && file->ReadInfoTags(&mask) == 0,
                "no tags were listed");
    };
    row.prepare = [&] {
        frame.reset();
        file.reset();
    };
    row.check = [&] {
        RawFrame opened(path.c_str());
        require(opened.info()->finished == finished && opened.info()->channels.size() == kChannels,
                "not the file that was written");
    };
    session.compare(row);
}

// Many windows, so that a run takes long enough; the allowance of 50 us a window is on the plain side.
void compareWindow(Session& session, const std::string& path) {
    constexpr int kWindows = 100, kWindow = 64, kChannel = 17;
    const RawFrame frame(path.c_str());
    const FrameChannel channel = *frame.info()->findIndex(kChannel);
    const PixelBox area = frame.info()->frame;
    std::vector<float> values(kWindow * kWindow);
    const PlainFile file(path);
    std::vector<std::vector<INFOTAG>> tags(kWindows);
    std::vector<PixelBox> boxes;
    for (int i = 0; i < kWindows; ++i) {
        boxes.push_back(boxAt(i * 7919 % (area.width() - kWindow), i * 104729 % (area.height() - 2 * kWindow),
                              kWindow, kWindow));
    }
    for (const INFOTAG& tag : pixelTags(path)) {
        for (std::size_t i = 0; tag.p8 == kChannel && i < boxes.size(); ++i) {
            if (overlaps(boxOf(tag), boxes[i])) tags[i].push_back(tag);
        }
    }
    Comparison row{
        "frame, a 64 x 64 window in 1 M tags, open", "its payloads, and 50 us", {Goal::kTimeAtMost, 1.0}};
    row.ours = [&] {
        for (const PixelBox& box : boxes)
            require(frame.read(box, {{channel, values.data()}}).complete(), "pixels are missing");
    };
    row.check = [&] {
        for (const auto& of : tags)
            require(of.size() >= 16, "not the tags of a window");
    };
    row.plain = [&] {
        for (const auto& of : tags) {
            file.inflateAll(of, 1);
            const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(50);
            while (std::chrono::steady_clock::now() < end) {
            }
        }
    };
    session.compare(row);
}

// Each round takes in about a hundred tags more.
void compareRefresh(Session& session, const std::string& path) {
    constexpr int kNewBuckets = 2;
    PFileStream stream;
    RIFile file;
    startFile(file, stream, path);
    RawFrame frame(path.c_str());
    std::int64_t end = stream.Length(), begin = end;
    int buckets = kBuckets;
    const PlainFile plain(path);
    Comparison row{
        "frame, refresh after 128 new tags in 1 M", "a read of their headers", {Goal::kTimeAtMost, 2.0}};
    row.prepare = [&] {
        (void)frame.refresh();
        begin = end;
        addBuckets(file, stream, buckets, buckets + kNewBuckets);
        buckets += kNewBuckets;
        end = stream.Length();
    };
    row.ours = [&] { require(frame.refresh().kind == FrameChange::kGrown, "nothing new was found"); };
    row.check = [&] {
        (void)frame.refresh();
        require(frame.info()->fileBytes == end, "not all of the file was found");
    };
    row.plain = [&] {
        unsigned char header[kTagHeaderBytes];
        for (std::int64_t at = begin; at < end; at += decodeTag(header).size)
            plain.read(header, sizeof header, static_cast<std::uint64_t>(at));
    };
    session.compare(row);
}

}  // namespace

void frameRows(Session& session, const Folder& folder) {
    compareChannel(session, folder.demo, 1);
    compareChannel(session, folder.demo, 2);
    compareStats(session, folder.demo);
    compareHash(session, folder.demo);
    const std::string finished = folder.file("tags.rimg");
    const std::string unclosed = folder.file("tags_unclosed.rimg");
    {
        PFileStream stream;
        RIFile file;
        startFile(file, stream, finished);
        require(file.Close().empty(), "cannot close a file of a million tags");
    }
    compareOpening(session, finished, true);
    compareWindow(session, finished);
    std::remove(finished.c_str());
    {
        PFileStream stream;
        RIFile file;
        startFile(file, stream, unclosed);
    }
    compareOpening(session, unclosed, false);
    compareRefresh(session, unclosed);
    std::remove(unclosed.c_str());
}

}  // namespace bench
