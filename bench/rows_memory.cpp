#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "bench/plain.h"
#include "bench/rows.h"
#include "rawimage/read/mt_reader.h"

namespace bench {

namespace {

constexpr double kMiB = 1 << 20;
constexpr int kBox = 512;  // large buckets, so that what is allowed on top does not cover everything
constexpr int kThreads = 2;
constexpr std::int64_t kMaxPending = 96 << 20;  // less than the buckets are, more than three of them

// Kilobytes of a line of the process's status, such as "VmHWM:".
double statusBytes(const char* field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(field, 0) == 0) return std::strtod(line.c_str() + std::strlen(field), nullptr) * 1024;
    }
    return -1;
}

// How far the memory in use goes up while `job` runs.
template <class Job>
double peakOf(Job job) {
    malloc_trim(0);  // what the job takes must not hide in what was freed before
    std::ofstream("/proc/self/clear_refs") << "5";  // the high-water mark starts anew
    const double before = statusBytes("VmRSS:");
    job();
    return statusBytes("VmHWM:") - before;
}

// Sixteen buckets of kBox x kBox pixels, overlapping where the frame is not large enough.
Frame largeBuckets(const Folder& folder) {
    Frame frame = Frame::load(folder.demo);
    std::vector<Bucket> large;
    for (int y = 0; y + kBox <= frame.height; y += kBox) {
        for (int x = 0; x + kBox <= frame.width; x += kBox)
            large.push_back(frame.crop(x, y, kBox, kBox));
    }
    frame.buckets = std::move(large);
    return frame;
}

double runChild(const char* job) {
    const std::string command = "/proc/" + std::to_string(getpid()) + "/exe --memory " + job;
    std::FILE* pipe = popen(command.c_str(), "r");
    require(pipe != nullptr, "cannot start a child");
    double bytes = -1;
    const bool read = std::fscanf(pipe, "%lf", &bytes) == 1;
    require(pclose(pipe) == 0 && read && bytes >= 0, "the child failed");
    return bytes;
}

}  // namespace

int memoryChild(const Folder& folder, const char* job) {
    const std::string path = folder.file("large.rimg");
    double bytes = -1;
    if (std::strcmp(job, "write") == 0) {
        const Frame frame = largeBuckets(folder);
        bytes = peakOf([&] { writeFrame(frame, nullptr, path, kThreads, MUtils::kCompressionLevel); });
    } else if (std::strcmp(job, "queue") == 0) {
        const Frame frame = largeBuckets(folder);
        bytes = peakOf([&] {
            writeFrame(frame, nullptr, path, kThreads, MUtils::kCompressionLevel, MUtils::Compression::kSmall,
                       kMaxPending);
        });
    } else if (std::strcmp(job, "read") == 0) {
        DroppingCallback dropping;
        bytes = peakOf([&] {
            RIFileMT file(nullptr, kThreads);
            require(file.Open(path.c_str(), nullptr).empty() && file.ParseFile(dropping) == 0,
                    "parsing failed");
        });
    }
    std::printf("%.0f\n", bytes);
    return bytes >= 0 ? 0 : 1;
}

void memoryRows(Session& session, const Folder& folder) {
    double bucket = 0, largestTag = 0;
    {
        const Frame demo = Frame::load(folder.demo, 1 << 20);
        bucket = static_cast<double>(demo.pixelBytes()) * kBox * kBox;
    }
    session.bytes("peak memory, write, 2 threads", "one bucket of all channels, raw", bucket,
                  2 * bucket + 8 * kMiB, [] { return runChild("write"); });
    session.bytes("peak memory, queue, 2 threads", "the bound of the queue", kMaxPending,
                  kMaxPending + 2 * bucket + 8 * kMiB, [] { return runChild("queue"); });
    const std::string path = folder.file("large.rimg");
    for (const INFOTAG& tag : pixelTags(path)) {
        const double raw = double{kBox} * kBox * MUtils::findPixelKind(tag.id)->valueSize;
        largestTag = std::max(largestTag, raw + static_cast<double>(tag.payloadBytes()));
    }
    const double slots = kThreads + 1;
    session.bytes("peak memory, read, 2 threads", "slots x largest tag, raw + packed", slots * largestTag,
                  1.2 * slots * largestTag + 8 * kMiB, [] { return runChild("read"); });
    std::remove(path.c_str());
}

}  // namespace bench
