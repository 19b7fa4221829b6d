#pragma once

#include "bench/frame.h"
#include "bench/harness.h"
#include "rawimage/read/callback.h"

// The rows of the table, in groups that share their data.

namespace bench {

void compressorRows(Session& session, const Folder& folder, bool allBuckets);
// Every way to write a frame, OpenEXR's too, against the fastest raw image.
void choiceRows(Session& session, const Folder& folder);
void writeRows(Session& session, const Folder& folder, bool allBuckets);
void readRows(Session& session, const Folder& folder);
void walkRows(Session& session, const Folder& folder);
void frameRows(Session& session, const Folder& folder);
void exrRows(Session& session, const Folder& folder);
void toolRows(Session& session, const Folder& folder);
void queueRows(Session& session, const Folder& folder);
void memoryRows(Session& session, const Folder& folder);

// What a child process of memoryRows() does: the named job, then the bytes of its peak on stdout.
int memoryChild(const Folder& folder, const char* job);

// Writes a frame's buckets as a raw image, with `maxPending` above 0 through a queue of as many bytes. Throws
// on any error.
void writeFrame(const Frame& frame, PStream* stream, const std::string& path, int threads, int level,
                MUtils::Compression compression = MUtils::Compression::kSmall, std::int64_t maxPending = 0);
// Compares a writer of a frame's buckets at level 9 with the plain loop on as many threads.
void compareWriting(Session& session, const Frame& frame, const std::string& name, int threads, Goal goal,
                    std::int64_t maxPending = 0);

// Parses a file from its beginning. Throws when that fails.
void parse(RIFile& file, const std::string& path, RIFileCallback& callback);

// Accepts everything and keeps nothing.
class DroppingCallback : public RIFileCallback {
  public:
    bool setResolution(int, int, float) override { return true; }
    bool setNumChannels(int) override { return true; }
    bool setChannel(int, RegionChannelType, RegionChannelAlias, const char*) override { return true; }
    bool setImageData(const MBVTable&, int, int, int, int, int, int, int, int) override { return true; }
};

}  // namespace bench
