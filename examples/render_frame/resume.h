#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "examples/render_frame/channels.h"
#include "examples/render_frame/options.h"

namespace render_frame {

// A bucket to render, and the channels of it to write.
struct BucketTask {
    Bucket bucket;
    ChannelMask channels = kAllChannels;
};

// Whether the file has anything to go on with. False when it is not there, is empty, or ends before its first
// bucket.
bool hasBegun(const std::string& path);

// Checks that `options.resume` is a raw image that this program has begun, and sound as far as it goes, and
// takes size, bucket, region, frame, samples and seed from it. Reads the whole file, changes nothing. False
// when nothing is left to do. Throws Failure, also when the command line asks for another frame, and when
// `stop` becomes true.
bool examineFile(Options& options, const std::atomic<bool>& stop);

// Cuts half a tag, or the table, off the end of the file that examineFile() has found good. Throws Failure.
void cutEnd(const std::string& path);

// The tasks that are left of `buckets`, in their order. `more` becomes true when the file has so many holes
// that they are not all listed. Asked for while the file is open for writing, the answer stays true. Throws
// Failure.
std::vector<BucketTask> missingTasks(const Options& options, const std::vector<Bucket>& buckets, bool& more);

}  // namespace render_frame
