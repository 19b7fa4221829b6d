#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <climits>
#include <csignal>
#include <ctime>

#include "rawimage/read/mt_reader.h"
#include "rawimage/tools/note.h"
#include "rawimage/tools/preview.h"
#include "rawimage/tools/summary.h"
#include "tests/proof/frame.h"
#include "tests/testing/bytes.h"
#include "tests/testing/sanitized.h"

// Files of at most 1 KB made to cost much: what everything that reads files takes of memory and time for
// them.

using namespace testing_tools;

namespace {

constexpr std::uint32_t kHuge = 0xFFFFFFF0u - 40;  // a payload of all but 4 GiB

// A zlib stream of zeros that is `size` bytes long or a little less.
std::string bomb(std::size_t size) {
    std::vector<unsigned char> zeros(size * 1030);
    std::string zipped(size + 1000, '\0');
    uLongf length = zipped.size();
    EXPECT_EQ(compress2(reinterpret_cast<Bytef*>(zipped.data()), &length, zeros.data(), zeros.size(), 9),
              Z_OK);
    zipped.resize(length);
    return zipped;
}

Bytes start(std::uint64_t table = 0) {
    return Bytes().fileHeader(table).tag(TAG_RESOLUTION, 0, {INT_MAX, INT_MAX});
}

// A table of `count` entries as `entry` makes them, with as many claimed as `claimed`.
Bytes withTable(int count, int claimed, const std::function<Bytes(int)>& entry) {
    Bytes bytes = start(72);
    bytes.tag(TAG_INFO_TAGS, static_cast<std::uint32_t>(count) * 48, {claimed});
    for (int i = 0; i < count; ++i) {
        const Bytes one = entry(i);
        bytes.raw(one.data(), one.size());
    }
    return bytes;
}

// Pixel tags within each other: the stream of each holds the next header in a stored block and then goes on
// as the next one's stream does, so that all end in the same bomb.
Bytes nestedBombs(int depth, std::size_t bombBytes) {
    constexpr int kStep = 40 + 2 + 5;
    const std::string last = bomb(bombBytes);
    const int values = static_cast<int>(bombBytes * 1030 / 4);
    Bytes bytes = start().tag(1, 3);
    bytes.zeros(3);
    for (int i = 0; i < depth; ++i) {
        const int inner = (depth - 1 - i) * kStep;
        bytes.tag(TAG_CHAN_INT, static_cast<std::uint32_t>(last.size()) + static_cast<std::uint32_t>(inner),
                  {4, 0, 0, values, 1});
        if (i + 1 < depth) bytes.text(std::string("\x78\x01\x00\x2a\x00\xd5\xff", 7));
    }
    return bytes.text(last);
}

struct HostileFile {
    std::string name;
    Bytes bytes;
};

std::vector<HostileFile> hostileFiles() {
    std::vector<HostileFile> files;
    const auto add = [&](std::string name, Bytes bytes) {
        files.push_back({std::move(name), std::move(bytes)});
    };
    for (const std::uint32_t payload : {0u, 900u, kHuge}) {
        const std::string of = " of " + std::to_string(payload) + " bytes";
        const auto filler = [](Bytes bytes) { return bytes.zeros(900); };
        add("channels" + of, filler(start().tag(TAG_CHANNEL_INFO, payload, {INT_MAX, 80})));
        add("preview" + of, filler(start().tag(TAG_PREVIEW, payload, {26754, 26754})));
        add("settings" + of, filler(start().tag(TAG_SETTINGS, payload, {INT_MAX})));
        add("scene" + of, filler(start().tag(TAG_SCENE_INFO, payload)));
        add("note" + of, filler(start().tag(TAG_NOTE, payload)));
        add("stamp text" + of, filler(start().tag(TAG_STAMP_TEXT, payload)));
        add("pixels" + of,
            filler(start().tag(TAG_CHAN_FLOAT4, payload, {6, INT_MIN, INT_MAX, 11585, 11585})));
        add("unknown" + of, filler(start().tag(0xFFFFFFFFu, payload)));
        add("table" + of, filler(start(72).tag(TAG_INFO_TAGS, payload, {INT_MAX})));
    }
    const std::string zipped = bomb(850);
    for (const int side : {400, 480, 23170})
        add("bomb for " + std::to_string(side) + " squared",
            start()
                .tag(TAG_CHAN_INT, static_cast<std::uint32_t>(zipped.size()), {4, 0, 0, side, side})
                .text(zipped));
    add("nested bombs", nestedBombs(12, 300));

    const auto entry = [](std::uint32_t id, std::uint32_t payload, std::uint64_t offset) {
        return Bytes().tag(id, payload, {4, 0, 0, 1, 1}).u64(offset);
    };
    add("table that lists itself", withTable(18, 18, [&](int) { return entry(TAG_INFO_TAGS, 18 * 48, 72); }));
    add("table with one tag again and again",
        withTable(18, INT_MAX, [&](int) { return entry(TAG_RESOLUTION, 0, 32); }));
    add("overlapping entries", withTable(18, 18, [&](int i) {
            return entry(TAG_CHAN_INT, kHuge, static_cast<std::uint64_t>(32 + i));
        }));
    add("entries out of the file", withTable(18, -1, [&](int i) {
            return entry(TAG_CHAN_INT, 4, ~std::uint64_t{0} - static_cast<unsigned>(i));
        }));
    for (const std::uint64_t offset :
         {std::uint64_t{1}, std::uint64_t{32}, std::uint64_t{0x7FFFFFFFFFFFFFFF}, ~std::uint64_t{0}})
        add("table at " + std::to_string(offset), start(offset).zeros(900));

    Bytes loop = start();
    while (loop.size() < 1000)
        loop.i32s({TAG_CHAN_INT, 0});
    add("tags of no size", loop);
    Bytes shapes = Bytes().fileHeader(0);
    while (shapes.size() < 1020)
        shapes.i32s({TAG_CHANNEL_INFO});
    add("tags everywhere", shapes);
    Bytes boxes = start();
    for (int i = 0; boxes.size() < 970; ++i)
        boxes.tag(TAG_CHAN_INT, 0, {4, i * 80000000, INT_MIN + i, i % 2 * INT_MAX, 0, 0, 0, i});
    add("boxes of all sizes", boxes);
    Bytes nested = start().tag(TAG_SETTINGS, 800, {801});
    while (nested.size() < 870)
        nested.tag(TAG_NOTE, MUtils::kNoteBytes).tag(TAG_STAMP, 400, {400}).tag(TAG_RESOLUTION, 0, {1, 1});
    add("tags in a blob", nested);
    return files;
}

struct Reader {
    const char* name;
    std::function<void(const char*)> run;
};

const std::vector<Reader>& readers() {
    static const auto parseWith = [](RIFile& file, const char* path) {
        (void)file.Open(path, nullptr);
        (void)parse(file);
    };
    static const std::vector<Reader> all = {
        {"sequential",
         [](const char* path) {
             RIFile file;
             parseWith(file, path);
         }},
        {"threaded",
         [](const char* path) {
             RIFileMT file(nullptr, 2);
             parseWith(file, path);
         }},
        {"table",
         [](const char* path) {
             RIFile file;
             char payload[2048];
             (void)file.Open(path, nullptr);
             (void)file.ReadInfoTags(nullptr);
             for (int i = 0; i < file.NumTags(); ++i)
                 (void)file.ReadTag(i, payload);
         }},
        {"verify", [](const char* path) { (void)MUtils::verifyFile(path, {}); }},
        {"quick verify", [](const char* path) { (void)verdictOf(path, true); }},
        {"recover", [](const char* path) { (void)MUtils::recoverFile(path, MemoryFile().path(), {}); }},
        {"preview",
         [](const char* path) {
             std::vector<MUtils::RGB24> out(64 * 64);
             RawImageInfo info;
             (void)makeRawImagePreview(path, 64, 64, out.data(), &info, true, {0, 0, 0}, nullptr);
             delete[] info.name;
         }},
        {"note",
         [](const char* path) {
             char note[64];
             (void)readRawNote(path, note, sizeof note);
         }},
        {"new note",
         [](const char* path) {
             char note[] = "new";
             (void)replaceRawNote(path, note, 0, nullptr);
         }},
        {"summary", [](const char* path) { (void)MUtils::summariseFile(path, true); }},
    };
    return all;
}

struct Cost {
    long kilobytes = 0;
    double seconds = 0;
};

double processSeconds() {
    timespec now;
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

long peakKilobytes() {
    rusage usage;
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// In a process of its own: what the peak of its memory rises by, and its processor time.
Cost costOf(const Reader& reader, const MemoryFile& file) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const rlimit limit{20, 20};
        ::setrlimit(RLIMIT_CPU, &limit);
        const long before = peakKilobytes();
        const double start = processSeconds();
        reader.run(file.path());
        const Cost cost{peakKilobytes() - before, processSeconds() - start};
        ::_exit(::write(ends[1], &cost, sizeof cost) == sizeof cost ? 0 : 1);
    }
    ::close(ends[1]);
    Cost cost;
    const bool whole = ::read(ends[0], &cost, sizeof cost) == sizeof cost;
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(whole && WIFEXITED(status) && WEXITSTATUS(status) == 0) << "ended by " << status;
    return cost;
}

}  // namespace

TEST(HostileFiles, CostLittle) {
    constexpr double kSeconds = 0.5;  // ten times what is hoped for: a slow machine is no fault
    Cost most;
    std::string dearest, slowest;
    int cases = 0;
    MemoryFile file;
    for (const HostileFile& hostile : hostileFiles()) {
        ASSERT_LE(hostile.bytes.size(), 1024u) << hostile.name;
        for (const Reader& reader : readers()) {
            SCOPED_TRACE(hostile.name + ", " + reader.name);
            ++cases;
            Cost cost;
            for (int attempt = 0; attempt < 3; ++attempt) {
                file.fill(hostile.bytes);
                cost = costOf(reader, file);
                if (kSanitized || cost.seconds < kSeconds) break;
            }
            EXPECT_TRUE(kSanitized || cost.seconds < kSeconds) << cost.seconds;
            EXPECT_TRUE(kSanitized || cost.kilobytes < 8 * 1024) << cost.kilobytes;
            if (cost.kilobytes > most.kilobytes)
                most.kilobytes = cost.kilobytes, dearest = hostile.name + ", " + reader.name;
            if (cost.seconds > most.seconds)
                most.seconds = cost.seconds, slowest = hostile.name + ", " + reader.name;
        }
    }
    std::printf("%d runs: at most %ld KB (%s) and %.1f ms (%s)\n", cases, most.kilobytes, dearest.c_str(),
                most.seconds * 1e3, slowest.c_str());
}
