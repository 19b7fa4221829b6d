#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "bench/direct_exr.h"
#include "bench/plain.h"
#include "bench/rows.h"
#include "rawimage/output_queue.h"

using namespace MUtils;

namespace bench {

namespace {

// Each pixel payload of the file in `stream` against the plain loop's, byte for byte.
void comparePayloads(const PMemStream& stream, const PlainPacking& plain) {
    const unsigned char* at = stream.GetBuf() + kFileHeaderBytes;
    auto item = plain.items().begin();
    for (; item != plain.items().end();) {
        const RIF_TAG tag = decodeTag(at);
        require(tag.id != TAG_INFO_TAGS, "the file lacks payloads");
        if (isPixelTag(tag.id)) {
            require(static_cast<std::size_t>(tag.payloadBytes()) == item->size &&
                        std::memcmp(at + kTagHeaderBytes, item->zipped.data(), item->size) == 0,
                    "a payload differs from compress2's");
            ++item;
        }
        at += tag.size;
    }
}

struct ExrRow {
    const char* name;
    Compression compression;
    const char* exrName;
    int exrCompression;  // as ExrFile::setCompressionType has it
    double most;         // times the time of OpenEXR
    bool synced;         // until the bytes are on the disk
};
constexpr ExrRow kExrRows[] = {{"level 1", Compression::kSmall, "ZIPS", 3, 1.0, false},
                               {"fast", Compression::kFast, "ZIPS", 3, 0.2, false},
                               {"fast", Compression::kFast, "none", 1, 1.5, true}};

void sync(const std::string& path) {
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    const bool good = descriptor >= 0 && ::fsync(descriptor) == 0;
    if (descriptor >= 0) ::close(descriptor);
    require(good, "cannot sync a file");
}

// Whole frames: OpenEXR takes scan lines.
void compareWithExr(Session& session, const Folder& folder, const Frame& frame, const ExrSource& source,
                    const ExrRow& kind) {
    const std::string raw = folder.file("whole.rimg");
    const std::string exr = folder.file("whole.exr");
    const ExrLayout layout{ExrFile::kScanline, kind.exrCompression, 32};
    writeOurExr(source, layout, exr);
    const DirectExr direct(source, layout, exr);
    const std::string name = std::string("write, 2 threads, ") + kind.name;
    const std::string against = std::string("OpenEXR ") + kind.exrName + ", float";
    double bytes = 0, exrBytes = 0;
    Comparison row{
        name + (kind.synced ? ", to the disk" : ""), against + ", 2 threads", {Goal::kTimeAtMost, kind.most}};
    row.ours = [&] {
        writeFrame(frame, nullptr, raw, 2, 1, kind.compression);
        if (kind.synced) sync(raw);
    };
    row.plain = [&] {
        direct.write(exr);
        if (kind.synced) sync(exr);
    };
    if (kind.synced) row.busy = 0;
    row.check = [&] {
        require(checksumsRead(raw, 1) == checksumsRead(folder.demo, 1), "the values were not kept");
        require(direct.holds(exr), "the EXR file does not hold the frame");
        bytes = static_cast<double>(std::filesystem::file_size(raw));
        exrBytes = static_cast<double>(std::filesystem::file_size(exr));
    };
    row.prepare = [&] {
        std::remove(raw.c_str());
        std::remove(exr.c_str());
    };
    session.compare(row);
    row.prepare();
    session.bytes(name + ", bytes", against, exrBytes, exrBytes, [&] {
        require(bytes > 0, "nothing was written");
        return bytes;
    });
}

}  // namespace

void compareWriting(Session& session, const Frame& frame, const std::string& name, int threads, Goal goal,
                    std::int64_t maxPending) {
    PMemStream stream(static_cast<int>(frame.rawBytes() / 2));
    PlainPacking plain(frame);
    Comparison row{"write, " + name, "gather + compress2", goal};
    row.ours = [&] {
        writeFrame(frame, &stream, "", threads, kCompressionLevel, Compression::kSmall, maxPending);
    };
    row.plain = [&] { plain.run(threads, kCompressionLevel); };
    row.check = [&] { comparePayloads(stream, plain); };
    row.busy = threads;
    session.compare(row);
}

void writeFrame(const Frame& frame, PStream* stream, const std::string& path, int threads, int level,
                Compression compression, std::int64_t maxPending) {
    RIFile file;
    OutputQueue queue(file);
    RIFileBase& output = maxPending > 0 ? static_cast<RIFileBase&>(queue) : file;
    ChannelList channels(frame.channels);
    if (stream != nullptr) require(stream->Open() == 0, "cannot open the stream");
    file.setCompressionThreads(nullptr, threads);
    file.setCompression(compression);
    file.setCompressionLevel(level);
    file.setSyncOnClose(false);
    queue.setMaxPending(maxPending);
    bool good = output.Create(path.c_str(), stream).empty() && output.WriteHeader(32).empty() &&
                output.WTResolution(frame.width, frame.height, 1.0f).empty() &&
                output.WTChannelInfo(channels.table()).empty();
    MRRegionData region;
    for (const Bucket& bucket : frame.buckets) {
        frame.describe(bucket, region);
        good = good && output.WTRegion(&region, 0, 0, 0).empty();
    }
    require(output.Close().empty() && good, "writing failed");
}

void writeRows(Session& session, const Folder& folder, bool allBuckets) {
    {
        const Frame demo = Frame::load(folder.demo, allBuckets ? 1 : 8);
        compareWriting(session, demo, "1 thread, level 9", 1, {Goal::kTimeAtMost, 1.03});
        compareWriting(session, demo, "2 threads, level 9", 2, {Goal::kSpeedAtLeast, 0.95});
    }
    if (!folder.real.empty()) {
        const Frame real = Frame::load(folder.real, allBuckets ? 1 : 2);
        compareWriting(session, real, "1 thread, level 9, real frame", 1, {Goal::kTimeAtMost, 1.03});
        compareWriting(session, real, "2 threads, level 9, real frame", 2, {Goal::kSpeedAtLeast, 0.95});
    }
    const Frame frame = Frame::load(folder.demo);
    std::vector<Bucket> whole;
    whole.push_back(frame.crop(0, 0, frame.width, frame.height));
    for (const ExrRow& kind : kExrRows)
        compareWithExr(session, folder, frame, {frame, whole}, kind);
}

}  // namespace bench
