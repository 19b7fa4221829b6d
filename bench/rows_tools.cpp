#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/direct_exr.h"
#include "bench/plain.h"
#include "bench/rows.h"
#include "convert/to_exr/to_exr.h"
#include "rawimage/tools/merge.h"
#include "rawimage/tools/picture.h"
#include "rawimage/tools/preview.h"

namespace bench {

namespace {

constexpr int kQuarters = 4;

void comparePreview(Session& session, const Folder& folder) {
    constexpr int kWidth = 512, kHeight = 288;
    std::vector<RGB24> picture(kWidth * kHeight), fromOneRegion(kWidth * kHeight);
    RIFile file;
    Comparison row{"preview, 512 wide", "a parse that drops every value", {Goal::kTimeAtMost, 1.15}};
    row.ours = [&] {
        RawImageInfo info;
        require(makeRawImagePreview(folder.demo.c_str(), kWidth, kHeight, picture.data(), &info, false,
                                    {0, 0, 0}, nullptr),
                "no preview was made");
    };
    row.plain = [&] {
        DroppingCallback dropping;
        require(file.Open(folder.demo.c_str(), nullptr).empty() && file.ParseFile(dropping) == 0,
                "parsing failed");
    };
    // At the borders of buckets an average takes one bucket's pixels only: nearly the same picture, not
    // exactly.
    row.check = [&] {
        const Frame frame = Frame::load(folder.demo);
        const Bucket whole = frame.crop(0, 0, frame.width, frame.height);
        MUtils::CreateRDPreview(1, 0, RCT_COLOR, RCA_COLOR, *whole.values[0], nullptr, frame.width,
                                frame.height, 0, 0, frame.width, frame.height, fromOneRegion.data(), kWidth,
                                kHeight, {255, 255, 255}, 2, nullptr, 0, 0);
        std::int64_t difference = 0;
        for (std::size_t i = 0; i < picture.size(); ++i)
            difference += std::abs(picture[i].g - fromOneRegion[i].g);
        require(difference < std::int64_t{kWidth} * kHeight, "the preview is another picture");
    };
    session.compare(row);
}

// A picture as rimg preview makes it.
void comparePicture(Session& session, const Folder& folder) {
    MUtils::PictureRequest one, two;
    one.width = two.width = 512;
    one.height = two.height = 288;
    one.useStored = two.useStored = false;
    one.threads = 1;
    two.threads = 2;
    MUtils::Picture ours, plain;
    Comparison row{"picture, 512 wide, 2 threads", "the same on one thread", {Goal::kTimeAtMost, 0.6}};
    row.ours = [&] { ours = MUtils::makePicture(folder.demo.c_str(), two); };
    row.plain = [&] { plain = MUtils::makePicture(folder.demo.c_str(), one); };
    row.check = [&] {
        require(
            ours.state == MUtils::PictureState::kGood && ours.pixels.size() == plain.pixels.size() &&
                std::memcmp(ours.pixels.data(), plain.pixels.data(), ours.pixels.size() * sizeof(RGB24)) == 0,
            "the pictures differ");
    };
    session.compare(row);
}

// The whole frame to scan lines, with nothing to compress.
void compareConversion(Session& session, const Folder& folder) {
    constexpr int kThreads = 2;
    const std::string ours = folder.file("ours.exr"), plain = folder.file("plain.exr");
    MUtils::ToExrOptions options;
    options.compression = 1;
    options.threads = kThreads;
    Frame frame = Frame::load(folder.demo);
    std::vector<Bucket> whole;
    whole.push_back(frame.crop(0, 0, frame.width, frame.height));
    frame.buckets.clear();
    const ExrSource source{frame, whole};
    const PlainFile file(folder.demo);
    const std::vector<INFOTAG> tags = pixelTags(folder.demo);
    const auto convert = [&] {
        require(MUtils::convertToExr(folder.demo, ours, options).state == MUtils::ConvertState::kGood,
                "the frame was not converted");
    };
    convert();
    const DirectExr direct(source, {ExrFile::kScanline, options.compression, options.bits}, ours);
    Comparison row{
        "convert to EXR, none, 2 threads", "uncompress, direct use of OpenEXR", {Goal::kTimeAtMost, 1.1}};
    row.ours = convert;
    row.plain = [&] {
        file.inflateAll(tags, kThreads);
        direct.write(plain);
    };
    row.check = [&] { require(direct.holds(ours), "our file does not hold the frame"); };
    row.prepare = [&] {
        std::remove(ours.c_str());
        std::remove(plain.c_str());
    };
    session.compare(row);
    row.prepare();
}

// The pixel tags of every bucket whose place, counted in buckets, has both parities of `quarter`.
void makeQuarter(const std::string& source, int quarter, const std::string& path) {
    const Frame frame = Frame::load(source, 1 << 20);
    const PlainFile from(source);
    ChannelList channels(frame.channels);
    PFileStream stream;
    RIFile file;
    bool good = stream.Create(path.c_str(), 0) == 0 && file.Create(nullptr, &stream).empty() &&
                file.WriteHeader(32).empty() && file.WTResolution(frame.width, frame.height, 1.0f).empty() &&
                file.WTChannelInfo(channels.table()).empty();
    Bytes payload;
    for (const INFOTAG& tag : pixelTags(source)) {
        const int half = (2 * tag.p2 >= frame.width ? 1 : 0) + (2 * tag.p3 >= frame.height ? 2 : 0);
        if (half != quarter) continue;
        const auto size = static_cast<int>(tag.payloadBytes());
        payload.resize(static_cast<std::size_t>(size));
        from.read(payload.data(), payload.size(), tag.offset + MUtils::kTagHeaderBytes);
        int written = 0;
        good = good &&
               file.WriteTagHeader(static_cast<int>(tag.id), size, tag.p1, tag.p2, tag.p3, tag.p4, tag.p5,
                                   tag.p6, tag.p7, tag.p8)
                   .empty() &&
               stream.Write(payload.data(), size, written) == 0;
    }
    require(file.Close().empty() && good, "cannot make a quarter of the frame");
}

// As cp does it: the system copies from file to file.
void copyFiles(const std::vector<std::string>& from, const std::string& to, bool sync) {
    const int target = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    require(target >= 0, "cannot create a copy");
    bool good = true;
    for (const std::string& name : from) {
        const int source = open(name.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status {};
        good = good && source >= 0 && fstat(source, &status) == 0;
        for (off_t left = status.st_size; good && left > 0;) {
            const ssize_t n =
                copy_file_range(source, nullptr, target, nullptr, static_cast<std::size_t>(left), 0);
            good = n > 0;
            left -= n;
        }
        if (source >= 0) close(source);
    }
    if (sync) good = fsync(target) == 0 && good;
    good = close(target) == 0 && good;
    require(good, "copying failed");
}

void compareMerge(Session& session, const Folder& folder) {
    std::vector<std::string> quarters;
    for (int i = 0; i < kQuarters; ++i) {
        quarters.push_back(folder.file("quarter") + std::to_string(i) + ".rimg");
        makeQuarter(folder.demo, i, quarters.back());
    }
    const std::string merged = folder.file("merged.rimg"), copied = folder.file("copied.rimg");
    Comparison row{"merge of four quarters", "cp", {Goal::kTimeAtMost, 1.5}};
    MUtils::MergeOptions options;
    options.sync = false;  // as cp
    row.ours = [&] {
        const MUtils::MergeReport report = MUtils::mergeFiles(quarters, merged, options);
        require(report.state == MUtils::MergeState::kGood, "merging failed");
    };
    row.plain = [&] { copyFiles(quarters, copied, false); };
    row.busy = 0;
    row.check = [&] {
        require(checksumsRead(merged, 1) == checksumsRead(folder.demo, 1), "the merged file differs");
    };
    row.prepare = [&] {
        std::remove(merged.c_str());
        std::remove(copied.c_str());
    };
    session.compare(row);

    options.sync = true;
    row.against = "cp, and the copy on the disk";
    row.plain = [&] { copyFiles(quarters, copied, true); };
    session.compare(row);
    row.prepare();
    for (const std::string& quarter : quarters)
        std::remove(quarter.c_str());
}

}  // namespace

void toolRows(Session& session, const Folder& folder) {
    comparePreview(session, folder);
    comparePicture(session, folder);
    compareConversion(session, folder);
    compareMerge(session, folder);
}

}  // namespace bench
