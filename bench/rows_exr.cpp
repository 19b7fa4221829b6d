#include <OpenEXR/ImfThreading.h>

#include <cstdio>
#include <cstring>

#include "bench/direct_exr.h"
#include "bench/rows.h"
#include "exr/half_convert.h"

namespace bench {

namespace {

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
    const ExrPart part(folder.demo, false), tiled(folder.demo, true);
    for (const Kind& kind : kKinds) {
        const ExrPart& regions = kind.kind == ExrFile::kTiled ? tiled : part;
        const ExrSource source{regions.frame, regions.regions};
        for (const Compression& compression : kCompressions)
            compareExr(session, folder, source, kind, compression);
    }
    compareHalf(session);
}

}  // namespace bench
