#include <cstdio>

#include "bench/plain.h"
#include "bench/rows.h"

using namespace MUtils;

namespace bench {

namespace {

constexpr int kTags = 1000000;
constexpr int kPayload = 600;  // bytes: a small bucket's channel

class Skipping final : public DroppingCallback {
  public:
    int parseTag(RIF_TAG&) override {
        ++tags;
        return 2;
    }
    int tags = 0;
};

// Small buckets of 64 channels, a million tags in all, their payloads left as zeros.
void makeTags(const std::string& path, bool finished) {
    constexpr int kChannels = 64;
    PFileStream stream;
    RIFile file;
    bool good = stream.Create(path.c_str(), 0) == 0 && file.Create(nullptr, &stream).empty() &&
                file.WriteHeader(32).empty();
    const Bytes payload(kPayload);
    for (int i = 0; i < kTags && good; ++i) {
        const int bucket = i / kChannels;
        int written = 0;
        good = file.WriteTagHeader(TAG_CHAN_FLOAT, kPayload, RCT_FLOAT, bucket % 128 * 16, bucket / 128 * 16,
                                   16, 16, 0, 0, i % kChannels)
                   .empty() &&
               stream.Write(payload.data(), kPayload, written) == 0;
    }
    if (finished) good = file.Close().empty() && good;
    require(good, "cannot make a file of a million tags");
}

void readHeaders(const std::string& path) {
    const PlainFile file(path);
    unsigned char header[kTagHeaderBytes];
    std::uint64_t offset = kFileHeaderBytes;
    for (int i = 0; i < kTags; ++i, offset += kTagHeaderBytes + kPayload)
        file.read(header, sizeof header, offset);
}

void compareTable(Session& session, const std::string& path, const std::vector<INFOTAG>& expected) {
    const std::uint64_t table = kFileHeaderBytes + std::uint64_t{kTags} * (kTagHeaderBytes + kPayload);
    constexpr std::size_t kTableBytes = std::size_t{kTags} * kInfoTagBytes;
    std::unique_ptr<RIFile> file;
    std::unique_ptr<unsigned char[]> bytes;
    Comparison row{"table load, 1 M tags", "one read of the table", {Goal::kTimeAtMost, 3.0}};
    row.ours = [&] {
        file = std::make_unique<RIFile>();
        require(file->Open(path.c_str(), nullptr).empty() && file->ReadInfoTags(nullptr) == 0,
                "no table was loaded");
    };
    row.plain = [&] {
        bytes.reset(new unsigned char[kTableBytes]);
        PlainFile(path).read(bytes.get(), kTableBytes, table + kTagHeaderBytes);
    };
    // Neither keeps what it loaded the time before.
    row.prepare = [&] {
        file.reset();
        bytes.reset();
    };
    row.check = [&] {
        require(file->NumTags() == kTags, "tags are missing");
        for (int i = 0; i < kTags; ++i) {
            const INFOTAG& tag = *file->GetTag(i);
            const INFOTAG& same = expected[static_cast<std::size_t>(i)];
            require(tag.offset == same.offset && tag.p2 == same.p2 && tag.p8 == same.p8, "a tag differs");
        }
    };
    session.compare(row);
}

void compareScan(Session& session, const std::string& path, const std::vector<INFOTAG>& expected) {
    RIFile file;
    Comparison row{"scan of an unclosed file, 1 M tags", "a read of each header", {Goal::kTimeAtMost, 1.5}};
    row.ours = [&] {
        int mask = 0;
        require(file.Open(path.c_str(), nullptr).empty() && file.ReadInfoTags(&mask) == 0, "the scan failed");
    };
    row.plain = [&] { readHeaders(path); };
    row.check = [&] {
        require(file.NumTags() == kTags, "tags are missing");
        for (int i = 0; i < kTags; ++i)
            require(file.GetTag(i)->offset == expected[static_cast<std::size_t>(i)].offset, "a tag differs");
    };
    session.compare(row);
}

}  // namespace

void walkRows(Session& session, const Folder& folder) {
    const std::string finished = folder.file("tags.rimg");
    const std::string unclosed = folder.file("tags_unclosed.rimg");
    makeTags(finished, true);
    makeTags(unclosed, false);
    const std::vector<INFOTAG> expected = pixelTags(finished);
    compareTable(session, finished, expected);
    compareScan(session, unclosed, expected);

    RIFile file;
    int tags = 0;
    Comparison row{"walk, every tag skipped, 1 M tags", "a read of each header", {Goal::kTimeAtMost, 1.5}};
    row.ours = [&] {
        Skipping skipping;
        require(file.Open(finished.c_str(), nullptr).empty() && file.ParseFile(skipping) == 0,
                "the walk failed");
        tags = skipping.tags;
    };
    row.plain = [&] { readHeaders(finished); };
    row.check = [&] { require(tags == kTags + 1, "the walk did not meet every tag"); };
    session.compare(row);
    std::remove(finished.c_str());
    std::remove(unclosed.c_str());
}

}  // namespace bench
