#include <cstdio>

#include "bench/plain.h"
#include "bench/rows.h"
#include "rawimage/read/mt_reader.h"

namespace bench {

namespace {

constexpr int kChannels = 40;

void inflateAll(const std::string& path, const std::vector<INFOTAG>& tags, int threads) {
    const PlainFile file(path);
    onThreads(threads, tags.size(), [&](std::size_t i) {
        thread_local Bytes zipped, values;
        file.inflate(tags[i], zipped, values);
    });
}

void compareReading(Session& session, const std::string& path, const std::string& suffix) {
    const std::vector<INFOTAG> tags = pixelTags(path);
    DroppingCallback dropping;
    RIFile sequential;
    // zlib's speed bounds a build that reads with zlib.
    const bool byZlib = MUtils::decompressorName().rfind("zlib", 0) == 0;
    Comparison row{
        "read, sequential" + suffix, "read + uncompress", {Goal::kTimeAtMost, byZlib ? 1.05 : 0.6}};
    row.ours = [&] { parse(sequential, path, dropping); };
    row.plain = [&] { inflateAll(path, tags, 1); };
    row.check = [&] { require(checksumsRead(path, 1) == checksumsPlain(path, tags), "values differ"); };
    session.compare(row);

    RIFileMT parallel(nullptr, 2);
    row.name = "read, 2 threads" + suffix;
    row.against = "read + uncompress, 2 threads";
    row.goal = byZlib ? Goal{Goal::kSpeedAtLeast, 0.9} : Goal{Goal::kTimeAtMost, 0.62};
    row.ours = [&] { parse(parallel, path, dropping); };
    row.plain = [&] { inflateAll(path, tags, 2); };
    row.check = [&] { require(checksumsRead(path, 2) == checksumsPlain(path, tags), "values differ"); };
    row.busy = 2;
    session.compare(row);
}

// A file of forty channels, each with the payloads of the first channel of `source`.
void makeForty(const std::string& source, const std::string& path) {
    const PlainFile from(source);
    PFileStream stream;
    RIFile file;
    bool good = stream.Create(path.c_str(), 0) == 0 && file.Create(nullptr, &stream).empty() &&
                file.WriteHeader(32).empty();
    Bytes payload;
    for (const INFOTAG& tag : pixelTags(source)) {
        if (tag.p8 != 0) continue;
        const auto size = static_cast<int>(tag.payloadBytes());
        payload.resize(static_cast<std::size_t>(size));
        from.read(payload.data(), payload.size(), tag.offset + MUtils::kTagHeaderBytes);
        for (int channel = kChannels; channel-- > 0;) {
            int written = 0;
            good = good &&
                   file.WriteTagHeader(static_cast<int>(tag.id), size, tag.p1, tag.p2, tag.p3, tag.p4, tag.p5,
                                       tag.p6, tag.p7, channel)
                       .empty() &&
                   stream.Write(payload.data(), size, written) == 0;
        }
    }
    require(file.Close().empty() && good, "cannot make a file of forty channels");
}

// Takes one channel and has the reader pass by the others.
class OneChannel final : public DroppingCallback {
  public:
    int parseTag(RIF_TAG& tag) override { return MUtils::isPixelTag(tag.id) && tag.p8 != 17 ? 2 : 1; }
    bool setImageData(const MBVTable&, int count, int channel, int, int, int, int, int, int) override {
        values += count;
        return channel == 17;
    }
    std::int64_t values = 0;
};

void compareOneChannel(Session& session, const Folder& folder) {
    const std::string path = folder.file("forty.rimg");
    makeForty(folder.demo, path);
    DroppingCallback dropping;
    RIFile file;
    std::int64_t values = 0;
    Comparison row{"read, one channel of forty", "sequential read of all", {Goal::kTimeAtMost, 1.0 / 20.0}};
    row.ours = [&] {
        OneChannel one;
        parse(file, path, one);
        values = one.values;
    };
    row.plain = [&] { parse(file, path, dropping); };
    row.check = [&] { require(values == std::int64_t{1920} * 1080, "not the whole channel came"); };
    session.compare(row);
    std::remove(path.c_str());
}

}  // namespace

void parse(RIFile& file, const std::string& path, RIFileCallback& callback) {
    require(file.Open(path.c_str(), nullptr).empty() && file.ParseFile(callback) == 0, "parsing failed");
}

void readRows(Session& session, const Folder& folder) {
    compareReading(session, folder.demo, "");
    if (!folder.real.empty()) compareReading(session, folder.real, ", real frame");
    compareOneChannel(session, folder);
}

}  // namespace bench
