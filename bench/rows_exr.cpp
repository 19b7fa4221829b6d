#include <OpenEXR/ImfThreading.h>

#include <cstdio>
#include <cstring>

#include "bench/direct_exr.h"
#include "bench/rows.h"
#include "exr/half_convert.h"

namespace bench {

namespace {

constexpr int kTile = 64;
constexpr int kWidth = 15 * kTile;
constexpr int kHeight = 8 * kTile;

struct Compression {
    const char* name;
    int setting;
    double goal;
};
constexpr Compression kCompressions[] = {{"ZIPS", 3, 1.05}, {"ZIP", 4, 1.05}, {"none", 1, 1.2}};

struct Kind {
    const char* name;
    ExrFile::Kind kind;
    int bits;
};
constexpr Kind kKinds[] = {{"scan-line, float", ExrFile::kScanline, 32},
                           {"multi-part, float", ExrFile::kMultiPart, 32},
                           {"tiled, float", ExrFile::kTiled, 32},
                           {"scan-line, half", ExrFile::kScanline, 16}};

// A part of the demo frame with all channels, moved to the origin: as one region, or as tiles.
std::vector<Bucket> regionsOf(const Frame& frame, bool tiled) {
    const int left = (frame.width - kWidth) / 2, top = (frame.height - kHeight) / 2;
    const int width = tiled ? kTile : kWidth, height = tiled ? kTile : kHeight;
    std::vector<Bucket> regions;
    for (int y = 0; y < kHeight; y += height) {
        for (int x = 0; x < kWidth; x += width) {
            regions.push_back(frame.crop(left + x, top + y, width, height));
            regions.back().x = x;
            regions.back().y = y;
        }
    }
    return regions;
}

void compareExr(Session& session, const Folder& folder, const ExrSource& source, const Kind& kind,
                const Compression& compression) {
    const std::string ours = folder.file("ours.exr");
    const std::string plain = folder.file("plain.exr");
    const ExrLayout layout{kind.kind, compression.setting, kind.bits};
    std::remove(ours.c_str());
    writeOurExr(source, layout, ours);
    const DirectExr direct(source, layout, ours);
    Comparison row{std::string("EXR ") + kind.name + ", " + compression.name,
                   "direct use of OpenEXR",
                   {Goal::kTimeAtMost, compression.goal}};
    row.ours = [&] { writeOurExr(source, layout, ours); };
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

void compareHalf(Session& session) {
    constexpr std::size_t kValues = std::size_t{1920} * 1080 * 3;
    std::vector<float> source(kValues), values(kValues), copy(kValues);
    int round = 0;
    for (std::size_t i = 0; i < kValues; ++i)
        source[i] = static_cast<float>(i % 4099) * 0.01f - 3.0f;
    Comparison row{"convertToHalf, 1920x1080 colours", "memcpy", {Goal::kSpeedAtLeast, 0.7}};
    // Each finds its memory out of the caches, as it is in a frame of many channels.
    std::vector<char> other(std::size_t{64} << 20);
    row.prepare = [&] {
        values = source;
        std::memset(other.data(), ++round, other.size());
    };
    row.ours = [&] { MUtils::convertFloatsToHalf(values.data(), static_cast<std::int64_t>(kValues)); };
    row.plain = [&] { std::memcpy(copy.data(), source.data(), kValues * sizeof(float)); };
    row.check = [&] {
        std::vector<float> expected = source;
        MUtils::convertFloatsToHalfPlain(expected.data(), static_cast<std::int64_t>(kValues));
        require(std::memcmp(expected.data(), values.data(), kValues * sizeof(float)) == 0 && copy == source,
                "a half differs");
    };
    session.compare(row);
}

}  // namespace

void exrRows(Session& session, const Folder& folder) {
    Frame frame = Frame::load(folder.demo);
    const std::vector<Bucket> whole = regionsOf(frame, false);
    const std::vector<Bucket> tiles = regionsOf(frame, true);
    frame.buckets.clear();
    frame.width = kWidth;
    frame.height = kHeight;
    for (const Kind& kind : kKinds) {
        const ExrSource source{frame, kind.kind == ExrFile::kTiled ? tiles : whole};
        for (const Compression& compression : kCompressions)
            compareExr(session, folder, source, kind, compression);
    }
    compareHalf(session);
}

}  // namespace bench
