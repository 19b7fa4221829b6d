#include <zlib.h>

#include <cstring>

#include "bench/plain.h"
#include "bench/rows.h"

using namespace MUtils;

namespace bench {

namespace {

// At least so many times the speed of zlib's level 9, with at most so many times its bytes.
struct Aim {
    double speed;
    double bytes;
};

struct Choice {
    const char* name;
    Compression compression;
    Aim noisy;
    Aim clean;
};
constexpr Choice kChoices[] = {{"balanced", Compression::kBalanced, {2.8, 1.01}, {9, 1.05}},
                               {"fast", Compression::kFast, {15, 1.04}, {45, 1.5}}};

// Uncompresses the pixels of the file in `stream`, holds them against the frame's and returns the bytes that
// they take.
std::size_t checkedBytes(const PMemStream& stream, const PlainPacking& plain) {
    const unsigned char* at = stream.GetBuf() + kFileHeaderBytes;
    std::size_t bytes = 0;
    Bytes expected, came;
    for (auto item = plain.items().begin(); item != plain.items().end();) {
        const RIF_TAG tag = decodeTag(at);
        require(tag.id != TAG_INFO_TAGS, "the file lacks payloads");
        if (isPixelTag(tag.id)) {
            const MBVTable& values = *item++->values;
            expected.resize(static_cast<std::size_t>(values.count) *
                            static_cast<std::size_t>(values.itemSize));
            came.resize(expected.size());
            values.storeToBuffer(expected.data(), 0, values.count);
            uLongf length = static_cast<uLongf>(came.size());
            require(uncompress(came.data(), &length, at + kTagHeaderBytes,
                               static_cast<uLong>(tag.payloadBytes())) == Z_OK &&
                        length == came.size() && came == expected,
                    "the values were not kept");
            bytes += static_cast<std::size_t>(tag.payloadBytes());
        }
        at += tag.size;
    }
    return bytes;
}

void compareCompressor(Session& session, const Frame& frame, const std::string& suffix, const Choice& choice,
                       const Aim& aim) {
    PMemStream stream(static_cast<int>(frame.rawBytes() / 2));
    PlainPacking plain(frame);
    const std::string name = std::string("write, 1 thread, ") + choice.name + suffix;
    Comparison row{name, "gather + compress2, level 9", {Goal::kSpeedAtLeast, aim.speed}};
    std::size_t bytes = 0;
    row.ours = [&] { writeFrame(frame, &stream, "", 1, kCompressionLevel, choice.compression); };
    row.plain = [&] { plain.run(1, kCompressionLevel); };
    row.check = [&] { bytes = checkedBytes(stream, plain); };
    session.compare(row);
    double smallest = 0;
    for (const PlainPacking::Item& item : plain.items())
        smallest += static_cast<double>(item.size);
    session.bytes(name + ", bytes", "compress2, level 9", smallest, smallest * aim.bytes, [&] {
        require(bytes > 0, "nothing was written");
        return static_cast<double>(bytes);
    });
}

}  // namespace

void compressorRows(Session& session, const Folder& folder, bool allBuckets) {
    const Frame demo = Frame::load(folder.demo, allBuckets ? 1 : 8);
    const Frame clean = makeCleanFrame();
    Frame real;
    if (!folder.real.empty()) real = Frame::load(folder.real, allBuckets ? 1 : 2);
    for (const Choice& choice : kChoices) {
        compareCompressor(session, demo, "", choice, choice.noisy);
        compareCompressor(session, clean, ", clean frame", choice, choice.clean);
        if (!folder.real.empty()) compareCompressor(session, real, ", real frame", choice, choice.clean);
    }
}

}  // namespace bench
