#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>

#include "rawimage/inspect/tag_scan.h"
#include "tests/testing/check.h"
#include "tests/testing/raw_frame.h"
#include "tests/testing/sanitized.h"

// Several damages at random places of a file: which intact tags a scan does not find.

using namespace testing_tools;
using namespace MUtils;

namespace {

// Bytes with the places they had before they were damaged.
struct Damaged {
    Contents bytes;
    std::vector<std::int64_t> origin;  // -1 for a byte that was not there
};

class Damager {
  public:
    explicit Damager(unsigned seed) : random_(seed) {}

    void damage(Damaged& file) {
        switch (below(6)) {
            case 0: file.bytes[below(file.bytes.size())] ^= static_cast<unsigned char>(1u << below(8)); break;
            case 1: file.bytes[below(file.bytes.size())] = static_cast<unsigned char>(below(256)); break;
            case 2: remove(file, below(file.bytes.size()), 1 + below(kLongest)); break;
            case 3: insert(file, below(file.bytes.size()), 1 + below(kLongest)); break;
            case 4: clear(file, below(file.bytes.size()), 1 + below(kLongest)); break;
            default: clear(file, below(file.bytes.size()) / kSector * kSector, kSector); break;
        }
    }

  private:
    static constexpr std::size_t kLongest = 100;
    static constexpr std::size_t kSector = 512;

    std::size_t below(std::size_t end) { return random_() % end; }

    template <class T>
    static auto at(std::vector<T>& list, std::size_t place) {
        return list.begin() + static_cast<std::ptrdiff_t>(std::min(place, list.size()));
    }
    static void remove(Damaged& file, std::size_t place, std::size_t count) {
        file.bytes.erase(at(file.bytes, place), at(file.bytes, place + count));
        file.origin.erase(at(file.origin, place), at(file.origin, place + count));
    }
    void insert(Damaged& file, std::size_t place, std::size_t count) {
        std::vector<unsigned char> more(count);
        std::generate(more.begin(), more.end(), [this] { return static_cast<unsigned char>(random_()); });
        file.bytes.insert(at(file.bytes, place), more.begin(), more.end());
        file.origin.insert(at(file.origin, place), count, -1);
    }
    static void clear(Damaged& file, std::size_t place, std::size_t count) {
        std::fill(at(file.bytes, place), at(file.bytes, place + count), static_cast<unsigned char>(0));
    }

    std::mt19937 random_;
};

// Every kind of tag, five channels and 24 buckets, some of whose tags are larger than a sector.
Contents makeFrame(bool closed) {
    RawFrame frame;
    frame.width = 96, frame.height = 32, frame.tile = 16;
    frame.channels = {{2, 126, "color"}, {1, 125, "alpha"}, {1, 117, "depth"}, {3, 0, "uv"}, {6, 0, "rgba"}};
    frame.boxes.clear();
    for (int i = 0; i < 12; ++i)
        frame.boxes.push_back({i % 6 * 16, i / 6 * 16, 16, 16, static_cast<float>(i)});
    std::mt19937 random(7);
    frame.values = [&random](int, int x, int) {
        return static_cast<float>(random() % 512) + static_cast<float>(x);
    };
    frame.metadata = [](RIFile& file) {
        std::string blob = noise(700);
        RICameraInfo camera{};
        camera.setCameraTransform({Matrix(1), {1, 2, 3}});
        expectOk(file.WTCameraInfo(camera));
        expectOk(file.WTRenderRegion({-1, 0, 0, 96, 32}));
        RISceneInfo scene(3, "a scene of a name that has some length");
        expectOk(file.WTSceneInfo(scene));
        expectOk(file.WTNote("A note."));
        expectOk(file.WTStamp(blob.data(), 120));
        expectOk(file.WTStampText("stamp text"));
        expectOk(file.WTOverlayTexts(blob.data(), 60));
        std::vector<RGB24> preview(24 * 16);
        for (std::size_t i = 0; i < preview.size(); ++i)
            preview[i] = {static_cast<unsigned char>(i), static_cast<unsigned char>(i / 3), 77};
        expectOk(file.WTPreview(preview.data(), 24, 16));
        expectOk(file.WTMirtSettings(blob.data(), 700));
    };
    frame.closed = closed;
    MemoryFile file;
    frame.write(file.path());
    return file.bytes();
}

struct Losses {
    std::size_t intact = 0;
    std::vector<std::size_t> lost;  // by the tags of the whole file
};

Losses lossesOf(const Contents& whole, const Damaged& damaged) {
    FaultStream stream(damaged.bytes);
    stream.Open();
    InspectOptions options;
    options.threads = 1;
    TagScan scan;
    std::map<std::uint64_t, RIF_TAG> found;
    if (scanTags(stream, options, scan)) {
        for (const INFOTAG& tag : scan.tags)
            found.emplace(tag.offset, tag);
    }
    std::vector<std::int64_t> place(whole.size(), -1);
    for (std::size_t at = 0; at < damaged.origin.size(); ++at) {
        const std::int64_t origin = damaged.origin[at];
        if (origin >= 0 && whole[static_cast<std::size_t>(origin)] == damaged.bytes[at])
            place[static_cast<std::size_t>(origin)] = static_cast<std::int64_t>(at);
    }
    Losses losses;
    std::size_t at = 32;
    const std::vector<std::string> tags = tagsOf(whole);
    for (std::size_t i = 0; i < tags.size(); at += tags[i].size(), ++i) {
        bool intact = place[at] >= 0 && idOf(tags[i]) != TAG_INFO_TAGS;
        for (std::size_t byte = 1; byte < tags[i].size() && intact; ++byte)
            intact = place[at + byte] == place[at] + static_cast<std::int64_t>(byte);
        if (!intact) continue;
        ++losses.intact;
        const auto tag = found.find(static_cast<std::uint64_t>(place[at]));
        const bool kept =
            tag != found.end() && tag->second.id == idOf(tags[i]) && tag->second.size == tags[i].size();
        if (!kept) losses.lost.push_back(i);
    }
    return losses;
}

Damaged damagedBy(const Contents& whole, unsigned seed, int damages) {
    Damaged damaged{whole, std::vector<std::int64_t>(whole.size())};
    for (std::size_t i = 0; i < whole.size(); ++i)
        damaged.origin[i] = static_cast<std::int64_t>(i);
    Damager damager(seed);
    for (int i = 0; i < damages; ++i)
        damager.damage(damaged);
    return damaged;
}

struct Totals {
    std::size_t intact = 0, lost = 0, filesWithLoss = 0;
};

Totals measure(const Contents& whole, int damages, unsigned files) {
    Totals totals;
    const std::vector<std::string> tags = tagsOf(whole);
    for (unsigned file = 0; file < files; ++file) {
        const unsigned seed = file * 16 + static_cast<unsigned>(damages);
        const Losses losses = lossesOf(whole, damagedBy(whole, seed, damages));
        totals.intact += losses.intact;
        totals.lost += losses.lost.size();
        totals.filesWithLoss += losses.lost.empty() ? 0 : 1;
        for (const std::size_t i : losses.lost)
            std::printf("%d damages, seed %u: lost %s %zu\n", damages, seed, tagName(idOf(tags[i])), i);
    }
    return totals;
}

}  // namespace

TEST(RandomDamage, TwoDamagesCostNoOtherTag) {
    for (const bool closed : {true, false}) {
        const Contents whole = makeFrame(closed);
        for (const int damages : {1, 2})
            EXPECT_EQ(measure(whole, damages, kSanitized ? 100 : 500).lost, 0u) << closed;
    }
}

// The figures of docs/reliability.md.
TEST(RandomDamage, MeasuresUpToTwelve) {
    if (std::getenv("RAWIMAGE_EXHAUSTIVE") == nullptr) GTEST_SKIP() << "minutes of work";
    for (const bool closed : {true, false}) {
        const Contents whole = makeFrame(closed);
        std::printf("%s, %zu bytes, %zu tags\n", closed ? "finished" : "unfinished", whole.size(),
                    tagsOf(whole).size());
        for (int damages = 1; damages <= 12; ++damages) {
            constexpr unsigned kFiles = 2000;
            const Totals totals = measure(whole, damages, kFiles);
            std::printf("%2d damages: %zu of %zu intact tags lost, in %zu of %u files\n", damages,
                        totals.lost, totals.intact, totals.filesWithLoss, kFiles);
        }
    }
}
